#include "VoiceActivity.h"

#include <algorithm>
#include <cmath>

namespace kestil {

VoiceActivity::VoiceActivity(double sampleRate, Options options)
    : options_(options), frameLength_(std::max(1, int(std::lround(sampleRate * options.frameSeconds)))),
      risePerFrame_(options.floorRiseDbPerSecond * options.frameSeconds)
{
}

double VoiceActivity::levelDb(std::span<const float> samples)
{
    if (samples.empty())
        return -120.0;
    double sum = 0;
    for (float s : samples)
        sum += double(s) * double(s);
    const double rms = std::sqrt(sum / double(samples.size()));
    if (!(rms > 1e-6))
        return -120.0;
    return 20.0 * std::log10(rms);
}

bool VoiceActivity::isSpeech(std::span<const float> frame)
{
    const double level = levelDb(frame);
    lastLevelDb_ = level;
    const double lowest = options_.absoluteFloorDb - options_.marginDb;
    if (!primed_) {
        // A session that starts mid-sentence learns speech as background for
        // a moment only: the next dip between syllables brings it down.
        backgroundDb_ = std::max(level, lowest);
        primed_ = true;
    }
    const bool speech = level > options_.absoluteFloorDb && level > backgroundDb_ + options_.marginDb;
    if (level < backgroundDb_)
        backgroundDb_ = std::max(level, lowest);
    else
        backgroundDb_ = std::min(level, backgroundDb_ + risePerFrame_);
    return speech;
}

} // namespace kestil
