#include "capture/MonoMix.h"

#include "CaptureTestSupport.h"

#include <cstdint>
#include <limits>

using namespace kestil;
using namespace kestil::test;

namespace {

template <typename Sample> AudioBuffer buffer(const std::vector<Sample> &samples, int channels = 1)
{
    return AudioBuffer{channels, samples.empty() ? nullptr : samples.data(),
                       qint64(samples.size() * sizeof(Sample))};
}

} // namespace

// Float buffers in, one mono buffer out: channels averaged first, then the
// inputs, each frame divided by the inputs that reach it; no gain, no limiter.
TEST(MonoMix, FloatBuffersAreAveragedChannelsFirstThenInputs)
{
    struct Input {
        std::vector<float> samples;
        int channels = 1;
    };
    const struct {
        const char *what;
        std::vector<Input> inputs;
        std::vector<float> expected;
    } cases[] = {
        {"two inputs weigh the same", {{{1, 1, 1, 1}}, {{0, 0, 0, 0}}}, {0.5f, 0.5f, 0.5f, 0.5f}},
        {"a stereo and a mono input", {{{0.2f, 0.4f}, 2}, {{1.0f}}}, {0.65f}},
        {"a frame in one buffer only keeps its level",
         {{{0.8f, 0.6f, 0.4f, 0.2f}}, {{0, 0}}},
         {0.4f, 0.3f, 0.4f, 0.2f}},
        {"three lengths", {{{9, 9}}, {{3, 3, 3, 3, 3, 3}}, {{6, 6, 6, 6}}}, {6, 6, 4.5f, 4.5f, 3, 3}},
        // The system side of a pair whose monitor was idle does not halve the microphone.
        {"an input with nothing this time", {{{0.5f, -0.5f}}, {{}, 2}}, {0.5f, -0.5f}},
        {"no gain or limiter", {{{3.0f, -4.0f}}}, {3.0f, -4.0f}},
        {"zero channels count as one", {{{0.25f, 0.75f}, 0}}, {0.25f, 0.75f}},
        {"no inputs", {}, {}},
        {"less than one frame", {{{0.5f}, 2}}, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<AudioBuffer> list;
        for (const Input &input : c.inputs)
            list.push_back(buffer(input.samples, input.channels));
        const std::vector<float> mixed = mixToMono(list, AudioSampleFormat::float32);
        ASSERT_EQ(mixed.size(), c.expected.size());
        for (std::size_t i = 0; i < mixed.size(); ++i)
            EXPECT_NEAR(mixed[i], c.expected[i], 1e-6) << "frame " << i;
    }
}

TEST(MonoMix, IntegerSamplesAreScaledToFloatsAndOtherEncodingsAreRefused)
{
    const std::vector<std::int16_t> shorts{-32768, 16384, 0, 32767};
    const AudioBuffer s[] = {buffer(shorts), buffer(std::vector<std::int16_t>{}, 2)};
    EXPECT_EQ(mixToMono(s, AudioSampleFormat::int16),
              (std::vector<float>{-1.0f, 0.5f, 0.0f, 32767.0f / 32768.0f}));
    const std::vector<std::int32_t> ints{std::numeric_limits<std::int32_t>::min(), 1 << 30, 0};
    const AudioBuffer i[] = {buffer(ints)};
    EXPECT_EQ(mixToMono(i, AudioSampleFormat::int32), (std::vector<float>{-1.0f, 0.5f, 0.0f}));

    const std::vector<double> doubles{0.5, 0.25};
    const AudioBuffer d[] = {buffer(doubles)};
    EXPECT_EQ(thrownText([&] { mixToMono(d, AudioSampleFormat::float64); }),
              "Unsupported capture sample format.");
    EXPECT_THROW(mixToMono({}, AudioSampleFormat::float64), LocalError);
}

// The audio path mixes without allocating once it has seen its largest buffer.
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
