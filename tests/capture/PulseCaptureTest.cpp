// Capture through a real PulseAudio server started for each test: speech and
// tones are played into its sinks with paplay and recorded through the
// program's own sources into real segments.
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

#include <QProcess>
#include <QRegularExpression>

#include <sndfile.h>

#include <cmath>
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
    std::vector<qint64> listFrames;
    int lists = 0;
    int systemMissing = 0;
    float worstMixError = 0;
    QString failure;
};

class PulseCaptureTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(PulseAudioServer::available()) << "pulseaudio, pactl and paplay are needed (Debian: "
                                                      "pulseaudio, pulseaudio-utils)";
        const QString problem = server.start();
        ASSERT_TRUE(problem.isEmpty()) << problem.toStdString();
        segment = RecordingFolder::newSegmentFolder(root.path(), noteID);
    }

    // Runs the source into a writer on the capture queue while `during` runs,
    // then stops it in the recording session's order: source off, one pass
    // through the queue, complete.
    void record(AudioSource &source, const std::function<void()> &during)
    {
        source.prepare();
        ASSERT_TRUE(source.format()) << source.errorMessage().toStdString();
        const AudioFormat format = *source.format();
        DurableAudioWriter writer(segment, noteID, format.sampleRate);
        CaptureQueue queue;
        std::vector<float> scratch;
        source.run(
            queue,
            [&](AudioBufferList buffers) {
                const auto written = captureBuffer(buffers, format.sampleFormat, writer, scratch);
                std::lock_guard guard(captured.lock);
                ++captured.lists;
                captured.listFrames.push_back(qint64(written.mono.size()));
                const auto microphone = mixToMono(buffers.first(1), format.sampleFormat);
                captured.microphone.insert(captured.microphone.end(), microphone.begin(), microphone.end());
                if (buffers.size() < 2)
                    return;
                const auto system = mixToMono(buffers.subspan(1, 1), format.sampleFormat);
                if (system.empty()) {
                    ++captured.systemMissing;
                    return;
                }
                captured.system.insert(captured.system.end(), system.begin(), system.end());
                for (size_t i = 0; i < std::min(microphone.size(), system.size()); ++i)
                    captured.worstMixError = std::max(
                        captured.worstMixError, std::fabs(written.mono[i] - (microphone[i] + system[i]) / 2));
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
    }

    QString makeSpeech(const QString &text)
    {
        const QString path = root.filePath("speech.wav");
        QString error;
        EXPECT_TRUE(synthesizeSpeech(text, path, &error)) << error.toStdString();
        return path;
    }

    QString makeTone(const QString &name, double frequency, double seconds, int rate = 48000)
    {
        const QString path = root.filePath(name);
        EXPECT_TRUE(writeSoundFile(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, rate, 1,
                                   sine(frequency, rate, qint64(seconds * rate), 0.4f)));
        return path;
    }

    void play(const QString &file, const char *sink)
    {
        QString error;
        EXPECT_TRUE(server.play(file, QLatin1String(sink), &error)) << error.toStdString();
    }

    PulseAudioServer server;
    QTemporaryDir root;
    QString segment;
    Captured captured;
};

// `sox --i` with one option, as a user would check the file.
QString soxInfo(const QString &option, const QString &file)
{
    QProcess sox;
    sox.start("sox", {"--i", option, file});
    sox.waitForFinished(10000);
    return QString::fromUtf8(sox.readAllStandardOutput()).trimmed();
}

} // namespace

TEST_F(PulseCaptureTest, TheMicrophoneRecordsSpeechIntoAPlayableSegment)
{
    const QString speech = makeSpeech("Nothing the user says may be lost. This note is kept.");
    MicrophoneSource microphone;
    record(microphone, [&] {
        std::this_thread::sleep_for(200ms);
        play(speech, PulseAudioServer::micFeed);
        std::this_thread::sleep_for(400ms);
    });
    EXPECT_EQ(microphone.deviceName(), QLatin1String(PulseAudioServer::microphone));
    EXPECT_TRUE(captured.failure.isEmpty()) << captured.failure.toStdString();
    // Every buffer but the last partial one holds 4096 frames.
    ASSERT_GE(captured.listFrames.size(), 10u);
    for (size_t i = 0; i + 1 < captured.listFrames.size(); ++i)
        EXPECT_EQ(captured.listFrames[i], 4096) << "buffer " << i;

    const auto raw = readRawAudio(RecordingFolder::rawAudioPath(segment));
    EXPECT_EQ(raw, captured.microphone) << "the raw file is the mono mix, buffer after buffer";
    EXPECT_TRUE(LocalRecordingManifest::read(segment).complete);

    const QString caf = DurableAudioWriter::finalAudioURL(segment);
    const auto sound = readSoundFile(caf);
    ASSERT_TRUE(sound);
    EXPECT_EQ(sound->sampleRate, 48000);
    EXPECT_EQ(sound->channels, 1);
    EXPECT_EQ(sound->samples, raw) << "the playable file holds exactly the raw samples";

    // The speech is in the recording: its loudness over time follows the
    // played file's, wherever in the recording it landed.
    const auto played = readSoundFile(speech);
    ASSERT_TRUE(played);
    const auto playedEnvelope = energyEnvelope(played->mono(), played->sampleRate);
    const auto recordedEnvelope = energyEnvelope(raw, 48000);
    ASSERT_GT(recordedEnvelope.size(), playedEnvelope.size());
    const auto alignment =
        bestAlignment(recordedEnvelope, playedEnvelope, int(recordedEnvelope.size() - playedEnvelope.size()));
    EXPECT_GT(alignment.correlation, 0.9) << "lag " << alignment.lag;
    EXPECT_GT(rms(raw), 0.01);

    // What a user would check with sox.
    EXPECT_EQ(soxInfo("-r", caf), "48000");
    EXPECT_EQ(soxInfo("-c", caf), "1");
    EXPECT_EQ(soxInfo("-s", caf), QString::number(raw.size()));
    EXPECT_NEAR(soxInfo("-D", caf).toDouble(), double(raw.size()) / 48000, 0.001);
}

TEST_F(PulseCaptureTest, SystemAudioArrivesBesideTheMicrophoneAndIsAveragedWithIt)
{
    const QString voice = makeTone("voice.wav", 440, 1.5);
    const QString meeting = makeTone("meeting.wav", 1000, 1.5);
    SystemAudioSource source;
    record(source, [&] {
        std::this_thread::sleep_for(200ms);
        auto a = server.startPlaying(voice, QLatin1String(PulseAudioServer::micFeed));
        auto b = server.startPlaying(meeting, QLatin1String(PulseAudioServer::speakers));
        EXPECT_TRUE(a->waitForFinished(20000) && a->exitCode() == 0) << a->readAll().toStdString();
        EXPECT_TRUE(b->waitForFinished(20000) && b->exitCode() == 0) << b->readAll().toStdString();
        std::this_thread::sleep_for(300ms);
    });
    EXPECT_EQ(source.microphoneName(), QLatin1String(PulseAudioServer::microphone));
    EXPECT_EQ(source.monitorName(), QLatin1String(PulseAudioServer::speakers) + QStringLiteral(".monitor"));
    EXPECT_EQ(source.format()->channelCount, 1 + 2);
    EXPECT_EQ(source.format()->sampleRate, 48000.0);
    EXPECT_TRUE(captured.failure.isEmpty()) << captured.failure.toStdString();

    // The microphone buffer carries the voice, the system buffer the meeting.
    EXPECT_GT(toneShare(captured.microphone, 48000, 440), 0.8);
    EXPECT_LT(toneShare(captured.microphone, 48000, 1000), 0.01);
    EXPECT_GT(toneShare(captured.system, 48000, 1000), 0.8);
    EXPECT_LT(toneShare(captured.system, 48000, 440), 0.01);
    EXPECT_GT(captured.system.size(), size_t(48000)) << "the monitor delivered";

    // The mix is their average, frame by frame, and it is what was written.
    EXPECT_EQ(captured.worstMixError, 0.0f);
    const auto raw = readRawAudio(RecordingFolder::rawAudioPath(segment));
    EXPECT_GT(toneShare(raw, 48000, 440), 0.3);
    EXPECT_GT(toneShare(raw, 48000, 1000), 0.3);
    const auto sound = readSoundFile(DurableAudioWriter::finalAudioURL(segment));
    ASSERT_TRUE(sound);
    EXPECT_EQ(sound->samples, raw);
}

TEST_F(PulseCaptureTest, AnIdleOutputNeverStallsTheMicrophone)
{
    // A suspended output's monitor delivers nothing at all.
    ASSERT_TRUE(server.suspendSpeakers(true));
    const QString voice = makeTone("voice.wav", 440, 1.0);
    SystemAudioSource source;
    record(source, [&] {
        play(voice, PulseAudioServer::micFeed);
        std::this_thread::sleep_for(300ms);
    });
    EXPECT_TRUE(captured.system.empty());
    EXPECT_GT(captured.systemMissing, 5);
    EXPECT_GT(captured.microphone.size(), size_t(48000)) << "the whole second of voice arrived";
    const auto raw = readRawAudio(RecordingFolder::rawAudioPath(segment));
    EXPECT_EQ(raw, captured.microphone) << "the voice alone keeps its full level";
    EXPECT_GT(toneShare(raw, 48000, 440), 0.8);
}

TEST_F(PulseCaptureTest, InvalidateEndsDeliveryOnceAndIsSafeTwiceAndInAnyState)
{
    MicrophoneSource never;
    never.invalidate();
    never.invalidate();

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
        std::this_thread::sleep_for(300ms);
        source->invalidate();
        queue.sync();
        const int stopped = buffers;
        std::this_thread::sleep_for(200ms);
        queue.sync();
        EXPECT_EQ(buffers, stopped) << "no buffer after invalidate";
        EXPECT_GE(stopped, 1);
        source->invalidate();
        EXPECT_EQ(handlerCalls, 1);
        EXPECT_EQ(thrownText([&] { source->run(queue, [](AudioBufferList) {}); }), QString::fromUtf8(ended));
    }
}

TEST_F(PulseCaptureTest, WithoutDevicesTheSourcesSaySoInTheirWords)
{
    // The null sinks' monitors are the virtual microphone too.
    ASSERT_EQ(server.pactl({"unload-module", "module-null-sink"}), 0);
    MicrophoneSource microphone;
    microphone.prepare();
    EXPECT_FALSE(microphone.format());
    EXPECT_EQ(microphone.errorMessage(), "No microphone input is available.");
    CaptureQueue queue;
    EXPECT_EQ(thrownText([&] { microphone.run(queue, [](AudioBufferList) {}); }),
              "No microphone input is available.");

    SystemAudioSource system;
    system.prepare();
    EXPECT_FALSE(system.format());
    EXPECT_EQ(system.errorMessage(), "No audio output devices found!");
}

TEST_F(PulseCaptureTest, AHungOrMissingServerIsGivenUpOnWithTheReason)
{
    server.freeze(true);
    MicrophoneSource hung;
    hung.prepare();
    server.freeze(false);
    EXPECT_FALSE(hung.format());
    EXPECT_EQ(hung.errorMessage(), "Could not connect to the sound server: it did not answer in time");

    server.stop();
    const QByteArray previous = qgetenv("PULSE_SERVER");
    qputenv("PULSE_SERVER", ("unix:" + root.filePath("no-server")).toUtf8());
    MicrophoneSource microphone;
    SystemAudioSource system;
    for (AudioSource *source : std::initializer_list<AudioSource *>{&microphone, &system}) {
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
    record(microphone, [&] {
        play(voice, PulseAudioServer::micFeed);
        std::this_thread::sleep_for(300ms);
        server.stop();
        std::this_thread::sleep_for(500ms);
    });
    EXPECT_TRUE(captured.failure.startsWith("The sound server ended the microphone recording: "))
        << captured.failure.toStdString();
    const auto raw = readRawAudio(RecordingFolder::rawAudioPath(segment));
    EXPECT_EQ(raw, captured.microphone);
    EXPECT_GT(toneShare(raw, 48000, 440), 0.5);
    EXPECT_TRUE(LocalRecordingManifest::read(segment).complete);
}
