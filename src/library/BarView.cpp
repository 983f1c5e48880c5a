#include "BarView.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace kestil {

namespace {

constexpr double wavingGain = 5.4;
constexpr double standingGain = 18;
constexpr double silenceThreshold = 0.001;
constexpr double quietestShown = 0.05;
constexpr double wavingFloor = 0.24;
constexpr double standingFloor = 0.08;
constexpr double silentRestFactor = 0.2;

double clamp01(double value)
{
    return std::clamp(value, 0.0, 1.0);
}

double uniform(QRandomGenerator &generator, double low, double high)
{
    return low + (high - low) * generator.generateDouble();
}

} // namespace

BarDraws drawBarDraws(QRandomGenerator &generator)
{
    return {uniform(generator, 0.82, 1.16), uniform(generator, 0.3, 0.58)};
}

double normalizedLevel(float level, bool alwaysShowBars)
{
    // NaN and negative peaks count as silence.
    const double raw = std::isnan(level) ? 0.0 : std::max(0.0, double(level));
    if (alwaysShowBars)
        return std::pow(clamp01(raw * standingGain), 0.38);
    const double scaled = clamp01(raw * wavingGain);
    if (scaled < silenceThreshold)
        return 0;
    return std::max(scaled, quietestShown);
}

bool hasSignal(float level, bool alwaysShowBars)
{
    if (alwaysShowBars)
        return normalizedLevel(level, true) > 0;
    return level >= 0 && double(level) * wavingGain >= silenceThreshold;
}

double targetHeightFactor(const BarView &bar)
{
    const double level = normalizedLevel(bar.audioLevel, bar.alwaysShowBars);
    if (!bar.alwaysShowBars) {
        const double e = clamp01(std::pow(level, 0.62));
        const double low = e * 0.2 + 0.26;
        const double high = e * 0.3 + 0.7;
        const double wave =
            clamp01(std::pow((std::sin(bar.motionPhase + bar.delay * 7) + 1) * 0.5, 0.78) * bar.randomFactor);
        return std::max(wavingFloor, low + (high - low) * wave);
    }
    const double base = std::clamp(bar.baseHeightFactor, 0.08, 0.45);
    const double top = std::min(1.0, std::max(bar.maxHeightFactor, base + 0.2));
    return base + (top - base) * clamp01(std::pow(level, 1.5) * bar.recordingResponseBoost);
}

void advanceBar(BarView &bar, const BarDraws &draws)
{
    if (bar.alwaysShowBars) {
        const double target = targetHeightFactor(bar);
        const double k = target > bar.smoothedHeightFactor ? 0.82 : 0.58;
        bar.smoothedHeightFactor = bar.smoothedHeightFactor * (1 - k) + target * k;
        return;
    }
    constexpr double fullTurn = 2 * std::numbers::pi;
    bar.motionPhase += bar.motionVelocity;
    if (bar.motionPhase > fullTurn)
        bar.motionPhase -= fullTurn;
    bar.randomFactor = bar.randomFactor * 0.8 + draws.randomFactor * 0.2;
    bar.motionVelocity = bar.motionVelocity * 0.85 + draws.motionVelocity * 0.15;
    if (!hasSignal(bar.audioLevel, false) && !bar.forceMotionAtLowInput)
        bar.smoothedHeightFactor = silentRestFactor;
    else
        bar.smoothedHeightFactor = bar.smoothedHeightFactor * 0.2 + targetHeightFactor(bar) * 0.8;
}

double clampedBarHeight(double height)
{
    if (std::isnan(height))
        return barMinimumHeight;
    return std::clamp(height, barMinimumHeight, barMaximumHeight);
}

double drawnBarHeight(const BarView &bar)
{
    const double floor = bar.alwaysShowBars ? standingFloor : wavingFloor;
    const double factor =
        std::isnan(bar.smoothedHeightFactor) ? floor : std::clamp(bar.smoothedHeightFactor, floor, 1.0);
    return std::round(clampedBarHeight(bar.height) * factor * 2) / 2;
}

double barWidth(const BarView &bar)
{
    return clampedBarHeight(bar.height) * 0.18;
}

double barCornerRadius(const BarView &bar)
{
    return clampedBarHeight(bar.height) * 0.1;
}

bool barDrawsAsDot(const BarView &bar)
{
    return !hasSignal(bar.audioLevel, bar.alwaysShowBars) && !bar.forceMotionAtLowInput;
}

} // namespace kestil
