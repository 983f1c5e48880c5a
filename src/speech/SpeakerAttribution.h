#pragma once

#include "SpeakerDiarizer.h"
#include "TranscriptUtterance.h"

#include <QList>
#include <QString>

#include <span>

namespace kestil {

// A word with its time on the same timeline as its utterance, as an engine
// that times single words reports it.
struct TimedWord {
    QString text;
    double start = 0;
    double end = 0;

    friend bool operator==(const TimedWord &, const TimedWord &) = default;
};

// An utterance with its words in order, when the engine timed them; `words`
// is empty when it did not.
struct WordTimedUtterance {
    TranscriptUtterance utterance;
    QList<TimedWord> words;
};

// Gives each utterance the speaker of the diarizer's turns (`turns` as
// orderedSpeakerTurns returns them) who overlaps it longest; of equal shares
// the speaker heard first wins. An utterance with word times whose words fall
// to different speakers is cut where the speaker changes: each word goes to
// the speaker overlapping it longest (a word in a pause between turns stays
// with the word before it, or the one after it at the start), and each run of
// words becomes a piece with the parent's id and "-<index>" from 0, the run's
// words joined by blanks as text, and the parent's confidence and interim
// flag. The first piece starts where the parent did and the last ends where
// it did; the others span their own words. Without word times an utterance is
// never cut: it goes whole to the larger share. An utterance without both
// times, or that no turn overlaps, gets no speaker. Neighbours of one speaker
// stay separate records: joining them is for the presentation.
QList<TranscriptUtterance> attributeSpeakers(const QList<WordTimedUtterance> &utterances,
                                             std::span<const SpeakerTurn> turns);

// The same for utterances without word times.
QList<TranscriptUtterance> attributeSpeakers(const QList<TranscriptUtterance> &utterances,
                                             std::span<const SpeakerTurn> turns);

} // namespace kestil
