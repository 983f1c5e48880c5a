#include "generation/CancellationToken.h"

#include <atomic>
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
    std::optional<ContinuousClock::time_point> deadline;
    std::shared_ptr<const State> parent;

    bool ownDeadlinePassed() const { return deadline && ContinuousClock::now() >= *deadline; }

    bool isCancelled() const
    {
        for (const State *state = this; state; state = state->parent.get()) {
            if (state->cancelled.load(std::memory_order_relaxed) || state->ownDeadlinePassed())
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

CancellationToken CancellationToken::child(std::optional<ContinuousClock::time_point> deadline) const
{
    auto state = std::make_shared<State>();
    state->deadline = deadline;
    state->parent = state_;
    return CancellationToken(std::move(state));
}

bool CancellationToken::deadlinePassed() const
{
    return state_->ownDeadlinePassed();
}

std::optional<ContinuousClock::time_point> CancellationToken::deadline() const
{
    return state_->deadline;
}

} // namespace kestil
