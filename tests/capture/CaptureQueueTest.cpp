#include "capture/CaptureQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

using namespace kestil;
using namespace std::chrono_literals;

TEST(CaptureQueue, RunsBlocksOneAtATimeInOrderOnItsOwnThread)
{
    CaptureQueue queue;
    EXPECT_EQ(queue.label(), "kestil.local.capture");
    std::vector<int> order;
    std::atomic<int> running{0};
    std::atomic<bool> overlapped{false};
    std::atomic<bool> onCaller{false};
    const auto caller = std::this_thread::get_id();
    for (int i = 0; i < 100; ++i) {
        queue.async([&, i] {
            if (running.fetch_add(1) != 0)
                overlapped = true;
            if (std::this_thread::get_id() == caller)
                onCaller = true;
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

TEST(CaptureQueue, SyncWaitsForEverythingQueuedBeforeIt)
{
    CaptureQueue queue;
    std::atomic<bool> slowDone{false};
    queue.async([&] {
        std::this_thread::sleep_for(50ms);
        slowDone = true;
    });
    queue.sync();
    EXPECT_TRUE(slowDone);
    // The empty sync block itself may still be unwinding on the queue, so
    // at most that one is pending; the slow block is not.
    EXPECT_LE(queue.pending(), 1u);
}

TEST(CaptureQueue, SyncFromTheQueueItselfRunsInPlace)
{
    CaptureQueue queue;
    bool inner = false;
    queue.sync([&] { queue.sync([&] { inner = true; }); });
    EXPECT_TRUE(inner);
}

TEST(CaptureQueue, AFailingBlockDoesNotEndTheQueue)
{
    CaptureQueue queue("test.queue");
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
