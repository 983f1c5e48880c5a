#pragma once

// A speech engine whose answers and pace the test decides, for driving a live
// session or a recorder without a real model.

#include "base/Error.h"
#include "speech/SpeechEngine.h"

#include <QString>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

namespace kestil::test {

// A gate that holds a thread until the test opens it.
class Latch {
public:
    void open()
    {
        std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    void wait()
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

// What the scripted engine did, and how it is told to behave. The gates and
// errors are set before the engine runs: feed() waits for feedGate, as a slow
// decoder would (abort() opens it), and finish() for finishGate; each fails
// with its error text when that is set.
struct EngineProbe {
    std::atomic<int> finishes{0};
    std::atomic<int> aborts{0};
    std::atomic<int> engines{0};
    std::shared_ptr<Latch> feedGate;
    QString feedError;
    std::shared_ptr<Latch> finishGate;
    QString finishError;

    // Every sample fed, in order.
    std::vector<float> received()
    {
        std::lock_guard lock(mutex);
        return samples;
    }
    // Waits until feed() has been entered `count` times.
    bool waitForFeeds(int count)
    {
        std::unique_lock lock(mutex);
        return entered.wait_for(lock, std::chrono::seconds(10), [&] { return feeds >= count; });
    }

    std::mutex mutex;
    std::condition_variable entered;
    int feeds = 0;
    std::vector<float> samples;
};

// Hears one word per second of audio: every whole second fed is a final
// "word<N>" from N-1 to N; a part second is a volatile "partial", and what is
// left at the end a final "tail".
class ScriptedSpeechEngine : public SpeechEngine {
public:
    static constexpr double rate = 16000;

    explicit ScriptedSpeechEngine(std::shared_ptr<EngineProbe> probe) : probe_(std::move(probe))
    {
        ++probe_->engines;
    }

    double sampleRate() const override { return rate; }

    std::vector<SpeechResult> feed(std::span<const float> samples) override
    {
        {
            std::lock_guard lock(probe_->mutex);
            ++probe_->feeds;
            probe_->entered.notify_all();
        }
        if (probe_->feedGate)
            probe_->feedGate->wait();
        {
            std::lock_guard lock(probe_->mutex);
            probe_->samples.insert(probe_->samples.end(), samples.begin(), samples.end());
        }
        if (!probe_->feedError.isEmpty())
            throw SystemError(probe_->feedError);
        fed_ += qint64(samples.size());
        std::vector<SpeechResult> results;
        for (; fed_ >= (words_ + 1) * qint64(rate); ++words_)
            results.push_back(
                {QStringLiteral("word%1").arg(words_ + 1), double(words_), double(words_ + 1), true});
        if (fed_ > words_ * qint64(rate))
            results.push_back({QStringLiteral("partial"), double(words_), double(fed_) / rate, false});
        return results;
    }

    std::vector<SpeechResult> finish() override
    {
        ++probe_->finishes;
        if (probe_->finishGate)
            probe_->finishGate->wait();
        if (!probe_->finishError.isEmpty())
            throw LocalError(probe_->finishError);
        if (fed_ > words_ * qint64(rate))
            return {{QStringLiteral("tail"), double(words_), double(fed_) / rate, true}};
        return {};
    }

    void abort() override
    {
        ++probe_->aborts;
        if (probe_->feedGate)
            probe_->feedGate->open();
    }

private:
    std::shared_ptr<EngineProbe> probe_;
    qint64 fed_ = 0;
    qint64 words_ = 0;
};

} // namespace kestil::test
