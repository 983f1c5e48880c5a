#pragma once

#include "core/Note.h"
#include "speech/TranscriptUtterance.h"

#include <QList>

namespace kestil {

// A note's timed utterances, normalised, through the process-wide cache keyed
// by the note's identity. A note without stored utterances reads its plain
// transcription as untimed paragraphs.
QList<TranscriptUtterance> transcriptUtterances(const Note &note);

// Normalises and stores the list on the note (the transcription is set by the
// caller first) and refreshes the cache so the next read is a hit. The note
// is not saved here.
void setTranscriptUtterances(Note &note, const QList<TranscriptUtterance> &utterances);

// The transcript as the note's readers get it (exports, the summary, Ask
// AI): when it tells several voices apart, its paragraphs with each turn
// opened by the speaker's name; otherwise the plain transcription.
QString transcriptForReading(const Note &note);

// An edit of the transcript as plain text: the text and its untimed
// paragraphs are written together. Not saved here.
void setTranscriptFromPlainText(Note &note, const QString &text);

} // namespace kestil
