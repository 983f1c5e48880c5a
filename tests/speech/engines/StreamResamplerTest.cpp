#include "speech/StreamResampler.h"

#include "base/Error.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace kestil;

namespace {

std::vector<float> sine(double frequency, double rate, std::size_t count, std::size_t offset = 0)
{
    std::vector<float> out(count);
    for (std::size_t i = 0; i < count; ++i)
        out[i] = float(0.5 * std::sin(2.0 * M_PI * frequency * double(i + offset) / rate));
    return out;
}

// The largest difference between `signal` and a sine of the same frequency,
// after the best whole-sample alignment (the filter delays the signal).
double worstError(const std::vector<float> &signal, double frequency, double rate, std::size_t skip)
{
    double best = 1e9;
    for (int delay = -64; delay <= 64; ++delay) {
        double worst = 0;
        for (std::size_t i = skip; i + skip < signal.size(); ++i) {
            const double expected = 0.5 * std::sin(2.0 * M_PI * frequency * (double(i) + delay) / rate);
            worst = std::max(worst, std::abs(double(signal[i]) - expected));
        }
        best = std::min(best, worst);
    }
    return best;
}

} // namespace

TEST(StreamResampler, BuffersComeOutAsOneContinuousSignal)
{
    // 2 s of a 440 Hz tone at 48 kHz in capture-sized buffers: a converter
    // that lost its state between calls would leave a glitch at every seam.
    const std::vector<float> input = sine(440, 48000, 96000);
    StreamResampler r(48000, 16000);
    std::vector<float> out;
    for (std::size_t at = 0; at < input.size(); at += 4096) {
        const std::size_t n = std::min<std::size_t>(4096, input.size() - at);
        r.process(std::span<const float>(input).subspan(at, n), out);
    }
    r.flush(out);
    EXPECT_NEAR(double(out.size()), 32000.0, 2.0);
    // The 1-sample alignment leaves at most the error of half a sample of
    // phase at 440 Hz on 16 kHz (about 0.04); a seam would be far larger.
    EXPECT_LT(worstError(out, 440, 16000, 400), 0.06);
}

TEST(StreamResampler, RefusesRatesThatAreNotRates)
{
    EXPECT_THROW(StreamResampler(0, 16000), SystemError);
    EXPECT_THROW(StreamResampler(NAN, 16000), SystemError);
    EXPECT_THROW(StreamResampler(-48000, 16000), SystemError);
}
