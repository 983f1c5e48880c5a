#include "TranscriptUtterancesCache.h"

#include "TranscriptNormalization.h"
#include "TranscriptUtterancesJson.h"

#include <memory>

namespace kestil {

namespace {

constexpr qint64 costPerUtterance = 96;

QStringView orEmpty(const std::optional<QString> &text)
{
    return text ? QStringView(*text) : QStringView();
}

bool sameText(const std::optional<QString> &a, const std::optional<QString> &b)
{
    return orEmpty(a) == orEmpty(b);
}

void store(const QString &cacheKey, QList<TranscriptUtterance> utterances, std::optional<QString> payload,
           std::optional<QString> sourceText)
{
    auto box = std::make_shared<TranscriptUtterancesCacheBox>();
    box->utterances = std::move(utterances);
    box->payload = std::move(payload);
    box->sourceText = std::move(sourceText);
    const qint64 cost = box->cost();
    transcriptUtterancesCache().setObject(cacheKey, std::move(box), cost);
}

} // namespace

qint64 utf8Length(QStringView text)
{
    qint64 bytes = 0;
    const qsizetype size = text.size();
    for (qsizetype i = 0; i < size; ++i) {
        const char16_t c = text[i].unicode();
        if (c < 0x80) {
            bytes += 1;
        } else if (c < 0x800) {
            bytes += 2;
        } else if (QChar::isHighSurrogate(c) && i + 1 < size &&
                   QChar::isLowSurrogate(text[i + 1].unicode())) {
            bytes += 4;
            ++i;
        } else {
            // A lone surrogate is written as U+FFFD, three bytes like any
            // other character of the basic plane.
            bytes += 3;
        }
    }
    return bytes;
}

qint64 TranscriptUtterancesCacheBox::cost() const
{
    qint64 total = utf8Length(orEmpty(payload)) + utf8Length(orEmpty(sourceText));
    for (const TranscriptUtterance &u : utterances)
        total += costPerUtterance + utf8Length(u.text);
    return total;
}

TranscriptUtterancesCache &transcriptUtterancesCache()
{
    static TranscriptUtterancesCache cache(transcriptUtterancesCacheCountLimit,
                                           transcriptUtterancesCacheCostLimit);
    return cache;
}

QList<TranscriptUtterance> readTranscriptUtterances(const QString &cacheKey,
                                                    const std::optional<QString> &payload,
                                                    const std::optional<QString> &transcription)
{
    if (const auto box = transcriptUtterancesCache().object(cacheKey)) {
        if (sameText(box->payload, payload) && sameText(box->sourceText, transcription))
            return box->utterances;
    }

    // A corrupt list reads as no list: the plain transcription still shows,
    // only without timing.
    QList<TranscriptUtterance> decoded;
    if (payload && !payload->isEmpty())
        decoded = decodeTranscriptUtterances(*payload).value_or(QList<TranscriptUtterance>());
    if (decoded.isEmpty())
        decoded = utterancesFromPlainText(transcription.value_or(QString()));

    QList<TranscriptUtterance> normalized = normalizedUtterances(decoded);
    store(cacheKey, normalized, payload, transcription);
    return normalized;
}

std::optional<QString> writeTranscriptUtterances(const QString &cacheKey,
                                                 const QList<TranscriptUtterance> &list,
                                                 const std::optional<QString> &transcriptionAtWrite)
{
    QList<TranscriptUtterance> normalized = normalizedUtterances(list);
    std::optional<QString> json;
    if (!normalized.isEmpty())
        json = encodeTranscriptUtterances(normalized);
    if (!json) {
        transcriptUtterancesCache().removeObject(cacheKey);
        return std::nullopt;
    }
    store(cacheKey, std::move(normalized), json, transcriptionAtWrite);
    return json;
}

std::optional<QString> encodePlainTextEdit(const QString &newText)
{
    // Encoded as it stands, like any edit: an emptied transcript is stored as
    // an empty list, which reads back as the plain text alone.
    return encodeTranscriptUtterances(utterancesFromPlainText(newText));
}

} // namespace kestil
