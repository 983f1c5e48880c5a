#include "library/BarView.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

using namespace kestil;

namespace {

BarView waving(float level)
{
    BarView bar;
    bar.audioLevel = level;
    return bar;
}

BarView standing(float level)
{
    BarView bar;
    bar.alwaysShowBars = true;
    bar.audioLevel = level;
    bar.baseHeightFactor = 0.2;
    bar.maxHeightFactor = 0.9;
    bar.smoothedHeightFactor = 0.2;
    return bar;
}

TEST(BarViewLevelTest, WavingModeShowsAnyAudibleSoundAndNothingForSilence)
{
    // 5.4 * 0.005 = 0.027 is audible but small: it reads as the least visible level.
    EXPECT_DOUBLE_EQ(normalizedLevel(0.005f, false), 0.05);
    EXPECT_DOUBLE_EQ(normalizedLevel(0.2f, false), 1.0);
    EXPECT_DOUBLE_EQ(normalizedLevel(5.0f, false), 1.0);
    EXPECT_NEAR(normalizedLevel(0.1f, false), 0.54, 1e-6);
    EXPECT_DOUBLE_EQ(normalizedLevel(0.0001f, false), 0.0) << "5.4e-4 is below the threshold of 0.001";
    EXPECT_DOUBLE_EQ(normalizedLevel(0.0f, false), 0.0);
    EXPECT_DOUBLE_EQ(normalizedLevel(-0.3f, false), 0.0);
    EXPECT_DOUBLE_EQ(normalizedLevel(std::numeric_limits<float>::quiet_NaN(), false), 0.0);

    EXPECT_TRUE(hasSignal(0.0002f, false));
    EXPECT_FALSE(hasSignal(0.0001f, false));
    EXPECT_FALSE(hasSignal(-0.5f, false));
}

TEST(BarViewLevelTest, StandingModeCompressesTheLevel)
{
    EXPECT_DOUBLE_EQ(normalizedLevel(0.0f, true), 0.0);
    EXPECT_DOUBLE_EQ(normalizedLevel(1.0f / 18, true), 1.0);
    EXPECT_NEAR(normalizedLevel(0.01f, true), std::pow(0.18, 0.38), 1e-6);
    EXPECT_DOUBLE_EQ(normalizedLevel(-1.0f, true), 0.0);
    EXPECT_TRUE(hasSignal(0.00001f, true));
    EXPECT_FALSE(hasSignal(0.0f, true));
}

TEST(BarViewGeometryTest, HeightIsClampedAndWidthNeverPassesFivePointOhFour)
{
    BarView bar = waving(0.2f);
    bar.height = 40;
    bar.smoothedHeightFactor = 1;
    EXPECT_DOUBLE_EQ(drawnBarHeight(bar), 28);
    EXPECT_DOUBLE_EQ(barWidth(bar), 28 * 0.18);
    EXPECT_LE(barWidth(bar), 5.04 + 1e-12);
    EXPECT_DOUBLE_EQ(barCornerRadius(bar), 2.8);

    bar.height = 4;
    EXPECT_DOUBLE_EQ(barWidth(bar), 12 * 0.18);
    EXPECT_DOUBLE_EQ(drawnBarHeight(bar), 12);
    bar.height = std::numeric_limits<double>::quiet_NaN();
    EXPECT_DOUBLE_EQ(clampedBarHeight(bar.height), 12);
}

TEST(BarViewGeometryTest, DrawnHeightRoundsToTheNearestHalfPoint)
{
    BarView bar = waving(0.0f);
    bar.height = 20;
    bar.smoothedHeightFactor = 0.01; // floor 0.24: 4.8 rounds to 5.0
    EXPECT_DOUBLE_EQ(drawnBarHeight(bar), 5.0);
    bar.smoothedHeightFactor = 0.61; // 12.2 rounds to 12.0
    EXPECT_DOUBLE_EQ(drawnBarHeight(bar), 12.0);
    bar.smoothedHeightFactor = 0.64; // 12.8 rounds to 13.0
    EXPECT_DOUBLE_EQ(drawnBarHeight(bar), 13.0);
    bar.smoothedHeightFactor = 3;
    EXPECT_DOUBLE_EQ(drawnBarHeight(bar), 20.0);

    BarView meter = standing(0.0f);
    meter.height = 25;
    meter.smoothedHeightFactor = 0.0; // floor 0.08: 2.0
    EXPECT_DOUBLE_EQ(drawnBarHeight(meter), 2.0);
}

TEST(BarViewMotionTest, SilenceRestsAsADotUnlessMotionIsForced)
{
    BarView bar = waving(0.0f);
    bar.smoothedHeightFactor = 0.9;
    advanceBar(bar, {1.0, 0.44});
    EXPECT_DOUBLE_EQ(bar.smoothedHeightFactor, 0.2);
    EXPECT_TRUE(barDrawsAsDot(bar));
    EXPECT_DOUBLE_EQ(drawnBarHeight(bar), 5.0) << "the dot is drawn no lower than the 0.24 floor";

    bar.forceMotionAtLowInput = true;
    EXPECT_FALSE(barDrawsAsDot(bar));
    const double before = bar.smoothedHeightFactor;
    advanceBar(bar, {1.0, 0.44});
    EXPECT_NEAR(bar.smoothedHeightFactor, before * 0.2 + targetHeightFactor(bar) * 0.8, 1e-9);
    EXPECT_GE(bar.smoothedHeightFactor, 0.24 * 0.8);
}

TEST(BarViewMotionTest, WavingTargetStaysBetweenItsBounds)
{
    for (float level : {0.0f, 0.005f, 0.05f, 0.2f, 1.0f}) {
        for (double phase = 0; phase < 2 * std::numbers::pi; phase += 0.3) {
            BarView bar = waving(level);
            bar.motionPhase = phase;
            bar.randomFactor = 1.16;
            const double e = std::clamp(std::pow(normalizedLevel(level, false), 0.62), 0.0, 1.0);
            const double target = targetHeightFactor(bar);
            EXPECT_GE(target, std::max(0.24, e * 0.2 + 0.26) - 1e-12);
            EXPECT_LE(target, e * 0.3 + 0.7 + 1e-12);
        }
    }
    // Louder input lifts the whole wave.
    BarView quiet = waving(0.005f), loud = waving(0.2f);
    quiet.motionPhase = loud.motionPhase = std::numbers::pi / 2;
    EXPECT_GT(targetHeightFactor(loud), targetHeightFactor(quiet));
}

TEST(BarViewMotionTest, PhaseWrapsAndRandomStateFollowsItsDraws)
{
    BarView bar = waving(0.1f);
    bar.motionPhase = 2 * std::numbers::pi - 0.1;
    bar.motionVelocity = 0.5;
    bar.randomFactor = 1.0;
    advanceBar(bar, {1.1, 0.3});
    EXPECT_NEAR(bar.motionPhase, 0.4, 1e-9);
    EXPECT_NEAR(bar.randomFactor, 0.8 + 0.22, 1e-12);
    EXPECT_NEAR(bar.motionVelocity, 0.5 * 0.85 + 0.3 * 0.15, 1e-12);

    QRandomGenerator generator(7);
    for (int i = 0; i < 1000; ++i) {
        const BarDraws d = drawBarDraws(generator);
        ASSERT_GE(d.randomFactor, 0.82);
        ASSERT_LE(d.randomFactor, 1.16);
        ASSERT_GE(d.motionVelocity, 0.3);
        ASSERT_LE(d.motionVelocity, 0.58);
    }
}

TEST(BarViewMotionTest, StandingMeterRisesFastAndFallsSlowly)
{
    BarView bar = standing(0.2f); // normalised 1: target is the top, 0.9
    EXPECT_DOUBLE_EQ(targetHeightFactor(bar), 0.9);
    advanceBar(bar, {});
    EXPECT_NEAR(bar.smoothedHeightFactor, 0.2 * 0.18 + 0.9 * 0.82, 1e-12);

    bar.audioLevel = 0; // target falls back to the base
    const double high = bar.smoothedHeightFactor;
    advanceBar(bar, {});
    EXPECT_NEAR(bar.smoothedHeightFactor, high * 0.42 + 0.2 * 0.58, 1e-12);
}

TEST(BarViewMotionTest, StandingTargetClampsBaseTopAndBoost)
{
    BarView bar = standing(1.0f);
    bar.baseHeightFactor = 0.9; // clamped to 0.45
    bar.maxHeightFactor = 0.1;  // raised to base + 0.2
    EXPECT_NEAR(targetHeightFactor(bar), 0.65, 1e-12);
    bar.baseHeightFactor = 0.01; // clamped to 0.08
    bar.maxHeightFactor = 2;     // capped at 1
    bar.recordingResponseBoost = 10;
    EXPECT_NEAR(targetHeightFactor(bar), 1.0, 1e-12);
    bar.audioLevel = 0;
    EXPECT_NEAR(targetHeightFactor(bar), 0.08, 1e-12);
}

} // namespace
