#pragma once

#include <QList>
#include <QString>

#include <optional>

namespace kestil {

// One final result of a live session, timed in seconds from the start of that
// session's own audio.
struct LocalUtterance {
    QString text;
    double start = 0;
    double end = 0;

    friend bool operator==(const LocalUtterance &, const LocalUtterance &) = default;
};

// The transcript of a running session: the final utterances in arrival order
// plus the one volatile tail that the engine may still change. In memory only.
struct LocalTranscript {
    QList<LocalUtterance> utterances;
    QString tentative;
    std::optional<double> tentativeStart;
    std::optional<double> tentativeEnd;

    // What a note's transcription holds: the final texts joined by one blank.
    QString finalizedText() const
    {
        QStringList parts;
        parts.reserve(utterances.size());
        for (const auto &u : utterances)
            parts << u.text;
        return parts.join(QLatin1Char(' '));
    }

    // What the live view shows: the final text and the tentative tail.
    QString fullText() const
    {
        const QString finalized = finalizedText();
        if (finalized.isEmpty())
            return tentative;
        if (tentative.isEmpty())
            return finalized;
        return finalized + QLatin1Char(' ') + tentative;
    }

    friend bool operator==(const LocalTranscript &, const LocalTranscript &) = default;
};

} // namespace kestil
