#include "TranscriptTestSupport.h"

#include "speech/TranscriptNormalization.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace kestil;

namespace {

using List = QList<TranscriptUtterance>;

List split(const List &list)
{
    return splitUtterances(list, transcriptMaximumWords, transcriptMaximumSentences,
                           transcriptMaximumDuration);
}

List paragraphs(const List &list)
{
    return paragraphUtterances(list, transcriptMinimumWords, transcriptMaximumWords,
                               transcriptMaximumSentences, transcriptMaximumDuration);
}

template <QString TranscriptUtterance::*field> QStringList all(const List &list)
{
    QStringList values;
    for (const auto &u : list)
        values << u.*field;
    return values;
}
constexpr auto idsOf = all<&TranscriptUtterance::id>;
constexpr auto textsOf = all<&TranscriptUtterance::text>;

// Checks each piece's start and end, in order.
void expectTimes(const List &pieces, std::initializer_list<std::pair<double, double>> times)
{
    ASSERT_EQ(pieces.size(), qsizetype(times.size()));
    qsizetype i = 0;
    for (const auto &[start, end] : times) {
        EXPECT_DOUBLE_EQ(*pieces[i].start, start) << "piece " << i;
        EXPECT_DOUBLE_EQ(*pieces[i++].end, end) << "piece " << i;
    }
}

} // namespace

TEST(TranscriptTextHelpers, WordsWhitespaceComparisonFormAndDuration)
{
    EXPECT_EQ(transcriptWordCount(u""), 0);
    EXPECT_EQ(transcriptWordCount(u"  \n\t "), 0);
    EXPECT_EQ(transcriptWordCount(u"one"), 1);
    EXPECT_EQ(transcriptWordCount(u"  one,  two\nthree\u00a0four\u2003five "), 5);
    EXPECT_EQ(collapsedWhitespace("  a \n\n b\t\tc\u00a0 d  "), "a b c d");
    EXPECT_EQ(transcriptComparisonForm("  Hello\n  THERE  Friend "), "hello there friend");
    EXPECT_EQ(transcriptComparisonForm("ÉCOLE Über"), "école über");

    // From the smallest present start to the largest present end, else 0.
    EXPECT_EQ(utterancesDuration({}), 0);
    EXPECT_EQ(utterancesDuration({utterance("a", "a", 2.0)}), 0);
    EXPECT_EQ(utterancesDuration({utterance("a", "a", std::nullopt, 3.0)}), 0);
    EXPECT_EQ(utterancesDuration({utterance("a", "a", 5.0, 3.0)}), 0);
    EXPECT_EQ(utterancesDuration({utterance("a", "a", std::nan(""), 3.0)}), 0);
    EXPECT_EQ(utterancesDuration({utterance("a", "a", 2.0), utterance("b", "b", 4.0, 7.5),
                                  utterance("c", "c", std::nullopt, 6.0)}),
              5.5);

    // Plain blanks take a quick path; every other kind of white space the expression.
    const QRegularExpression run("\\s+", QRegularExpression::UseUnicodePropertiesOption);
    for (const char16_t *raw :
         {u"", u" ", u"a b", u" a", u"a ", u"a  b", u"a\u180eb", u"a\u200b b", u"\u3000a \tb"}) {
        const QString text = QString::fromUtf16(raw);
        EXPECT_EQ(collapsedWhitespace(text), QString(text).replace(run, " ").trimmed()) << text.toStdString();
    }
}

TEST(TranscriptPlainText, OneUntimedUtterancePerParagraph)
{
    EXPECT_TRUE(utterancesFromPlainText(QString()).isEmpty());
    EXPECT_TRUE(utterancesFromPlainText(" \n\n \t\n\n").isEmpty());
    EXPECT_EQ(textsOf(utterancesFromPlainText("  Hello there.\nSame paragraph. \n")),
              QStringList({"Hello there.\nSame paragraph."}));

    const auto three = utterancesFromPlainText("First.\n\n\n\nSecond\n\n  \n\nThird.\n \nstill");
    EXPECT_EQ(textsOf(three), QStringList({"First.", "Second", "Third.\n \nstill"}));
    for (const auto &u : three) {
        EXPECT_EQ(u.id.size(), 36) << u.id.toStdString();
        EXPECT_FALSE(u.start || u.end || u.speaker || u.confidence || u.isInterim);
    }
    EXPECT_NE(three[0].id, three[1].id);
}

TEST(TranscriptCleanup, RepeatedNeighboursCollapseOnlyWhenTimesAgree)
{
    const auto first = utterance("a", "Hello  there", 1.0, 2.0);
    const auto near = utterance("b", "hello\nTHERE ", 1.2, 2.2); // 0.2 s apart at both ends
    EXPECT_EQ(cleanedUtterances({first, near}), List({first}));
    // Texts are trimmed, empty ones dropped, and a repeat compared with the last kept.
    EXPECT_EQ(textsOf(cleanedUtterances(
                  {utterance("a", "  Hi. \n"), utterance("b", "   "), utterance("c", "hi.")})),
              QStringList({"Hi."}));

    const auto yes = [](const char *id, std::optional<double> s, std::optional<double> e = std::nullopt) {
        return utterance(QString::fromLatin1(id), "yes", s, e);
    };
    const struct {
        const char *what;
        List input;
        qsizetype kept;
    } cases[] = {
        {"starts 0.3 s apart", {first, utterance("b", "hello there", 1.3, 2.3)}, 2},
        {"end 0.3 s apart", {first, utterance("b", "hello there", 1.0, 2.3)}, 2},
        {"different words", {first, utterance("b", "Hello", 1.0, 2.0)}, 2},
        {"no times", {utterance("a", "Okay."), utterance("b", "okay.")}, 1},
        {"starts 0.25 s apart", {yes("a", 1.0), yes("b", 1.25)}, 1},
        {"starts 0.5 s apart", {yes("a", 1.0), yes("b", 1.5)}, 2},
        {"ends 0.2 s apart", {yes("a", {}, 4.0), yes("b", {}, 3.8)}, 1},
        {"ends 0.5 s apart", {yes("a", {}, 4.0), yes("b", {}, 3.5)}, 2},
        {"only starts complete", {yes("a", 1.0, 9.0), yes("b", 1.1)}, 1},
        {"neither pair complete", {yes("a", 1.0), yes("b", {}, 60.0)}, 1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const auto kept = cleanedUtterances(c.input);
        EXPECT_EQ(kept.size(), c.kept);
        EXPECT_EQ(kept[0].id, "a");
    }
}

TEST(TranscriptCleanup, OutOfOrderStartsAreSortedStably)
{
    const auto order = [](std::initializer_list<std::optional<double>> starts) {
        List list;
        for (const auto &start : starts) {
            const QString id(QChar(char16_t(u'a' + list.size())));
            list << utterance(id, id, start);
        }
        return idsOf(cleanedUtterances(list));
    };
    EXPECT_EQ(order({5.0, 1.0, 3.0}), QStringList({"b", "c", "a"}));
    // In order: left as it came, records without a start included.
    EXPECT_EQ(order({1.0, std::nullopt, 0.99995, 3.0}), QStringList({"a", "b", "c", "d"}));
    // Starts closer than 0.0001 s keep their input order even when sorted.
    EXPECT_EQ(order({5.0, 1.00005, 1.0, 2.0}), QStringList({"b", "c", "d", "a"}));
    EXPECT_EQ(order({5.0, 2.0, 2.0, 2.0}), QStringList({"b", "c", "d", "a"}));
}

TEST(TranscriptSplit, RecordsWithinLimitsStayAndLongOnesAreCutIntoRunsOfTwentyWords)
{
    // 20 words and 2 sentences: at 13.8 s within every limit, at 13.9 s split
    // but its two sentences fit one chunk. A 5-word sentence over a minute is one chunk.
    const QString text = words(10, ".") + QStringLiteral("   ") + words(10, ".", "v");
    for (const auto &record : {utterance("x", text, 100.0, 113.8), utterance("x", text, 100.0, 113.9),
                               utterance("s", "Well.  Let me think.", 0.0, 60.0)})
        EXPECT_EQ(split({record}), List({record}));

    const auto pieces = split({utterance("x", words(21, "."))});
    EXPECT_EQ(idsOf(pieces), QStringList({"x-0", "x-1"}));
    EXPECT_EQ(textsOf(pieces), QStringList({words(20), "w21."}));
    for (const auto &p : pieces)
        EXPECT_FALSE(p.start || p.end || p.isInterim);
    // Through the whole normalisation: nothing is timed, so no grouping.
    EXPECT_EQ(normalizedUtterances({utterance("x", words(21, "."))}), pieces);
}

TEST(TranscriptSplit, SentencesArePackedIntoChunksTimedByWordWeight)
{
    const auto pieces = split({with(utterance("p", "One two three. Four five!  Six?", 10.0, 16.0), 3, 0.5)});
    EXPECT_EQ(textsOf(pieces), QStringList({"One two three. Four five!", "Six?"}));
    EXPECT_EQ(idsOf(pieces), QStringList({"p-0", "p-1"}));
    expectTimes(pieces, {{10.0, 15.0}, {15.0, 16.0}}); // weights 5 and 1 share 6 s
    for (const auto &p : pieces)
        EXPECT_EQ(p, with(utterance(p.id, p.text, p.start, p.end), 3, 0.5));

    // 15 + 15 + 15 words: no two sentences fit 20 words together.
    const QString text = words(15, ".", "a") + ' ' + words(15, ".", "b") + ' ' + words(15, ".", "c");
    const auto three = split({utterance("q", text, 0.0, 30.0)});
    expectTimes(three, {{0.0, 10.0}, {10.0, 20.0}, {20.0, 30.0}});
    EXPECT_EQ(three[1].text, words(15, ".", "b"));

    // A 25-word sentence then a 5-word one: [20] [5 + 5], the first 20 of 30 words.
    const auto cut = split({utterance("m", words(25, ".") + ' ' + words(5, "?", "v"), 0.0, 15.0)});
    EXPECT_EQ(textsOf(cut), QStringList({words(20), "w21 w22 w23 w24 w25. " + words(5, "?", "v")}));
    expectTimes(cut, {{0.0, 10.0}, {10.0, 15.0}});
}

TEST(TranscriptSplit, MissingOrInvertedTimingIsEstimatedFromWords)
{
    const QString thirty = words(30, ".");
    const double estimate = 30 / 2.7; // above 2.0 s for each of the two chunks
    expectTimes(split({utterance("s", thirty, 5.0)}),
                {{5.0, 5.0 + estimate * 20 / 30}, {5.0 + estimate * 20 / 30, 5.0 + estimate}});
    const auto fromEnd = split({utterance("e", thirty, std::nullopt, 100.0)});
    ASSERT_EQ(fromEnd.size(), 2);
    EXPECT_DOUBLE_EQ(*fromEnd[0].start, 100.0 - estimate);
    EXPECT_DOUBLE_EQ(*fromEnd[1].end, 100.0);
    // An end earlier than the estimate starts at 0 and shares what is there.
    expectTimes(split({utterance("e", thirty, std::nullopt, 3.0)}), {{0.0, 2.0}, {2.0, 3.0}});
    // Start not before end: timed from the start by the estimate.
    EXPECT_DOUBLE_EQ(*split({utterance("i", thirty, 8.0, 8.0)}).back().end, 8.0 + estimate);
    // Few words, many chunks: 2 s a chunk is the floor (3 one-word sentences).
    const auto floor = split({utterance("f", "A. B. C.", 1.0)});
    ASSERT_EQ(floor.size(), 2);
    EXPECT_DOUBLE_EQ(*floor.back().end, 1.0 + 4.0);
}

TEST(TranscriptParagraphs, GroupsCloseOnQuestionsDurationWordsAndSentences)
{
    // Records a, b, c… a second each, unless the case gives its own times.
    const auto timed = [](std::initializer_list<QString> texts) {
        List list;
        for (const QString &text : texts)
            list << utterance(QString(QChar(char16_t(u'a' + list.size()))), text, list.size(),
                              list.size() + 1.0);
        return list;
    };
    // What each paragraph says; it keeps the id of its first record.
    const struct {
        const char *what;
        List input;
        QStringList texts;
    } cases[] = {
        {"a question under eight words stays open",
         timed({"How are you", "doing on this day?", "Fine.", "Next"}),
         {"How are you doing on this day? Fine.", "Next"}},
        {"a question of eight words closes",
         timed({"How are you", "doing on this fine day?", "Fine.", "Next"}),
         {"How are you doing on this fine day?", "Fine. Next"}},
        {"twelve seconds close",
         {utterance("a", "One", 0.0, 6.0), utterance("b", "two", 6.0, 12.0),
          utterance("c", "three", 12.0, 13.0)},
         {"One two", "three"}},
        {"under twelve seconds stay open",
         {utterance("a", "One", 0.0, 6.0), utterance("b", "two", 6.0, 11.9),
          utterance("c", "three", 12.0, 13.0)},
         {"One two three"}},
        {"twenty words close mid-sentence",
         timed({words(12), words(8), "rest"}),
         {words(12) + ' ' + words(8), "rest"}},
        {"two sentence ends close at eight words",
         timed({"Yes.", "Right.", words(6), "after"}),
         {"Yes. Right. " + words(6), "after"}},
        {"two sentence ends under eight words stay open",
         timed({"Yes.", "Right.", words(5), "after"}),
         {"Yes. Right. " + words(5) + " after"}},
        {"a one-record group is never closed by its own length",
         {utterance("a", words(25, "."), 0.0, 20.0), utterance("b", "Then.", 20.0, 21.0),
          utterance("c", "After.", 21.0, 22.0)},
         {words(25, ".") + " Then.", "After."}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const auto list = paragraphs(c.input);
        EXPECT_EQ(textsOf(list), c.texts);
        EXPECT_EQ(list.first().id, c.input.first().id);
    }
    // A single record, or an untimed list, passes through.
    for (const List &list :
         {List{utterance("a", "  x  ", 1.0, 2.0)}, List{utterance("a", "x"), utterance("b", "y")}})
        EXPECT_EQ(paragraphs(list), list);
}

TEST(TranscriptParagraphs, SpeakerChangeAlwaysClosesAGroup)
{
    const auto said = [](const char *id, const QString &text, double at, std::optional<qint64> speaker) {
        return with(utterance(QString::fromLatin1(id), text, at, at + 1.0), speaker);
    };
    // Eight words by speaker 1, then speaker 2: a new paragraph.
    const auto changed =
        paragraphs({said("a", words(8), 0, 1), said("b", "Hi", 1, 2), said("c", "there", 2, std::nullopt)});
    ASSERT_EQ(changed.size(), 2);
    EXPECT_EQ(changed[0].speaker, 1);
    EXPECT_EQ(changed[1].id, "b");
    EXPECT_EQ(changed[1].text, "Hi there");
    EXPECT_EQ(changed[1].speaker, 2);

    // However short the group: a one-word answer keeps its own voice.
    EXPECT_EQ(
        idsOf(paragraphs({said("a", words(3), 0, 1), said("b", "Yes.", 1, 2), said("c", words(3), 2, 1)})),
        QStringList({"a", "b", "c"}));
    // The last speaker in the group counts, past records without one.
    for (const auto &[firstSpeaker, ids] :
         {std::pair{1, QStringList({"a"})}, std::pair{2, QStringList({"a", "d"})}})
        EXPECT_EQ(idsOf(paragraphs({said("a", words(4), 0, firstSpeaker),
                                    said("c", words(2), 2, std::nullopt), said("d", "Hi", 3, 1)})),
                  ids);
}

TEST(TranscriptParagraphs, MergedRecordTakesSpanSpeakerAndMeanConfidence)
{
    const auto word = [](int i, std::optional<double> start, std::optional<double> end) {
        return utterance(QString::number(i), " word\t ", start, end);
    };
    const auto merged =
        paragraphs({with(word(0, 2.0, 2.5), std::nullopt, 0.5, true), with(word(1, 1.0, 4.5), 7),
                    with(word(2, {}, {}), 7, 1.0), with(word(3, 3.0, 4.0), std::nullopt, 0.75)});
    EXPECT_EQ(merged, List({with(utterance("0", "word word word word", 1.0, 4.5), 7, 0.75)}));

    // Nothing present: the merged optionals are empty.
    EXPECT_EQ(paragraphs({utterance("a", "x", std::nullopt, 1.0), utterance("b", "y")}),
              List({utterance("a", "x y", std::nullopt, 1.0)}));
}

TEST(TranscriptNormalization, DropsInterimAndEmptyRecordsAndGivesPiecesAnotherSuffixOnEachPass)
{
    // 30 words in 3 sentences over 12 s: cut into [20] [10], then merged back
    // into one paragraph that keeps the first piece's id.
    const QString text = words(10, ".", "a") + ' ' + words(10, ".", "b") + ' ' + words(10, ".", "c");
    const auto once = normalizedUtterances({utterance("x", text, 0.0, 12.0)});
    EXPECT_EQ(once, List({utterance("x-0", text, 0.0, 12.0)}));
    EXPECT_EQ(idsOf(split(once)), QStringList({"x-0-0", "x-0-1"}));
    EXPECT_EQ(idsOf(normalizedUtterances(once)), QStringList({"x-0-0"}));

    // Interim and empty records are dropped; untimed paragraphs never merge.
    const auto interim = with(utterance("a", "Still talking", 0.0, 1.0), {}, {}, true);
    const auto interim2 = with(utterance("b", "more", 1.0, 2.0), {}, {}, true);
    EXPECT_TRUE(normalizedUtterances({}).isEmpty());
    EXPECT_TRUE(normalizedUtterances({interim, interim2}).isEmpty());
    EXPECT_TRUE(normalizedUtterances({utterance("c", " \n\t ")}).isEmpty());
    EXPECT_EQ(idsOf(normalizedUtterances({interim, utterance("d", "Final.")})), QStringList({"d"}));
    EXPECT_EQ(textsOf(normalizedUtterances(utterancesFromPlainText("One short line\n\nAnother"))),
              QStringList({"One short line", "Another"}));
}
