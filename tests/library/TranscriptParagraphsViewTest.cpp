#include "library/TranscriptParagraphsView.h"

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

#include <limits>

using namespace kestil;

namespace {

TranscriptUtterance at(double start, const QString &text = QStringLiteral("Words."),
                       std::optional<double> end = {})
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
        out << t.timestampLabel.value_or(QStringLiteral("-"));
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
    untimed.id = QStringLiteral("u");
    untimed.text = QStringLiteral("No time.");
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
    view.utterances = {at(0.4, QStringLiteral("First paragraph.")),
                       at(20, QStringLiteral("Second paragraph."))};
    view.interimText = QStringLiteral("  still speaking ");
    view.showEllipsis = true;
    const auto paragraphs = transcriptParagraphs(view);
    ASSERT_EQ(paragraphs.size(), 4);
    EXPECT_EQ(paragraphs[0].text, QStringLiteral("First paragraph."));
    EXPECT_EQ(paragraphs[0].timestampLabel, QStringLiteral("0:00"));
    EXPECT_EQ(paragraphs[0].identity, view.utterances[0].id);
    EXPECT_EQ(paragraphs[1].timestampLabel, QStringLiteral("0:20"));
    EXPECT_EQ(paragraphs[2].kind, TranscriptParagraph::Kind::interim);
    EXPECT_EQ(paragraphs[2].identity, QStringLiteral("interim"));
    EXPECT_EQ(paragraphs[2].text, QStringLiteral("still speaking"));
    EXPECT_EQ(paragraphs[3].kind, TranscriptParagraph::Kind::ellipsis);
    EXPECT_EQ(paragraphs[3].identity, QStringLiteral("ellipsis"));

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
    view.utterances = {at(1, QStringLiteral("Hello there.")), at(1.1, QStringLiteral("Hello there.")),
                       at(4, QStringLiteral("Next."))};
    auto paragraphs = transcriptParagraphs(view);
    ASSERT_EQ(paragraphs.size(), 2);
    EXPECT_EQ(paragraphs[1].text, QStringLiteral("Next."));

    view.utterances.clear();
    view.transcript = QStringLiteral("One paragraph.\n\nAnother one.");
    paragraphs = transcriptParagraphs(view);
    ASSERT_EQ(paragraphs.size(), 2);
    EXPECT_EQ(paragraphs[0].text, QStringLiteral("One paragraph."));
    EXPECT_TRUE(paragraphs[0].timestampLabel.isEmpty());
    EXPECT_EQ(paragraphs[1].text, QStringLiteral("Another one."));
}

TEST(TranscriptParagraphsTest, LiveTranscriptIsGatheredIntoParagraphsLikeASavedOne)
{
    // Short engine results, one every two seconds: live they read as a few
    // paragraphs, not as thirty one-line rows.
    TranscriptParagraphsView view;
    view.isRecordingActive = true;
    for (int i = 0; i < 30; ++i)
        view.utterances.append(at(1 + 2.0 * i, QStringLiteral("we talked about the plan"), 2.5 + 2.0 * i));
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

TEST(TranscriptParagraphsTest, EveryLiveParagraphShowsItsStartWhileTheRecordingRuns)
{
    // Whisper's finals: whole sentences a few seconds apart, gathered in twos.
    TranscriptParagraphsView view;
    view.isRecordingActive = true;
    for (double start : {0.4, 4.0, 9.3, 13.5, 16.0, 19.0})
        view.utterances.append(
            at(start, QStringLiteral("He might even have been made amiable himself."), start + 3));
    QStringList live;
    for (const auto &p : transcriptParagraphs(view))
        live << (p.timestampLabel.isEmpty() ? QStringLiteral("-") : p.timestampLabel);
    EXPECT_EQ(live, (QStringList{"-", "0:09", "0:16"})) << "only the first second has no label";
}

TEST(TranscriptParagraphsTest, EachTurnOfSeveralVoicesOpensWithItsSpeakersName)
{
    const auto spoken = [](double start, qint64 speaker) {
        TranscriptUtterance u = at(start, QStringLiteral("Words said at %1.").arg(start));
        u.speaker = speaker;
        return u;
    };
    TranscriptParagraphsView view;
    view.utterances = {spoken(0, 0), spoken(15, 0), spoken(30, 1), spoken(45, 0)};
    view.speakerNames = {{1, QStringLiteral("Ada")}};
    QStringList shown;
    for (const TranscriptParagraph &p : transcriptParagraphs(view))
        shown << p.speakerLabel;
    EXPECT_EQ(
        shown,
        (QStringList{QStringLiteral("Speaker 1"), {}, QStringLiteral("Ada"), QStringLiteral("Speaker 1")}));

    // One voice throughout: no names at all.
    view.utterances = {spoken(0, 0), spoken(15, 0)};
    for (const TranscriptParagraph &p : transcriptParagraphs(view))
        EXPECT_TRUE(p.speakerLabel.isEmpty());
}

} // namespace
