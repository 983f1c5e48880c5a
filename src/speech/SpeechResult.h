#pragma once

#include "LocalTranscript.h"

#include <QString>

namespace kestil {

// One answer of a speech engine: text for a stretch of audio, timed in seconds
// of the audio fed to the engine so far. A volatile result may still change and
// replaces the previous volatile one; a final result is settled, and a final
// that repeats an earlier final's start time is the engine's correction of it.
struct SpeechResult {
    QString text;
    double start = 0;
    double end = 0;
    bool isFinal = false;

    friend bool operator==(const SpeechResult &, const SpeechResult &) = default;
};

// Folds one result into a session's transcript: a final replaces the final
// whose start lies within a millisecond of its own, or joins the list, which
// stays sorted by start (stably), and clears the volatile tail; a volatile
// result replaces the tail whole and leaves the finals alone. Text is kept
// exactly as the engine gave it.
void applySpeechResult(LocalTranscript &transcript, const SpeechResult &result);

} // namespace kestil
