#include "library/ElapsedTimeText.h"

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

#include <limits>

using namespace kestil;

namespace {

TEST(ElapsedTimeTextTest, MinutesThenHoursNeverAheadOfTheClockAndNoTimeReadsZero)
{
    const std::pair<double, const char *> cases[] = {{0, "0:00"},
                                                     {59.99, "0:59"},
                                                     {61.2, "1:01"},
                                                     {3599.9, "59:59"},
                                                     {3600, "1:00:00"},
                                                     {7507, "2:05:07"},
                                                     {-4, "0:00"},
                                                     {std::numeric_limits<double>::quiet_NaN(), "0:00"},
                                                     {std::numeric_limits<double>::infinity(), "0:00"},
                                                     {1e30, "999:59:59"}};
    for (const auto &[seconds, text] : cases)
        EXPECT_EQ(elapsedTimeText(seconds), QString::fromLatin1(text)) << seconds;
}

} // namespace
