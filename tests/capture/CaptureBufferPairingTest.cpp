#include "capture/CaptureBufferPairing.h"

#include <gtest/gtest.h>

using namespace kestil;

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

} // namespace

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
