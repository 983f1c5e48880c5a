#pragma once

#include "speech/TranscriptUtterance.h"

#include <QList>
#include <QString>

namespace kestil {

// One subtitle: seconds on the note's audio timeline, and at most two lines
// of about 42 characters joined by "\n".
struct SubtitleCue {
    double start = 0;
    double end = 0;
    QString text;
    friend bool operator==(const SubtitleCue &, const SubtitleCue &) = default;
};

namespace Subtitles {

// Cues from the note's timed utterances (all segments, one timeline); an
// utterance without times is left out. A cue never lasts more than seven
// seconds and breaks where the speaker paused.
QList<SubtitleCue> cues(const QList<TranscriptUtterance> &utterances);
// Whether any utterance carries times: without, no subtitle export is offered.
bool hasTimedUtterances(const QList<TranscriptUtterance> &utterances);

QString srt(const QList<SubtitleCue> &cues);
QString webVtt(const QList<SubtitleCue> &cues);

} // namespace Subtitles
} // namespace kestil
