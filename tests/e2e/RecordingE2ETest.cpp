// A person's recording, end to end: the real kestil program in a private X
// server, a private PulseAudio server whose virtual microphone hears speech
// that espeak-ng synthesised, live transcription by each engine (PocketSphinx
// in a fresh data folder, Whisper with the real "base" model installed), and
// the keyboard as the only way in. Everything is checked afterwards in the
// store and on disk.
#include "DesktopSession.h"
#include "RecordingE2ESupport.h"

#include "capture/DurableAudioWriter.h"
#include "core/NoteTranscript.h"
#include "core/SharedPersistenceController.h"
#include "speech/engines/SpeechTestSupport.h"
#include "support/PulseAudioServer.h"
#include "support/SoundFiles.h"

#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>

using namespace kestil;
using namespace kestil::testing;

namespace {

struct Engine {
    const char *name;
    bool whisper;
    // The share of each phrase's words that must reach the note.
    double heard;
};

class RecordingE2ETest : public ::testing::TestWithParam<Engine> {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(test::PulseAudioServer::available()) << "pulseaudio, pactl and paplay are needed";
        const QString problem = pulse.start();
        ASSERT_TRUE(problem.isEmpty()) << problem.toStdString();
        ASSERT_TRUE(desktop.started()) << "Xvfb did not start";
        ASSERT_TRUE(speak(firstPhrase, work.filePath(QStringLiteral("first.wav"))));
        ASSERT_TRUE(speak(secondPhrase, work.filePath(QStringLiteral("second.wav"))));
        ASSERT_TRUE(speak(thirdPhrase, work.filePath(QStringLiteral("third.wav"))));
        data = work.filePath(QStringLiteral("data"));
        if (GetParam().whisper)
            test::installRealWhisperModel(data);
    }

    // Screenshots of the Whisper run get the engine's name.
    QString shot(const char *name) const
    {
        return QLatin1String(name) + (GetParam().whisper ? QStringLiteral("-whisper") : QString());
    }
    void TearDown() override
    {
        if (HasFailure())
            std::cerr << "kestil's output:\n" << desktop.kestilOutput().toStdString() << std::endl;
    }

    // Plays a phrase into the virtual microphone and waits until it has
    // passed through the server and the capture buffers.
    void say(const char *file, const QString &screenshotWhileSpeaking = {})
    {
        if (!screenshotWhileSpeaking.isEmpty()) {
            auto player = pulse.startPlaying(work.filePath(QLatin1String(file)),
                                             QLatin1String(test::PulseAudioServer::micFeed));
            QThread::msleep(1800);
            desktop.screenshot(screenshotWhileSpeaking);
            ASSERT_TRUE(player->waitForFinished(60000));
            ASSERT_EQ(player->exitCode(), 0) << player->readAll().toStdString();
            QThread::msleep(1500);
            return;
        }
        QString error;
        ASSERT_TRUE(pulse.play(work.filePath(QLatin1String(file)),
                               QLatin1String(test::PulseAudioServer::micFeed), &error))
            << error.toStdString();
        QThread::msleep(1500);
    }

    bool press(const QString &keys) { return desktop.pressKeys(window, keys); }

    // Another program comes to the front: the floating indicator appears
    // over it, and goes when Kestil is in front again.
    void showTheIndicatorBehindAnotherApplication()
    {
        if (QStandardPaths::findExecutable(QStringLiteral("xmessage")).isEmpty()) {
            std::cerr << "xmessage (x11-utils) is missing: the indicator is not checked" << std::endl;
            return;
        }
        auto other = desktop.startProgram(QStringLiteral("xmessage"),
                                          {QStringLiteral("-geometry"), QStringLiteral("+60+120"),
                                           QStringLiteral("-title"), QStringLiteral("Another application"),
                                           QStringLiteral("Another application is in front.")});
        QString otherWindow;
        ASSERT_TRUE(eventually(
            [&] {
                return !(otherWindow = desktop.findWindow(QStringLiteral("Another application"))).isEmpty();
            },
            10000));
        ASSERT_TRUE(desktop.focus(otherWindow));
        EXPECT_TRUE(
            eventually([&] { return !desktop.findWindow(QStringLiteral("^Transcribing$")).isEmpty(); }, 3000))
            << "the floating indicator did not appear";
        QThread::msleep(300);
        desktop.screenshot(shot("recording-1b-indicator"));
        ASSERT_TRUE(desktop.focus(window));
        EXPECT_TRUE(
            eventually([&] { return desktop.findWindow(QStringLiteral("^Transcribing$")).isEmpty(); }, 3000))
            << "the floating indicator stayed over Kestil";
        other->kill();
        other->waitForFinished(5000);
    }

    // Ctrl+N, then the first segment's manifest: capture has begun (live
    // speech was ready before it).
    void startRecording()
    {
        ASSERT_TRUE(press(QStringLiteral("ctrl+n")));
        ASSERT_TRUE(eventually([&] { return segmentFolders(data).size() == 1; }, 60000))
            << "no recording began after Ctrl+N";
    }

    test::PulseAudioServer pulse;
    DesktopSession desktop;
    QTemporaryDir work;
    QString data;
    QString window;
};

TEST_P(RecordingE2ETest, RecordPauseResumeAndStopKeepTheWordsTheirTimesAndPlayableAudio)
{
    window = desktop.launchKestil(data);
    ASSERT_FALSE(window.isEmpty()) << "no Kestil window appeared";
    desktop.screenshot(shot("recording-0-empty-library"));

    startRecording();
    say("first.wav", shot("recording-1a-speaking"));
    ASSERT_TRUE(eventually(
        [&] {
            const auto notes = readStoredNotes(data);
            return notes.size() == 1 && !notes[0].transcription.isEmpty();
        },
        30000))
        << "no committed transcript reached the store while recording";
    const QString recordingShot = desktop.screenshot(shot("recording-1-live"));
    EXPECT_GT(desktop.contrast(recordingShot), 0.05);
    showTheIndicatorBehindAnotherApplication();

    ASSERT_TRUE(press(QStringLiteral("ctrl+shift+p"))); // pause: the segment is completed
    ASSERT_TRUE(eventually([&] { return manifestComplete(segmentFolders(data).value(0)); }, 15000));
    desktop.screenshot(shot("recording-2-paused"));
    ASSERT_TRUE(press(QStringLiteral("ctrl+shift+p"))); // resume: a new segment
    ASSERT_TRUE(eventually([&] { return segmentFolders(data).size() == 2; }, 15000));
    say("second.wav");
    say("third.wav");

    ASSERT_TRUE(press(QStringLiteral("ctrl+shift+s"))); // stop
    const bool finished = eventually(
        [&] {
            const QStringList segments = segmentFolders(data);
            return segments.size() == 2 && std::all_of(segments.begin(), segments.end(), manifestComplete);
        },
        30000);
    QThread::msleep(1500); // the final transcript is saved after the audio is closed
    const QString finishedShot = desktop.screenshot(shot("recording-3-finished"));
    ASSERT_TRUE(finished) << "the segments were not finished after stop";
    EXPECT_GT(desktop.contrast(finishedShot), 0.05);

    ASSERT_TRUE(press(QStringLiteral("ctrl+q")));
    ASSERT_TRUE(desktop.waitForKestilExit(30000)) << "Ctrl+Q did not end kestil";
    EXPECT_EQ(desktop.kestilExitCode(), 0);

    SharedPersistenceController store(data);
    ASSERT_TRUE(store.ready());
    const QList<NotePtr> notes = store.fetchNotes();
    ASSERT_EQ(notes.size(), 1);
    const NotePtr note = notes.first();
    const QString text = note->transcription().value_or(QString());
    EXPECT_GE(wordsHeard(firstPhrase, text), GetParam().heard) << text.toStdString();
    EXPECT_GE(wordsHeard(secondPhrase, text), GetParam().heard) << text.toStdString();
    EXPECT_EQ(test::repeatedPhrases(
                  firstPhrase + QLatin1Char(' ') + secondPhrase + QLatin1Char(' ') + thirdPhrase, text),
              QString())
        << "no phrase twice: " << text.toStdString();
    EXPECT_EQ(note->sourceURL().value_or(QString()).toStdString(),
              "Recordings/" + note->id()->toString(QUuid::WithoutBraces).toUpper().toStdString());
    EXPECT_EQ(note->noteType().value_or(QString()).toStdString(), "transcription");

    // The stored paragraphs: several utterances, each timed on the note's
    // audio, in order.
    const QList<TranscriptUtterance> utterances = transcriptUtterances(*note);
    ASSERT_GE(utterances.size(), 2) << note->transcriptUtterancesJSON().value_or(QString()).toStdString();
    double previous = -1;
    for (const auto &u : utterances) {
        ASSERT_TRUE(u.start && u.end) << u.text.toStdString();
        EXPECT_GT(*u.start, previous) << u.text.toStdString();
        EXPECT_GE(*u.end, *u.start);
        previous = *u.start;
    }

    const QStringList segments = segmentFolders(data);
    ASSERT_EQ(segments.size(), 2) << "one segment before the pause and one after";
    for (const QString &segment : segments) {
        // The playable file, as a player asks for it.
        QString error;
        QString playable;
        ASSERT_NO_THROW(playable = DurableAudioWriter::finalAudioURL(segment));
        EXPECT_EQ(QFileInfo(playable).fileName().toStdString(), "audio.caf");
        const auto sound = test::readSoundFile(playable, &error);
        ASSERT_TRUE(sound) << error.toStdString();
        EXPECT_EQ(sound->channels, 1);
        EXPECT_GT(sound->frames(), sound->sampleRate)
            << "more than a second of audio in " << segment.toStdString();
        const auto loudest = std::max_element(sound->samples.begin(), sound->samples.end(),
                                              [](float a, float b) { return std::abs(a) < std::abs(b); });
        EXPECT_GT(std::abs(*loudest), 0.05f) << "the speech is in " << segment.toStdString();
    }
}

INSTANTIATE_TEST_SUITE_P(Engines, RecordingE2ETest,
                         ::testing::Values(Engine{"PocketSphinx", false, 0.5}, Engine{"Whisper", true, 0.8}),
                         [](const ::testing::TestParamInfo<Engine> &engine) {
                             return std::string(engine.param.name);
                         });

} // namespace
