#pragma once

#include <span>

namespace kestil {

// Tells speech from silence, frame by frame, by energy: a frame is speech when
// its level stands clearly above both an absolute floor and the background
// level heard so far. The background estimate falls at once to a quieter frame
// and rises only slowly, so that steady noise (a fan, an idle system-audio
// stream) is learnt within seconds while a talker, whose level dips between
// syllables, does not raise it. The estimate starts at the first frame and
// never sinks below the floor less the margin: digital silence would
// otherwise leave it so low that any noise after it passed for speech.
class VoiceActivity {
public:
    struct Options {
        double frameSeconds = 0.02;
        // Nothing quieter than this is speech, whatever the background.
        double absoluteFloorDb = -52.0;
        // How far above the background a frame must be to count as speech.
        double marginDb = 10.0;
        // How fast the background estimate may rise, in dB per second.
        double floorRiseDbPerSecond = 4.0;
    };

    explicit VoiceActivity(double sampleRate) : VoiceActivity(sampleRate, Options{}) {}
    VoiceActivity(double sampleRate, Options options);

    int frameLength() const { return frameLength_; }

    // Classifies one frame of frameLength() samples (a shorter one is measured
    // as it is) and learns from it.
    bool isSpeech(std::span<const float> frame);

    // The level of the last frame classified, in dB relative to full scale.
    double lastLevelDb() const { return lastLevelDb_; }
    // The current background estimate, in dB relative to full scale.
    double backgroundDb() const { return backgroundDb_; }

    // The level of a stretch of samples in dB relative to full scale (root
    // mean square; -120 for digital silence or no samples).
    static double levelDb(std::span<const float> samples);

private:
    Options options_;
    int frameLength_;
    double risePerFrame_;
    double backgroundDb_ = -90.0;
    double lastLevelDb_ = -120.0;
    bool primed_ = false;
};

} // namespace kestil
