#pragma once

#include "SpeechResult.h"

#include <span>
#include <vector>

namespace kestil {

// An on-device recogniser, driven by one LiveSpeechSession (or one file
// transcription) from a single worker thread. It takes mono 32-bit float audio
// at sampleRate() and nothing else, and answers with volatile and final results
// timed in seconds of the audio fed so far. It corrects an earlier final by
// sending a final with the same start time.
class SpeechEngine {
public:
    virtual ~SpeechEngine() = default;

    // The one sample rate the engine accepts.
    virtual double sampleRate() const = 0;

    // Takes the next stretch of audio and returns what it settled or revised.
    // Throws kestil::Error when the engine itself fails.
    virtual std::vector<SpeechResult> feed(std::span<const float> samples) = 0;

    // Input has ended: every volatile result becomes final. The engine takes
    // no audio afterwards.
    virtual std::vector<SpeechResult> finish() = 0;

    // From any thread: a feed() or finish() that is running returns soon, with
    // whatever it has. The engine is not used again.
    virtual void abort() = 0;
};

} // namespace kestil
