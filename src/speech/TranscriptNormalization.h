#pragma once

#include "TranscriptUtterance.h"

#include <QList>
#include <QString>
#include <QStringView>

namespace kestil {

// The paragraph limits every reader and writer of stored utterances uses.
inline constexpr int transcriptMinimumWords = 8;
inline constexpr int transcriptMaximumWords = 20;
inline constexpr int transcriptMaximumSentences = 2;
inline constexpr double transcriptMaximumDuration = 12.0;

// Turns raw utterances into reading-sized paragraphs: cleanedUtterances, then
// interim and empty records dropped, then splitUtterances, then
// paragraphUtterances. It runs on every write and every read of a stored list,
// so it is applied to its own output again and again.
QList<TranscriptUtterance> normalizedUtterances(const QList<TranscriptUtterance> &list, int minimumWords,
                                                int maximumWords, int maximumSentences,
                                                double maximumDuration);

// normalizedUtterances with the usual limits: 8, 20, 2 and 12.0 seconds.
QList<TranscriptUtterance> normalizedUtterances(const QList<TranscriptUtterance> &list);

// Texts trimmed and empty ones dropped, repeated neighbours (same words,
// near-equal times) collapsed to the first, and the list put in start order
// when any start went backwards.
QList<TranscriptUtterance> cleanedUtterances(const QList<TranscriptUtterance> &list);

// Cuts each record that is too long in words, sentences or time into chunks,
// shares its time among them by word weight, and gives each the parent's id
// with "-<index>". A record whose text fits one chunk stays exactly as it came.
QList<TranscriptUtterance> splitUtterances(const QList<TranscriptUtterance> &list, int maximumWords,
                                           int maximumSentences, double maximumDuration);

// Merges timed neighbours into paragraphs that close on length, on duration,
// on a sentence end once long enough, or on a change of speaker.
QList<TranscriptUtterance> paragraphUtterances(const QList<TranscriptUtterance> &list, int minimumWords,
                                               int maximumWords, int maximumSentences,
                                               double maximumDuration);

// Plain text to utterances: one per paragraph (parts between blank lines),
// each with a new id and no timing.
QList<TranscriptUtterance> utterancesFromPlainText(const QString &text);

// Runs of non-white-space characters.
qsizetype transcriptWordCount(QStringView text);

// Every run of white space made one blank, then trimmed.
QString collapsedWhitespace(const QString &text);

// The form two texts are compared in: white space collapsed and lower-cased.
QString transcriptComparisonForm(const QString &text);

// From the smallest present start to the largest present end; 0 when either
// is missing or the span is negative.
double utterancesDuration(const QList<TranscriptUtterance> &list);

} // namespace kestil
