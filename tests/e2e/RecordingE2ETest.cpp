// The real kestil under Xvfb records synthesised speech from a private
// PulseAudio server with Whisper "base", driven by the keyboard: paused,
// resumed and stopped; the next recording is cut off by SIGKILL and recovered
// at the launch after. (PocketSphinx records in the privacy test.)
#include "DesktopSession.h"
#include "RecordingE2ESupport.h"

#include "capture/DurableAudioWriter.h"
#include "core/NoteTranscript.h"
#include "core/SharedPersistenceController.h"
#include "speech/engines/SpeechTestSupport.h"
#include "support/PulseAudioServer.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>

using namespace kestil;
using namespace Qt::StringLiterals;
using namespace kestil::testing;

namespace {

class RecordingE2ETest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(test::PulseAudioServer::available()) << "pulseaudio, pactl and paplay are needed";
        const QString problem = pulse.start();
        ASSERT_TRUE(problem.isEmpty()) << problem.toStdString();
        ASSERT_TRUE(desktop.started()) << "Xvfb did not start";
        for (const auto &[file, phrase] :
             {std::pair{"first.wav", firstPhrase}, {"second.wav", secondPhrase}, {"third.wav", thirdPhrase}})
            ASSERT_TRUE(speak(phrase, work.filePath(QLatin1String(file))));
        data = work.filePath(u"data"_s);
        test::installRealWhisperModel(data);
    }
    void TearDown() override
    {
        if (HasFailure())
            std::cerr << "kestil's output:\n" << desktop.kestilOutput().toStdString() << std::endl;
    }

    // Plays a phrase, then lets it pass the server and the capture buffers.
    void say(const char *file, const QString &screenshotWhileSpeaking = {})
    {
        auto player = pulse.startPlaying(work.filePath(QLatin1String(file)),
                                         QLatin1String(test::PulseAudioServer::micFeed));
        if (!screenshotWhileSpeaking.isEmpty()) {
            QThread::msleep(1800);
            desktop.screenshot(screenshotWhileSpeaking);
        }
        ASSERT_TRUE(player->waitForFinished(60000));
        ASSERT_EQ(player->exitCode(), 0) << player->readAll().toStdString();
        QThread::msleep(1500);
    }

    bool press(const QString &keys) { return desktop.pressKeys(window, keys); }

    void startRecording(int segments)
    {
        ASSERT_TRUE(press(u"ctrl+n"_s));
        ASSERT_TRUE(eventually([&] { return segmentFolders(data).size() == segments; }, 60000))
            << "no recording began after Ctrl+N";
    }

    void quit()
    {
        ASSERT_TRUE(press(u"ctrl+q"_s));
        ASSERT_TRUE(desktop.waitForKestilExit(30000)) << "Ctrl+Q did not end kestil";
        EXPECT_EQ(desktop.kestilExitCode(), 0);
    }

    test::PulseAudioServer pulse;
    DesktopSession desktop;
    QTemporaryDir work;
    QString data;
    QString window;
};

TEST_F(RecordingE2ETest, RecordPauseResumeStopAndACrashKeepTheWordsTheirTimesAndPlayableAudio)
{
    window = desktop.launchKestil(data);
    ASSERT_FALSE(window.isEmpty()) << "no Kestil window appeared";
    desktop.screenshot(u"recording-0-empty-library"_s);

    ASSERT_NO_FATAL_FAILURE(startRecording(1));
    say("first.wav", u"recording-1a-speaking"_s);
    ASSERT_TRUE(eventually([&] { return !storedTranscript(data).isEmpty(); }, 30000))
        << "no committed transcript reached the store while recording";
    EXPECT_GT(desktop.contrast(desktop.screenshot(u"recording-1-live"_s)), 0.05);

    ASSERT_TRUE(press(u"ctrl+shift+p"_s)); // pause: the segment is completed
    ASSERT_TRUE(eventually([&] { return manifestComplete(segmentFolders(data).value(0)); }, 15000));
    desktop.screenshot(u"recording-2-paused"_s);
    ASSERT_TRUE(press(u"ctrl+shift+p"_s)); // resume: a new segment
    ASSERT_TRUE(eventually([&] { return segmentFolders(data).size() == 2; }, 15000));
    say("second.wav");
    say("third.wav"); // enough speech after the pause for more than one paragraph

    ASSERT_TRUE(press(u"ctrl+shift+s"_s)); // stop
    const bool finished = eventually(
        [&] {
            const QStringList now = segmentFolders(data);
            return now.size() == 2 && std::all_of(now.begin(), now.end(), manifestComplete);
        },
        30000);
    QThread::msleep(1500); // the final transcript is saved after the audio is closed
    const QString finishedShot = desktop.screenshot(u"recording-3-finished"_s);
    ASSERT_TRUE(finished) << "the segments were not finished after stop";
    EXPECT_GT(desktop.contrast(finishedShot), 0.05);
    ASSERT_NO_FATAL_FAILURE(quit());
    const auto noteOf = [](const QString &segment) {
        return QFileInfo(QFileInfo(segment).path()).fileName();
    };
    const QString recorded = noteOf(segmentFolders(data).value(0));

    // The next recording is cut off by a crash once its words are in the store.
    window = desktop.launchKestil(data);
    ASSERT_FALSE(window.isEmpty());
    ASSERT_NO_FATAL_FAILURE(startRecording(3));
    QString cutOff;
    for (const QString &segment : segmentFolders(data))
        cutOff = noteOf(segment) == recorded ? cutOff : segment;
    QString error;
    ASSERT_TRUE(
        pulse.play(work.filePath(u"first.wav"_s), QLatin1String(test::PulseAudioServer::micFeed), &error))
        << error.toStdString();
    ASSERT_TRUE(eventually(
        [&] { return wordsHeard(firstPhrase, storedTranscript(data, noteOf(cutOff))) >= 0.5; }, 30000))
        << "the spoken words never reached the store";
    desktop.killKestil();
    const QString committed = storedTranscript(data, noteOf(cutOff));
    ASSERT_FALSE(manifestComplete(cutOff)) << "the session was cut off before it could finish";
    EXPECT_FALSE(QFile::exists(cutOff + u"/audio.caf"_s));

    window = desktop.launchKestil(data);
    ASSERT_FALSE(window.isEmpty()) << "kestil did not start again after the crash";
    EXPECT_GT(desktop.contrast(desktop.screenshot(u"recording-4-recovered"_s)), 0.05);
    EXPECT_TRUE(desktop.kestilOutput().contains(
        u"Recovered 1 interrupted transcription session(s). Select a note to continue."_s));
    quit();

    SharedPersistenceController store(data);
    ASSERT_TRUE(store.ready());
    const QList<NotePtr> notes = store.fetchNotes();
    ASSERT_EQ(notes.size(), 2);
    for (const NotePtr &note : notes) {
        const QString id = note->id()->toString(QUuid::WithoutBraces).toUpper();
        SCOPED_TRACE(id.toStdString());
        EXPECT_EQ(note->sourceURL().value_or(QString()), u"Recordings/"_s + id);
        EXPECT_EQ(note->noteType().value_or(QString()).toStdString(), "transcription");
        const QString text = note->transcription().value_or(QString());
        if (id != recorded) {
            EXPECT_EQ(text, committed) << "the note holds the transcript of its last committed snapshot";
            continue;
        }
        EXPECT_GE(wordsHeard(firstPhrase, text), 0.8) << text.toStdString();
        EXPECT_GE(wordsHeard(secondPhrase, text), 0.8) << text.toStdString();
        EXPECT_EQ(test::repeatedPhrases(
                      firstPhrase + QLatin1Char(' ') + secondPhrase + QLatin1Char(' ') + thirdPhrase, text),
                  QString())
            << "no phrase twice: " << text.toStdString();
        // The stored paragraphs: several utterances, each timed on the
        // note's audio, in order.
        const QList<TranscriptUtterance> utterances = transcriptUtterances(*note);
        ASSERT_GE(utterances.size(), 2) << note->transcriptUtterancesJSON().value_or(QString()).toStdString();
        double previous = -1;
        for (const auto &u : utterances) {
            ASSERT_TRUE(u.start && u.end) << u.text.toStdString();
            EXPECT_GT(*u.start, previous) << u.text.toStdString();
            EXPECT_GE(*u.end, *u.start);
            previous = *u.start;
        }
    }

    // One segment before the pause and one after, and the one rebuilt after
    // the crash: each a playable file with the speech in it.
    ASSERT_EQ(segmentFolders(data, recorded).size(), 2);
    for (const QString &segment : segmentFolders(data)) {
        SCOPED_TRACE(segment.toStdString());
        EXPECT_TRUE(manifestComplete(segment));
        QString playable;
        ASSERT_NO_THROW(playable = DurableAudioWriter::finalAudioURL(segment));
        EXPECT_EQ(QFileInfo(playable).fileName().toStdString(), "audio.caf");
        const auto sound = test::readSoundFile(playable, &error);
        ASSERT_TRUE(sound) << error.toStdString();
        EXPECT_EQ(sound->channels, 1);
        EXPECT_GT(sound->frames(), sound->sampleRate * (segment == cutOff ? 2 : 1));
        const auto loudest = std::max_element(sound->samples.begin(), sound->samples.end(),
                                              [](float a, float b) { return std::abs(a) < std::abs(b); });
        EXPECT_GT(std::abs(*loudest), 0.05f) << "the speech is in it";
    }
}

} // namespace
