#include "library/TranscriptParagraphsView.h"

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

#include <limits>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

TranscriptUtterance at(double start, const QString &text = u"Words."_s, std::optional<double> end = {})
{
    TranscriptUtterance u;
    u.id = newTranscriptUtteranceId();
    u.text = text;
    u.start = start;
    u.end = end.value_or(start + 0.5);
    return u;
}

QStringList labels(const QList<TimestampedUtterance> &list)
{
    QStringList out;
    for (const auto &t : list)
        out << t.timestampLabel.value_or(u"-"_s);
    return out;
}

TEST(TimestampLabelTest, MinutesAndSecondsRoundedNeverFoldedIntoHoursAndNoLabelForNoTime)
{
    const std::pair<double, const char *> cases[] = {{75.5, "1:16"}, {3725, "62:05"}, {0.4, "0:00"},
                                                     {59.6, "1:00"}, {-3, "0:00"},    {600, "10:00"}};
    for (const auto &[start, label] : cases)
        EXPECT_EQ(timestampLabel(start), QString::fromLatin1(label)) << start;
    for (double start :
         {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(), 1e300})
        EXPECT_FALSE(timestampLabel(start)) << start;
}

TEST(TimestampedUtterancesTest, SavedTranscriptsLabelEveryTimedUtteranceAndLiveOnesAboutEveryTenSeconds)
{
    TranscriptParagraphsView view;
    TranscriptUtterance untimed;
    untimed.id = u"u"_s;
    untimed.text = u"No time."_s;
    const auto result = timestampedUtterances({at(0.4), at(2), at(5), untimed, at(11.9)}, view);
    EXPECT_EQ(labels(result), (QStringList{"0:00", "0:02", "0:05", "-", "0:12"}));

    view.isRecordingActive = true;
    EXPECT_EQ(labels(timestampedUtterances({at(0.4), at(2), at(5), at(11.9), at(12)}, view)),
              (QStringList{"-", "0:02", "-", "-", "0:12"}))
        << "nothing in the first second; then 2 and 12, as 11.9 is under ten seconds after 2";
    EXPECT_EQ(labels(timestampedUtterances({at(1.0), at(10.9), at(11.0), at(25), at(30), at(35.5)}, view)),
              (QStringList{"0:01", "-", "0:11", "0:25", "-", "0:36"}));

    EXPECT_EQ(labels(timestampedUtterances({untimed, at(0.2), at(3)}, view)),
              (QStringList{"-", "-", "0:03"}));
}

TEST(TranscriptParagraphsTest, UtterancesBecomeParagraphsFollowedByTheInterimTailAndTheDots)
{
    TranscriptParagraphsView view;
    view.utterances = {at(0.4, u"First paragraph."_s), at(20, u"Second paragraph."_s)};
    view.interimText = u"  still speaking "_s;
    view.showEllipsis = true;
    const auto paragraphs = transcriptParagraphs(view);
    ASSERT_EQ(paragraphs.size(), 4);
    EXPECT_EQ(paragraphs[0].text, u"First paragraph."_s);
    EXPECT_EQ(paragraphs[0].timestampLabel, u"0:00"_s);
    EXPECT_EQ(paragraphs[0].identity, view.utterances[0].id);
    EXPECT_EQ(paragraphs[1].timestampLabel, u"0:20"_s);
    EXPECT_EQ(paragraphs[2].kind, TranscriptParagraph::Kind::interim);
    EXPECT_EQ(paragraphs[2].identity, u"interim"_s);
    EXPECT_EQ(paragraphs[2].text, u"still speaking"_s);
    EXPECT_EQ(paragraphs[3].kind, TranscriptParagraph::Kind::ellipsis);
    EXPECT_EQ(paragraphs[3].identity, u"ellipsis"_s);

    // Nothing but the dots while a recording has no text yet.
    view.isRecordingActive = true;
    view.utterances.clear();
    view.interimText.clear();
    ASSERT_EQ(transcriptParagraphs(view).size(), 1);
    EXPECT_EQ(transcriptParagraphs(view)[0].kind, TranscriptParagraph::Kind::ellipsis);
}

TEST(TranscriptParagraphsTest, RepeatedNeighboursShowOnceAndPlainTextGivesUntimedParagraphs)
{
    TranscriptParagraphsView view;
    view.utterances = {at(1, u"Hello there."_s), at(1.1, u"Hello there."_s), at(4, u"Next."_s)};
    auto paragraphs = transcriptParagraphs(view);
    ASSERT_EQ(paragraphs.size(), 2);
    EXPECT_EQ(paragraphs[1].text, u"Next."_s);

    view.utterances.clear();
    view.transcript = u"One paragraph.\n\nAnother one."_s;
    paragraphs = transcriptParagraphs(view);
    ASSERT_EQ(paragraphs.size(), 2);
    EXPECT_EQ(paragraphs[0].text, u"One paragraph."_s);
    EXPECT_TRUE(paragraphs[0].timestampLabel.isEmpty());
    EXPECT_EQ(paragraphs[1].text, u"Another one."_s);
}

TEST(TranscriptParagraphsTest, LiveTranscriptIsGatheredIntoParagraphsLikeASavedOne)
{
    // Short engine results, one every two seconds: live they read as a few
    // paragraphs, not as thirty one-line rows.
    TranscriptParagraphsView view;
    view.isRecordingActive = true;
    for (int i = 0; i < 30; ++i)
        view.utterances.append(at(1 + 2.0 * i, u"we talked about the plan"_s, 2.5 + 2.0 * i));
    const auto live = transcriptParagraphs(view);
    EXPECT_LT(live.size(), 15);
    EXPECT_GT(live.size(), 3);
    int words = 0;
    for (const auto &p : live)
        words += int(p.text.split(QLatin1Char(' '), Qt::SkipEmptyParts).size());
    EXPECT_EQ(words, 30 * 5) << "no words are lost when paragraphs form";

    view.isRecordingActive = false;
    EXPECT_EQ(transcriptParagraphs(view).size(), 30) << "a saved list is shown as it was stored";
}

TEST(TranscriptParagraphsTest, EachTurnOfSeveralVoicesOpensWithItsSpeakersName)
{
    const auto spoken = [](double start, qint64 speaker) {
        TranscriptUtterance u = at(start, u"Words said at %1."_s.arg(start));
        u.speaker = speaker;
        return u;
    };
    TranscriptParagraphsView view;
    view.utterances = {spoken(0, 0), spoken(15, 0), spoken(30, 1), spoken(45, 0)};
    view.speakerNames = {{1, u"Ada"_s}};
    QStringList shown;
    for (const TranscriptParagraph &p : transcriptParagraphs(view))
        shown << p.speakerLabel;
    EXPECT_EQ(shown, (QStringList{u"Speaker 1"_s, {}, u"Ada"_s, u"Speaker 1"_s}));

    // One voice throughout: no names at all.
    view.utterances = {spoken(0, 0), spoken(15, 0)};
    for (const TranscriptParagraph &p : transcriptParagraphs(view))
        EXPECT_TRUE(p.speakerLabel.isEmpty());
}

} // namespace
