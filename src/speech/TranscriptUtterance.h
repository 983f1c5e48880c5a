#pragma once

#include "LocalTranscript.h"

#include <QHashFunctions>
#include <QList>
#include <QString>

#include <optional>

namespace kestil {

// One stored utterance of a note. Times are seconds on the note's audio
// timeline. A piece cut from a longer utterance carries the parent's id with a
// "-<index>" suffix, so ids stay stable across reads of an unchanged list.
struct TranscriptUtterance {
    QString id;
    QString text;
    std::optional<double> start;
    std::optional<double> end;
    std::optional<qint64> speaker;
    std::optional<double> confidence;
    bool isInterim = false;

    friend bool operator==(const TranscriptUtterance &, const TranscriptUtterance &) = default;
};

size_t qHash(const TranscriptUtterance &utterance, size_t seed = 0) noexcept;

// A fresh identity for an utterance made from live speech or plain text: an
// upper-case UUID string.
QString newTranscriptUtteranceId();

// The stored form of a session's final results, appended to what the note held
// when the session began: each gets a fresh id, its text trimmed, and its
// times moved by timeOffset onto the note's audio timeline.
QList<TranscriptUtterance> combinedTranscriptUtterances(const QList<TranscriptUtterance> &base,
                                                        const QList<LocalUtterance> &utterances,
                                                        double timeOffset);

} // namespace kestil
