#include "TranscriptNormalization.h"

#include <QHash>
#include <QRegularExpression>
#include <QStringList>

#include <algorithm>
#include <cmath>
#include <limits>

namespace kestil {

namespace {

// Neighbours this close in time with the same words are one utterance
// reported twice.
constexpr double duplicateTolerance = 0.25;
// Starts closer than this count as equal when ordering.
constexpr double orderTolerance = 0.0001;
// A record may run this much over the duration limit before it is cut.
constexpr double durationAllowance = 1.15;
// Speaking rate, in words per second, used to guess an untimed duration.
constexpr double estimatedWordsPerSecond = 2.7;
constexpr double estimatedSecondsPerChunk = 2.0;

const QRegularExpression &whitespaceRun()
{
    static const QRegularExpression expression = [] {
        QRegularExpression re(QStringLiteral("\\s+"), QRegularExpression::UseUnicodePropertiesOption);
        re.optimize();
        return re;
    }();
    return expression;
}

const QRegularExpression &sentenceBreak()
{
    static const QRegularExpression expression = [] {
        QRegularExpression re(QStringLiteral("(?<=[.!?])\\s+"),
                              QRegularExpression::UseUnicodePropertiesOption);
        re.optimize();
        return re;
    }();
    return expression;
}

double durationOf(const TranscriptUtterance *first, const TranscriptUtterance *last)
{
    std::optional<double> start;
    std::optional<double> end;
    for (auto u = first; u != last; ++u) {
        if (u->start)
            start = start ? std::min(*start, *u->start) : *u->start;
        if (u->end)
            end = end ? std::max(*end, *u->end) : *u->end;
    }
    if (!start || !end)
        return 0;
    const double span = *end - *start;
    if (std::isnan(span) || span < 0)
        return 0;
    return span;
}

double durationOf(const TranscriptUtterance &utterance)
{
    return durationOf(&utterance, &utterance + 1);
}

bool endsSentence(const QString &trimmed)
{
    if (trimmed.isEmpty())
        return false;
    const QChar last = trimmed.back();
    return last == QLatin1Char('.') || last == QLatin1Char('!') || last == QLatin1Char('?');
}

bool sameTimes(const TranscriptUtterance &kept, const TranscriptUtterance &next)
{
    const auto near = [](double a, double b) { return std::abs(a - b) <= duplicateTolerance; };
    const bool starts = kept.start && next.start;
    const bool ends = kept.end && next.end;
    if (starts && ends)
        return near(*kept.start, *next.start) && near(*kept.end, *next.end);
    if (starts)
        return near(*kept.start, *next.start);
    if (ends)
        return near(*kept.end, *next.end);
    return true;
}

// A stable merge sort that stays memory-safe with an order that is not
// transitive: starts closer than the tolerance fall back to input position,
// which need not agree with the order of starts further apart.
void sortByStart(QList<TranscriptUtterance> &list)
{
    struct Slot {
        qsizetype position;
        const TranscriptUtterance *utterance;
    };
    QList<Slot> entries;
    entries.reserve(list.size());
    for (qsizetype i = 0; i < list.size(); ++i)
        entries.append({i, &list.at(i)});

    const auto before = [](const Slot &a, const Slot &b) {
        const auto &sa = a.utterance->start;
        const auto &sb = b.utterance->start;
        if (sa && sb && std::abs(*sa - *sb) >= orderTolerance)
            return *sa < *sb;
        return a.position < b.position;
    };

    QList<Slot> buffer(entries.size());
    for (qsizetype width = 1; width < entries.size(); width *= 2) {
        for (qsizetype low = 0; low < entries.size(); low += 2 * width) {
            const qsizetype mid = std::min(low + width, entries.size());
            const qsizetype high = std::min(low + 2 * width, entries.size());
            qsizetype i = low, j = mid, k = low;
            while (i < mid && j < high)
                buffer[k++] = before(entries[j], entries[i]) ? entries[j++] : entries[i++];
            while (i < mid)
                buffer[k++] = entries[i++];
            while (j < high)
                buffer[k++] = entries[j++];
        }
        entries.swap(buffer);
    }

    QList<TranscriptUtterance> sorted;
    sorted.reserve(list.size());
    for (const Slot &slot : entries)
        sorted.append(*slot.utterance);
    list = std::move(sorted);
}

struct Chunk {
    QString text;
    qsizetype weight;
};

// The same runs that transcriptWordCount counts.
QStringList wordsOf(QStringView text)
{
    QStringList words;
    qsizetype begin = -1;
    for (qsizetype i = 0; i <= text.size(); ++i) {
        const bool space = i == text.size() || text[i].isSpace();
        if (space && begin >= 0) {
            words.append(text.mid(begin, i - begin).toString());
            begin = -1;
        } else if (!space && begin < 0) {
            begin = i;
        }
    }
    return words;
}

// Sentences longer than the word limit cut into runs of that many words.
QStringList splitPieces(const QStringList &sentences, int maximumWords)
{
    const qsizetype runLength = std::max(maximumWords, 1);
    QStringList pieces;
    for (const QString &sentence : sentences) {
        if (transcriptWordCount(sentence) <= maximumWords) {
            pieces.append(sentence);
            continue;
        }
        const QStringList words = wordsOf(sentence);
        for (qsizetype i = 0; i < words.size(); i += runLength)
            pieces.append(words.mid(i, runLength).join(QLatin1Char(' ')));
    }
    return pieces;
}

QList<Chunk> packChunks(const QStringList &pieces, int maximumWords, int maximumSentences)
{
    QList<Chunk> chunks;
    QStringList open;
    qsizetype total = 0;
    qsizetype count = 0;
    const auto close = [&] {
        if (open.isEmpty())
            return;
        const QString text = collapsedWhitespace(open.join(QLatin1Char(' ')));
        if (!text.isEmpty())
            chunks.append({text, std::max<qsizetype>(transcriptWordCount(text), 1)});
        open.clear();
        total = 0;
        count = 0;
    };
    for (const QString &piece : pieces) {
        const qsizetype words = std::max<qsizetype>(transcriptWordCount(piece), 1);
        if (!open.isEmpty() && (total + words > maximumWords || count + 1 > maximumSentences))
            close();
        open.append(piece);
        total += words;
        count += 1;
        if (total >= maximumWords || count >= maximumSentences)
            close();
    }
    close();
    return chunks;
}

struct Timing {
    double start;
    double end;
};

std::optional<Timing> chunkTiming(const TranscriptUtterance &record, qsizetype words, qsizetype chunkCount)
{
    if (record.start && record.end && *record.start < *record.end)
        return Timing{*record.start, *record.end};
    const double estimate = std::max(double(std::max<qsizetype>(words, 1)) / estimatedWordsPerSecond,
                                     estimatedSecondsPerChunk * double(chunkCount));
    if (record.start)
        return Timing{*record.start, *record.start + estimate};
    if (record.end)
        return Timing{std::max(*record.end - estimate, 0.0), *record.end};
    return std::nullopt;
}

void appendSplit(QList<TranscriptUtterance> &out, const TranscriptUtterance &record, int maximumWords,
                 int maximumSentences, double maximumDuration)
{
    const QString clean = collapsedWhitespace(record.text);
    if (clean.isEmpty())
        return;

    QStringList sentences;
    const QStringList lines =
        QString(clean).replace(sentenceBreak(), QStringLiteral("\n")).split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        const QString sentence = line.trimmed();
        if (!sentence.isEmpty())
            sentences.append(sentence);
    }
    if (sentences.isEmpty())
        sentences.append(clean);

    const qsizetype words = transcriptWordCount(clean);
    if (words <= maximumWords && std::max<qsizetype>(sentences.size(), 1) <= maximumSentences &&
        durationOf(record) <= maximumDuration * durationAllowance) {
        out.append(record);
        return;
    }

    const QStringList pieces = splitPieces(sentences, maximumWords);
    if (pieces.isEmpty()) {
        out.append(record);
        return;
    }
    const QList<Chunk> chunks = packChunks(pieces, maximumWords, maximumSentences);
    if (chunks.size() <= 1) {
        out.append(record);
        return;
    }

    const std::optional<Timing> timing = chunkTiming(record, words, chunks.size());
    qsizetype weights = 0;
    for (const Chunk &chunk : chunks)
        weights += chunk.weight;
    weights = std::max<qsizetype>(weights, 1);

    double cursor = timing ? timing->start : 0;
    for (qsizetype i = 0; i < chunks.size(); ++i) {
        TranscriptUtterance piece;
        piece.id = record.id + QLatin1Char('-') + QString::number(i);
        piece.text = chunks[i].text.trimmed();
        piece.speaker = record.speaker;
        piece.confidence = record.confidence;
        if (timing) {
            const double duration = timing->end - timing->start;
            const double end =
                i + 1 < chunks.size()
                    ? std::min(cursor + double(chunks[i].weight) / double(weights) * duration, timing->end)
                    : timing->end;
            piece.start = cursor;
            piece.end = end;
            cursor = end;
        }
        out.append(std::move(piece));
    }
}

TranscriptUtterance mergedParagraph(const TranscriptUtterance *first, const TranscriptUtterance *last)
{
    TranscriptUtterance merged;
    merged.id = first->id;

    QStringList texts;
    QHash<qint64, qsizetype> speakerCounts;
    std::optional<qint64> speaker;
    qsizetype speakerCount = 0;
    double confidenceSum = 0;
    qsizetype confidenceCount = 0;
    for (auto u = first; u != last; ++u) {
        const QString text = u->text.trimmed();
        if (!text.isEmpty())
            texts.append(text);
        if (u->start)
            merged.start = merged.start ? std::min(*merged.start, *u->start) : *u->start;
        if (u->end)
            merged.end = merged.end ? std::max(*merged.end, *u->end) : *u->end;
        if (u->speaker) {
            // Of equally frequent speakers the one that reached the count first wins.
            const qsizetype count = ++speakerCounts[*u->speaker];
            if (count > speakerCount) {
                speakerCount = count;
                speaker = *u->speaker;
            }
        }
        if (u->confidence) {
            confidenceSum += *u->confidence;
            ++confidenceCount;
        }
    }
    merged.text = collapsedWhitespace(texts.join(QLatin1Char(' ')));
    merged.speaker = speaker;
    if (confidenceCount > 0)
        merged.confidence = confidenceSum / double(confidenceCount);
    return merged;
}

} // namespace

qsizetype transcriptWordCount(QStringView text)
{
    qsizetype count = 0;
    bool inWord = false;
    for (QChar c : text) {
        if (c.isSpace()) {
            inWord = false;
        } else if (!inWord) {
            inWord = true;
            ++count;
        }
    }
    return count;
}

QString collapsedWhitespace(const QString &text)
{
    // Most transcript text separates words by single blanks and nothing else;
    // collapsing that needs no regular expression, and a text already clean is
    // returned as it is. Any other white space takes the expression's path.
    bool clean = true;
    for (QChar c : text) {
        if (c == QLatin1Char(' '))
            continue;
        if (c.isSpace() || c.unicode() == 0x180e) // \s also takes the Mongolian vowel separator
            return QString(text).replace(whitespaceRun(), QStringLiteral(" ")).trimmed();
    }
    const qsizetype size = text.size();
    for (qsizetype i = 0; i < size && clean; ++i) {
        if (text[i] == QLatin1Char(' ') && (i == 0 || i + 1 == size || text[i + 1] == QLatin1Char(' ')))
            clean = false;
    }
    if (clean)
        return text;

    QString out;
    out.reserve(size);
    bool pendingBlank = false;
    for (QChar c : text) {
        if (c == QLatin1Char(' ')) {
            pendingBlank = !out.isEmpty();
            continue;
        }
        if (pendingBlank)
            out.append(QLatin1Char(' '));
        pendingBlank = false;
        out.append(c);
    }
    return out;
}

QString transcriptComparisonForm(const QString &text)
{
    return collapsedWhitespace(text.trimmed()).toLower();
}

double utterancesDuration(const QList<TranscriptUtterance> &list)
{
    return durationOf(list.constData(), list.constData() + list.size());
}

QList<TranscriptUtterance> cleanedUtterances(const QList<TranscriptUtterance> &list)
{
    QList<TranscriptUtterance> kept;
    kept.reserve(list.size());
    std::optional<double> latestStart;
    bool outOfOrder = false;
    QString keptForm; // comparison form of the last kept record
    for (const TranscriptUtterance &input : list) {
        TranscriptUtterance u = input;
        u.text = u.text.trimmed();
        if (u.text.isEmpty())
            continue;
        QString form = transcriptComparisonForm(u.text);
        if (!kept.isEmpty() && form == keptForm && sameTimes(kept.constLast(), u))
            continue;
        keptForm = std::move(form);
        if (u.start) {
            if (latestStart && *u.start + orderTolerance < *latestStart)
                outOfOrder = true;
            latestStart = u.start;
        }
        kept.append(std::move(u));
    }
    if (outOfOrder)
        sortByStart(kept);
    return kept;
}

QList<TranscriptUtterance> splitUtterances(const QList<TranscriptUtterance> &list, int maximumWords,
                                           int maximumSentences, double maximumDuration)
{
    QList<TranscriptUtterance> out;
    out.reserve(list.size());
    for (const TranscriptUtterance &record : list)
        appendSplit(out, record, maximumWords, maximumSentences, maximumDuration);
    return out;
}

QList<TranscriptUtterance> paragraphUtterances(const QList<TranscriptUtterance> &list, int minimumWords,
                                               int maximumWords, int maximumSentences, double maximumDuration)
{
    const bool timed =
        std::any_of(list.cbegin(), list.cend(), [](const auto &u) { return u.start || u.end; });
    if (list.size() < 2 || !timed)
        return list;

    QList<TranscriptUtterance> paragraphs;
    const TranscriptUtterance *base = list.constData();
    qsizetype groupBegin = 0;
    qsizetype groupEnd = 0; // the open group is [groupBegin, groupEnd)
    qsizetype words = 0;
    qsizetype sentenceEnds = 0;
    // The last speaker of the group; none is the lowest number, which no
    // speaker has.
    constexpr qint64 noSpeaker = std::numeric_limits<qint64>::min();
    qint64 lastSpeaker = noSpeaker;

    const auto close = [&] {
        if (groupEnd > groupBegin)
            paragraphs.append(mergedParagraph(base + groupBegin, base + groupEnd));
        groupBegin = groupEnd;
        words = 0;
        sentenceEnds = 0;
        lastSpeaker = noSpeaker;
    };

    for (qsizetype i = 0; i < list.size(); ++i) {
        const TranscriptUtterance &u = list.at(i);
        const QString trimmed = u.text.trimmed();
        const qsizetype uWords = transcriptWordCount(trimmed);
        const bool ends = endsSentence(trimmed);

        // Another voice always begins a paragraph, however short the last
        // one: a paragraph shows one speaker, and no words go to the wrong one.
        const bool speakerChange = u.speaker && lastSpeaker != noSpeaker && lastSpeaker != *u.speaker;
        if (groupEnd > groupBegin && speakerChange)
            close();
        if (groupEnd == groupBegin) {
            groupBegin = i;
            groupEnd = i + 1;
            words = uWords;
            sentenceEnds = ends ? 1 : 0;
            if (u.speaker)
                lastSpeaker = *u.speaker;
            continue;
        }

        groupEnd = i + 1;
        words += uWords;
        sentenceEnds += ends ? 1 : 0;
        if (u.speaker)
            lastSpeaker = *u.speaker;
        if (words >= maximumWords || durationOf(base + groupBegin, base + groupEnd) >= maximumDuration ||
            (words >= minimumWords && (sentenceEnds >= maximumSentences || ends)))
            close();
    }
    close();
    return paragraphs;
}

QList<TranscriptUtterance> normalizedUtterances(const QList<TranscriptUtterance> &list, int minimumWords,
                                                int maximumWords, int maximumSentences,
                                                double maximumDuration)
{
    QList<TranscriptUtterance> cleaned = cleanedUtterances(list);
    cleaned.removeIf([](const TranscriptUtterance &u) { return u.isInterim || u.text.trimmed().isEmpty(); });
    if (cleaned.isEmpty())
        return {};
    const QList<TranscriptUtterance> split =
        splitUtterances(cleaned, maximumWords, maximumSentences, maximumDuration);
    return paragraphUtterances(split, minimumWords, maximumWords, maximumSentences, maximumDuration);
}

QList<TranscriptUtterance> normalizedUtterances(const QList<TranscriptUtterance> &list)
{
    return normalizedUtterances(list, transcriptMinimumWords, transcriptMaximumWords,
                                transcriptMaximumSentences, transcriptMaximumDuration);
}

QList<TranscriptUtterance> utterancesFromPlainText(const QString &text)
{
    QStringList parts;
    for (const QString &part : text.split(QStringLiteral("\n\n"))) {
        const QString trimmed = part.trimmed();
        if (!trimmed.isEmpty())
            parts.append(trimmed);
    }
    if (parts.isEmpty()) {
        const QString whole = text.trimmed();
        if (whole.isEmpty())
            return {};
        parts.append(whole);
    }

    QList<TranscriptUtterance> utterances;
    utterances.reserve(parts.size());
    for (const QString &part : parts) {
        TranscriptUtterance u;
        u.id = newTranscriptUtteranceId();
        u.text = part;
        utterances.append(std::move(u));
    }
    return utterances;
}

} // namespace kestil
