#pragma once

#include <span>
#include <vector>

namespace kestil::test {

// Root mean square of the samples; 0 for none.
double rms(std::span<const float> samples);

// The RMS of consecutive windows of `windowSeconds`: how loud the signal is
// over time, independent of its sample rate.
std::vector<double> energyEnvelope(std::span<const float> samples, double sampleRate,
                                   double windowSeconds = 0.01);

// Where b lines up best with a: the lag (in elements; b[i] against
// a[i + lag]) with the largest Pearson correlation over the overlap, for lags
// 0 to maxLag.
struct Alignment {
    double correlation = 0;
    int lag = 0;
};
Alignment bestAlignment(std::span<const double> a, std::span<const double> b, int maxLag);

// The share of the signal's energy at one frequency (Goertzel over
// stretches of 4096 samples, weighted by their energy), 0 to 1.
double toneShare(std::span<const float> samples, double sampleRate, double frequency);

} // namespace kestil::test
