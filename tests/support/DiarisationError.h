#pragma once

#include "speech/SpeakerDiarizer.h"

#include <span>

namespace kestil::test {

// The diarisation error of found turns against the true ones, in seconds of
// speech summed per speaker (two people talking at once count twice).
struct DiarisationError {
    double speech = 0;     // true speech scored
    double missed = 0;     // speech nobody was found for
    double falseAlarm = 0; // speakers found where fewer spoke
    double confusion = 0;  // speech given to the wrong speaker

    // (missed + false alarm + confusion) / speech; with no true speech, 1 when
    // anything was found and 0 when nothing was.
    double rate() const;
};

// Scores in 10 ms frames, under the one-to-one mapping of found speakers to
// true speakers that maximises the time they share (Hungarian method). The
// `collar` seconds either side of every true turn's start and end are not
// scored: where exactly a voice begins is a matter of a syllable.
DiarisationError diarisationError(std::span<const SpeakerTurn> truth, std::span<const SpeakerTurn> found,
                                  double collar = 0.25);

} // namespace kestil::test
