#pragma once

#include "speech/SpeakerNames.h"
#include "speech/TranscriptUtterance.h"

#include <QList>
#include <QString>

#include <optional>

namespace kestil {

// What the transcript tab draws as paragraphs: the saved or live utterances
// (or, without any, the plain text), the tentative tail of a running session,
// and whether the session is live.
struct TranscriptParagraphsView {
    QString transcript; // used only when utterances is empty
    QList<TranscriptUtterance> utterances;
    QString interimText;
    bool isRecordingActive = false;
    bool showEllipsis = false;
    double liveRecordingTimestampInterval = 10.0;
    double minimumDisplayTimestampStart = 1.0;
    SpeakerNames speakerNames;
};

struct TimestampedUtterance {
    TranscriptUtterance utterance;
    std::optional<QString> timestampLabel;
};

// One paragraph as the tab shows it. Utterance paragraphs carry the
// utterance's id; the tail has the identity "interim" and the animated dots
// "ellipsis".
struct TranscriptParagraph {
    enum class Kind { utterance, interim, ellipsis };
    Kind kind = Kind::utterance;
    QString identity;
    QString text;
    QString timestampLabel; // empty: none
    // Where a turn begins in a transcript of several voices: who speaks from
    // here on, as a number and a name. Empty and unset elsewhere.
    QString speakerLabel;
    std::optional<qint64> speaker;

    friend bool operator==(const TranscriptParagraph &, const TranscriptParagraph &) = default;
};

// A start in seconds as "m:ss", rounded to the nearest second and never
// below 0; minutes are not folded into hours (3725 s is "62:05"). A start
// that is not a finite number of seconds gets no label.
std::optional<QString> timestampLabel(double start);

// Labels for a list in order. A saved transcript labels every utterance that
// has a start. A live one thins them out: nothing in the first second, then
// one label every liveRecordingTimestampInterval seconds or more.
QList<TimestampedUtterance> timestampedUtterances(const QList<TranscriptUtterance> &list,
                                                  const TranscriptParagraphsView &view);

// The paragraphs in display order: the utterances cleaned (and, while live,
// gathered into paragraphs the way a saved transcript is), then the interim
// tail, then the ellipsis. When the transcript tells several voices apart,
// the first paragraph of each turn names its speaker.
QList<TranscriptParagraph> transcriptParagraphs(const TranscriptParagraphsView &view);

} // namespace kestil
