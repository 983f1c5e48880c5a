// What a long meeting costs the transcript model: a two-hour recording of
// about 18,000 words in about 1,500 live utterances, read cold (decode and
// normalise), read from the cache, and written (normalise and encode). Each
// figure is the median of several runs.
//
//   transcript_bench [runs]   (default 15)

#include "speech/TranscriptNormalization.h"
#include "speech/TranscriptUtterancesCache.h"
#include "speech/TranscriptUtterancesJson.h"

#include <QElapsedTimer>
#include <QStringList>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

using namespace kestil;

namespace {

// A fixed-seed generator, so every run builds the same meeting.
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next()
    {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 7;
        state_ ^= state_ << 17;
        return state_;
    }
    int below(int n) { return int(next() % std::uint64_t(n)); }

private:
    std::uint64_t state_;
};

const char *const vocabulary[] = {
    "the",      "we",        "I",        "you",      "it",       "is",     "that",    "to",
    "and",      "of",        "a",        "in",       "for",      "on",     "so",      "think",
    "budget",   "quarter",   "release",  "customer", "roadmap",  "team",   "design",  "review",
    "deadline", "meeting",   "feedback", "numbers",  "pipeline", "launch", "hiring",  "migration",
    "actually", "basically", "probably", "maybe",    "right",    "okay",   "yeah",    "well",
    "should",   "could",     "would",    "need",     "want",     "look",   "move",    "ship",
    "next",     "last",      "week",     "month",    "Monday",   "Friday", "already", "still",
    "café",     "naïve",     "résumé",   "über",     "Zürich",   "São",    "Paulo",   "Kraków"};
constexpr int vocabularySize = int(sizeof vocabulary / sizeof *vocabulary);

QString sentence(Random &random)
{
    static const char *const endings[] = {".", ".", ".", "?", "!", ",", ""};
    const int words = 3 + random.below(13);
    QStringList list;
    for (int i = 0; i < words; ++i)
        list << QString::fromUtf8(vocabulary[random.below(vocabularySize)]);
    list.first()[0] = list.first()[0].toUpper();
    return list.join(QLatin1Char(' ')) + QString::fromLatin1(endings[random.below(7)]);
}

struct Meeting {
    QList<TranscriptUtterance> utterances;
    QString transcription;
    qsizetype words = 0;
};

// Live results as the list model stores them: fresh ids, increasing times
// with short gaps, one or two sentences each.
Meeting twoHourMeeting()
{
    Random random(0x6b657374696cULL);
    Meeting meeting;
    QStringList texts;
    double t = 0.4;
    while (t < 7200.0) {
        QString text = sentence(random);
        if (random.below(3) == 0)
            text += QLatin1Char(' ') + sentence(random);
        const qsizetype words = transcriptWordCount(text);
        const double duration = double(words) / 3.0 + double(random.below(60)) / 100.0;
        TranscriptUtterance u;
        u.id = newTranscriptUtteranceId();
        u.text = text;
        u.start = t;
        u.end = t + duration;
        meeting.utterances << u;
        meeting.words += words;
        texts << text;
        t += duration + 0.2 + double(random.below(60)) / 100.0;
    }
    meeting.transcription = texts.join(QLatin1Char(' '));
    return meeting;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double timeMs(const std::function<void()> &work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return double(timer.nsecsElapsed()) / 1e6;
}

// A copy with its own buffer, so that comparisons cannot stop at a shared
// pointer and must look at every character.
QString deepCopy(const QString &text)
{
    return QString(text.constData(), text.size());
}

void report(const char *what, const std::vector<double> &ms)
{
    std::printf("%-44s median %9.3f ms   min %9.3f ms   (n=%zu)\n", what, median(ms),
                *std::min_element(ms.begin(), ms.end()), ms.size());
}

} // namespace

int main(int argc, char **argv)
{
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 15;
    const QString key = QStringLiteral("kestil://notes/Note/p1");
    const Meeting meeting = twoHourMeeting();

    std::vector<double> write, encode, normalizeRaw;
    std::optional<QString> json;
    for (int i = 0; i < runs; ++i) {
        write.push_back(timeMs(
            [&] { json = writeTranscriptUtterances(key, meeting.utterances, meeting.transcription); }));
        QList<TranscriptUtterance> normalized;
        normalizeRaw.push_back(timeMs([&] { normalized = normalizedUtterances(meeting.utterances); }));
        encode.push_back(timeMs([&] { encodeTranscriptUtterances(normalized); }));
    }
    if (!json) {
        std::fprintf(stderr, "The meeting could not be written.\n");
        return 1;
    }

    std::vector<double> cold, decode, normalizeStored;
    QList<TranscriptUtterance> read;
    for (int i = 0; i < runs; ++i) {
        transcriptUtterancesCache().removeAll();
        cold.push_back(timeMs([&] { read = readTranscriptUtterances(key, *json, meeting.transcription); }));
        std::optional<QList<TranscriptUtterance>> decoded;
        decode.push_back(timeMs([&] { decoded = decodeTranscriptUtterances(*json); }));
        normalizeStored.push_back(timeMs([&] { normalizedUtterances(*decoded); }));
    }

    // Views ask again on every change of a note: the entry answers, after a
    // full comparison of both texts.
    std::vector<double> cached;
    const std::optional<QString> payload = deepCopy(*json);
    const std::optional<QString> transcription = deepCopy(meeting.transcription);
    readTranscriptUtterances(key, payload, transcription);
    for (int i = 0; i < runs * 20; ++i)
        cached.push_back(timeMs([&] { readTranscriptUtterances(key, payload, transcription); }));

    const auto box = transcriptUtterancesCache().object(key);
    std::printf("meeting: %lld live utterances, %lld words, %.0f s; transcription %lld bytes\n",
                (long long)meeting.utterances.size(), (long long)meeting.words,
                *meeting.utterances.last().end, (long long)utf8Length(meeting.transcription));
    std::printf("stored JSON: %lld bytes (UTF-8), %lld paragraphs; read back as %lld paragraphs\n",
                (long long)utf8Length(*json), (long long)normalizedUtterances(meeting.utterances).size(),
                (long long)read.size());
    std::printf("cache entry cost: %lld bytes of %lld\n\n", box ? (long long)box->cost() : -1LL,
                (long long)transcriptUtterancesCacheCostLimit);
    report("write (normalise + encode + cache)", write);
    report("  normalise live utterances", normalizeRaw);
    report("  encode JSON", encode);
    report("cold read (decode + normalise + cache)", cold);
    report("  decode JSON", decode);
    report("  normalise stored paragraphs", normalizeStored);
    report("cached read (both texts compared)", cached);
    return 0;
}
