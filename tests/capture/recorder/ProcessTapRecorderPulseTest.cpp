// The recording session as the program builds it: the sound server's sources
// (a private PulseAudio server), the durable writer and live transcription
// with PocketSphinx. Speech is synthesised by espeak-ng and played with
// paplay. Pausing and resuming through the real program is the end-to-end
// tests' business.
#include "RecorderTestSupport.h"

#include "capture/MonoMix.h"
#include "capture/ProcessTapRecorder.h"
#include "support/PulseAudioServer.h"
#include "support/SoundFiles.h"

#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::test;
using namespace std::chrono_literals;

namespace {

const QString phrase = "we should schedule another meeting next week to discuss the budget";

// The share of the phrase's words that were heard.
double wordsHeard(const QString &heard)
{
    const QRegularExpression separator("[^a-z']+");
    const QStringList expected = phrase.split(separator, Qt::SkipEmptyParts);
    const QStringList got = heard.toLower().split(separator, Qt::SkipEmptyParts);
    const QSet<QString> present(got.begin(), got.end());
    int found = 0;
    for (const QString &word : expected)
        found += present.contains(word) ? 1 : 0;
    return double(found) / double(expected.size());
}

} // namespace

// What the computer plays reaches the microphone's segment and the live
// transcript; when the server then goes away the session stops itself, says
// why, and keeps the words and the audio it had.
TEST(ProcessTapRecorderPulseTest, SystemAudioIsTranscribedAndAServerThatGoesAwayLeavesItAllKept)
{
    application();
    // The program's own preferences and data folder, fresh: no whisper model
    // is installed, so English runs on PocketSphinx.
    QTemporaryDir dir;
    qputenv("KESTIL_DATA_DIR", dir.filePath("data").toUtf8());
    qputenv("KESTIL_CONFIG_DIR", dir.filePath("config").toUtf8());
    ASSERT_TRUE(PulseAudioServer::available()) << "pulseaudio, pactl and paplay are needed";
    PulseAudioServer server;
    const QString problem = server.start();
    ASSERT_TRUE(problem.isEmpty()) << problem.toStdString();
    // espeak-ng's Klatt voice, which PocketSphinx's acoustic model hears best.
    const QString speech = dir.filePath("meeting.wav");
    QString error;
    ASSERT_TRUE(synthesizeSpeech(phrase, speech, &error, "en-us+klatt4", 150)) << error.toStdString();

    const QString root = dir.filePath("root");
    const QUuid noteID = QUuid::createUuid();
    ProcessTapRecorder recorder;
    float loudest = 0;
    QObject::connect(&recorder, &ProcessTapRecorder::currentAudioLevelChanged,
                     [&](float level) { loudest = std::max(loudest, level); });
    const QFuture<void> started = recorder.start(root, noteID, true);
    ASSERT_TRUE(waitFor(started, 60s));
    ASSERT_EQ(failureOf(started), "(no error)");
    EXPECT_TRUE(recorder.errorMessage().isEmpty()) << recorder.errorMessage().toStdString();

    ASSERT_TRUE(server.play(speech, QLatin1String(PulseAudioServer::speakers), &error))
        << error.toStdString();
    // Half a second more reaches the disk, so the whole phrase was heard
    // before the server goes.
    const QString segment = segmentsOf(root, noteID).value(0);
    const qint64 played = DurableAudioWriter::frameCount(segment);
    ASSERT_TRUE(waitUntil([&] { return DurableAudioWriter::frameCount(segment) >= played + 24000; }));
    EXPECT_GT(loudest, 0.02f);

    server.stop();
    ASSERT_TRUE(waitUntil([&] { return !recorder.recording() && !recorder.finishing(); }, 30s));
    EXPECT_TRUE(recorder.errorMessage().startsWith("Capture stopped: The sound server ended the system audio "
                                                   "recording: "))
        << recorder.errorMessage().toStdString();
    EXPECT_TRUE(recorder.errorMessage().endsWith(". Captured audio was preserved."));
    std::cout << "heard: " << recorder.transcription().toStdString() << "\n";
    EXPECT_GE(wordsHeard(recorder.transcription()), 0.5) << recorder.transcription().toStdString();
    const auto utterances = recorder.transcriptValue().utterances;
    ASSERT_FALSE(utterances.isEmpty());
    for (int i = 0; i < utterances.size(); ++i) {
        EXPECT_LE(utterances[i].start, utterances[i].end);
        EXPECT_GT(utterances[i].start, i > 0 ? utterances[i - 1].start : -1.0);
    }

    // One complete segment, playable, mono, at the server's rate, holding the speech.
    EXPECT_EQ(segmentsOf(root, noteID), QStringList{segment});
    const auto manifest = LocalRecordingManifest::read(segment);
    EXPECT_TRUE(manifest.complete);
    EXPECT_EQ(manifest.sampleRate, 48000.0);
    const auto audio = readSoundFile(DurableAudioWriter::finalAudioURL(segment));
    ASSERT_TRUE(audio);
    EXPECT_EQ(audio->frames(), DurableAudioWriter::frameCount(segment));
    EXPECT_EQ(audio->channels, 1);
    EXPECT_GT(peakLevel(audio->samples), 0.02f);
}
