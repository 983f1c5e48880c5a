#include "capture/CaptureQueue.h"

#include <QtGlobal>

#include <exception>

#include <pthread.h>

namespace kestil {

CaptureQueue::CaptureQueue(QString label) : label_(std::move(label))
{
    thread_ = std::thread([this] { run(); });
    // Thread names are limited to 15 bytes; the label's start is enough to
    // find the queue in a debugger.
    pthread_setname_np(thread_.native_handle(), label_.left(15).toUtf8().constData());
}

CaptureQueue::~CaptureQueue()
{
    {
        std::lock_guard guard(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

void CaptureQueue::async(std::function<void()> block)
{
    {
        std::lock_guard guard(mutex_);
        blocks_.push_back(std::move(block));
    }
    wake_.notify_one();
}

void CaptureQueue::sync(const std::function<void()> &block)
{
    if (isCurrentThread()) {
        if (block)
            block();
        return;
    }
    std::mutex doneMutex;
    std::condition_variable doneSignal;
    bool done = false;
    async([&] {
        if (block)
            block();
        std::lock_guard guard(doneMutex);
        done = true;
        doneSignal.notify_one();
    });
    std::unique_lock lock(doneMutex);
    doneSignal.wait(lock, [&] { return done; });
}

size_t CaptureQueue::pending() const
{
    std::lock_guard guard(mutex_);
    return blocks_.size() + running_;
}

void CaptureQueue::run()
{
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || !blocks_.empty(); });
        if (blocks_.empty())
            return;
        auto block = std::move(blocks_.front());
        blocks_.pop_front();
        ++running_;
        lock.unlock();
        try {
            if (block)
                block();
        } catch (const std::exception &error) {
            // A block reports its own failures; one that escapes must not end
            // the queue that later buffers still need.
            qCritical("%s: a block failed: %s", qPrintable(label_), error.what());
        }
        lock.lock();
        --running_;
    }
}

} // namespace kestil
