#include "capture/CaptureBufferPairing.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

std::vector<float> tagged(float tag)
{
    return std::vector<float>(4, tag);
}

float tagOf(const std::vector<float> &samples)
{
    return samples.empty() ? -1.0f : samples.front();
}

std::vector<std::pair<float, float>> tags(const std::vector<CaptureBufferPairing::Pair> &pairs)
{
    std::vector<std::pair<float, float>> out;
    for (const auto &pair : pairs)
        out.emplace_back(tagOf(pair.microphone), tagOf(pair.system));
    return out;
}

using Tags = std::vector<std::pair<float, float>>;

} // namespace

TEST(CaptureBufferPairing, PairsMicrophoneAndSystemInArrivalOrder)
{
    CaptureBufferPairing pairing;
    std::vector<CaptureBufferPairing::Pair> ready;
    pairing.addMicrophone(tagged(1), ready);
    pairing.addMicrophone(tagged(2), ready);
    EXPECT_TRUE(ready.empty()) << "the system stream may just be a little late";
    pairing.addSystem(tagged(10), ready);
    pairing.addSystem(tagged(20), ready);
    pairing.addSystem(tagged(30), ready);
    pairing.addMicrophone(tagged(3), ready);
    EXPECT_EQ(tags(ready), (Tags{{1, 10}, {2, 20}, {3, 30}}));
}

TEST(CaptureBufferPairing, AnIdleMonitorNeverStallsTheMicrophone)
{
    CaptureBufferPairing pairing(2);
    std::vector<CaptureBufferPairing::Pair> ready;
    for (int i = 1; i <= 10; ++i)
        pairing.addMicrophone(tagged(float(i)), ready);
    // Each buffer goes out alone once two more are waiting behind it.
    ASSERT_EQ(ready.size(), 8u);
    for (size_t i = 0; i < ready.size(); ++i) {
        EXPECT_EQ(tagOf(ready[i].microphone), float(i + 1));
        EXPECT_TRUE(ready[i].system.empty());
    }
    EXPECT_EQ(pairing.waitingMicrophone(), 2u);
    // When the monitor comes back, pairing resumes.
    ready.clear();
    pairing.addSystem(tagged(100), ready);
    EXPECT_EQ(tags(ready), (Tags{{9, 100}}));
}

TEST(CaptureBufferPairing, AnIdleMicrophoneNeverStallsTheSystemAudio)
{
    CaptureBufferPairing pairing(1);
    std::vector<CaptureBufferPairing::Pair> ready;
    pairing.addSystem(tagged(10), ready);
    pairing.addSystem(tagged(20), ready);
    EXPECT_EQ(tags(ready), (Tags{{-1, 10}}));
}

TEST(CaptureBufferPairing, FlushReleasesEverythingPairedWherePossible)
{
    CaptureBufferPairing pairing;
    std::vector<CaptureBufferPairing::Pair> ready;
    pairing.addMicrophone(tagged(1), ready);
    pairing.addMicrophone(tagged(2), ready);
    pairing.addSystem(tagged(10), ready);
    ready.clear();
    pairing.flush(ready);
    EXPECT_EQ(tags(ready), (Tags{{2, -1}}));
    EXPECT_EQ(pairing.waitingMicrophone(), 0u);
    EXPECT_EQ(pairing.waitingSystem(), 0u);
}
