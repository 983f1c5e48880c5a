#include "capture/CaptureQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

using namespace kestil;
using namespace std::chrono_literals;

TEST(CaptureQueue, RunsBlocksOneAtATimeInOrderOnItsOwnThreadAndSyncWaitsForThem)
{
    CaptureQueue queue;
    EXPECT_EQ(queue.label(), "kestil.local.capture");
    std::vector<int> order;
    std::atomic<int> running{0};
    std::atomic<bool> overlapped{false}, onCaller{false};
    const auto caller = std::this_thread::get_id();
    for (int i = 0; i < 100; ++i) {
        queue.async([&, i] {
            if (running.fetch_add(1) != 0)
                overlapped = true;
            if (std::this_thread::get_id() == caller)
                onCaller = true;
            if (i == 0)
                std::this_thread::sleep_for(20ms);
            order.push_back(i);
            running.fetch_sub(1);
        });
    }
    queue.sync();
    ASSERT_EQ(order.size(), 100u);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(order[size_t(i)], i);
    EXPECT_FALSE(overlapped);
    EXPECT_FALSE(onCaller);
}

// A sync from a block on the queue runs in place instead of waiting for
// itself, and a block that throws does not end the queue.
TEST(CaptureQueue, SyncFromTheQueueRunsInPlaceAndAFailingBlockDoesNotEndIt)
{
    CaptureQueue queue("test.queue");
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
