#include "speech/StreamResampler.h"

#include "base/Error.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace kestil;

// Continuity across buffers is the live session's test, which keeps one
// converter per input rate.
TEST(StreamResampler, RefusesRatesThatAreNotRates)
{
    EXPECT_THROW(StreamResampler(0, 16000), SystemError);
    EXPECT_THROW(StreamResampler(NAN, 16000), SystemError);
    EXPECT_THROW(StreamResampler(-48000, 16000), SystemError);
}
