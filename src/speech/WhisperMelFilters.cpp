#include "WhisperMelFilters.h"

#include <algorithm>
#include <cmath>

namespace kestil {

namespace {

constexpr double linearStep = 200.0 / 3.0; // Hz per mel below the break
constexpr double breakHz = 1000.0;
constexpr double breakMel = breakHz / linearStep;

double logStep()
{
    return std::log(6.4) / 27.0;
}

double hzToMel(double hz)
{
    if (hz >= breakHz)
        return breakMel + std::log(hz / breakHz) / logStep();
    return hz / linearStep;
}

double melToHz(double mel)
{
    if (mel >= breakMel)
        return breakHz * std::exp(logStep() * (mel - breakMel));
    return linearStep * mel;
}

} // namespace

std::vector<float> whisperMelFilters(int bands, int fftSize, double sampleRate)
{
    const int bins = fftSize / 2 + 1;
    // The bins' centre frequencies, each a multiple of one step.
    const double binStep = 1.0 / (double(fftSize) * (1.0 / sampleRate));
    std::vector<double> frequencies(static_cast<std::size_t>(bins));
    for (int k = 0; k < bins; ++k)
        frequencies[std::size_t(k)] = double(k) * binStep;

    // bands + 2 points evenly spaced in mel from 0 to the Nyquist frequency:
    // each filter rises from one point, peaks at the next, and falls to the one after.
    const int points = bands + 2;
    const double low = hzToMel(0.0);
    const double high = hzToMel(sampleRate / 2.0);
    const double step = (high - low) / double(points - 1);
    std::vector<double> edges(static_cast<std::size_t>(points));
    for (int i = 0; i < points; ++i)
        edges[std::size_t(i)] = melToHz(i == points - 1 ? high : double(i) * step + low);

    std::vector<float> filters(std::size_t(bands) * std::size_t(bins));
    for (int m = 0; m < bands; ++m) {
        const auto i = std::size_t(m);
        const double lowerWidth = edges[i + 1] - edges[i];
        const double upperWidth = edges[i + 2] - edges[i + 1];
        const double area = 2.0 / (edges[i + 2] - edges[i]);
        for (int k = 0; k < bins; ++k) {
            const double f = frequencies[std::size_t(k)];
            const double rising = -(edges[i] - f) / lowerWidth;
            const double falling = (edges[i + 2] - f) / upperWidth;
            // The triangle is stored first, then scaled: two roundings to
            // float, as the reference makes them.
            const float weight = float(std::max(0.0, std::min(rising, falling)));
            filters[i * std::size_t(bins) + std::size_t(k)] = float(double(weight) * area);
        }
    }
    return filters;
}

} // namespace kestil
