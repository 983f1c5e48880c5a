#pragma once

#include "speech/LocalSpeech.h"

#include <QList>
#include <QString>

#include <optional>

namespace kestil {

// What the welcome flow found, for its readiness card.
struct WelcomeReadinessInputs {
    QString language; // the transcription language as stored
    LocalSpeech::Readiness speech;
    std::optional<QString> summaryRefusal; // a sentence, or nothing when summaries work
    QString microphoneName;                // empty when none was found
    bool recordSystemAudio = true;
};

// One line of the card: what it is about, whether it is ready, and a sentence
// that says what works and, if anything is missing, what to do.
struct WelcomeReadinessItem {
    QString identifier; // "speech", "summaries", "microphone", "systemAudio"
    QString title;
    bool ready = false;
    QString sentence;

    friend bool operator==(const WelcomeReadinessItem &, const WelcomeReadinessItem &) = default;
};

QList<WelcomeReadinessItem> welcomeReadiness(const WelcomeReadinessInputs &inputs);

} // namespace kestil
