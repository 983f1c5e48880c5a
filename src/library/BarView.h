#pragma once

#include <QRandomGenerator>

namespace kestil {

// One bar of the recording level meter: its look, the raw peak it shows and
// its own motion. The recorder publishes the unfiltered peak of each buffer;
// every bit of shaping happens here, per bar, in one of two modes:
//  - alwaysShowBars false (the floating indicator): bars rest at a low height
//    and wave; any audible sound lifts them, silence turns them into dots.
//  - alwaysShowBars true (the window's meter): bars stand at a base height and
//    rise with the level, quickly up and more slowly down.
struct BarView {
    double height = 20;   // nominal height in points, clamped to 12..28 in every use
    float audioLevel = 0; // peak of the latest buffer, 0 to about 1
    double delay = 0;     // phase offset of this bar in its row
    bool alwaysShowBars = false;
    bool forceMotionAtLowInput = false;
    double baseHeightFactor = 0.2;
    double maxHeightFactor = 1.0;
    double recordingResponseBoost = 1.0;
    bool growFromCenter = true;

    // Animation state, advanced by advanceBar every 1/60 second.
    double randomFactor = 1.0;
    double motionPhase = 0;
    double motionVelocity = 0.44;
    double smoothedHeightFactor = 0.2;
};

inline constexpr double barTickInterval = 1.0 / 60.0;
inline constexpr double barMinimumHeight = 12;
inline constexpr double barMaximumHeight = 28;

// The random draws of one tick of the waving mode: the new random factor's
// target (0.82 to 1.16) and the new velocity's target (0.3 to 0.58).
struct BarDraws {
    double randomFactor = 1.0;
    double motionVelocity = 0.44;
};
BarDraws drawBarDraws(QRandomGenerator &generator);

// The peak shaped for display, 0 to 1. Waving mode: 5.4 times the level,
// nothing below 0.001, at least 0.05 above it, so any audible sound shows and
// silence shows nothing. Standing mode: 18 times the level to the power 0.38.
double normalizedLevel(float level, bool alwaysShowBars);
// Whether the bar has something to show.
bool hasSignal(float level, bool alwaysShowBars);

// The height factor the bar moves towards on this tick.
double targetHeightFactor(const BarView &bar);
// One animation tick: phase, random factor and velocity move on (waving
// mode), then the smoothed height follows the target.
void advanceBar(BarView &bar, const BarDraws &draws);

// Nominal height clamped to 12..28.
double clampedBarHeight(double height);
// The height to draw: clamped height times the smoothed factor (kept within
// 0.24..1 or 0.08..1 by mode), rounded to the nearest half point.
double drawnBarHeight(const BarView &bar);
// At most 28 * 0.18 = 5.04 points.
double barWidth(const BarView &bar);
double barCornerRadius(const BarView &bar);
// With no signal and no forced motion the bar is drawn as a dot of its width.
bool barDrawsAsDot(const BarView &bar);

} // namespace kestil
