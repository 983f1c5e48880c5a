// The transcript tab draws what the content rules (tests/library) make of a
// note: paragraphs under their times, the empty page, live text updated in
// place, and a view that follows the live text only while the user leaves it
// at the bottom.
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

// A long paragraph that the live normalisation keeps as its own.
TranscriptUtterance sentence(int i)
{
    return utterance(1 + 15.0 * i,
                     u"Paragraph %1 talks about the budget, the schedule and who owns each item."_s.arg(i));
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
    QScrollBar *bar() const { return text->verticalScrollBar(); }
    void show(const QList<TranscriptUtterance> &list, bool live, const QString &interim = {})
    {
        TranscriptTabContent content;
        content.state = TranscriptTabContent::State::paragraphs;
        content.view.utterances = list;
        content.view.isRecordingActive = content.view.showEllipsis = live;
        content.view.interimText = interim;
        tab.setContent(content);
        QCoreApplication::processEvents();
    }
};

TEST_F(TabFixture, ParagraphsShowUnderTheirTimesAndNothingShowsTheEmptyPage)
{
    show({utterance(0.4, u"Welcome, everyone."_s), utterance(75.5, u"Next item."_s)}, false);
    EXPECT_EQ(tab.findChild<QStackedWidget *>()->currentWidget(), text);
    EXPECT_EQ(tab.plainText(), u"0:00\nWelcome, everyone.\n1:16\nNext item."_s);
    EXPECT_EQ(text->document()->blockCount(), 2);

    tab.setContent({});
    QCoreApplication::processEvents();
    QWidget *page = tab.findChild<QStackedWidget *>()->currentWidget();
    ASSERT_EQ(page->objectName(), u"noteDetailTranscriptEmpty"_s);
    QStringList texts;
    for (auto *label : page->findChildren<QLabel *>())
        texts << label->text();
    EXPECT_TRUE(texts.contains(u"No transcript available"_s));
}

TEST_F(TabFixture, LiveTextGrowsInPlaceWithItsTailAndMovingDots)
{
    // Two engine results make one live paragraph; a third starts the next.
    QList<TranscriptUtterance> list{sentence(0), sentence(1)};
    show(list, true, u"and then"_s);
    ASSERT_EQ(tab.paragraphs().size(), 3);
    EXPECT_EQ(tab.paragraphs()[1].identity, u"interim"_s);
    EXPECT_EQ(tab.paragraphs()[2].identity, u"ellipsis"_s);
    const QString firstText = text->document()->firstBlock().text();

    list.append(sentence(2));
    show(list, true);
    ASSERT_EQ(tab.paragraphs().size(), 3);
    EXPECT_EQ(tab.paragraphs()[1].text, sentence(2).text);
    EXPECT_EQ(text->document()->firstBlock().text(), firstText) << "the unchanged paragraph stays as it was";
    EXPECT_EQ(text->document()->blockCount(), 3);
    const QString dots = text->document()->lastBlock().text();
    EXPECT_TRUE(QTest::qWaitFor([&] { return text->document()->lastBlock().text() != dots; }, 2000))
        << "the dots move";
}

TEST_F(TabFixture, FollowsTheBottomUntilTheUserScrollsAwayAndASavedTranscriptOpensAtItsTop)
{
    QList<TranscriptUtterance> list;
    for (int i = 0; i < 30; ++i)
        list.append(sentence(i));
    show(list, true);
    ASSERT_GT(bar()->maximum(), 0) << "the text must overflow the view";
    EXPECT_EQ(bar()->value(), bar()->maximum());

    QSignalSpy following(&tab, &TranscriptTab::followingChanged);
    bar()->triggerAction(QAbstractSlider::SliderPageStepSub);
    QCoreApplication::processEvents();
    ASSERT_FALSE(following.isEmpty());
    EXPECT_FALSE(following.last().at(0).toBool());
    const int held = bar()->value();
    list.append(sentence(40));
    show(list, true);
    EXPECT_EQ(bar()->value(), held) << "new text must not pull the view while the user reads above";

    // The user's own scroll to the bottom resumes following.
    bar()->triggerAction(QAbstractSlider::SliderToMaximum);
    QCoreApplication::processEvents();
    EXPECT_TRUE(following.last().at(0).toBool());
    list.append(sentence(41));
    show(list, true);
    EXPECT_EQ(bar()->value(), bar()->maximum());

    tab.showFromTop();
    show(list, false);
    EXPECT_EQ(bar()->value(), 0);
}

} // namespace
