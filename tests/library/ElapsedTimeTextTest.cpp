#include "library/ElapsedTimeText.h"

#include <gtest/gtest.h>

#include <limits>

using namespace kestil;

namespace {

TEST(ElapsedTimeTextTest, MinutesThenHoursAndNeverAheadOfTheClock)
{
    EXPECT_EQ(elapsedTimeText(0), QStringLiteral("0:00"));
    EXPECT_EQ(elapsedTimeText(59.99), QStringLiteral("0:59"));
    EXPECT_EQ(elapsedTimeText(61.2), QStringLiteral("1:01"));
    EXPECT_EQ(elapsedTimeText(3599.9), QStringLiteral("59:59"));
    EXPECT_EQ(elapsedTimeText(3600), QStringLiteral("1:00:00"));
    EXPECT_EQ(elapsedTimeText(2 * 3600 + 5 * 60 + 7), QStringLiteral("2:05:07"));
}

TEST(ElapsedTimeTextTest, NoTimeReadsZero)
{
    EXPECT_EQ(elapsedTimeText(-4), QStringLiteral("0:00"));
    EXPECT_EQ(elapsedTimeText(std::numeric_limits<double>::quiet_NaN()), QStringLiteral("0:00"));
    EXPECT_EQ(elapsedTimeText(std::numeric_limits<double>::infinity()), QStringLiteral("0:00"));
    EXPECT_EQ(elapsedTimeText(1e30), QStringLiteral("999:59:59"));
}

} // namespace
