#include "SpeakerAttribution.h"

#include <QStringList>

#include <algorithm>
#include <map>
#include <optional>

namespace kestil {

namespace {

// The speaker who overlaps [start, end] longest; of equal shares the lower
// number (heard first). None when no turn overlaps it.
std::optional<int> dominantSpeaker(double start, double end, std::span<const SpeakerTurn> turns)
{
    std::map<int, double> overlap;
    for (const SpeakerTurn &turn : turns) {
        if (turn.start >= end)
            break; // sorted by start: nothing later overlaps
        const double shared = std::min(end, turn.end) - std::max(start, turn.start);
        if (shared > 0)
            overlap[turn.speaker] += shared;
    }
    std::optional<int> best;
    double longest = 0;
    for (const auto &[speaker, seconds] : overlap) {
        if (seconds > longest) {
            longest = seconds;
            best = speaker;
        }
    }
    return best;
}

// A stretch of no length counts by the instant it names.
std::optional<int> speakerOf(double start, double end, std::span<const SpeakerTurn> turns)
{
    if (end > start)
        return dominantSpeaker(start, end, turns);
    for (const SpeakerTurn &turn : turns) {
        if (turn.start <= start && start < turn.end)
            return turn.speaker;
    }
    return std::nullopt;
}

struct Run {
    int speaker = 0;
    qsizetype first = 0; // index of the run's first word
    qsizetype last = 0;  // index of its last word
};

// Consecutive words of one speaker; empty when no word overlaps any turn.
QList<Run> wordRuns(const QList<TimedWord> &words, std::span<const SpeakerTurn> turns)
{
    std::vector<std::optional<int>> speakers;
    speakers.reserve(std::size_t(words.size()));
    for (const TimedWord &word : words)
        speakers.push_back(speakerOf(word.start, word.end, turns));
    const auto firstKnown =
        std::find_if(speakers.begin(), speakers.end(), [](const auto &s) { return s.has_value(); });
    if (firstKnown == speakers.end())
        return {};
    // Words in a pause between turns stay with their neighbour.
    std::optional<int> current = *firstKnown;
    for (auto &speaker : speakers) {
        if (speaker)
            current = speaker;
        else
            speaker = current;
    }

    QList<Run> runs;
    for (qsizetype i = 0; i < words.size(); ++i) {
        const int speaker = *speakers[std::size_t(i)];
        if (!runs.isEmpty() && runs.last().speaker == speaker)
            runs.last().last = i;
        else
            runs.append(Run{speaker, i, i});
    }
    return runs;
}

QString joinedWords(const QList<TimedWord> &words, const Run &run)
{
    QStringList texts;
    for (qsizetype i = run.first; i <= run.last; ++i) {
        const QString text = words[i].text.trimmed();
        if (!text.isEmpty())
            texts << text;
    }
    return texts.join(QLatin1Char(' '));
}

} // namespace

QList<TranscriptUtterance> attributeSpeakers(const QList<WordTimedUtterance> &utterances,
                                             std::span<const SpeakerTurn> turns)
{
    QList<TranscriptUtterance> out;
    out.reserve(utterances.size());
    for (const WordTimedUtterance &timed : utterances) {
        TranscriptUtterance u = timed.utterance;
        u.speaker.reset();
        if (!u.start || !u.end || *u.end < *u.start) {
            out.append(std::move(u));
            continue;
        }
        const QList<Run> runs = wordRuns(timed.words, turns);
        if (runs.size() == 1) {
            u.speaker = runs.first().speaker;
        } else if (runs.isEmpty()) {
            if (const std::optional<int> speaker = speakerOf(*u.start, *u.end, turns))
                u.speaker = *speaker;
        } else {
            for (qsizetype k = 0; k < runs.size(); ++k) {
                const Run &run = runs[k];
                TranscriptUtterance piece = u;
                piece.id = u.id + QLatin1Char('-') + QString::number(k);
                piece.text = joinedWords(timed.words, run);
                piece.start = k == 0 ? *u.start : timed.words[run.first].start;
                piece.end = k + 1 == runs.size() ? *u.end : timed.words[run.last].end;
                piece.speaker = run.speaker;
                out.append(std::move(piece));
            }
            continue;
        }
        out.append(std::move(u));
    }
    return out;
}

QList<TranscriptUtterance> attributeSpeakers(const QList<TranscriptUtterance> &utterances,
                                             std::span<const SpeakerTurn> turns)
{
    QList<WordTimedUtterance> timed;
    timed.reserve(utterances.size());
    for (const TranscriptUtterance &u : utterances)
        timed.append(WordTimedUtterance{u, {}});
    return attributeSpeakers(timed, turns);
}

} // namespace kestil
