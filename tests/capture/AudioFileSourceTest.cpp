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

TEST(AudioFileSource, DeliversWavFlacAndOggIn4096FrameBuffers)
{
    QTemporaryDir dir;
    const qint64 frames = 3 * 4096 + 100;
    const auto left = sine(440, 22050, frames, 0.5f), right = sine(660, 22050, frames, 0.25f);
    std::vector<float> stereo;
    for (qint64 i = 0; i < frames; ++i)
        stereo.insert(stereo.end(), {left[size_t(i)], right[size_t(i)]});
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
        SCOPED_TRACE(f.name);
        const QString path = dir.filePath(QLatin1String(f.name));
        ASSERT_TRUE(writeSoundFile(path, f.format, 22050, 2, stereo));
        AudioFileSource source(path, AudioFileSource::Pace::asFastAsConsumed);
        source.prepare();
        ASSERT_TRUE(source.format()) << source.errorMessage().toStdString();
        EXPECT_EQ(source.format()->sampleFormat, f.expected);
        EXPECT_EQ(source.format()->sampleRate, 22050.0);
        EXPECT_EQ(source.format()->channelCount, 2);
        EXPECT_EQ(source.totalFrames(), frames);

        CaptureQueue queue;
        std::vector<qint64> delivered;
        std::vector<float> mono;
        source.run(queue, [&](AudioBufferList buffers) {
            EXPECT_EQ(buffers.size(), 1u);
            const auto mixed = mixToMono(buffers, f.expected);
            delivered.push_back(qint64(mixed.size()));
            mono.insert(mono.end(), mixed.begin(), mixed.end());
        });
        EXPECT_TRUE(source.waitUntilFinished(30s));
        source.invalidate();
        queue.sync();
        EXPECT_EQ(delivered, (std::vector<qint64>{4096, 4096, 4096, 100}));
        EXPECT_EQ(source.consumedFrames(), frames);
        ASSERT_EQ(mono.size(), size_t(frames));
        float worst = 0;
        for (size_t i = 0; i < size_t(frames); ++i)
            worst = std::max(worst, std::fabs(mono[i] - (left[i] + right[i]) / 2));
        EXPECT_LE(worst, f.tolerance);
    }
}

// Each buffer is due once its last frame would have been heard; invalidate
// ends delivery at once, calls its handler once, and is harmless again.
TEST(AudioFileSource, RealTimePaceTakesAsLongAsTheAudioUntilInvalidated)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("two-seconds.wav");
    ASSERT_TRUE(writeSoundFile(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 1, sine(300, 48000, 96000)));
    AudioFileSource source(path, AudioFileSource::Pace::realTime);
    source.invalidate(); // before prepare: nothing happens
    source.prepare();
    CaptureQueue queue;
    std::atomic<int> buffers{0};
    int invalidations = 0;
    QElapsedTimer clock;
    clock.start();
    source.run(
        queue, [&](AudioBufferList) { ++buffers; }, [&] { ++invalidations; });
    while (buffers < 3 && clock.elapsed() < 10000)
        std::this_thread::sleep_for(1ms);
    EXPECT_GE(clock.elapsed(), 250) << "three buffers of 85 ms";
    source.invalidate();
    queue.sync();
    const int afterStop = buffers;
    std::this_thread::sleep_for(200ms);
    queue.sync();
    EXPECT_EQ(buffers, afterStop);
    EXPECT_LT(afterStop, 6);
    source.invalidate();
    EXPECT_EQ(invalidations, 1);
    EXPECT_FALSE(source.waitUntilFinished(10ms));
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
}
