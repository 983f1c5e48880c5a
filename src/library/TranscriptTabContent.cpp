#include "TranscriptTabContent.h"

namespace kestil {

bool hasEditableText(const QString &editableTranscript)
{
    return !editableTranscript.trimmed().isEmpty();
}

TranscriptTabContent transcriptTabContent(const TranscriptTabInputs &inputs)
{
    TranscriptTabContent content;
    content.view.speakerNames = inputs.speakerNames;
    if (inputs.isLoading) {
        content.state = TranscriptTabContent::State::loading;
        return content;
    }
    const auto noteUtterances = [&] {
        return inputs.noteUtterances ? inputs.noteUtterances() : QList<TranscriptUtterance>{};
    };
    if (inputs.isActiveRecordingNote) {
        content.state = TranscriptTabContent::State::paragraphs;
        content.view.transcript = inputs.recorderFullTranscript.trimmed().isEmpty()
                                      ? inputs.editableTranscript
                                      : inputs.recorderFullTranscript;
        content.view.utterances = inputs.recorderCombinedUtterances.isEmpty()
                                      ? noteUtterances()
                                      : inputs.recorderCombinedUtterances;
        content.view.interimText = inputs.recorderTentativeText;
        content.view.isRecordingActive = true;
        content.view.showEllipsis = true;
        return content;
    }
    // A note whose utterances were stored without a plain transcription still
    // has something to show.
    QList<TranscriptUtterance> saved = noteUtterances();
    if (hasEditableText(inputs.editableTranscript) || !saved.isEmpty()) {
        content.state = TranscriptTabContent::State::paragraphs;
        content.view.transcript = inputs.editableTranscript;
        content.view.utterances = std::move(saved);
        return content;
    }
    content.state = TranscriptTabContent::State::empty;
    return content;
}

} // namespace kestil
