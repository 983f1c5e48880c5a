#include "TranscriptTestSupport.h"

#include "speech/TranscriptNormalization.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace kestil;

namespace {

QList<TranscriptUtterance> split(const QList<TranscriptUtterance> &list)
{
    return splitUtterances(list, transcriptMaximumWords, transcriptMaximumSentences,
                           transcriptMaximumDuration);
}

QList<TranscriptUtterance> paragraphs(const QList<TranscriptUtterance> &list)
{
    return paragraphUtterances(list, transcriptMinimumWords, transcriptMaximumWords,
                               transcriptMaximumSentences, transcriptMaximumDuration);
}

QStringList idsOf(const QList<TranscriptUtterance> &list)
{
    QStringList ids;
    for (const auto &u : list)
        ids << u.id;
    return ids;
}

QStringList textsOf(const QList<TranscriptUtterance> &list)
{
    QStringList texts;
    for (const auto &u : list)
        texts << u.text;
    return texts;
}

bool isUpperCaseUuid(const QString &id)
{
    static const QRegularExpression uuid("^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$");
    return uuid.match(id).hasMatch();
}

} // namespace

TEST(TranscriptTextHelpers, CountWordsCollapseWhitespaceAndCompare)
{
    EXPECT_EQ(transcriptWordCount(u""), 0);
    EXPECT_EQ(transcriptWordCount(u"  \n\t "), 0);
    EXPECT_EQ(transcriptWordCount(u"one"), 1);
    EXPECT_EQ(transcriptWordCount(u"  one,  two\nthree\u00a0four\u2003five "), 5);

    EXPECT_EQ(collapsedWhitespace("  a \n\n b\t\tc\u00a0 d  "), "a b c d");
    EXPECT_EQ(transcriptComparisonForm("  Hello\n  THERE  Friend "), "hello there friend");
    EXPECT_EQ(transcriptComparisonForm("ÉCOLE Über"), "école über");
}

TEST(TranscriptTextHelpers, CollapsingAgreesWithTheWhitespaceExpression)
{
    // Plain blanks take a quick path; every other kind of white space the
    // expression. Both must give what the expression alone gives.
    const QRegularExpression run("\\s+", QRegularExpression::UseUnicodePropertiesOption);
    const char16_t alphabet[] = {u'a',  u'b',   u'.',   u' ',   u' ',   u' ',   u'\t',  u'\n',    u'\r',
                                 u'\v', 0x00a0, 0x0085, 0x180e, 0x2028, 0x3000, 0x200b, u'\u00e9'};
    quint32 state = 12345;
    for (int n = 0; n < 3000; ++n) {
        QString text;
        const int length = int(state % 12);
        for (int i = 0; i < length; ++i) {
            state = state * 1664525u + 1013904223u;
            text.append(QChar(alphabet[(state >> 16) % (sizeof alphabet / sizeof *alphabet)]));
        }
        state = state * 1664525u + 1013904223u;
        EXPECT_EQ(collapsedWhitespace(text), QString(text).replace(run, " ").trimmed()) << text.toStdString();
    }
}

TEST(TranscriptTextHelpers, DurationSpansPresentTimesAndIsZeroOtherwise)
{
    EXPECT_EQ(utterancesDuration({}), 0);
    EXPECT_EQ(utterancesDuration({utterance("a", "a", 2.0)}), 0);
    EXPECT_EQ(utterancesDuration({utterance("a", "a", std::nullopt, 3.0)}), 0);
    EXPECT_EQ(utterancesDuration({utterance("a", "a", 5.0, 3.0)}), 0);
    EXPECT_EQ(utterancesDuration({utterance("a", "a", 2.0), utterance("b", "b", 4.0, 7.5),
                                  utterance("c", "c", std::nullopt, 6.0)}),
              5.5);
    EXPECT_EQ(utterancesDuration({utterance("a", "a", std::nan(""), 3.0)}), 0);
}

TEST(TranscriptPlainText, OneUntimedUtterancePerParagraph)
{
    EXPECT_TRUE(utterancesFromPlainText(QString()).isEmpty());
    EXPECT_TRUE(utterancesFromPlainText(" \n\n \t\n\n").isEmpty());

    const auto one = utterancesFromPlainText("  Hello there.\nSame paragraph. \n");
    ASSERT_EQ(one.size(), 1);
    EXPECT_EQ(one[0].text, "Hello there.\nSame paragraph.");

    const auto three = utterancesFromPlainText("First.\n\n\n\nSecond\n\n  \n\nThird.\n \nstill");
    EXPECT_EQ(textsOf(three), QStringList({"First.", "Second", "Third.\n \nstill"}));
    for (const auto &u : three) {
        EXPECT_TRUE(isUpperCaseUuid(u.id)) << u.id.toStdString();
        EXPECT_FALSE(u.start || u.end || u.speaker || u.confidence || u.isInterim);
    }
    EXPECT_NE(three[0].id, three[1].id);
}

TEST(TranscriptNormalization, EmptyAndInterimOnlyListsNormaliseToNothing)
{
    EXPECT_TRUE(normalizedUtterances({}).isEmpty());

    TranscriptUtterance interim = utterance("a", "Still talking", 0.0, 1.0);
    interim.isInterim = true;
    TranscriptUtterance interim2 = utterance("b", "more", 1.0, 2.0);
    interim2.isInterim = true;
    EXPECT_TRUE(normalizedUtterances({interim, interim2}).isEmpty());
    EXPECT_TRUE(normalizedUtterances({utterance("c", " \n\t ")}).isEmpty());

    const auto kept = normalizedUtterances({interim, utterance("d", "Final.")});
    EXPECT_EQ(idsOf(kept), QStringList({"d"}));
}

TEST(TranscriptNormalization, UntimedParagraphsAreNeverMerged)
{
    const auto list = normalizedUtterances(utterancesFromPlainText("One short line\n\nAnother"));
    EXPECT_EQ(textsOf(list), QStringList({"One short line", "Another"}));
}

TEST(TranscriptCleanup, RepeatedNeighboursCollapseOnlyWhenTimesAgree)
{
    const auto first = utterance("a", "Hello  there", 1.0, 2.0);

    // Same words in other case and spacing, 0.2 s apart at both ends.
    const auto near = utterance("b", "hello\nTHERE ", 1.2, 2.2);
    EXPECT_EQ(idsOf(cleanedUtterances({first, near})), QStringList({"a"}));
    EXPECT_EQ(cleanedUtterances({first, near})[0].text, "Hello  there");

    // 0.3 s apart: two separate utterances.
    const auto far = utterance("b", "hello there", 1.3, 2.3);
    EXPECT_EQ(idsOf(cleanedUtterances({first, far})), QStringList({"a", "b"}));
    const auto farEnd = utterance("b", "hello there", 1.0, 2.3);
    EXPECT_EQ(cleanedUtterances({first, farEnd}).size(), 2);

    // Different words never collapse.
    EXPECT_EQ(cleanedUtterances({first, utterance("b", "Hello", 1.0, 2.0)}).size(), 2);

    // No times at all: the same words twice are one utterance.
    EXPECT_EQ(idsOf(cleanedUtterances({utterance("a", "Okay."), utterance("b", "okay.")})),
              QStringList({"a"}));
}

TEST(TranscriptCleanup, RepeatTestUsesWhicheverTimePairIsComplete)
{
    const auto withStart = [](const char *id, double s) {
        return utterance(QString::fromLatin1(id), "yes", s);
    };
    const auto withEnd = [](const char *id, double e) {
        return utterance(QString::fromLatin1(id), "yes", std::nullopt, e);
    };
    EXPECT_EQ(cleanedUtterances({withStart("a", 1.0), withStart("b", 1.25)}).size(), 1);
    EXPECT_EQ(cleanedUtterances({withStart("a", 1.0), withStart("b", 1.5)}).size(), 2);
    EXPECT_EQ(cleanedUtterances({withEnd("a", 4.0), withEnd("b", 3.8)}).size(), 1);
    EXPECT_EQ(cleanedUtterances({withEnd("a", 4.0), withEnd("b", 3.5)}).size(), 2);
    // Starts present on both but only one end: the starts decide.
    EXPECT_EQ(cleanedUtterances({utterance("a", "yes", 1.0, 9.0), withStart("b", 1.1)}).size(), 1);
    // Neither pair complete: a repeat with no further test.
    EXPECT_EQ(cleanedUtterances({withStart("a", 1.0), withEnd("b", 60.0)}).size(), 1);
}

TEST(TranscriptCleanup, TrimsDropsEmptiesAndComparesWithLastKept)
{
    const auto list =
        cleanedUtterances({utterance("a", "  Hi. \n"), utterance("b", "   "), utterance("c", "hi.")});
    ASSERT_EQ(list.size(), 1);
    EXPECT_EQ(list[0].text, "Hi.");
}

TEST(TranscriptCleanup, OutOfOrderStartsAreSortedStably)
{
    const auto at = [](const char *id, std::optional<double> start) {
        return utterance(QString::fromLatin1(id), QString::fromLatin1(id), start);
    };
    EXPECT_EQ(idsOf(cleanedUtterances({at("a", 5.0), at("b", 1.0), at("c", 3.0)})),
              QStringList({"b", "c", "a"}));

    // In order: left as it came, records without a start included.
    EXPECT_EQ(idsOf(cleanedUtterances({at("a", 1.0), at("b", std::nullopt), at("c", 0.99995), at("d", 3.0)})),
              QStringList({"a", "b", "c", "d"}));

    // Starts closer than 0.0001 s keep their input order even when sorted.
    EXPECT_EQ(idsOf(cleanedUtterances({at("a", 5.0), at("b", 1.00005), at("c", 1.0), at("d", 2.0)})),
              QStringList({"b", "c", "d", "a"}));
    EXPECT_EQ(idsOf(cleanedUtterances({at("a", 5.0), at("b", 2.0), at("c", 2.0), at("d", 2.0)})),
              QStringList({"b", "c", "d", "a"}));
}

TEST(TranscriptSplit, LongUntimedSentenceIsCutIntoRunsOfTwentyWords)
{
    const auto pieces = split({utterance("x", words(21, "."))});
    ASSERT_EQ(pieces.size(), 2);
    EXPECT_EQ(pieces[0].id, "x-0");
    EXPECT_EQ(pieces[1].id, "x-1");
    EXPECT_EQ(pieces[0].text, words(20));
    EXPECT_EQ(pieces[1].text, "w21.");
    for (const auto &p : pieces)
        EXPECT_FALSE(p.start || p.end || p.isInterim);

    // The same through the whole normalisation: nothing is timed, so no grouping.
    const auto normalized = normalizedUtterances({utterance("x", words(21, "."))});
    EXPECT_EQ(normalized, pieces);
}

TEST(TranscriptSplit, RecordWithinLimitsStaysExactlyAsItCame)
{
    // 20 words, 2 sentences, 13.8 s: within every limit, white space untouched.
    const QString text = words(10, ".") + QStringLiteral("   ") + words(10, ".", "v");
    const auto fits = utterance("x", text, 100.0, 113.8);
    EXPECT_EQ(split({fits}), QList<TranscriptUtterance>({fits}));

    // At 13.9 s it goes through the split stage, yet its two sentences fit one
    // chunk, so it still stays exactly as it came.
    const auto longer = utterance("x", text, 100.0, 113.9);
    EXPECT_EQ(split({longer}), QList<TranscriptUtterance>({longer}));

    // A 5-word sentence stretched over a minute is still one chunk.
    const auto slow = utterance("s", "Well.  Let me think.", 0.0, 60.0);
    EXPECT_EQ(split({slow}), QList<TranscriptUtterance>({slow}));
}

TEST(TranscriptSplit, SentencesArePackedTwoToAChunkAndTimedByWordWeight)
{
    // Three short sentences exceed the sentence limit: [s1 s2] [s3].
    TranscriptUtterance three = utterance("p", "One two three. Four five!  Six?", 10.0, 16.0);
    three.speaker = 3;
    three.confidence = 0.5;
    const auto pieces = split({three});
    ASSERT_EQ(pieces.size(), 2);
    EXPECT_EQ(textsOf(pieces), QStringList({"One two three. Four five!", "Six?"}));
    EXPECT_EQ(idsOf(pieces), QStringList({"p-0", "p-1"}));
    // Weights 5 and 1 share 6 s.
    EXPECT_DOUBLE_EQ(*pieces[0].start, 10.0);
    EXPECT_DOUBLE_EQ(*pieces[0].end, 15.0);
    EXPECT_DOUBLE_EQ(*pieces[1].start, 15.0);
    EXPECT_DOUBLE_EQ(*pieces[1].end, 16.0);
    for (const auto &p : pieces) {
        EXPECT_EQ(p.speaker, 3);
        EXPECT_EQ(p.confidence, 0.5);
        EXPECT_FALSE(p.isInterim);
    }
}

TEST(TranscriptSplit, ChunksCloseBeforeExceedingTheWordLimit)
{
    // 15 + 15 + 15 words: no two sentences fit 20 words together.
    const QString text =
        words(15, ".", "a") + QLatin1Char(' ') + words(15, ".", "b") + QLatin1Char(' ') + words(15, ".", "c");
    const auto pieces = split({utterance("q", text, 0.0, 30.0)});
    ASSERT_EQ(pieces.size(), 3);
    EXPECT_EQ(pieces[1].text, words(15, ".", "b"));
    EXPECT_DOUBLE_EQ(*pieces[0].end, 10.0);
    EXPECT_DOUBLE_EQ(*pieces[1].start, 10.0);
    EXPECT_DOUBLE_EQ(*pieces[1].end, 20.0);
    EXPECT_DOUBLE_EQ(*pieces[2].end, 30.0);

    // A 25-word sentence then a 5-word one: [20] [5 + 5].
    const QString mixed = words(25, ".") + QLatin1Char(' ') + words(5, "?", "v");
    const auto cut = split({utterance("m", mixed, 0.0, 15.0)});
    ASSERT_EQ(cut.size(), 2);
    EXPECT_EQ(cut[0].text, words(20));
    EXPECT_EQ(cut[1].text, QStringLiteral("w21 w22 w23 w24 w25. ") + words(5, "?", "v"));
    EXPECT_DOUBLE_EQ(*cut[0].end, 10.0); // 20 of 30 words
}

TEST(TranscriptSplit, MissingOrInvertedTimingIsEstimatedFromWords)
{
    const QString thirty = words(30, ".");
    const double estimate = 30 / 2.7; // above 2.0 s for each of the two chunks

    const auto fromStart = split({utterance("s", thirty, 5.0)});
    ASSERT_EQ(fromStart.size(), 2);
    EXPECT_DOUBLE_EQ(*fromStart[0].start, 5.0);
    EXPECT_DOUBLE_EQ(*fromStart[0].end, 5.0 + estimate * 20 / 30);
    EXPECT_DOUBLE_EQ(*fromStart[1].start, *fromStart[0].end);
    EXPECT_DOUBLE_EQ(*fromStart[1].end, 5.0 + estimate);

    const auto fromEnd = split({utterance("e", thirty, std::nullopt, 100.0)});
    ASSERT_EQ(fromEnd.size(), 2);
    EXPECT_DOUBLE_EQ(*fromEnd[0].start, 100.0 - estimate);
    EXPECT_DOUBLE_EQ(*fromEnd[1].end, 100.0);

    // An end earlier than the estimate starts at 0 and shares what is there.
    const auto early = split({utterance("e", thirty, std::nullopt, 3.0)});
    ASSERT_EQ(early.size(), 2);
    EXPECT_DOUBLE_EQ(*early[0].start, 0.0);
    EXPECT_DOUBLE_EQ(*early[0].end, 2.0);
    EXPECT_DOUBLE_EQ(*early[1].start, 2.0);
    EXPECT_DOUBLE_EQ(*early[1].end, 3.0);

    // Start not before end: timed from the start by the estimate.
    const auto inverted = split({utterance("i", thirty, 8.0, 8.0)});
    EXPECT_DOUBLE_EQ(*inverted.back().end, 8.0 + estimate);

    // Few words, many chunks: 2 s a chunk is the floor (3 one-word sentences).
    const auto floor = split({utterance("f", "A. B. C.", 1.0)});
    ASSERT_EQ(floor.size(), 2);
    EXPECT_DOUBLE_EQ(*floor.back().end, 1.0 + 4.0);
}

TEST(TranscriptSplit, LastChunkRunsToTheEndAndTimesNeverGoBackwards)
{
    QList<TranscriptUtterance> input;
    for (int n = 21; n <= 90; n += 7)
        input << utterance(QString::number(n), words(n, "."), n, n * 1.5);
    for (const auto &record : input) {
        const auto pieces = split({record});
        ASSERT_GE(pieces.size(), 2);
        EXPECT_DOUBLE_EQ(*pieces.front().start, *record.start);
        EXPECT_DOUBLE_EQ(*pieces.back().end, *record.end);
        for (qsizetype i = 0; i < pieces.size(); ++i) {
            EXPECT_LE(*pieces[i].start, *pieces[i].end);
            if (i > 0) {
                EXPECT_DOUBLE_EQ(*pieces[i].start, *pieces[i - 1].end);
            }
            EXPECT_EQ(pieces[i].id, record.id + QLatin1Char('-') + QString::number(i));
        }
    }
}

TEST(TranscriptParagraphs, QuestionClosesAGroupOnlyOnceItHasEightWords)
{
    const QList<TranscriptUtterance> sevenThenMore = {
        utterance("a", "How are you", 0.0, 1.0), utterance("b", "doing on this day?", 1.0, 2.0),
        utterance("c", "Fine.", 2.0, 3.0), utterance("d", "Next", 3.0, 4.0)};
    const auto open = paragraphs(sevenThenMore);
    ASSERT_EQ(open.size(), 2);
    EXPECT_EQ(open[0].text, "How are you doing on this day? Fine.");
    EXPECT_EQ(open[1].id, "d");

    auto eight = sevenThenMore;
    eight[1].text = "doing on this fine day?";
    const auto closed = paragraphs(eight);
    ASSERT_EQ(closed.size(), 2);
    EXPECT_EQ(closed[0].text, "How are you doing on this fine day?");
    EXPECT_EQ(closed[1].text, "Fine. Next");
}

TEST(TranscriptParagraphs, GroupClosesAtTwelveSecondsWhateverItsLength)
{
    const auto list = paragraphs({utterance("a", "One", 0.0, 6.0), utterance("b", "two", 6.0, 12.0),
                                  utterance("c", "three", 12.0, 13.0)});
    EXPECT_EQ(textsOf(list), QStringList({"One two", "three"}));

    const auto shorter = paragraphs({utterance("a", "One", 0.0, 6.0), utterance("b", "two", 6.0, 11.9),
                                     utterance("c", "three", 12.0, 13.0)});
    EXPECT_EQ(textsOf(shorter), QStringList({"One two three"}));
}

TEST(TranscriptParagraphs, WordAndSentenceLimitsClose)
{
    // Reaching 20 words closes even mid-sentence.
    const auto byWords = paragraphs({utterance("a", words(12), 0.0, 1.0), utterance("b", words(8), 1.0, 2.0),
                                     utterance("c", "rest", 2.0, 3.0)});
    EXPECT_EQ(idsOf(byWords), QStringList({"a", "c"}));

    // Two sentence ends close a group once it has 8 words, even when the last
    // record does not end one; under 8 words they do not.
    const auto sentencesThen = [](int trailingWords) {
        return paragraphs({utterance("a", "Yes.", 0.0, 1.0), utterance("b", "Right.", 1.0, 2.0),
                           utterance("c", words(trailingWords), 2.0, 3.0),
                           utterance("d", "after", 3.0, 4.0)});
    };
    EXPECT_EQ(idsOf(sentencesThen(6)), QStringList({"a", "d"}));
    EXPECT_EQ(idsOf(sentencesThen(5)), QStringList({"a"}));
}

TEST(TranscriptParagraphs, OneRecordGroupIsNeverClosedByItsOwnLength)
{
    const auto list = paragraphs({utterance("a", words(25, "."), 0.0, 20.0),
                                  utterance("b", "Then.", 20.0, 21.0), utterance("c", "After.", 21.0, 22.0)});
    EXPECT_EQ(idsOf(list), QStringList({"a", "c"}));
    EXPECT_EQ(transcriptWordCount(list[0].text), 26);
}

TEST(TranscriptParagraphs, SpeakerChangeAlwaysClosesAGroup)
{
    const auto said = [](const char *id, const QString &text, double at, std::optional<qint64> speaker) {
        auto u = utterance(QString::fromLatin1(id), text, at, at + 1.0);
        u.speaker = speaker;
        return u;
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
    const auto answered =
        paragraphs({said("a", words(3), 0, 1), said("b", "Yes.", 1, 2), said("c", words(3), 2, 1)});
    EXPECT_EQ(idsOf(answered), QStringList({"a", "b", "c"}));

    // The last speaker in the group counts, past records without one.
    const auto same =
        paragraphs({said("a", words(4), 0, 1), said("c", words(2), 2, std::nullopt), said("d", "Hi", 3, 1)});
    EXPECT_EQ(idsOf(same), QStringList({"a"}));
    const auto change =
        paragraphs({said("a", words(4), 0, 2), said("c", words(2), 2, std::nullopt), said("d", "Hi", 3, 1)});
    EXPECT_EQ(idsOf(change), QStringList({"a", "d"}));
}

TEST(TranscriptParagraphs, MergedRecordTakesSpanSpeakerAndMeanConfidence)
{
    QList<TranscriptUtterance> list;
    const std::optional<qint64> speakers[] = {std::nullopt, 7, 7, std::nullopt};
    const std::optional<double> confidences[] = {0.5, std::nullopt, 1.0, 0.75};
    const std::optional<double> starts[] = {2.0, 1.0, std::nullopt, 3.0};
    const std::optional<double> ends[] = {2.5, 4.5, std::nullopt, 4.0};
    for (int i = 0; i < 4; ++i) {
        auto u = utterance(QString::number(i), " word\t ", starts[i], ends[i]);
        u.speaker = speakers[i];
        u.confidence = confidences[i];
        list << u;
    }
    list[0].isInterim = true;
    const auto merged = paragraphs(list);
    ASSERT_EQ(merged.size(), 1);
    EXPECT_EQ(merged[0].id, "0");
    EXPECT_EQ(merged[0].text, "word word word word");
    EXPECT_EQ(merged[0].start, 1.0);
    EXPECT_EQ(merged[0].end, 4.5);
    EXPECT_EQ(merged[0].speaker, 7);
    EXPECT_DOUBLE_EQ(*merged[0].confidence, 0.75);
    EXPECT_FALSE(merged[0].isInterim);

    // Nothing present: the merged optionals are empty.
    const auto bare = paragraphs({utterance("a", "x", std::nullopt, 1.0), utterance("b", "y")});
    ASSERT_EQ(bare.size(), 1);
    EXPECT_FALSE(bare[0].start);
    EXPECT_EQ(bare[0].end, 1.0);
    EXPECT_FALSE(bare[0].speaker || bare[0].confidence);
}

TEST(TranscriptParagraphs, SingleOrUntimedListsPassThrough)
{
    const QList<TranscriptUtterance> single = {utterance("a", "  x  ", 1.0, 2.0)};
    EXPECT_EQ(paragraphs(single), single);
    const QList<TranscriptUtterance> untimed = {utterance("a", "x"), utterance("b", "y")};
    EXPECT_EQ(paragraphs(untimed), untimed);
}

TEST(TranscriptNormalization, PiecesGetAnotherSuffixOnEachPass)
{
    // 30 words in 3 sentences over 12 s: cut into [20] [10], then merged back
    // into one paragraph that keeps the first piece's id.
    const QString text =
        words(10, ".", "a") + QLatin1Char(' ') + words(10, ".", "b") + QLatin1Char(' ') + words(10, ".", "c");
    const auto once = normalizedUtterances({utterance("x", text, 0.0, 12.0)});
    ASSERT_EQ(once.size(), 1);
    EXPECT_EQ(once[0].id, "x-0");
    EXPECT_EQ(once[0].text, text);
    EXPECT_EQ(once[0].start, 0.0);
    EXPECT_EQ(once[0].end, 12.0);

    EXPECT_EQ(idsOf(split(once)), QStringList({"x-0-0", "x-0-1"}));
    EXPECT_EQ(idsOf(normalizedUtterances(once)), QStringList({"x-0-0"}));
}

TEST(TranscriptNormalization, LiveMeetingBecomesReadableParagraphsAndIsStableInShape)
{
    // Short live results, roughly one per 1.5 s, some repeated by the engine.
    QList<TranscriptUtterance> live;
    const QStringList phrases = {"so the plan",
                                 "for next week is simple.",
                                 "We ship on Monday",
                                 "and then we review.",
                                 "Any questions?",
                                 "No,",
                                 "that sounds right to me."};
    double t = 0;
    for (int i = 0; i < 70; ++i) {
        const QString text = phrases[i % phrases.size()];
        live << utterance(QStringLiteral("u%1").arg(i), text, t, t + 1.4);
        if (i % 10 == 3)
            live << utterance(QStringLiteral("dup%1").arg(i), text.toUpper(), t + 0.1, t + 1.45);
        t += 1.5;
    }
    const auto result = normalizedUtterances(live);
    ASSERT_FALSE(result.isEmpty());
    qsizetype totalWords = 0;
    for (qsizetype i = 0; i < result.size(); ++i) {
        const auto &p = result[i];
        totalWords += transcriptWordCount(p.text);
        EXPECT_FALSE(p.isInterim);
        EXPECT_FALSE(p.id.startsWith("dup"));
        EXPECT_LT(*p.start, *p.end);
        if (i > 0) {
            EXPECT_GE(*p.start, *result[i - 1].end);
        }
    }
    qsizetype inputWords = 0;
    for (int i = 0; i < 70; ++i)
        inputWords += transcriptWordCount(phrases[i % phrases.size()]);
    EXPECT_EQ(totalWords, inputWords);
    EXPECT_LT(result.size(), 70 / 2);
}
