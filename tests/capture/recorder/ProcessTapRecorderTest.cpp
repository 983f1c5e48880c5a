#include "RecorderTestSupport.h"

#include "support/SoundFiles.h"
#include "support/TmpfsMount.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstring>

using namespace kestil;
using namespace kestil::test;
using namespace std::chrono_literals;

namespace {

const QUuid noteID = QUuid::fromString("0F1E2D3C-4B5A-4978-8695-A4B3C2D1E0F9");
const QString inProgressText = "A transcription session is already in progress.";
const QString noError = "(no error)";

// A tenth of a second of a 440 Hz sine at the engine's rate, as 32-bit floats.
std::vector<unsigned char> tenthOfASecond()
{
    const auto samples = sine(440, ScriptedSpeechEngine::rate, qint64(ScriptedSpeechEngine::rate / 10), 0.4f);
    std::vector<unsigned char> bytes(samples.size() * sizeof(float));
    std::memcpy(bytes.data(), samples.data(), bytes.size());
    return bytes;
}

class ProcessTapRecorderTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        application();
        root = dir.filePath("data");
        // The scripted engine hears "word1 word2" and a "tail" in it.
        tone = writeTone(dir.filePath("tone.wav"), 2.5);
        rig.useFile(tone);
    }

    std::unique_ptr<ProcessTapRecorder> makeRecorder()
    {
        auto recorder = std::make_unique<ProcessTapRecorder>(rig.environment());
        QObject::connect(recorder.get(), &ProcessTapRecorder::processTapRecordingStateChanged,
                         [this](ProcessTapRecorder *) { ++stateChanges; });
        return recorder;
    }

    // The failure text of a start, "(no error)" when it worked.
    QString tryStart(ProcessTapRecorder &recorder, bool systemAudio = false, const QUuid &note = noteID)
    {
        const QFuture<void> started = recorder.start(root, note, systemAudio);
        EXPECT_TRUE(waitFor(started));
        return started.isFinished() ? failureOf(started) : QStringLiteral("(still starting)");
    }

    void start(ProcessTapRecorder &recorder) { ASSERT_EQ(tryStart(recorder), noError); }

    QString stop(ProcessTapRecorder &recorder)
    {
        const QFuture<QString> stopped = recorder.stop();
        EXPECT_TRUE(waitFor(stopped));
        return stopped.isFinished() ? stopped.result() : QString();
    }

    // `buffers` tenths of a second, or of 64-bit floats, which no mix takes;
    // the server ends the recording before the buffer at `failureAt`.
    std::shared_ptr<SourceProbe> useScript(int buffers, bool float64 = false, int failureAt = -1)
    {
        ScriptedSource::Script script;
        script.format = AudioFormat{float64 ? AudioSampleFormat::float64 : AudioSampleFormat::float32,
                                    ScriptedSpeechEngine::rate, 1};
        for (int i = 0; i < buffers; ++i)
            script.buffers.push_back(float64 ? std::vector<unsigned char>(8 * 1600) : tenthOfASecond());
        script.failureAt = failureAt;
        script.failure = "The sound server ended the microphone recording: gone";
        auto probe = std::make_shared<SourceProbe>();
        rig.useScript(script, probe);
        return probe;
    }

    // The note's one segment; empty when there is not exactly one.
    QString onlySegment()
    {
        const QStringList segments = segmentsOf(root, noteID);
        EXPECT_EQ(segments.size(), 1);
        return segments.size() == 1 ? segments[0] : QString();
    }

    bool segmentComplete(const QString &segment) { return LocalRecordingManifest::read(segment).complete; }

    QTemporaryDir dir;
    QString root;
    QString tone;
    RecorderRig rig;
    int stateChanges = 0;
};

} // namespace

TEST_F(ProcessTapRecorderTest, ASessionWritesEveryBufferToASegmentAndEndsWithTheFinalText)
{
    auto recorder = makeRecorder();
    QList<LocalTranscript> seen;
    recorder->setOnTranscript([&](const LocalTranscript &transcript) { seen << transcript; });
    const QFuture<void> started = recorder->start(root, noteID, false);
    EXPECT_TRUE(recorder->starting());
    EXPECT_FALSE(recorder->recording());
    ASSERT_TRUE(waitFor(started));
    ASSERT_EQ(failureOf(started), noError);
    EXPECT_EQ(tryStart(*recorder), inProgressText) << "refused while running";
    EXPECT_TRUE(recorder->recording());
    EXPECT_FALSE(recorder->starting());
    EXPECT_FALSE(recorder->paused());
    EXPECT_EQ(stateChanges, 1);
    ASSERT_FALSE(seen.isEmpty());
    EXPECT_EQ(seen.first(), LocalTranscript{});
    ASSERT_TRUE(rig.waitForFileDelivered());
    EXPECT_TRUE(waitUntil([&] { return recorder->currentAudioLevel() > 0.35f; }));
    EXPECT_LT(recorder->currentAudioLevel(), 0.41f);
    EXPECT_EQ(stop(*recorder), "word1 word2 tail");
    EXPECT_FALSE(recorder->recording());
    EXPECT_FALSE(recorder->finishing());
    EXPECT_EQ(recorder->currentAudioLevel(), 0.0f);
    EXPECT_EQ(stateChanges, 2);
    EXPECT_TRUE(recorder->errorMessage().isEmpty());
    const auto utterances = recorder->transcriptValue().utterances;
    ASSERT_EQ(utterances.size(), 3);
    EXPECT_EQ(utterances[2], (LocalUtterance{"tail", 2.0, 2.5}));
    EXPECT_EQ(seen.last(), recorder->transcriptValue());
    const QString segment = onlySegment();
    const auto manifest = LocalRecordingManifest::read(segment);
    EXPECT_TRUE(manifest.complete);
    EXPECT_EQ(manifest.sampleRate, 16000.0);
    const auto expected = readSoundFile(tone)->samples;
    EXPECT_EQ(readRawAudio(RecordingFolder::rawAudioPath(segment)), expected);
    // The playable audio was built before the stop ended.
    ASSERT_TRUE(DurableAudioWriter::hasValidFinalAudio(segment, manifest));
    EXPECT_EQ(readSoundFile(RecordingFolder::finalAudioPath(segment))->samples, expected);
}

// A start is refused while another starts, runs or finishes; a stop asked
// for while starting waits, then stops what the start began.
TEST_F(ProcessTapRecorderTest, AStartIsRefusedWhileAnotherIsUnderWayAndAStopDuringItWaitsForIt)
{
    rig.speechStartGate = std::make_shared<Latch>();
    auto finishGate = std::make_shared<Latch>();
    rig.engine->finishGate = finishGate;
    auto recorder = makeRecorder();
    const QFuture<void> started = recorder->start(root, noteID, false);
    const QFuture<void> whileStarting = recorder->start(root, noteID, false);
    ASSERT_TRUE(whileStarting.isFinished());
    EXPECT_EQ(failureOf(whileStarting), inProgressText);
    const QFuture<QString> stopped = recorder->stop();
    settle();
    EXPECT_FALSE(stopped.isFinished());
    EXPECT_TRUE(rig.fileSources->empty());
    EXPECT_FALSE(QDir(RecordingFolder::noteFolder(root, noteID)).exists());
    rig.speechStartGate->open();
    ASSERT_TRUE(waitFor(started));
    EXPECT_EQ(failureOf(started), noError);
    ASSERT_TRUE(waitUntil([&] { return recorder->finishing(); }));
    EXPECT_EQ(tryStart(*recorder), inProgressText);
    finishGate->open();
    ASSERT_TRUE(waitFor(stopped));
    EXPECT_FALSE(recorder->recording());
    EXPECT_FALSE(recorder->finishing());
    EXPECT_TRUE(segmentComplete(onlySegment()));
    EXPECT_EQ(*rig.speechStarts, 1);
}

// The new words start after the note's earlier audio or its last utterance,
// whichever ends later: here the utterance. (The list's tests record into a
// note whose audio is the later.)
TEST_F(ProcessTapRecorderTest, AContinuedNoteTimesItsNewWordsAfterTheEarlierAudioOrTranscript)
{
    writeSegment(root, noteID, 10);
    TranscriptUtterance earlier{"E1", "Earlier words.", 9.0, 12.0, {}, {}, false};
    auto recorder = makeRecorder();
    recorder->setExistingTranscript("Earlier words.");
    recorder->setExistingUtterances({earlier});
    start(*recorder);
    EXPECT_DOUBLE_EQ(recorder->transcriptTimeOffset(), 12.0);
    ASSERT_TRUE(rig.waitForFileDelivered());
    stop(*recorder);
    EXPECT_EQ(recorder->fullTranscript(), "Earlier words. word1 word2 tail");
    const auto combined = recorder->combinedUtterances();
    ASSERT_EQ(combined.size(), 4);
    EXPECT_EQ(combined[0], earlier);
    EXPECT_EQ(combined[1].text, "word1");
    EXPECT_EQ(combined[1].start, 12.0);
    EXPECT_EQ(combined[3].end, 14.5);
    EXPECT_FALSE(combined[3].isInterim);
}

TEST_F(ProcessTapRecorderTest, PauseCompletesTheSegmentResumeBeginsANewOneAndTheClockCarriesOn)
{
    rig.manualClock = true;
    auto recorder = makeRecorder();
    start(*recorder);
    ASSERT_TRUE(rig.waitForFileDelivered());
    rig.advanceClock(3);
    ASSERT_TRUE(waitUntil([&] { return recorder->elapsed() == 3.0; }));
    recorder->togglePause();
    EXPECT_TRUE(recorder->paused());
    EXPECT_TRUE(recorder->recording());
    EXPECT_EQ(recorder->elapsed(), 3.0);
    EXPECT_TRUE(segmentComplete(onlySegment()));
    // Time spent paused is not counted.
    rig.advanceClock(100);
    settle(400ms);
    EXPECT_EQ(recorder->elapsed(), 3.0);
    recorder->togglePause();
    EXPECT_FALSE(recorder->paused());
    ASSERT_TRUE(rig.waitForFileDelivered());
    rig.advanceClock(2);
    ASSERT_TRUE(waitUntil([&] { return recorder->elapsed() == 5.0; }));
    recorder->togglePause();
    const QStringList segments = segmentsOf(root, noteID);
    ASSERT_EQ(segments.size(), 2);
    // A stop while paused has no capture to end and still finishes the one
    // live session, which heard both stretches timed in audio, not wall-clock.
    EXPECT_EQ(stop(*recorder), "word1 word2 word3 word4 word5");
    EXPECT_FALSE(recorder->paused());
    EXPECT_FALSE(recorder->recording());
    EXPECT_TRUE(recorder->errorMessage().isEmpty());
    EXPECT_EQ(recorder->elapsed(), 5.0);
    EXPECT_EQ(recorder->transcriptValue().utterances.last().end, 5.0);
    EXPECT_EQ(rig.engine->engines.load(), 1);
    EXPECT_EQ(rig.engine->finishes.load(), 1);
    EXPECT_EQ(segmentsOf(root, noteID), segments);
    for (const QString &segment : segments) {
        EXPECT_TRUE(segmentComplete(segment)) << segment.toStdString();
        EXPECT_EQ(DurableAudioWriter::frameCount(segment), 40000);
    }
}

// The source ends after two buffers and one more arrives: the failure ends
// the intake, so the raw file has no gap. Whatever arrives after the session
// ended changes nothing.
TEST_F(ProcessTapRecorderTest, ACaptureFailureRunsTheOwnersStopOnceAndLateCallsChangeNothing)
{
    auto probe = useScript(3, false, 2);
    auto recorder = makeRecorder();
    int stopActions = 0;
    recorder->setStopAction([&] {
        ++stopActions;
        recorder->stop();
    });
    start(*recorder);
    ASSERT_TRUE(
        waitUntil([&] { return stopActions == 1 && !recorder->finishing() && !recorder->recording(); }));
    const QString failed = "Capture stopped: The sound server ended the microphone recording: gone. Captured "
                           "audio was preserved.";
    EXPECT_EQ(recorder->errorMessage(), failed);
    EXPECT_EQ(DurableAudioWriter::frameCount(onlySegment()), 3200);
    std::vector<unsigned char> late = tenthOfASecond();
    const AudioBuffer buffer{1, late.data(), qint64(late.size())};
    probe->block(AudioBufferList(&buffer, 1));
    probe->failure("The sound server ended the microphone recording: late");
    settle(100ms);
    EXPECT_EQ(stopActions, 1);
    EXPECT_EQ(recorder->errorMessage(), failed);
    EXPECT_EQ(stateChanges, 2);
    EXPECT_EQ(DurableAudioWriter::frameCount(onlySegment()), 3200);
}

TEST_F(ProcessTapRecorderTest, WithoutLiveSpeechCaptureRunsAndTheWarningStaysUntilACaptureFailure)
{
    rig.speechFailure = "No compatible on-device speech audio format.";
    auto recorder = makeRecorder();
    start(*recorder);
    const QString warning = "Live transcription unavailable: No compatible on-device speech audio "
                            "format. Captured audio remains available locally.";
    EXPECT_EQ(recorder->errorMessage(), warning);
    EXPECT_EQ(recorder->speechWarning(), warning);
    EXPECT_TRUE(recorder->errorIsSpeechWarning());
    ASSERT_TRUE(rig.waitForFileDelivered());
    EXPECT_EQ(stop(*recorder), QString());
    EXPECT_TRUE(recorder->errorIsSpeechWarning());
    EXPECT_EQ(DurableAudioWriter::frameCount(onlySegment()), 40000);
    // Audio no mix takes fails the capture, which replaces the warning; with
    // no owner to stop it, the recorder stops itself and keeps the segment.
    useScript(1, true);
    const QUuid other = QUuid::createUuid();
    auto second = makeRecorder();
    QStringList messages;
    QObject::connect(second.get(), &ProcessTapRecorder::errorMessageChanged,
                     [&](const QString &message) { messages << message; });
    EXPECT_EQ(tryStart(*second, false, other), noError);
    ASSERT_TRUE(waitUntil([&] { return !second->recording() && !second->finishing(); }));
    EXPECT_FALSE(second->errorIsSpeechWarning());
    EXPECT_EQ(second->speechWarning(), warning);
    EXPECT_EQ(messages, (QStringList{warning, "Capture stopped: Unsupported capture sample format.. Captured "
                                              "audio was preserved."}));
    EXPECT_EQ(stateChanges, 4);
    const QStringList segments = segmentsOf(root, other);
    ASSERT_EQ(segments.size(), 1);
    EXPECT_TRUE(segmentComplete(segments[0]));
    EXPECT_EQ(DurableAudioWriter::frameCount(segments[0]), 0);
}

TEST_F(ProcessTapRecorderTest, ACaptureThatCannotStartCancelsLiveSpeechAndTheNextStartWorks)
{
    auto probe = std::make_shared<SourceProbe>();
    const ScriptedSource::Script failing[] = {
        {{}, "No microphone input is available."},
        {}, // no format and no reason: the path's own text
        {AudioFormat{AudioSampleFormat::float32, 48000, 2}, {}, "Failed to start audio device: busy"}};
    rig.makeSource = [&, attempts = 0](bool) mutable -> std::unique_ptr<AudioSource> {
        if (attempts < 3)
            return std::make_unique<ScriptedSource>(failing[attempts++], probe);
        return std::make_unique<AudioFileSource>(tone, AudioFileSource::Pace::asFastAsConsumed);
    };
    auto recorder = makeRecorder();
    EXPECT_EQ(tryStart(*recorder), "No microphone input is available.");
    EXPECT_FALSE(recorder->starting());
    EXPECT_FALSE(recorder->recording());
    EXPECT_EQ(rig.engine->aborts.load(), 1);
    EXPECT_EQ(tryStart(*recorder, true), "System audio capture is unavailable.");
    EXPECT_EQ(rig.engine->aborts.load(), 2);
    // A source that fails to run after the writer was made leaves an
    // incomplete segment for recovery, as a crash would.
    EXPECT_EQ(tryStart(*recorder), "Failed to start audio device: busy");
    const auto manifest = LocalRecordingManifest::read(onlySegment());
    EXPECT_FALSE(manifest.complete);
    EXPECT_EQ(manifest.sampleRate, 48000.0);
    EXPECT_EQ(stateChanges, 0);
    start(*recorder);
    EXPECT_TRUE(recorder->errorMessage().isEmpty());
    stop(*recorder);
}

TEST_F(ProcessTapRecorderTest, WithoutAnInputOrWithUnreadableEarlierAudioNothingStarts)
{
    rig.access = false;
    auto denied = makeRecorder();
    EXPECT_EQ(tryStart(*denied, true),
              "Microphone access was denied. Enable it in your system's sound settings.");
    EXPECT_FALSE(denied->starting());
    EXPECT_FALSE(QDir(RecordingFolder::noteFolder(root, noteID)).exists());
    rig.access = true;
    const QString segment = writeSegment(root, noteID, 1);
    LocalRecordingManifest broken = LocalRecordingManifest::read(segment);
    broken.sampleRate = 0;
    broken.write(segment);
    const auto before = readRawAudio(RecordingFolder::rawAudioPath(segment));
    auto recorder = makeRecorder();
    EXPECT_EQ(tryStart(*recorder),
              "Transcription audio has an invalid format; the original audio was preserved.");
    EXPECT_FALSE(recorder->starting());
    EXPECT_EQ(segmentsOf(root, noteID), QStringList{segment});
    EXPECT_EQ(readRawAudio(RecordingFolder::rawAudioPath(segment)), before);
    EXPECT_EQ(*rig.speechStarts, 0);
    EXPECT_TRUE(rig.fileSources->empty());
}

TEST_F(ProcessTapRecorderTest, LiveSpeechThatCannotFinishKeepsTheTextReceivedAndSaysTheAudioIsSafe)
{
    rig.engine->finishError = "The engine broke.";
    auto recorder = makeRecorder();
    start(*recorder);
    ASSERT_TRUE(waitUntil([&] { return recorder->transcription() == "word1 word2 partial"; }));
    EXPECT_EQ(stop(*recorder), "word1 word2 partial");
    EXPECT_EQ(recorder->errorMessage(),
              "Live transcription could not finish: The engine broke.. Audio is saved for retry.");
    EXPECT_TRUE(segmentComplete(onlySegment()));
}

TEST_F(ProcessTapRecorderTest, AFullDiskAtPauseKeepsTheRawAudioAndStillPauses)
{
    TmpfsMount disk(256 * 1024);
    KESTIL_REQUIRE_MOUNT(disk);
    root = disk.path();
    useScript(5);
    auto recorder = makeRecorder();
    start(*recorder);
    const QString segment = segmentsOf(root, noteID).value(0);
    ASSERT_TRUE(waitUntil([&] { return DurableAudioWriter::frameCount(segment) == 8000; }));
    QFile filler(disk.path() + "/filler");
    ASSERT_TRUE(filler.open(QIODevice::WriteOnly));
    const QByteArray block(4096, 'x');
    while (filler.write(block) == block.size() && filler.flush()) {
    }
    filler.close();
    EXPECT_THROW(recorder->togglePause(), std::exception);
    EXPECT_TRUE(recorder->paused());
    EXPECT_TRUE(recorder->errorMessage().startsWith("Audio could not be finalized: "))
        << recorder->errorMessage().toStdString();
    EXPECT_TRUE(recorder->errorMessage().endsWith(". Raw capture was retained."));
    EXPECT_FALSE(segmentComplete(segment));
    EXPECT_EQ(DurableAudioWriter::frameCount(segment), 8000);
    QFile::remove(disk.path() + "/filler");
    stop(*recorder);
    EXPECT_FALSE(recorder->recording());
}
