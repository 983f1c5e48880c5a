#include "speech/BoundedAudioQueue.h"

#include <gtest/gtest.h>

#include <thread>

using namespace kestil;
using Result = BoundedAudioQueue::YieldResult;

TEST(BoundedAudioQueue, RefusesTheBufferBeyondItsLimitAndKeepsTheOlderOnes)
{
    BoundedAudioQueue queue(3);
    for (float i = 0; i < 3; ++i)
        EXPECT_EQ(queue.yield({i}), Result::enqueued);
    EXPECT_EQ(queue.yield({9.0f}), Result::dropped);
    EXPECT_EQ(queue.takeAll(), (std::vector<std::vector<float>>{{0.0f}, {1.0f}, {2.0f}}));
    EXPECT_EQ(queue.yield({4.0f}), Result::enqueued) << "room again once taken";
}

TEST(BoundedAudioQueue, AFinishedQueueHandsOutWhatWaitsThenEnds)
{
    BoundedAudioQueue queue(4);
    queue.yield({1.0f});
    queue.finish();
    EXPECT_EQ(queue.yield({2.0f}), Result::terminated);
    EXPECT_EQ(queue.takeAll().size(), 1u);
    EXPECT_TRUE(queue.takeAll().empty());
}

TEST(BoundedAudioQueue, AWaitingReaderWakesForDataAndForTheEnd)
{
    BoundedAudioQueue queue(4);
    std::vector<std::size_t> sizes;
    std::thread reader([&] {
        do
            sizes.push_back(queue.takeAll().size());
        while (sizes.back() > 0);
    });
    queue.yield({1.0f});
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    queue.finish();
    reader.join();
    ASSERT_GE(sizes.size(), 2u);
    EXPECT_EQ(sizes.back(), 0u);
}
