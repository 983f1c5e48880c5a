#pragma once

#include <span>
#include <vector>

namespace kestil::test {

// The share of the signal's energy at one frequency (Goertzel over
// stretches of 4096 samples, weighted by their energy), 0 to 1.
double toneShare(std::span<const float> samples, double sampleRate, double frequency);

} // namespace kestil::test
