#include "shell/TranscriptTab.h"

#include <QLabel>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTest>
#include <QTextBlock>
#include <QTextBrowser>

#include <gtest/gtest.h>

using namespace kestil;

namespace {

TranscriptUtterance utterance(double start, const QString &text)
{
    TranscriptUtterance u;
    u.id = newTranscriptUtteranceId();
    u.text = text;
    u.start = start;
    u.end = start + 2;
    return u;
}

TranscriptTabContent saved(const QList<TranscriptUtterance> &list)
{
    TranscriptTabContent content;
    content.state = TranscriptTabContent::State::paragraphs;
    content.view.utterances = list;
    return content;
}

TranscriptTabContent live(const QList<TranscriptUtterance> &list, const QString &interim = {})
{
    TranscriptTabContent content = saved(list);
    content.view.isRecordingActive = true;
    content.view.showEllipsis = true;
    content.view.interimText = interim;
    return content;
}

// A long paragraph that the live normalisation keeps as its own.
QString sentence(int i)
{
    return QStringLiteral("Paragraph %1 talks about the budget, the schedule and who owns each open item.")
        .arg(i);
}

struct TabFixture : ::testing::Test {
    TranscriptTab tab;
    QTextBrowser *text = nullptr;
    void SetUp() override
    {
        tab.resize(420, 260);
        tab.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&tab));
        text = tab.findChild<QTextBrowser *>(QStringLiteral("noteDetailTranscript"));
        ASSERT_TRUE(text);
    }
    QWidget *currentPage() const { return tab.findChild<QStackedWidget *>()->currentWidget(); }
};

TEST_F(TabFixture, SavedTranscriptShowsEveryTimedParagraphWithItsLabel)
{
    tab.setContent(saved({utterance(0.4, QStringLiteral("Welcome, everyone.")),
                          utterance(75.5, QStringLiteral("Next item."))}));
    EXPECT_EQ(currentPage(), text);
    EXPECT_EQ(tab.plainText(), QStringLiteral("0:00\nWelcome, everyone.\n1:16\nNext item."));
    EXPECT_EQ(text->document()->blockCount(), 2);
    EXPECT_TRUE(text->toPlainText().contains(QStringLiteral("Welcome, everyone.")));
}

TEST_F(TabFixture, EmptyStateHasItsWords)
{
    tab.setContent({});
    auto *page = currentPage();
    ASSERT_EQ(page->objectName(), QStringLiteral("noteDetailTranscriptEmpty"));
    QStringList texts;
    for (auto *label : page->findChildren<QLabel *>())
        texts << label->text();
    EXPECT_TRUE(texts.contains(QStringLiteral("No transcript available")));
    EXPECT_TRUE(texts.contains(
        QStringLiteral("Your transcript appears here as you speak. Use + to start a new transcription.")));
}

TEST_F(TabFixture, LiveTextGrowsInPlaceWithItsTailAndDots)
{
    // Two engine results make one live paragraph; a third starts the next.
    QList<TranscriptUtterance> list{utterance(2, sentence(1)), utterance(8, sentence(2))};
    tab.setContent(live(list, QStringLiteral("and then")));
    ASSERT_EQ(tab.paragraphs().size(), 3);
    EXPECT_EQ(tab.paragraphs()[0].timestampLabel, QStringLiteral("0:02"));
    EXPECT_EQ(tab.paragraphs()[1].identity, QStringLiteral("interim"));
    EXPECT_EQ(tab.paragraphs()[2].identity, QStringLiteral("ellipsis"));
    const QString firstText = text->document()->firstBlock().text();
    EXPECT_TRUE(firstText.contains(sentence(1)) && firstText.contains(sentence(2)));

    list.append(utterance(30, sentence(3)));
    tab.setContent(live(list));
    ASSERT_EQ(tab.paragraphs().size(), 3);
    EXPECT_EQ(tab.paragraphs()[1].text, sentence(3));
    EXPECT_EQ(tab.paragraphs()[1].timestampLabel, QStringLiteral("0:30"));
    EXPECT_EQ(text->document()->firstBlock().text(), firstText) << "the unchanged paragraph stays as it was";
    EXPECT_EQ(text->document()->blockCount(), 3);

    const QString dots = text->document()->lastBlock().text();
    QTest::qWait(1000);
    EXPECT_NE(text->document()->lastBlock().text(), dots) << "the dots move";
    EXPECT_EQ(text->document()->blockCount(), 3);
}

TEST_F(TabFixture, AFinishedRecordingDropsTheDotsAndShowsEveryLabel)
{
    QList<TranscriptUtterance> list{utterance(2, sentence(1)), utterance(5, sentence(2)),
                                    utterance(9, sentence(3)), utterance(11, sentence(4))};
    tab.setContent(live(list));
    EXPECT_EQ(tab.paragraphs().last().kind, TranscriptParagraph::Kind::ellipsis);
    tab.setContent(saved(list));
    EXPECT_EQ(tab.paragraphs().size(), 4) << "a saved list is shown as stored";
    EXPECT_TRUE(tab.plainText().contains(QStringLiteral("0:09")));
    EXPECT_NE(tab.paragraphs().last().kind, TranscriptParagraph::Kind::ellipsis);
}

TEST_F(TabFixture, FollowsTheBottomUntilTheUserScrollsAway)
{
    QList<TranscriptUtterance> list;
    for (int i = 0; i < 30; ++i)
        list.append(utterance(1 + 15.0 * i, sentence(i)));
    tab.setContent(live(list));
    QScrollBar *bar = text->verticalScrollBar();
    QCoreApplication::processEvents();
    ASSERT_GT(bar->maximum(), 0) << "the text must overflow the view";
    EXPECT_EQ(bar->value(), bar->maximum());

    QSignalSpy following(&tab, &TranscriptTab::followingChanged);
    bar->triggerAction(QAbstractSlider::SliderPageStepSub);
    QCoreApplication::processEvents();
    ASSERT_FALSE(following.isEmpty());
    EXPECT_FALSE(following.last().at(0).toBool());
    const int held = bar->value();
    EXPECT_LT(held, bar->maximum());

    list.append(utterance(500, sentence(99)));
    tab.setContent(live(list));
    QCoreApplication::processEvents();
    EXPECT_EQ(bar->value(), held) << "new text must not pull the view while the user reads above";

    tab.resumeFollowing();
    QCoreApplication::processEvents();
    EXPECT_EQ(bar->value(), bar->maximum());
    list.append(utterance(520, sentence(100)));
    tab.setContent(live(list));
    QCoreApplication::processEvents();
    EXPECT_EQ(bar->value(), bar->maximum());
}

TEST_F(TabFixture, ScrollingBackToTheBottomResumesFollowing)
{
    QList<TranscriptUtterance> list;
    for (int i = 0; i < 30; ++i)
        list.append(utterance(1 + 15.0 * i, sentence(i)));
    tab.setContent(live(list));
    QCoreApplication::processEvents();
    QScrollBar *bar = text->verticalScrollBar();
    bar->triggerAction(QAbstractSlider::SliderToMinimum);
    QCoreApplication::processEvents();
    EXPECT_FALSE(tab.followState().shouldScrollToBottom());
    bar->triggerAction(QAbstractSlider::SliderToMaximum);
    QCoreApplication::processEvents();
    EXPECT_TRUE(tab.followState().shouldScrollToBottom());
}

TEST_F(TabFixture, ASavedTranscriptOpensAtItsBeginning)
{
    QList<TranscriptUtterance> list;
    for (int i = 0; i < 30; ++i)
        list.append(utterance(1 + 15.0 * i, sentence(i)));
    tab.showFromTop();
    tab.setContent(saved(list));
    QCoreApplication::processEvents();
    EXPECT_EQ(text->verticalScrollBar()->value(), 0);
}

} // namespace
