#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <type_traits>

namespace kestil {

// One thread that runs posted jobs in order. All of the language model's work
// happens on it, so that its state needs no lock and requests never overlap.
class SerialWorker {
public:
    SerialWorker() : thread_([this] { run(); }) {}
    ~SerialWorker()
    {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_one();
        thread_.join();
    }
    SerialWorker(const SerialWorker &) = delete;
    SerialWorker &operator=(const SerialWorker &) = delete;

    // Runs fn on the worker and returns its future.
    template <typename Fn> std::future<std::invoke_result_t<Fn>> post(Fn fn)
    {
        auto task = std::make_shared<std::packaged_task<std::invoke_result_t<Fn>()>>(std::move(fn));
        auto future = task->get_future();
        {
            std::lock_guard lock(mutex_);
            jobs_.push_back([task] { (*task)(); });
        }
        wake_.notify_one();
        return future;
    }

    // Runs fn on the worker and waits for its result (or its exception).
    template <typename Fn> std::invoke_result_t<Fn> call(Fn fn)
    {
        if (std::this_thread::get_id() == thread_.get_id())
            return fn();
        return post(std::move(fn)).get();
    }

    bool isWorkerThread() const { return std::this_thread::get_id() == thread_.get_id(); }

    // Whether a job runs or waits: a job posted now would wait behind it.
    bool isBusy()
    {
        std::lock_guard lock(mutex_);
        return running_ || !jobs_.empty();
    }

private:
    void run()
    {
        for (;;) {
            std::function<void()> job;
            {
                std::unique_lock lock(mutex_);
                wake_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
                if (jobs_.empty())
                    return;
                job = std::move(jobs_.front());
                jobs_.pop_front();
                running_ = true;
            }
            job();
            std::lock_guard lock(mutex_);
            running_ = false;
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> jobs_;
    bool stopping_ = false;
    bool running_ = false;
    std::thread thread_;
};

} // namespace kestil
