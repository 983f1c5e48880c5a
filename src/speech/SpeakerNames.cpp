#include "SpeakerNames.h"

#include "base/Error.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

namespace kestil {

QString speakerName(const SpeakerNames &names, qint64 speaker)
{
    const QString name = names.value(speaker).trimmed();
    return name.isEmpty() ? QStringLiteral("Speaker %1").arg(speaker + 1) : name;
}

QList<qint64> transcriptSpeakers(const QList<TranscriptUtterance> &utterances)
{
    QList<qint64> speakers;
    QSet<qint64> seen;
    for (const TranscriptUtterance &u : utterances)
        if (u.speaker && !seen.contains(*u.speaker)) {
            seen.insert(*u.speaker);
            speakers.append(*u.speaker);
        }
    return speakers;
}

bool showsSpeakers(const QList<TranscriptUtterance> &utterances)
{
    return transcriptSpeakers(utterances).size() > 1;
}

std::optional<QString> encodeSpeakerNames(const SpeakerNames &names)
{
    QJsonObject object;
    for (auto it = names.cbegin(); it != names.cend(); ++it)
        if (!it.value().trimmed().isEmpty())
            object.insert(QString::number(it.key()), it.value().trimmed());
    if (object.isEmpty())
        return std::nullopt;
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

SpeakerNames decodeSpeakerNames(const std::optional<QString> &json)
{
    SpeakerNames names;
    if (!json)
        return names;
    const QJsonObject object = QJsonDocument::fromJson(json->toUtf8()).object();
    for (auto it = object.begin(); it != object.end(); ++it) {
        bool number = false;
        const qint64 speaker = it.key().toLongLong(&number);
        const QString name = it.value().toString().trimmed();
        if (number && speaker >= 0 && !name.isEmpty())
            names.insert(speaker, name);
    }
    return names;
}

SpeakerNames renamedSpeaker(const SpeakerNames &names, const QList<qint64> &speakers, qint64 speaker,
                            const QString &name)
{
    const QString wanted = name.simplified();
    SpeakerNames renamed = names;
    if (wanted.isEmpty()) {
        renamed.remove(speaker);
        return renamed;
    }
    for (qint64 other : speakers)
        if (other != speaker && speakerName(names, other).compare(wanted, Qt::CaseInsensitive) == 0)
            throw LocalError(QStringLiteral("Another speaker in this note is already called “%1”. Choose a "
                                            "different name; the transcript is unchanged.")
                                 .arg(wanted));
    renamed.insert(speaker, wanted);
    return renamed;
}

QList<TranscriptUtterance> utterancesWithSpeakerNames(const QList<TranscriptUtterance> &utterances,
                                                      const SpeakerNames &names)
{
    if (!showsSpeakers(utterances))
        return utterances;
    QList<TranscriptUtterance> named = utterances;
    std::optional<qint64> turn;
    for (TranscriptUtterance &u : named) {
        if (u.text.trimmed().isEmpty() || !u.speaker || u.speaker == turn)
            continue;
        turn = u.speaker;
        u.text = speakerName(names, *u.speaker) + QStringLiteral(": ") + u.text.trimmed();
    }
    return named;
}

QString transcriptTextWithSpeakers(const QList<TranscriptUtterance> &utterances, const SpeakerNames &names)
{
    QStringList paragraphs;
    for (const TranscriptUtterance &u : utterancesWithSpeakerNames(utterances, names))
        if (!u.text.trimmed().isEmpty())
            paragraphs.append(u.text.trimmed());
    return paragraphs.join(QStringLiteral("\n\n"));
}

} // namespace kestil
