#pragma once

#include <functional>
#include <span>
#include <vector>

namespace kestil {

// A stretch of a recording in which one person speaks, in seconds from the
// start of the audio. Turns of two people overlap where they talk at once;
// turns of one person never do.
struct SpeakerTurn {
    double start = 0;
    double end = 0;
    // 0 for the first voice heard, 1 for the next new voice, and so on: the
    // transcript shows it as "Speaker <speaker + 1>".
    int speaker = 0;

    friend bool operator==(const SpeakerTurn &, const SpeakerTurn &) = default;
};

// Finds who speaks when in a whole recording, on this computer, without
// knowing the people in advance ("who said what"). One diarizer serves one
// call at a time; calls block, so run them on a worker thread.
class SpeakerDiarizer {
public:
    // The share of the work done, from 0 to 1, called on the diarizing thread.
    using Progress = std::function<void(double fraction)>;
    // Asked several times a second while the work runs; once it answers true
    // the call stops within a moment by throwing CancellationError.
    using CancelCheck = std::function<bool()>;

    virtual ~SpeakerDiarizer() = default;

    // `samples` is mono 32-bit float audio at `sampleRate` (16 kHz is what
    // the models hear; other rates are converted first). Returns the turns in
    // the order orderedSpeakerTurns gives, empty when nobody speaks. Throws
    // CancellationError when cancelled, and kestil::Error with a sentence for
    // the user when it fails; the caller's audio and transcript are never
    // touched.
    virtual std::vector<SpeakerTurn> diarize(std::span<const float> samples, double sampleRate,
                                             const Progress &progress = {},
                                             const CancelCheck &cancelled = {}) = 0;
};

// Turns as every diarizer returns them: empty and backward turns dropped,
// overlapping or touching turns of one speaker joined, sorted by start (then
// end), and the speakers renumbered 0, 1, 2… in the order they are first heard.
std::vector<SpeakerTurn> orderedSpeakerTurns(std::vector<SpeakerTurn> turns);

} // namespace kestil
