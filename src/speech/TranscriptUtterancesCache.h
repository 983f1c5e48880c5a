#pragma once

#include "TranscriptUtterance.h"
#include "base/BoundedCache.h"

#include <QList>
#include <QString>
#include <QStringView>

#include <optional>

namespace kestil {

// One note's normalised utterances together with the two stored texts they
// were made from; it is valid only while both texts are unchanged.
struct TranscriptUtterancesCacheBox {
    QList<TranscriptUtterance> utterances;
    std::optional<QString> payload;    // the note's transcriptUtterancesJSON
    std::optional<QString> sourceText; // the note's transcription

    // What the entry weighs against the cache's limit: the UTF-8 bytes of both
    // texts, plus 96 and the UTF-8 bytes of the text for each utterance.
    qint64 cost() const;
};

using TranscriptUtterancesCache = BoundedCache<QString, TranscriptUtterancesCacheBox>;

inline constexpr qsizetype transcriptUtterancesCacheCountLimit = 64;
inline constexpr qint64 transcriptUtterancesCacheCostLimit = 8 * 1024 * 1024;

// The one process-wide cache, keyed by the URI form of a note's object id.
TranscriptUtterancesCache &transcriptUtterancesCache();

// A note's utterances, normalised. The cached list is returned only when both
// payload and transcription equal those it was made from (missing equals
// empty); otherwise the JSON is decoded (a corrupt or empty one falls back to
// the plain transcription), normalised, and cached. Never fails.
QList<TranscriptUtterance> readTranscriptUtterances(const QString &cacheKey,
                                                    const std::optional<QString> &payload,
                                                    const std::optional<QString> &transcription);

// The new value of a note's transcriptUtterancesJSON for this list: the list
// normalised and encoded, with a cache entry stored so that the next read is a
// hit. Nothing (the attribute becomes nil and the entry is removed) when the
// normalised list is empty or cannot be encoded. transcriptionAtWrite is the
// note's transcription as the caller has already set it.
std::optional<QString> writeTranscriptUtterances(const QString &cacheKey,
                                                 const QList<TranscriptUtterance> &list,
                                                 const std::optional<QString> &transcriptionAtWrite);

// The value of transcriptUtterancesJSON for a transcript edited as plain text:
// one untimed utterance per paragraph, encoded without normalisation ("[]"
// when the text is empty).
std::optional<QString> encodePlainTextEdit(const QString &newText);

// Bytes the text takes as UTF-8, counted without converting it.
qint64 utf8Length(QStringView text);

} // namespace kestil
