#include "capture/SessionClock.h"

namespace kestil {

SessionClock::SessionClock(Now now)
    : now_(now ? std::move(now) : Now([] { return std::chrono::steady_clock::now(); }))
{
}

void SessionClock::reset()
{
    startedAt_.reset();
    previousElapsed_ = 0;
}

void SessionClock::beginStretch()
{
    startedAt_ = now_();
}

double SessionClock::endStretch()
{
    const double value = reading();
    startedAt_.reset();
    return value;
}

double SessionClock::reading() const
{
    if (!startedAt_)
        return previousElapsed_;
    return previousElapsed_ + std::chrono::duration<double>(now_() - *startedAt_).count();
}

} // namespace kestil
