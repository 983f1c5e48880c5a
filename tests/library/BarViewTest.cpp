#include "library/BarView.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

using namespace kestil;

namespace {

BarView bar(float level, bool standing = false, double height = 20, double factor = 0.2)
{
    BarView b;
    b.alwaysShowBars = standing;
    b.audioLevel = level;
    b.height = height;
    b.smoothedHeightFactor = factor;
    return b;
}

TEST(BarViewTest, WavingShowsAnyAudibleSoundAndStandingCompressesTheLevel)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const struct {
        float level;
        bool standing;
        double shown;
        bool signal;
    } cases[] = {
        {0.005f, false, 0.05, true}, // audible but small: the least visible level
        {0.1f, false, 0.54, true},    {0.2f, false, 1.0, true},       {5.0f, false, 1.0, true},
        {0.0002f, false, 0.05, true}, {0.0001f, false, 0.0, false},   {0.0f, false, 0.0, false},
        {-0.3f, false, 0.0, false},   {nan, false, 0.0, false},       {1.0f / 18, true, 1.0, true},
        {0.01f, true, 0.5212, true},  {0.00001f, true, 0.0378, true}, {0.0f, true, 0.0, false},
        {-1.0f, true, 0.0, false},
    };
    for (const auto &c : cases) {
        EXPECT_NEAR(normalizedLevel(c.level, c.standing), c.shown, 1e-4) << c.level << " " << c.standing;
        EXPECT_EQ(hasSignal(c.level, c.standing), c.signal) << c.level << " " << c.standing;
    }
}

TEST(BarViewTest, TheDrawnHeightIsClampedToItsFloorAndRoundedToTheNearestHalfPoint)
{
    const struct {
        double height, factor;
        bool standing;
        double drawn;
    } cases[] = {{40, 1, false, 28},    {4, 1, false, 12},
                 {20, 0.01, false, 5}, // the waving floor is 0.24
                 {20, 0.61, false, 12}, {20, 0.64, false, 13},
                 {20, 3, false, 20},    {25, 0, true, 2}}; // the standing floor is 0.08
    for (const auto &c : cases)
        EXPECT_DOUBLE_EQ(drawnBarHeight(bar(0.2f, c.standing, c.height, c.factor)), c.drawn)
            << c.height << " " << c.factor;
    EXPECT_NEAR(barWidth(bar(0, false, 40)), 5.04, 1e-12);
    EXPECT_DOUBLE_EQ(barCornerRadius(bar(0, false, 40)), 2.8);
    EXPECT_DOUBLE_EQ(clampedBarHeight(std::numeric_limits<double>::quiet_NaN()), 12);
}

TEST(BarViewTest, SilenceRestsAsADotUnlessMotionIsForcedAndTheWaveStaysInItsBounds)
{
    BarView b = bar(0.0f, false, 20, 0.9);
    advanceBar(b, {1.0, 0.44});
    EXPECT_DOUBLE_EQ(b.smoothedHeightFactor, 0.2);
    EXPECT_TRUE(barDrawsAsDot(b));
    EXPECT_DOUBLE_EQ(drawnBarHeight(b), 5.0) << "the dot is drawn no lower than the floor";
    b.forceMotionAtLowInput = true;
    EXPECT_FALSE(barDrawsAsDot(b));
    advanceBar(b, {1.0, 0.44});
    EXPECT_GT(b.smoothedHeightFactor, 0.2) << "forced motion moves towards the wave";

    // Louder input lifts the wave.
    for (const auto &[level, low, high] : {std::tuple{0.0f, 0.26, 0.7}, {0.2f, 0.46, 1.0}}) {
        double lowest = 1, highest = 0;
        for (double phase = 0; phase < 2 * std::numbers::pi; phase += 0.05) {
            BarView w = bar(level);
            w.motionPhase = phase;
            lowest = std::min(lowest, targetHeightFactor(w));
            highest = std::max(highest, targetHeightFactor(w));
        }
        EXPECT_NEAR(lowest, low, 1e-3) << level;
        EXPECT_NEAR(highest, high, 1e-3) << level;
    }
}

TEST(BarViewTest, TheStandingMeterRisesFastFallsSlowlyAndClampsItsRange)
{
    BarView b = bar(0.2f, true);
    b.maxHeightFactor = 0.9;
    advanceBar(b, {});
    EXPECT_NEAR(b.smoothedHeightFactor, 0.774, 1e-9) << "most of the way up in one tick";
    b.audioLevel = 0;
    advanceBar(b, {});
    EXPECT_NEAR(b.smoothedHeightFactor, 0.44108, 1e-9) << "a little over half the way down";

    b.audioLevel = 1;
    b.baseHeightFactor = 0.9; // at most 0.45
    b.maxHeightFactor = 0.1;  // at least base + 0.2
    EXPECT_NEAR(targetHeightFactor(b), 0.65, 1e-12);
    b.baseHeightFactor = 0.01; // at least 0.08
    b.maxHeightFactor = 2;     // at most 1
    b.recordingResponseBoost = 10;
    EXPECT_NEAR(targetHeightFactor(b), 1.0, 1e-12);
    b.audioLevel = 0;
    EXPECT_NEAR(targetHeightFactor(b), 0.08, 1e-12);
}

} // namespace
