#include "TranscriptEdit.h"

#include "base/Error.h"
#include "speech/TranscriptUtterancesCache.h"

namespace kestil {

bool canSaveTranscriptEdit(const TranscriptEditGate &gate)
{
    return !gate.noteDeleted && !gate.recording && !gate.transcriptionPaused && !gate.starting &&
           !gate.finishing && !gate.operationInProgress && !gate.generatingSummary && !gate.busy;
}

std::optional<QVariantMap> transcriptEditFields(const QString &current, const QString &text,
                                                const QString &original, const QSet<QString> &placeholders)
{
    if (current != original)
        throw LocalError(transcriptEditConflictMessage());
    if (text == original)
        return std::nullopt;
    const QString content = placeholders.contains(text.trimmed()) ? QString() : text;
    if (content == original)
        return std::nullopt;
    const std::optional<QString> json = encodePlainTextEdit(content);
    return QVariantMap{{QStringLiteral("transcription"), content},
                       {QStringLiteral("transcriptUtterancesJSON"), json ? QVariant(*json) : QVariant()}};
}

} // namespace kestil
