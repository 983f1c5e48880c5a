// Capture through a real PulseAudio server started for each test: tones are
// played into its sinks with paplay and recorded through the program's own
// sources into real segments.
#include "capture/CapturedBuffer.h"
#include "capture/DurableAudioWriter.h"
#include "capture/MicrophoneSource.h"
#include "capture/MonoMix.h"
#include "capture/RecordingFolder.h"
#include "capture/SystemAudioSource.h"

#include "CaptureTestSupport.h"
#include "support/PulseAudioServer.h"
#include "support/SignalAnalysis.h"
#include "support/SoundFiles.h"

#include <sndfile.h>

#include <mutex>
#include <thread>

using namespace kestil;
using namespace kestil::test;
using namespace std::chrono_literals;

namespace {

const QUuid noteID = QUuid::fromString("11111111-2222-4333-8444-555555555555");

// What the block on the capture queue saw.
struct Captured {
    std::mutex lock;
    std::vector<float> microphone; // mono of the first buffer of each list
    std::vector<float> system;     // mono of the second buffer, where there was one
    std::vector<float> written;    // the mono mix that went to the writer
    std::vector<qint64> listFrames;
    int systemMissing = 0;
    QString failure;

    int lists()
    {
        std::lock_guard guard(lock);
        return int(listFrames.size());
    }
};

// Polls until the condition holds; false on time-out.
bool eventually(const std::function<bool()> &condition)
{
    for (const auto deadline = std::chrono::steady_clock::now() + 10s; !condition();) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

// Waits until `count` more buffer lists (85 ms each) have arrived.
void waitForLists(Captured &captured, int count)
{
    const int target = captured.lists() + count;
    EXPECT_TRUE(eventually([&] { return captured.lists() >= target; })) << "the source stopped delivering";
}

class PulseCaptureTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(PulseAudioServer::available()) << "pulseaudio, pactl and paplay are needed";
        const QString problem = server.start();
        ASSERT_TRUE(problem.isEmpty()) << problem.toStdString();
    }

    // Runs the source into a writer of a new segment on the capture queue
    // while `during` runs, then stops it in the recording session's order:
    // source off, one pass through the queue, complete. Gives the segment.
    QString record(AudioSource &source, Captured &captured, const std::function<void()> &during)
    {
        const QString segment = RecordingFolder::newSegmentFolder(root.path(), noteID);
        source.prepare();
        EXPECT_TRUE(source.format()) << source.errorMessage().toStdString();
        if (!source.format())
            return segment;
        const AudioFormat format = *source.format();
        DurableAudioWriter writer(segment, noteID, format.sampleRate);
        CaptureQueue queue;
        std::vector<float> scratch;
        source.run(
            queue,
            [&](AudioBufferList buffers) {
                const auto written = captureBuffer(buffers, format.sampleFormat, writer, scratch);
                std::lock_guard guard(captured.lock);
                captured.written.insert(captured.written.end(), written.mono.begin(), written.mono.end());
                captured.listFrames.push_back(qint64(written.mono.size()));
                const auto microphone = mixToMono(buffers.first(1), format.sampleFormat);
                captured.microphone.insert(captured.microphone.end(), microphone.begin(), microphone.end());
                if (buffers.size() < 2)
                    return;
                const auto system = mixToMono(buffers.subspan(1, 1), format.sampleFormat);
                captured.system.insert(captured.system.end(), system.begin(), system.end());
                captured.systemMissing += system.empty() ? 1 : 0;
            },
            {},
            [&](const QString &message) {
                std::lock_guard guard(captured.lock);
                captured.failure = message;
            });
        during();
        source.invalidate();
        queue.sync();
        writer.complete();
        return segment;
    }

    QString makeTone(const QString &name, double frequency, double seconds)
    {
        const QString path = root.filePath(name);
        EXPECT_TRUE(writeSoundFile(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 1,
                                   sine(frequency, 48000, qint64(seconds * 48000), 0.4f)));
        return path;
    }

    void play(const QString &file, const char *sink)
    {
        QString error;
        EXPECT_TRUE(server.play(file, QLatin1String(sink), &error)) << error.toStdString();
    }

    PulseAudioServer server;
    QTemporaryDir root;
};

} // namespace

TEST_F(PulseCaptureTest, SystemAudioIsMixedWithTheMicrophoneAndAnIdleOutputNeverStallsIt)
{
    const QString voice = makeTone("voice.wav", 440, 1.0);
    const QString meeting = makeTone("meeting.wav", 1000, 1.0);
    SystemAudioSource source;
    Captured both;
    const QString segment = record(source, both, [&] {
        waitForLists(both, 1);
        auto a = server.startPlaying(voice, QLatin1String(PulseAudioServer::micFeed));
        auto b = server.startPlaying(meeting, QLatin1String(PulseAudioServer::speakers));
        EXPECT_TRUE(a->waitForFinished(20000) && a->exitCode() == 0) << a->readAll().toStdString();
        EXPECT_TRUE(b->waitForFinished(20000) && b->exitCode() == 0) << b->readAll().toStdString();
        waitForLists(both, 4);
    });
    EXPECT_EQ(source.microphoneName(), QLatin1String(PulseAudioServer::microphone));
    EXPECT_EQ(source.monitorName(), QLatin1String(PulseAudioServer::speakers) + QStringLiteral(".monitor"));
    EXPECT_EQ(source.format()->channelCount, 1 + 2);
    EXPECT_EQ(source.format()->sampleRate, 48000.0);
    EXPECT_TRUE(both.failure.isEmpty()) << both.failure.toStdString();
    // The microphone buffer carries the voice, the system buffer the meeting.
    EXPECT_GT(toneShare(both.microphone, 48000, 440), 0.8);
    EXPECT_LT(toneShare(both.microphone, 48000, 1000), 0.01);
    EXPECT_GT(toneShare(both.system, 48000, 1000), 0.8);
    EXPECT_LT(toneShare(both.system, 48000, 440), 0.01);
    EXPECT_GT(both.system.size(), size_t(48000)) << "the monitor delivered";
    // Both are in what was written.
    const auto raw = readRawAudio(RecordingFolder::rawAudioPath(segment));
    EXPECT_EQ(raw, both.written);
    EXPECT_GT(toneShare(raw, 48000, 440), 0.3);
    EXPECT_GT(toneShare(raw, 48000, 1000), 0.3);
    const auto sound = readSoundFile(DurableAudioWriter::finalAudioURL(segment));
    ASSERT_TRUE(sound);
    EXPECT_EQ(sound->samples, raw);
    // A suspended output's monitor delivers nothing at all; the voice still
    // arrives whole and keeps its full level.
    ASSERT_TRUE(server.suspendSpeakers(true));
    SystemAudioSource idle;
    Captured alone;
    const QString second = record(idle, alone, [&] {
        play(voice, PulseAudioServer::micFeed);
        waitForLists(alone, 4);
    });
    EXPECT_TRUE(alone.system.empty());
    EXPECT_GT(alone.systemMissing, 5);
    EXPECT_GT(alone.microphone.size(), size_t(48000)) << "the whole second of voice arrived";
    const auto voiceOnly = readRawAudio(RecordingFolder::rawAudioPath(second));
    EXPECT_EQ(voiceOnly, alone.microphone);
    EXPECT_GT(toneShare(voiceOnly, 48000, 440), 0.8);
}

TEST_F(PulseCaptureTest, SourcesEndOnceWhenToldAndSayWhyWhenTheyCannotStart)
{
    // Delivery ends at the first stop, and a second stop is harmless.
    MicrophoneSource microphone;
    SystemAudioSource system;
    const std::pair<AudioSource *, const char *> sources[] = {
        {&microphone, "This microphone recording has already ended."},
        {&system, "This system audio recording has already ended."}};
    for (const auto &[source, ended] : sources) {
        source->prepare();
        ASSERT_TRUE(source->format()) << source->errorMessage().toStdString();
        CaptureQueue queue;
        int handlerCalls = 0;
        std::atomic<int> buffers{0};
        source->run(
            queue, [&](AudioBufferList) { ++buffers; }, [&] { ++handlerCalls; });
        ASSERT_TRUE(eventually([&] { return buffers >= 1; }));
        source->invalidate();
        queue.sync();
        const int stopped = buffers;
        // Two buffers' time: none comes after the stop.
        std::this_thread::sleep_for(200ms);
        queue.sync();
        EXPECT_EQ(buffers, stopped) << "no buffer after invalidate";
        source->invalidate();
        EXPECT_EQ(handlerCalls, 1);
        EXPECT_EQ(thrownText([&] { source->run(queue, [](AudioBufferList) {}); }), QString::fromUtf8(ended));
    }
    // Without devices: the null sinks' monitors are the virtual microphone too.
    ASSERT_EQ(server.pactl({"unload-module", "module-null-sink"}), 0);
    MicrophoneSource noMicrophone;
    noMicrophone.prepare();
    EXPECT_FALSE(noMicrophone.format());
    EXPECT_EQ(noMicrophone.errorMessage(), "No microphone input is available.");
    CaptureQueue queue;
    EXPECT_EQ(thrownText([&] { noMicrophone.run(queue, [](AudioBufferList) {}); }),
              "No microphone input is available.");
    SystemAudioSource noOutput;
    noOutput.prepare();
    EXPECT_FALSE(noOutput.format());
    EXPECT_EQ(noOutput.errorMessage(), "No audio output devices found!");
    // A hung server is given up on after the answer time.
    server.freeze(true);
    MicrophoneSource hung;
    hung.prepare();
    server.freeze(false);
    EXPECT_FALSE(hung.format());
    EXPECT_EQ(hung.errorMessage(), "Could not connect to the sound server: it did not answer in time");
    server.stop();
    const QByteArray previous = qgetenv("PULSE_SERVER");
    qputenv("PULSE_SERVER", ("unix:" + root.filePath("no-server")).toUtf8());
    MicrophoneSource missingMicrophone;
    SystemAudioSource missingSystem;
    for (AudioSource *source : std::initializer_list<AudioSource *>{&missingMicrophone, &missingSystem}) {
        source->prepare();
        EXPECT_FALSE(source->format());
        EXPECT_TRUE(source->errorMessage().startsWith("Could not connect to the sound server: "))
            << source->errorMessage().toStdString();
    }
    previous.isNull() ? qunsetenv("PULSE_SERVER") : qputenv("PULSE_SERVER", previous);
}

TEST_F(PulseCaptureTest, AServerThatGoesAwayEndsCaptureAndKeepsWhatWasRecorded)
{
    const QString voice = makeTone("voice.wav", 440, 0.6);
    MicrophoneSource microphone;
    Captured captured;
    const QString segment = record(microphone, captured, [&] {
        play(voice, PulseAudioServer::micFeed);
        waitForLists(captured, 2);
        server.stop();
        EXPECT_TRUE(eventually([&] {
            std::lock_guard guard(captured.lock);
            return !captured.failure.isEmpty();
        }));
    });
    EXPECT_EQ(microphone.deviceName(), QLatin1String(PulseAudioServer::microphone));
    EXPECT_TRUE(captured.failure.startsWith("The sound server ended the microphone recording: "))
        << captured.failure.toStdString();
    // Every buffer but the last partial one holds 4096 frames.
    for (size_t i = 0; i + 1 < captured.listFrames.size(); ++i)
        EXPECT_EQ(captured.listFrames[i], 4096) << "buffer " << i;
    const auto raw = readRawAudio(RecordingFolder::rawAudioPath(segment));
    EXPECT_EQ(raw, captured.microphone);
    EXPECT_GT(toneShare(raw, 48000, 440), 0.5);
    EXPECT_TRUE(LocalRecordingManifest::read(segment).complete);
}
