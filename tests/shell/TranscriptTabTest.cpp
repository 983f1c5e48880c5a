// The transcript tab shows what the content rules (tests/library) make of a
// note: paragraphs in place, the empty page, and a view that follows the
// live text only while the user leaves it at the bottom.
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
using namespace Qt::StringLiterals;

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

TranscriptTabContent content(const QList<TranscriptUtterance> &list, bool live, const QString &interim = {})
{
    TranscriptTabContent content;
    content.state = TranscriptTabContent::State::paragraphs;
    content.view.utterances = list;
    content.view.isRecordingActive = live;
    content.view.showEllipsis = live;
    content.view.interimText = interim;
    return content;
}

// A long paragraph that the live normalisation keeps as its own.
QString sentence(int i)
{
    return u"Paragraph %1 talks about the budget, the schedule and who owns each open item."_s.arg(i);
}

QList<TranscriptUtterance> longTranscript()
{
    QList<TranscriptUtterance> list;
    for (int i = 0; i < 30; ++i)
        list.append(utterance(1 + 15.0 * i, sentence(i)));
    return list;
}

struct TabFixture : ::testing::Test {
    TranscriptTab tab;
    QTextBrowser *text = nullptr;
    void SetUp() override
    {
        tab.resize(420, 260);
        tab.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&tab));
        text = tab.findChild<QTextBrowser *>(u"noteDetailTranscript"_s);
        ASSERT_TRUE(text);
    }
    QWidget *currentPage() const { return tab.findChild<QStackedWidget *>()->currentWidget(); }
    QScrollBar *bar() const { return text->verticalScrollBar(); }
    void show(const TranscriptTabContent &c)
    {
        tab.setContent(c);
        QCoreApplication::processEvents();
    }
};

TEST_F(TabFixture, SavedTranscriptShowsItsParagraphsAndNothingShowsTheEmptyPage)
{
    show(content({utterance(0.4, u"Welcome, everyone."_s), utterance(75.5, u"Next item."_s)}, false));
    EXPECT_EQ(currentPage(), text);
    EXPECT_EQ(tab.plainText(), u"0:00\nWelcome, everyone.\n1:16\nNext item."_s);
    EXPECT_EQ(text->document()->blockCount(), 2);

    show({});
    ASSERT_EQ(currentPage()->objectName(), u"noteDetailTranscriptEmpty"_s);
    QStringList texts;
    for (auto *label : currentPage()->findChildren<QLabel *>())
        texts << label->text();
    EXPECT_TRUE(texts.contains(u"No transcript available"_s));
}

TEST_F(TabFixture, LiveTextGrowsInPlaceWithItsTailAndMovingDots)
{
    // Two engine results make one live paragraph; a third starts the next.
    QList<TranscriptUtterance> list{utterance(2, sentence(1)), utterance(8, sentence(2))};
    show(content(list, true, u"and then"_s));
    ASSERT_EQ(tab.paragraphs().size(), 3);
    EXPECT_EQ(tab.paragraphs()[1].identity, u"interim"_s);
    EXPECT_EQ(tab.paragraphs()[2].identity, u"ellipsis"_s);
    const QString firstText = text->document()->firstBlock().text();
    EXPECT_TRUE(firstText.contains(sentence(1)) && firstText.contains(sentence(2)));

    list.append(utterance(30, sentence(3)));
    show(content(list, true));
    ASSERT_EQ(tab.paragraphs().size(), 3);
    EXPECT_EQ(tab.paragraphs()[1].text, sentence(3));
    EXPECT_EQ(text->document()->firstBlock().text(), firstText) << "the unchanged paragraph stays as it was";
    EXPECT_EQ(text->document()->blockCount(), 3);

    const QString dots = text->document()->lastBlock().text();
    QTest::qWait(1000);
    EXPECT_NE(text->document()->lastBlock().text(), dots) << "the dots move";
    EXPECT_EQ(text->document()->blockCount(), 3);
}

TEST_F(TabFixture, FollowsTheBottomUntilTheUserScrollsAwayAndAgainOnceBack)
{
    QList<TranscriptUtterance> list = longTranscript();
    show(content(list, true));
    ASSERT_GT(bar()->maximum(), 0) << "the text must overflow the view";
    EXPECT_EQ(bar()->value(), bar()->maximum());

    QSignalSpy following(&tab, &TranscriptTab::followingChanged);
    bar()->triggerAction(QAbstractSlider::SliderPageStepSub);
    QCoreApplication::processEvents();
    ASSERT_FALSE(following.isEmpty());
    EXPECT_FALSE(following.last().at(0).toBool());
    const int held = bar()->value();
    list.append(utterance(500, sentence(99)));
    show(content(list, true));
    EXPECT_EQ(bar()->value(), held) << "new text must not pull the view while the user reads above";

    // The jump back, or the user's own scroll to the bottom, resumes following.
    tab.resumeFollowing();
    list.append(utterance(520, sentence(100)));
    show(content(list, true));
    EXPECT_EQ(bar()->value(), bar()->maximum());
    bar()->triggerAction(QAbstractSlider::SliderToMinimum);
    bar()->triggerAction(QAbstractSlider::SliderToMaximum);
    QCoreApplication::processEvents();
    EXPECT_TRUE(tab.followState().shouldScrollToBottom());
    EXPECT_TRUE(following.last().at(0).toBool());
}

TEST_F(TabFixture, ASavedTranscriptOpensAtItsBeginning)
{
    tab.showFromTop();
    show(content(longTranscript(), false));
    EXPECT_EQ(bar()->value(), 0);
}

} // namespace
