#include "generation/CancellationToken.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <ctime>

namespace kestil {

ContinuousClock::time_point ContinuousClock::now() noexcept
{
    timespec reading{};
    clock_gettime(CLOCK_BOOTTIME, &reading);
    return time_point(std::chrono::seconds(reading.tv_sec) + std::chrono::nanoseconds(reading.tv_nsec));
}

struct CancellationToken::State {
    std::atomic<bool> cancelled{false};
    // The length of this token's time limit, and when it ends once started
    // (nanoseconds on the continuous clock; 0 while it has not started).
    std::optional<std::chrono::milliseconds> limit;
    mutable std::atomic<std::int64_t> deadline{0};
    std::function<void(bool)> watcher;
    std::shared_ptr<const State> parent;

    bool ownLimitPassed() const
    {
        const std::int64_t end = deadline.load(std::memory_order_relaxed);
        return end != 0 && ContinuousClock::now().time_since_epoch().count() >= end;
    }

    bool isCancelled() const
    {
        for (const State *state = this; state; state = state->parent.get()) {
            if (state->cancelled.load(std::memory_order_relaxed) || state->ownLimitPassed())
                return true;
        }
        return false;
    }
};

CancellationToken::CancellationToken() : state_(std::make_shared<State>()) {}

CancellationToken::CancellationToken(std::shared_ptr<State> state) : state_(std::move(state)) {}

void CancellationToken::cancel() const
{
    state_->cancelled.store(true);
}

bool CancellationToken::isCancelled() const
{
    return state_->isCancelled();
}

void CancellationToken::checkCancellation() const
{
    if (isCancelled())
        throw CancellationError();
}

CancellationToken CancellationToken::withTimeLimit(std::chrono::milliseconds limit) const
{
    auto state = std::make_shared<State>();
    state->limit = limit;
    state->parent = state_;
    return CancellationToken(std::move(state));
}

CancellationToken CancellationToken::watchingWaits(std::function<void(bool)> watcher) const
{
    auto state = std::make_shared<State>();
    state->watcher = std::move(watcher);
    state->parent = state_;
    return CancellationToken(std::move(state));
}

void CancellationToken::beginWork(int requests) const
{
    const std::int64_t now = ContinuousClock::now().time_since_epoch().count();
    for (const State *state = state_.get(); state; state = state->parent.get()) {
        if (!state->limit)
            continue;
        const auto length =
            std::chrono::duration_cast<ContinuousClock::duration>(*state->limit) * std::max(requests, 1);
        state->deadline.store(now + length.count());
    }
}

void CancellationToken::setWaiting(bool waiting) const
{
    for (const State *state = state_.get(); state; state = state->parent.get()) {
        if (state->watcher)
            state->watcher(waiting);
    }
}

bool CancellationToken::timeLimitPassed() const
{
    return state_->ownLimitPassed();
}

} // namespace kestil
