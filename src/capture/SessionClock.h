#pragma once

#include <chrono>
#include <functional>
#include <optional>

namespace kestil {

// The elapsed time of one recording session: seconds of capture, the time
// spent paused left out. A stretch runs from the start of a segment to its
// end; the seconds of the stretches before it are kept in previousElapsed.
class SessionClock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Now = std::function<TimePoint()>;

    // The steady clock unless another source of time is given.
    explicit SessionClock(Now now = {});

    // A new session: nothing counted, nothing running.
    void reset();
    // A stretch of capture begins now.
    void beginStretch();
    // The present stretch ends; returns the reading at its end.
    double endStretch();
    // Keeps a reading as the seconds before the next stretch (on pause).
    void setPreviousElapsed(double seconds) { previousElapsed_ = seconds; }

    bool running() const { return startedAt_.has_value(); }
    double previousElapsed() const { return previousElapsed_; }
    // previousElapsed plus the seconds since the present stretch began.
    double reading() const;

private:
    Now now_;
    std::optional<TimePoint> startedAt_;
    double previousElapsed_ = 0;
};

} // namespace kestil
