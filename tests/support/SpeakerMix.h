#pragma once

#include "speech/SpeakerDiarizer.h"

#include <QString>

#include <span>
#include <vector>

namespace kestil::test {

// One voice's phrases, mono at 16 kHz, each cut to where it sounds and
// brought to one loudness, so that a phrase's extent is its true turn.
struct Voice {
    QString name;
    std::vector<std::vector<float>> phrases;
};

// The LibriVox reader of Debian's pocketsphinx-testdata: five phrases, 25 s.
// Empty (no phrases) when the package is missing.
Voice libriVoxReader();

// espeak-ng's `voice` reading twelve sentences of a meeting. The speaker
// embedding tells "en-us", "en-us+klatt" and "en-us+f5" apart from each other
// and from the reader; "en-us" and "en-gb+f3" sound alike to it. The
// segmentation model hears no change of speaker from "en-us" straight to
// "en-us+klatt", so those two in a row count as one turn. Empty when espeak-ng
// is missing.
Voice espeakVoice(const QString &voice);

// Speech at 16 kHz with the true turn of every phrase in it, the voices
// numbered in the order they are first heard, as a diarizer numbers them.
struct SpeakerMix {
    std::vector<float> samples;
    std::vector<SpeakerTurn> turns;

    double seconds() const { return double(samples.size()) / 16000.0; }
};

// The voices speak in the order given (an index into `voices` per turn), each
// turn the voice's next phrase in rotation, with 0.3 to 1.2 s of quiet room
// noise between turns and under everything (seeded).
SpeakerMix speakerMix(std::span<const Voice> voices, std::span<const int> order, unsigned seed = 1);

// A conversation of about `seconds`: turns of one to three phrases by a voice
// chosen at random, never the same voice twice in a row (seeded).
SpeakerMix conversation(std::span<const Voice> voices, double seconds, unsigned seed = 1);

} // namespace kestil::test
