#pragma once

#include "base/CancellationError.h"

#include <chrono>
#include <exception>
#include <memory>
#include <optional>

namespace kestil {

// A clock that keeps counting while the machine sleeps, so that a time limit
// measured on it is a limit of wall time.
struct ContinuousClock {
    using duration = std::chrono::nanoseconds;
    using time_point = std::chrono::time_point<ContinuousClock, duration>;
    static time_point now() noexcept;
};

// A shared cancellation flag. Copies share the flag; child() makes a token that
// is cancelled with its parent and may add a deadline of its own, after which
// it reads as cancelled too. Safe to use from any thread.
class CancellationToken {
public:
    CancellationToken();

    void cancel() const;
    bool isCancelled() const;
    // Throws CancellationError when cancelled.
    void checkCancellation() const;

    CancellationToken child(std::optional<ContinuousClock::time_point> deadline = std::nullopt) const;
    // Whether this token's own deadline has passed (not its parent's).
    bool deadlinePassed() const;
    std::optional<ContinuousClock::time_point> deadline() const;

private:
    struct State;
    explicit CancellationToken(std::shared_ptr<State> state);
    std::shared_ptr<State> state_;
};

} // namespace kestil
