#pragma once

#include "TranscriptParagraphsView.h"

#include <functional>

namespace kestil {

// Everything the transcript tab of one note depends on. The note's stored
// utterances are read only when the tab needs them (they come from the
// process-wide cache, but a live recording should not have to ask).
struct TranscriptTabInputs {
    bool isLoading = false;
    // The recorder is recording and its note is this one.
    bool isActiveRecordingNote = false;
    // The recorder's earlier and final text of this session, its combined
    // utterances and its tentative tail.
    QString recorderFullTranscript;
    QList<TranscriptUtterance> recorderCombinedUtterances;
    QString recorderTentativeText;
    // The detail view's copy of the note's transcript.
    QString editableTranscript;
    std::function<QList<TranscriptUtterance>()> noteUtterances;
    // The names the note gives its speakers.
    SpeakerNames speakerNames;
};

struct TranscriptTabContent {
    enum class State { loading, paragraphs, empty };
    State state = State::empty;
    TranscriptParagraphsView view;
};

// The texts of the tab's two non-paragraph states.
inline const QString &transcriptLoadingMessage()
{
    static const QString t = QStringLiteral("Recovering transcript…");
    return t;
}
inline const QString &transcriptLoadingDetail()
{
    static const QString t = QStringLiteral("Processing audio stored on this computer.");
    return t;
}
inline const QString &transcriptEmptyTitle()
{
    static const QString t = QStringLiteral("No transcript available");
    return t;
}
inline const QString &transcriptEmptyMessage()
{
    static const QString t =
        QStringLiteral("Your transcript appears here as you speak. Use + to start a new transcription.");
    return t;
}

// The trimmed copy of the transcript is not empty.
bool hasEditableText(const QString &editableTranscript);

// Which state the tab is in, and with what, the first that fits: loading; the
// live recording of this note (with the dots even before any text); the
// saved transcript or utterances; the empty state.
TranscriptTabContent transcriptTabContent(const TranscriptTabInputs &inputs);

} // namespace kestil
