#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <vector>

namespace kestil {

// The input stream of a live session: buffers of audio between the capture
// path and the speech worker. A writer never waits: when `limit` buffers are
// already waiting, a new one is refused and the older ones stay. That refusal
// is the session's only back-pressure.
class BoundedAudioQueue {
public:
    enum class YieldResult { enqueued, dropped, terminated };

    explicit BoundedAudioQueue(std::size_t limit) : limit_(limit) {}

    // Adds a buffer unless the queue is full (dropped) or finished (terminated).
    YieldResult yield(std::vector<float> &&buffer);

    // Waits until a buffer is there or the input has ended, then takes every
    // waiting buffer in order. An empty answer means the input has ended and
    // everything before the end has been taken.
    std::vector<std::vector<float>> takeAll();

    // Ends the input. Buffers already waiting are still handed out.
    void finish();

    std::size_t limit() const { return limit_; }

private:
    const std::size_t limit_;
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<std::vector<float>> buffers_;
    bool finished_ = false;
};

} // namespace kestil
