#pragma once

#include <QString>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace kestil {

// A serial queue on a thread of its own: blocks run one at a time, in the
// order they were added. Sources deliver their buffers here, so the disk
// write of a buffer never holds up the sound server's thread, and the
// recording session can pass through the queue once (sync with an empty
// block) to know that every buffer in flight has reached the writer.
class CaptureQueue {
public:
    // The queue of the recording session.
    static constexpr const char *captureLabel = "kestil.local.capture";

    explicit CaptureQueue(QString label = QString::fromLatin1(captureLabel));
    // Runs what is still queued, then ends the thread.
    ~CaptureQueue();

    CaptureQueue(const CaptureQueue &) = delete;
    CaptureQueue &operator=(const CaptureQueue &) = delete;

    const QString &label() const { return label_; }

    // Adds a block and returns at once. Blocks report their own failures.
    void async(std::function<void()> block);

    // Adds a block and waits until it has run; every block added before it
    // has run too. Called from the queue's own thread it runs the block in
    // place rather than wait for itself.
    void sync(const std::function<void()> &block = {});

    // Blocks added and not yet finished.
    size_t pending() const;

    bool isCurrentThread() const { return std::this_thread::get_id() == thread_.get_id(); }

private:
    void run();

    QString label_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> blocks_;
    size_t running_ = 0;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace kestil
