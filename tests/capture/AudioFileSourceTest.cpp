#include "capture/AudioFileSource.h"
#include "capture/MonoMix.h"

#include "CaptureTestSupport.h"
#include "support/SoundFiles.h"

#include <QElapsedTimer>

#include <sndfile.h>

#include <cmath>
#include <thread>

using namespace kestil;
using namespace kestil::test;
using namespace std::chrono_literals;

namespace {

struct Delivery {
    std::vector<qint64> frames;
    std::vector<float> mono;
};

// Runs a source to its end, collecting each buffer's frame count and its mono mix.
Delivery runToEnd(AudioFileSource &source, CaptureQueue &queue)
{
    Delivery delivery;
    const auto format = *source.format();
    source.run(queue, [&](AudioBufferList buffers) {
        EXPECT_EQ(buffers.size(), 1u);
        const qint64 bytesPerSample = format.sampleFormat == AudioSampleFormat::int16 ? 2 : 4;
        delivery.frames.push_back(buffers[0].byteSize / (bytesPerSample * buffers[0].channels));
        const auto mono = mixToMono(buffers, format.sampleFormat);
        delivery.mono.insert(delivery.mono.end(), mono.begin(), mono.end());
    });
    EXPECT_TRUE(source.waitUntilFinished(30s));
    source.invalidate();
    queue.sync();
    return delivery;
}

} // namespace

TEST(AudioFileSource, DeliversWavFlacAndOggIn4096FrameBuffers)
{
    QTemporaryDir dir;
    const qint64 frames = 3 * 4096 + 100;
    std::vector<float> stereo;
    const auto left = sine(440, 22050, frames, 0.5f), right = sine(660, 22050, frames, 0.25f);
    for (qint64 i = 0; i < frames; ++i) {
        stereo.push_back(left[size_t(i)]);
        stereo.push_back(right[size_t(i)]);
    }
    const struct {
        const char *name;
        int format;
        AudioSampleFormat expected;
        float tolerance;
    } files[] = {
        {"a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, AudioSampleFormat::int16, 1.0f / 16384},
        {"b.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, AudioSampleFormat::int32, 1e-6f},
        {"c.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, AudioSampleFormat::float32, 0},
        {"d.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, AudioSampleFormat::int16, 1.0f / 16384},
        {"e.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, AudioSampleFormat::float32, 0.05f},
    };
    for (const auto &f : files) {
        const QString path = dir.filePath(QLatin1String(f.name));
        ASSERT_TRUE(writeSoundFile(path, f.format, 22050, 2, stereo)) << f.name;
        AudioFileSource source(path, AudioFileSource::Pace::asFastAsConsumed);
        source.prepare();
        ASSERT_TRUE(source.format()) << source.errorMessage().toStdString();
        EXPECT_EQ(source.format()->sampleFormat, f.expected) << f.name;
        EXPECT_EQ(source.format()->sampleRate, 22050.0);
        EXPECT_EQ(source.format()->channelCount, 2);
        EXPECT_EQ(source.totalFrames(), frames);

        CaptureQueue queue;
        const auto delivery = runToEnd(source, queue);
        EXPECT_EQ(delivery.frames, (std::vector<qint64>{4096, 4096, 4096, 100})) << f.name;
        EXPECT_EQ(source.consumedFrames(), frames);
        ASSERT_EQ(delivery.mono.size(), size_t(frames));
        float worst = 0;
        for (qint64 i = 0; i < frames; ++i)
            worst = std::max(worst,
                             std::fabs(delivery.mono[size_t(i)] - (left[size_t(i)] + right[size_t(i)]) / 2));
        EXPECT_LE(worst, f.tolerance) << f.name;
    }
}

TEST(AudioFileSource, RealTimePaceTakesAsLongAsTheAudio)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("half-second.wav");
    ASSERT_TRUE(writeSoundFile(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 16000, 1, sine(300, 16000, 8000)));
    AudioFileSource source(path, AudioFileSource::Pace::realTime);
    source.prepare();
    CaptureQueue queue;
    QElapsedTimer clock;
    clock.start();
    const auto delivery = runToEnd(source, queue);
    EXPECT_EQ(delivery.mono.size(), 8000u);
    // Each buffer is due once its last frame would have been heard.
    EXPECT_GE(clock.elapsed(), 450);
}

TEST(AudioFileSource, AsFastAsConsumedWaitsForASlowConsumer)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("long.wav");
    ASSERT_TRUE(writeSoundFile(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 1, sine(300, 48000, 4096 * 20)));
    AudioFileSource source(path, AudioFileSource::Pace::asFastAsConsumed);
    source.prepare();
    CaptureQueue queue;
    source.run(queue, [&](AudioBufferList) { std::this_thread::sleep_for(20ms); });
    std::this_thread::sleep_for(100ms);
    // The reader is held back: only a few buffers wait on the queue.
    EXPECT_LE(queue.pending(), 2u);
    source.invalidate();
    queue.sync();
    EXPECT_LT(source.consumedFrames(), 4096 * 20);
    EXPECT_FALSE(source.waitUntilFinished(10ms));
}

TEST(AudioFileSource, InvalidateStopsDeliveryAndCallsTheHandlerOnce)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("ten-seconds.wav");
    ASSERT_TRUE(writeSoundFile(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 8000, 1, sine(300, 8000, 80000)));
    AudioFileSource source(path, AudioFileSource::Pace::realTime);
    source.invalidate(); // before prepare: nothing happens
    source.prepare();
    CaptureQueue queue;
    std::atomic<int> buffers{0};
    int invalidations = 0;
    source.run(
        queue, [&](AudioBufferList) { ++buffers; }, [&] { ++invalidations; });
    // Buffers are due every 512 ms at this rate.
    std::this_thread::sleep_for(700ms);
    source.invalidate();
    queue.sync();
    const int afterStop = buffers;
    std::this_thread::sleep_for(300ms);
    queue.sync();
    EXPECT_EQ(buffers, afterStop);
    EXPECT_GE(afterStop, 1);
    EXPECT_LT(afterStop, 4);
    source.invalidate();
    EXPECT_EQ(invalidations, 1);
    EXPECT_THROW(source.run(queue, [](AudioBufferList) {}), LocalError);
}

TEST(AudioFileSource, AFileThatIsNoAudioSaysSo)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("notes.txt");
    ASSERT_TRUE(writeBytes(path, "just words"));
    AudioFileSource source(path);
    source.prepare();
    EXPECT_FALSE(source.format());
    EXPECT_TRUE(source.errorMessage().startsWith("The audio file “notes.txt” could not be opened: "))
        << source.errorMessage().toStdString();
    CaptureQueue queue;
    EXPECT_EQ(thrownText([&] { source.run(queue, [](AudioBufferList) {}); }), source.errorMessage());

    AudioFileSource missing(dir.filePath("gone.wav"));
    missing.prepare();
    EXPECT_FALSE(missing.format());
    EXPECT_FALSE(missing.errorMessage().isEmpty());
}
