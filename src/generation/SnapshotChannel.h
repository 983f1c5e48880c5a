#pragma once

#include <QString>

#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>

namespace kestil {

// Hands the growing text of a response from the model's thread to the thread
// that asked for it, one snapshot at a time. The producer waits until each
// snapshot has been handled, so the consumer sees every one in order and the
// producer stops at once when the consumer drops the stream.
class SnapshotChannel {
public:
    // Producer: offers the whole text so far; false when the consumer stopped.
    bool deliver(const QString &text)
    {
        std::unique_lock lock(mutex_);
        if (stopped_)
            return false;
        pending_ = text;
        changed_.notify_all();
        changed_.wait(lock, [this] { return !pending_ || stopped_; });
        return !stopped_;
    }

    // Producer: the response ended, with an error or without.
    void finish(std::exception_ptr error = nullptr)
    {
        std::lock_guard lock(mutex_);
        finished_ = true;
        error_ = error;
        changed_.notify_all();
    }

    // Consumer: the next snapshot, or nothing when the response has ended
    // (rethrowing its error).
    std::optional<QString> next()
    {
        std::unique_lock lock(mutex_);
        if (taken_) {
            pending_.reset();
            taken_ = false;
            changed_.notify_all();
        }
        changed_.wait(lock, [this] { return pending_ || finished_; });
        if (pending_) {
            taken_ = true;
            return pending_;
        }
        if (error_)
            std::rethrow_exception(error_);
        return std::nullopt;
    }

    // Consumer: drops the rest of the response and waits until the producer is done.
    void stop()
    {
        std::unique_lock lock(mutex_);
        stopped_ = true;
        changed_.notify_all();
        changed_.wait(lock, [this] { return finished_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<QString> pending_;
    bool taken_ = false;
    bool stopped_ = false;
    bool finished_ = false;
    std::exception_ptr error_;
};

} // namespace kestil
