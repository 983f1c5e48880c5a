#include "core/NoteTranscript.h"

#include "speech/SpeakerNames.h"
#include "speech/TranscriptUtterancesCache.h"

namespace kestil {

QList<TranscriptUtterance> transcriptUtterances(const Note &note)
{
    return readTranscriptUtterances(note.objectId().uriString(), note.transcriptUtterancesJSON(),
                                    note.transcription());
}

void setTranscriptUtterances(Note &note, const QList<TranscriptUtterance> &utterances)
{
    const auto payload =
        writeTranscriptUtterances(note.objectId().uriString(), utterances, note.transcription());
    note.setValue(QStringLiteral("transcriptUtterancesJSON"), payload ? QVariant(*payload) : QVariant());
}

void setTranscriptFromPlainText(Note &note, const QString &text)
{
    note.setValue(QStringLiteral("transcription"), text);
    const auto payload = encodePlainTextEdit(text);
    note.setValue(QStringLiteral("transcriptUtterancesJSON"), payload ? QVariant(*payload) : QVariant());
}

QString transcriptForReading(const Note &note)
{
    const QList<TranscriptUtterance> utterances = transcriptUtterances(note);
    if (!showsSpeakers(utterances))
        return note.transcription().value_or(QString());
    return transcriptTextWithSpeakers(utterances, decodeSpeakerNames(note.speakerNamesJSON()));
}

} // namespace kestil
