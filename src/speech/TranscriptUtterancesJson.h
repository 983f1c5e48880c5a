#pragma once

#include "TranscriptUtterance.h"

#include <QList>
#include <QString>
#include <QStringView>

#include <optional>

namespace kestil {

// The stored form of a note's utterances: a compact JSON array of objects
// with the keys in the order id, text, start, end, speaker, confidence,
// isInterim. The four optional keys are left out when empty. Returns nothing
// when a number cannot be written as JSON (not finite).
std::optional<QString> encodeTranscriptUtterances(const QList<TranscriptUtterance> &utterances);

// Reads the stored form back. "id", "text" and "isInterim" are required; a
// null or missing optional key reads as empty. Any fault (not an array, a
// missing required key, a value of the wrong type) fails the whole list and
// returns nothing; "[]" returns an empty list.
std::optional<QList<TranscriptUtterance>> decodeTranscriptUtterances(QStringView json);

} // namespace kestil
