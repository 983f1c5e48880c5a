#include "BoundedAudioQueue.h"

namespace kestil {

BoundedAudioQueue::YieldResult BoundedAudioQueue::yield(std::vector<float> &&buffer)
{
    {
        std::lock_guard lock(mutex_);
        if (finished_)
            return YieldResult::terminated;
        if (buffers_.size() >= limit_)
            return YieldResult::dropped;
        buffers_.push_back(std::move(buffer));
    }
    ready_.notify_one();
    return YieldResult::enqueued;
}

std::vector<std::vector<float>> BoundedAudioQueue::takeAll()
{
    std::unique_lock lock(mutex_);
    ready_.wait(lock, [this] { return finished_ || !buffers_.empty(); });
    std::vector<std::vector<float>> taken;
    taken.reserve(buffers_.size());
    while (!buffers_.empty()) {
        taken.push_back(std::move(buffers_.front()));
        buffers_.pop_front();
    }
    return taken;
}

void BoundedAudioQueue::finish()
{
    {
        std::lock_guard lock(mutex_);
        finished_ = true;
    }
    ready_.notify_all();
}

} // namespace kestil
