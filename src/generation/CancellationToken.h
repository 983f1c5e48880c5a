#pragma once

#include "base/CancellationError.h"

#include <chrono>
#include <exception>
#include <functional>
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

// A shared cancellation flag. Copies share the flag; the tokens made from one
// are cancelled with it and may add a time limit or a watcher of their own.
// Safe to use from any thread.
class CancellationToken {
public:
    CancellationToken();

    void cancel() const;
    bool isCancelled() const;
    // Throws CancellationError when cancelled.
    void checkCancellation() const;

    // A token that also reads as cancelled once `limit` has passed. The limit
    // counts from the moment the model takes the request up (beginWork), not
    // from when it was asked: a request queued behind another one on the one
    // model loses none of its time while it waits.
    CancellationToken withTimeLimit(std::chrono::milliseconds limit) const;
    // A token whose requests tell `watcher` when they start waiting for the
    // model behind other work (true) and when the model takes them up (false).
    CancellationToken watchingWaits(std::function<void(bool waiting)> watcher) const;

    // For models: work on the request begins now, for `requests` requests
    // answered together; a time limit of this token or of those it was made
    // from starts counting, that many times its length, from now.
    void beginWork(int requests = 1) const;
    // For models: the request waits behind other work of the model, or no longer.
    void setWaiting(bool waiting) const;

    // Whether this token's own time limit has run out (not a parent's).
    bool timeLimitPassed() const;

private:
    struct State;
    explicit CancellationToken(std::shared_ptr<State> state);
    std::shared_ptr<State> state_;
};

} // namespace kestil
