// The recording session as the program runs it: the sound server's sources
// (a private PulseAudio server whose virtual microphone hears what is played
// into it), the durable writer and live transcription with PocketSphinx.
// Speech is synthesised by espeak-ng and played with paplay.
#include "RecorderTestSupport.h"

#include "capture/MonoMix.h"
#include "capture/ProcessTapRecorder.h"
#include "support/PulseAudioServer.h"
#include "support/SoundFiles.h"

#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sndfile.h>

using namespace kestil;
using namespace kestil::test;
using namespace std::chrono_literals;

namespace {

const QString firstPhrase = "we should schedule another meeting next week to discuss the budget";
const QString secondPhrase = "please send the quarterly report to the finance team before friday";

QStringList wordsOf(const QString &text)
{
    return text.toLower().split(QRegularExpression("[^a-z']+"), Qt::SkipEmptyParts);
}

// The share of the reference's words that were heard.
double wordsHeard(const QString &reference, const QString &heard)
{
    const QStringList expected = wordsOf(reference);
    const QStringList got = wordsOf(heard);
    const QSet<QString> present(got.begin(), got.end());
    int found = 0;
    for (const QString &word : expected)
        found += present.contains(word) ? 1 : 0;
    return expected.isEmpty() ? 0 : double(found) / double(expected.size());
}

// espeak-ng's Klatt voice, which PocketSphinx's acoustic model hears best.
QString speak(const QString &text, const QString &wav)
{
    QString error;
    EXPECT_TRUE(synthesizeSpeech(text, wav, &error, "en-us+klatt4", 150)) << error.toStdString();
    return wav;
}

// Frames, rate and channels of a playable file, as a player opens it.
struct Playable {
    qint64 frames = -1;
    int rate = 0;
    int channels = 0;
    float peak = 0;
};

Playable open(const QString &file)
{
    Playable result;
    const auto sound = readSoundFile(file);
    if (!sound)
        return result;
    result.frames = sound->frames();
    result.rate = sound->sampleRate;
    result.channels = sound->channels;
    result.peak = peakLevel(sound->samples);
    return result;
}

class ProcessTapRecorderPulseTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        application();
        // The program's own preferences and data folder, fresh: no whisper
        // model is installed, so English runs on PocketSphinx.
        home = new QTemporaryDir;
        qputenv("KESTIL_DATA_DIR", home->filePath("data").toUtf8());
        qputenv("KESTIL_CONFIG_DIR", home->filePath("config").toUtf8());
    }
    static void TearDownTestSuite()
    {
        delete home;
        home = nullptr;
    }

    void SetUp() override
    {
        ASSERT_TRUE(PulseAudioServer::available()) << "pulseaudio, pactl and paplay are needed";
        const QString problem = server.start();
        ASSERT_TRUE(problem.isEmpty()) << problem.toStdString();
        ASSERT_TRUE(dir.isValid());
        root = dir.filePath("root");
    }

    void play(const QString &file, const char *sink)
    {
        QString error;
        ASSERT_TRUE(server.play(file, QLatin1String(sink), &error)) << error.toStdString();
        // What was played has left the server's buffers and reached the writer.
        settle(800ms);
    }

    static inline QTemporaryDir *home = nullptr;
    PulseAudioServer server;
    QTemporaryDir dir;
    QString root;
    const QUuid noteID = QUuid::createUuid();
};

} // namespace

TEST_F(ProcessTapRecorderPulseTest,
       SpeechIntoTheMicrophoneAcrossAPauseBecomesATimedTranscriptAndPlayableAudio)
{
    const QString first = speak(firstPhrase, dir.filePath("first.wav"));
    const QString second = speak(secondPhrase, dir.filePath("second.wav"));
    ProcessTapRecorder recorder;
    float loudest = 0;
    QObject::connect(&recorder, &ProcessTapRecorder::currentAudioLevelChanged,
                     [&](float level) { loudest = std::max(loudest, level); });

    const QFuture<void> started = recorder.start(root, noteID, false);
    ASSERT_TRUE(waitFor(started, 60s));
    ASSERT_EQ(failureOf(started), "(no error)");
    ASSERT_TRUE(recorder.recording());
    EXPECT_TRUE(recorder.errorMessage().isEmpty()) << recorder.errorMessage().toStdString();

    play(first, PulseAudioServer::micFeed);
    recorder.togglePause();
    ASSERT_TRUE(recorder.paused());
    const double pausedAt = recorder.elapsed();
    EXPECT_GT(pausedAt, 3.0);
    recorder.togglePause();
    ASSERT_FALSE(recorder.paused());
    play(second, PulseAudioServer::micFeed);

    const QFuture<QString> stopped = recorder.stop();
    ASSERT_TRUE(waitFor(stopped, 60s));
    const QString text = stopped.result();
    std::cout << "heard: " << text.toStdString() << "\n";
    EXPECT_TRUE(recorder.errorMessage().isEmpty()) << recorder.errorMessage().toStdString();
    EXPECT_GT(recorder.elapsed(), pausedAt + 3.0);
    EXPECT_GT(loudest, 0.05f);
    EXPECT_EQ(recorder.currentAudioLevel(), 0.0f);

    // The words of both stretches, in order, at increasing times.
    EXPECT_GE(wordsHeard(firstPhrase, text), 0.5) << text.toStdString();
    EXPECT_GE(wordsHeard(secondPhrase, text), 0.5) << text.toStdString();
    const auto utterances = recorder.transcriptValue().utterances;
    ASSERT_GE(utterances.size(), 2);
    for (int i = 1; i < utterances.size(); ++i)
        EXPECT_GT(utterances[i].start, utterances[i - 1].start);
    for (const LocalUtterance &utterance : utterances)
        EXPECT_LE(utterance.start, utterance.end);

    // One segment for each stretch, each complete and playable.
    const QStringList segments = segmentsOf(root, noteID);
    ASSERT_EQ(segments.size(), 2);
    for (const QString &segment : segments) {
        const auto manifest = LocalRecordingManifest::read(segment);
        EXPECT_TRUE(manifest.complete);
        EXPECT_EQ(manifest.sampleRate, 48000.0);
        const Playable audio = open(DurableAudioWriter::finalAudioURL(segment));
        EXPECT_EQ(audio.frames, DurableAudioWriter::frameCount(segment));
        EXPECT_EQ(audio.rate, 48000);
        EXPECT_EQ(audio.channels, 1);
        EXPECT_GT(audio.frames, 48000 * 3);
        EXPECT_GT(audio.peak, 0.05f) << "the segment holds the speech";
    }
}

TEST_F(ProcessTapRecorderPulseTest, WhatTheComputerPlaysIsRecordedAndTranscribedWithTheMicrophone)
{
    const QString speech = speak(firstPhrase, dir.filePath("meeting.wav"));
    ProcessTapRecorder recorder;
    const QFuture<void> started = recorder.start(root, noteID, true);
    ASSERT_TRUE(waitFor(started, 60s));
    ASSERT_EQ(failureOf(started), "(no error)");

    play(speech, PulseAudioServer::speakers);
    const QFuture<QString> stopped = recorder.stop();
    ASSERT_TRUE(waitFor(stopped, 60s));
    std::cout << "heard: " << stopped.result().toStdString() << "\n";
    EXPECT_GE(wordsHeard(firstPhrase, stopped.result()), 0.5) << stopped.result().toStdString();

    const QStringList segments = segmentsOf(root, noteID);
    ASSERT_EQ(segments.size(), 1);
    const Playable audio = open(DurableAudioWriter::finalAudioURL(segments[0]));
    EXPECT_EQ(audio.channels, 1);
    EXPECT_GT(audio.peak, 0.02f);
}

TEST_F(ProcessTapRecorderPulseTest, ASoundServerThatGoesAwayStopsTheSessionAndKeepsTheAudio)
{
    const QString speech = speak(secondPhrase, dir.filePath("call.wav"));
    ProcessTapRecorder recorder;
    const QFuture<void> started = recorder.start(root, noteID, false);
    ASSERT_TRUE(waitFor(started, 60s));
    ASSERT_EQ(failureOf(started), "(no error)");
    play(speech, PulseAudioServer::micFeed);
    // The server goes away once the phrase has been heard, so the test is
    // about what survives, not about a race with the decoder.
    waitUntil([&] { return wordsHeard(secondPhrase, recorder.transcription()) >= 0.3; }, 30s);

    server.stop();
    ASSERT_TRUE(waitUntil([&] { return !recorder.recording() && !recorder.finishing(); }, 30s));
    EXPECT_TRUE(recorder.errorMessage().startsWith("Capture stopped: "))
        << recorder.errorMessage().toStdString();
    EXPECT_TRUE(recorder.errorMessage().endsWith(". Captured audio was preserved."));
    // What was heard before the server went away is kept (this phrase comes
    // out of PocketSphinx at about 45% of its words).
    EXPECT_GE(wordsHeard(secondPhrase, recorder.transcription()), 0.3)
        << recorder.transcription().toStdString();

    const QStringList segments = segmentsOf(root, noteID);
    ASSERT_EQ(segments.size(), 1);
    EXPECT_TRUE(LocalRecordingManifest::read(segments[0]).complete);
    EXPECT_GT(open(DurableAudioWriter::finalAudioURL(segments[0])).peak, 0.05f);
}
