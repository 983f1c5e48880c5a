#include "support/SignalAnalysis.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace kestil::test {

namespace {

// Goertzel over one stretch: |X(f)|^2 against the stretch's energy. A pure
// tone of N samples gives N^2 A^2 / 4 against N A^2 / 2, so the share is 1.
double stretchShare(std::span<const float> samples, double sampleRate, double frequency, double &energy)
{
    const double omega = 2 * std::numbers::pi * frequency / sampleRate;
    const double coefficient = 2 * std::cos(omega);
    double s1 = 0, s2 = 0;
    energy = 0;
    for (float sample : samples) {
        const double s0 = double(sample) + coefficient * s1 - s2;
        s2 = s1;
        s1 = s0;
        energy += double(sample) * double(sample);
    }
    if (energy <= 0)
        return 0;
    const double power = s1 * s1 + s2 * s2 - coefficient * s1 * s2;
    return std::min(1.0, 2 * power / (double(samples.size()) * energy));
}

} // namespace

double toneShare(std::span<const float> samples, double sampleRate, double frequency)
{
    // Measured over short stretches and weighted by their energy, so that
    // silence around a tone, or a gap inside it, does not count against it.
    const size_t window = 4096;
    double weighted = 0, total = 0;
    for (size_t begin = 0; begin + window / 2 <= samples.size(); begin += window) {
        double energy = 0;
        const auto stretch = samples.subspan(begin, std::min(window, samples.size() - begin));
        const double share = stretchShare(stretch, sampleRate, frequency, energy);
        weighted += share * energy;
        total += energy;
    }
    return total > 0 ? weighted / total : 0;
}

} // namespace kestil::test
