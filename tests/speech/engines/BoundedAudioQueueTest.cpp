#include "speech/BoundedAudioQueue.h"

#include <gtest/gtest.h>

#include <thread>

using namespace kestil;

TEST(BoundedAudioQueue, RefusesTheBufferBeyondItsLimitAndKeepsTheOlderOnes)
{
    BoundedAudioQueue queue(3);
    for (float i = 0; i < 3; ++i)
        EXPECT_EQ(queue.yield({i}), BoundedAudioQueue::YieldResult::enqueued);
    EXPECT_EQ(queue.yield({9.0f}), BoundedAudioQueue::YieldResult::dropped);

    const auto taken = queue.takeAll();
    ASSERT_EQ(taken.size(), 3u);
    EXPECT_EQ(taken[0], std::vector<float>{0.0f});
    EXPECT_EQ(taken[2], std::vector<float>{2.0f});
    EXPECT_EQ(queue.yield({4.0f}), BoundedAudioQueue::YieldResult::enqueued) << "room again once taken";
}

TEST(BoundedAudioQueue, AFinishedQueueHandsOutWhatWaitsThenEnds)
{
    BoundedAudioQueue queue(4);
    queue.yield({1.0f});
    queue.finish();
    EXPECT_EQ(queue.yield({2.0f}), BoundedAudioQueue::YieldResult::terminated);
    EXPECT_EQ(queue.takeAll().size(), 1u);
    EXPECT_TRUE(queue.takeAll().empty());
}

TEST(BoundedAudioQueue, AWaitingReaderWakesForDataAndForTheEnd)
{
    BoundedAudioQueue queue(4);
    std::vector<std::size_t> sizes;
    std::thread reader([&] {
        for (;;) {
            auto taken = queue.takeAll();
            sizes.push_back(taken.size());
            if (taken.empty())
                break;
        }
    });
    queue.yield({1.0f});
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    queue.finish();
    reader.join();
    ASSERT_GE(sizes.size(), 2u);
    EXPECT_EQ(sizes.back(), 0u);
}
