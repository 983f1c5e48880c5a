#include "TranscriptUtterance.h"

#include <QUuid>

namespace kestil {

namespace {

template <typename T> size_t hashOptional(const std::optional<T> &value, size_t seed) noexcept
{
    // The utterance overload below would hide Qt's overloads for plain values.
    using ::qHash;
    return value ? qHashMulti(seed, true, *value) : qHash(false, seed);
}

} // namespace

size_t qHash(const TranscriptUtterance &utterance, size_t seed) noexcept
{
    seed = qHashMulti(seed, utterance.id, utterance.text, utterance.isInterim);
    seed = hashOptional(utterance.start, seed);
    seed = hashOptional(utterance.end, seed);
    seed = hashOptional(utterance.speaker, seed);
    return hashOptional(utterance.confidence, seed);
}

QString newTranscriptUtteranceId()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

QList<TranscriptUtterance> combinedTranscriptUtterances(const QList<TranscriptUtterance> &base,
                                                        const QList<LocalUtterance> &utterances,
                                                        double timeOffset)
{
    QList<TranscriptUtterance> combined = base;
    combined.reserve(base.size() + utterances.size());
    for (const LocalUtterance &u : utterances) {
        TranscriptUtterance stored;
        stored.id = newTranscriptUtteranceId();
        stored.text = u.text.trimmed();
        stored.start = u.start + timeOffset;
        stored.end = u.end + timeOffset;
        combined.append(std::move(stored));
    }
    return combined;
}

} // namespace kestil
