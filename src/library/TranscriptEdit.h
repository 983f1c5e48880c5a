#pragma once

#include <QSet>
#include <QString>
#include <QVariantMap>

#include <optional>

namespace kestil {

// The work that makes a transcript edit unsafe to save: anything that may
// still write the transcript, or the note being gone.
struct TranscriptEditGate {
    bool noteDeleted = false;
    bool recording = false;
    bool transcriptionPaused = false;
    bool starting = false;
    bool finishing = false;
    bool operationInProgress = false;
    bool generatingSummary = false;
    bool busy = false;
};

bool canSaveTranscriptEdit(const TranscriptEditGate &gate);

inline const QString &transcriptEditBlockedMessage()
{
    static const QString t = QStringLiteral("Finish transcription or processing before saving edits.");
    return t;
}
inline const QString &transcriptEditConflictMessage()
{
    static const QString t = QStringLiteral("This transcript changed while you were editing. Close the "
                                            "editor and reopen it to edit the latest text.");
    return t;
}

// The note fields a plain-text edit writes, for one call of the store's
// applyGeneratedFields: the text and its untimed paragraphs (a null value
// clears them). current is the note's transcription now, original the one
// the editor opened with. Throws LocalError with the conflict text when the
// transcript moved on under the editor; nothing to write when the text is
// unchanged. A placeholder status line is not content and saves as empty.
std::optional<QVariantMap> transcriptEditFields(const QString &current, const QString &text,
                                                const QString &original, const QSet<QString> &placeholders);

} // namespace kestil
