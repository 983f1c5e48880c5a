#include "capture/MonoMix.h"

#include "CaptureTestSupport.h"

#include <cstdint>
#include <limits>

using namespace kestil;
using namespace kestil::test;

namespace {

template <typename Sample> AudioBuffer buffer(const std::vector<Sample> &samples, int channels = 1)
{
    return AudioBuffer{channels, samples.data(), qint64(samples.size() * sizeof(Sample))};
}

} // namespace

TEST(MonoMix, BuffersAreAveragedWithEqualWeight)
{
    const std::vector<float> ones(4, 1.0f), zeros(4, 0.0f);
    const AudioBuffer list[] = {buffer(ones), buffer(zeros)};
    EXPECT_EQ(mixToMono(list, AudioSampleFormat::float32), std::vector<float>(4, 0.5f));
}

TEST(MonoMix, ChannelsAreAveragedBeforeBuffers)
{
    const std::vector<float> stereo{0.2f, 0.4f};
    const AudioBuffer one[] = {buffer(stereo, 2)};
    const auto mixed = mixToMono(one, AudioSampleFormat::float32);
    ASSERT_EQ(mixed.size(), 1u);
    EXPECT_FLOAT_EQ(mixed[0], 0.3f);

    // A stereo buffer and a mono buffer: channels first, then the two inputs.
    const std::vector<float> mono{1.0f};
    const AudioBuffer two[] = {buffer(stereo, 2), buffer(mono)};
    EXPECT_FLOAT_EQ(mixToMono(two, AudioSampleFormat::float32)[0], (0.3f + 1.0f) / 2);
}

TEST(MonoMix, AFrameInOnlyOneBufferKeepsItsFullLevel)
{
    const std::vector<float> longer{0.8f, 0.6f, 0.4f, 0.2f}, shorter{0.0f, 0.0f};
    const AudioBuffer list[] = {buffer(longer), buffer(shorter)};
    EXPECT_EQ(mixToMono(list, AudioSampleFormat::float32), (std::vector<float>{0.4f, 0.3f, 0.4f, 0.2f}));

    // Three inputs of three lengths: each frame divided by the inputs that reach it.
    const std::vector<float> a(6, 3.0f), b(4, 6.0f), c(2, 9.0f);
    const AudioBuffer three[] = {buffer(c), buffer(a), buffer(b)};
    EXPECT_EQ(mixToMono(three, AudioSampleFormat::float32), (std::vector<float>{6, 6, 4.5f, 4.5f, 3, 3}));
}

TEST(MonoMix, IntegerSamplesAreScaledToFloats)
{
    const std::vector<std::int16_t> shorts{-32768, 16384, 0, 32767};
    const AudioBuffer s[] = {buffer(shorts)};
    EXPECT_EQ(mixToMono(s, AudioSampleFormat::int16),
              (std::vector<float>{-1.0f, 0.5f, 0.0f, 32767.0f / 32768.0f}));

    const std::vector<std::int32_t> ints{std::numeric_limits<std::int32_t>::min(), 1 << 30, 0};
    const AudioBuffer i[] = {buffer(ints)};
    const auto mixed = mixToMono(i, AudioSampleFormat::int32);
    EXPECT_FLOAT_EQ(mixed[0], -1.0f);
    EXPECT_FLOAT_EQ(mixed[1], 0.5f);
    EXPECT_EQ(mixed[2], 0.0f);
}

TEST(MonoMix, NothingGivesNothing)
{
    EXPECT_TRUE(mixToMono({}, AudioSampleFormat::float32).empty());
    const AudioBuffer empty[] = {AudioBuffer{2, nullptr, 0}, AudioBuffer{1, nullptr, 0}};
    EXPECT_TRUE(mixToMono(empty, AudioSampleFormat::int16).empty());
    // A buffer smaller than one frame has no frames.
    const std::vector<float> one{0.5f};
    const AudioBuffer partial[] = {buffer(one, 2)};
    EXPECT_TRUE(mixToMono(partial, AudioSampleFormat::float32).empty());
}

TEST(MonoMix, AnInputWithNothingThisTimeDoesNotHalveTheOther)
{
    // The system side of a pair whose monitor was idle.
    const std::vector<float> microphone{0.5f, -0.5f};
    const AudioBuffer list[] = {buffer(microphone), AudioBuffer{2, nullptr, 0}};
    EXPECT_EQ(mixToMono(list, AudioSampleFormat::float32), microphone);
}

TEST(MonoMix, NoGainOrLimiterIsApplied)
{
    const std::vector<float> loud{3.0f, -4.0f};
    const AudioBuffer list[] = {buffer(loud)};
    EXPECT_EQ(mixToMono(list, AudioSampleFormat::float32), loud);
}

TEST(MonoMix, ZeroChannelsCountAsOne)
{
    const std::vector<float> samples{0.25f, 0.75f};
    const AudioBuffer list[] = {buffer(samples, 0)};
    EXPECT_EQ(mixToMono(list, AudioSampleFormat::float32), samples);
}

TEST(MonoMix, SixtyFourBitFloatIsRefused)
{
    const std::vector<double> doubles{0.5, 0.25};
    const AudioBuffer list[] = {buffer(doubles)};
    EXPECT_EQ(thrownText([&] { mixToMono(list, AudioSampleFormat::float64); }),
              QStringLiteral("Unsupported capture sample format."));
    EXPECT_THROW(mixToMono({}, AudioSampleFormat::float64), LocalError);
}

TEST(MonoMix, ReusesTheOutputStorage)
{
    std::vector<float> out;
    out.reserve(8192);
    const float *storage = out.data();
    const std::vector<float> samples(4096, 0.1f);
    const AudioBuffer list[] = {buffer(samples)};
    mixToMono(list, AudioSampleFormat::float32, out);
    EXPECT_EQ(out.data(), storage);
    EXPECT_EQ(out.size(), 4096u);
}

TEST(PeakLevel, IsTheLargestMagnitude)
{
    EXPECT_EQ(peakLevel({}), 0.0f);
    const std::vector<float> samples{0.1f, -0.9f, 0.5f};
    EXPECT_EQ(peakLevel(samples), 0.9f);
    const std::vector<float> over{1.5f, -0.2f};
    EXPECT_EQ(peakLevel(over), 1.5f);
}
