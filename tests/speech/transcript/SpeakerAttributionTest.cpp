#include "TranscriptTestSupport.h"

#include "speech/SpeakerAttribution.h"

#include <gtest/gtest.h>

#include <vector>

using namespace kestil;

namespace {

// Words described as "one@0.5-1 two@1-1.9": each with its start and end.
WordTimedUtterance heard(const QString &id, const QString &text, std::optional<double> start,
                         std::optional<double> end, const QString &described = {})
{
    WordTimedUtterance timed{with(utterance(id, text, start, end), 3, 0.75), {}};
    for (const QString &item : described.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        const QStringList parts = item.split(QLatin1Char('@'));
        const QStringList times = parts[1].split(QLatin1Char('-'));
        timed.words.append(TimedWord{parts[0], times[0].toDouble(), times[1].toDouble()});
    }
    return timed;
}

TranscriptUtterance said(const QString &id, const QString &text, std::optional<double> start,
                         std::optional<double> end, std::optional<qint64> speaker)
{
    return with(utterance(id, text, start, end), speaker, 0.75);
}

} // namespace

TEST(SpeakerAttribution, GivesEachUtteranceTheSpeakerOfItsTime)
{
    // Speaker 0 talks from 0 to 2 s, speaker 1 from 2 to 5 s.
    const std::vector<SpeakerTurn> twoTurns{{0, 2, 0}, {2, 5, 1}};
    const struct {
        const char *name;
        std::vector<SpeakerTurn> turns;
        QList<WordTimedUtterance> utterances;
        QList<TranscriptUtterance> expected;
    } cases[] = {
        {"within one turn",
         twoTurns,
         {heard("u", "hi there", 0.2, 1.8)},
         {said("u", "hi there", 0.2, 1.8, 0)}},
        {"without word times the larger share takes it whole",
         twoTurns,
         {heard("u", "one two three", 1.0, 4.0)},
         {said("u", "one two three", 1.0, 4.0, 1)}},
        {"equal shares go to the speaker heard first",
         twoTurns,
         {heard("u", "one two", 1.0, 3.0)},
         {said("u", "one two", 1.0, 3.0, 0)}},
        {"word times cut it where the speaker changes",
         twoTurns,
         {heard("u", "One two, three four.", 0.5, 3.5, "One@0.5-1 two,@1-1.9 three@2.1-3 four.@3-3.5")},
         {said("u-0", "One two,", 0.5, 1.9, 0), said("u-1", "three four.", 2.1, 3.5, 1)}},
        {"a word in a pause stays with the word before",
         {{0, 2, 0}, {3, 5, 1}},
         {heard("u", "a b c", 0.0, 4.0, "a@0-1.5 b@2.2-2.8 c@3.1-4")},
         {said("u-0", "a b", 0.0, 2.8, 0), said("u-1", "c", 3.1, 4.0, 1)}},
        {"a speaker returning makes a third piece",
         {{0, 2, 0}, {2, 4, 1}, {4, 6, 0}},
         {heard("u", "x y z", 0.5, 5.5, "x@0.5-1.5 y@2.5-3.5 z@4.5-5.5")},
         {said("u-0", "x", 0.5, 1.5, 0), said("u-1", "y", 2.5, 3.5, 1), said("u-2", "z", 4.5, 5.5, 0)}},
        {"words of one speaker keep it whole",
         twoTurns,
         {heard("u", "late start", 1.5, 4.0, "late@2.2-3 start@3-4")},
         {said("u", "late start", 1.5, 4.0, 1)}},
        {"neighbours of one speaker stay separate",
         twoTurns,
         {heard("a", "first", 2.1, 3.0), heard("b", "second", 3.2, 4.8)},
         {said("a", "first", 2.1, 3.0, 1), said("b", "second", 3.2, 4.8, 1)}},
        {"untimed or unheard gets no speaker",
         twoTurns,
         {heard("untimed", "no times", std::nullopt, std::nullopt),
          heard("half", "start only", 1.0, std::nullopt),
          heard("later", "after everyone", 6.0, 7.0, "after@6-6.5 everyone@6.5-7")},
         {said("untimed", "no times", std::nullopt, std::nullopt, std::nullopt),
          said("half", "start only", 1.0, std::nullopt, std::nullopt),
          said("later", "after everyone", 6.0, 7.0, std::nullopt)}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(attributeSpeakers(c.utterances, c.turns), c.expected) << c.name;
}
