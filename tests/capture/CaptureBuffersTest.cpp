// What happens to a buffer between a source and the writer: the capture
// queue it is handed to, the pairing of microphone and system buffers, and
// the mono mix that is written.
#include "capture/CaptureBufferPairing.h"
#include "capture/CaptureQueue.h"
#include "capture/MonoMix.h"

#include "CaptureTestSupport.h"

#include <atomic>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <thread>

using namespace kestil;
using namespace kestil::test;
using namespace std::chrono_literals;

namespace {

using Tags = std::vector<std::pair<float, float>>;

// Each buffer is four samples of its tag; an empty side shows as -1.
struct Pairing {
    explicit Pairing(size_t maximumLag = CaptureBufferPairing::defaultMaximumLag) : pairing(maximumLag) {}

    void microphone(float tag) { pairing.addMicrophone(std::vector<float>(4, tag), ready); }
    void system(float tag) { pairing.addSystem(std::vector<float>(4, tag), ready); }
    Tags take()
    {
        Tags tags;
        for (const auto &pair : ready)
            tags.emplace_back(pair.microphone.empty() ? -1.0f : pair.microphone.front(),
                              pair.system.empty() ? -1.0f : pair.system.front());
        ready.clear();
        return tags;
    }

    CaptureBufferPairing pairing;
    std::vector<CaptureBufferPairing::Pair> ready;
};

template <typename Sample> AudioBuffer buffer(const std::vector<Sample> &samples, int channels = 1)
{
    return AudioBuffer{channels, samples.empty() ? nullptr : samples.data(),
                       qint64(samples.size() * sizeof(Sample))};
}

} // namespace

// Blocks run one at a time, in order, on the queue's own thread (the first,
// slow one would be overtaken otherwise); a sync waits for all of them, one
// from the queue itself runs in place, and a block that throws ends nothing.
TEST(CaptureQueue, RunsBlocksOneAtATimeInOrderOnItsOwnThreadAndSyncWaitsForThem)
{
    CaptureQueue queue;
    std::vector<int> order, expected;
    std::atomic<bool> onCaller{false};
    for (int i = 0; i < 100; ++i) {
        expected.push_back(i);
        queue.async([&, i, caller = std::this_thread::get_id()] {
            if (i == 0)
                std::this_thread::sleep_for(20ms);
            if (std::this_thread::get_id() == caller)
                onCaller = true;
            order.push_back(i);
        });
    }
    queue.sync();
    EXPECT_EQ(order, expected);
    EXPECT_FALSE(onCaller);
    bool inner = false;
    queue.sync([&] { queue.sync([&] { inner = true; }); });
    EXPECT_TRUE(inner);
    queue.async([] { throw std::runtime_error("boom"); });
    bool later = false;
    queue.sync([&] { later = true; });
    EXPECT_TRUE(later);
}

TEST(CaptureQueue, DestructionRunsWhatIsStillQueued)
{
    std::atomic<int> ran{0};
    {
        CaptureQueue queue;
        for (int i = 0; i < 10; ++i)
            queue.async([&] {
                std::this_thread::sleep_for(1ms);
                ++ran;
            });
    }
    EXPECT_EQ(ran, 10);
}

TEST(CaptureBufferPairing, PairsMicrophoneAndSystemInArrivalOrderAndFlushesTheRest)
{
    Pairing p;
    p.microphone(1);
    p.microphone(2);
    EXPECT_EQ(p.take(), Tags{}) << "the system stream may just be a little late";
    p.system(10);
    p.system(20);
    p.system(30);
    p.microphone(3);
    EXPECT_EQ(p.take(), (Tags{{1, 10}, {2, 20}, {3, 30}}));
    p.microphone(4);
    p.microphone(5);
    p.system(40);
    p.take();
    p.pairing.flush(p.ready);
    EXPECT_EQ(p.take(), (Tags{{5, -1}}));
    EXPECT_EQ(p.pairing.waitingMicrophone() + p.pairing.waitingSystem(), 0u);
}

TEST(CaptureBufferPairing, AnIdleSideNeverStallsTheOther)
{
    Pairing p(2);
    for (int i = 1; i <= 10; ++i)
        p.microphone(float(i));
    // Each buffer goes out alone once two more are waiting behind it.
    EXPECT_EQ(p.take(), (Tags{{1, -1}, {2, -1}, {3, -1}, {4, -1}, {5, -1}, {6, -1}, {7, -1}, {8, -1}}));
    EXPECT_EQ(p.pairing.waitingMicrophone(), 2u);
    // When the monitor comes back, pairing resumes.
    p.system(100);
    EXPECT_EQ(p.take(), (Tags{{9, 100}}));
    Pairing quietMicrophone(1);
    quietMicrophone.system(10);
    quietMicrophone.system(20);
    EXPECT_EQ(quietMicrophone.take(), (Tags{{-1, 10}}));
}

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
