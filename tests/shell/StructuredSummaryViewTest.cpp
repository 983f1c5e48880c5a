// The summary page as the window shows it: its blocks and items are found by
// their names, a half-written line is held back while streaming, and a click
// on a link opens it without changing the page.
#include "shell/StructuredSummaryView.h"

#include <QDesktopServices>
#include <QScrollBar>
#include <QTest>
#include <QUrl>

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

class UrlCatcher : public QObject {
    Q_OBJECT
public:
    QList<QUrl> opened;
public slots:
    void open(const QUrl &url) { opened.append(url); }
};

QStringList itemNames(const StructuredSummaryView &view)
{
    QStringList names;
    for (const QWidget *child : view.widget()->findChildren<QWidget *>())
        names.append(child->objectName());
    names.sort();
    return names;
}

TEST(StructuredSummaryViewTest, NamesItsBlocksHoldsBackAHalfLineAndOpensLinksOnlyOnClick)
{
    StructuredSummaryView view(u"noteDetailSummaryText"_s);
    view.resize(600, 500);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    const QString summary = u"Read [the plan](https://example.org/plan) first.\n\n## Decisions\n"
                            "- Launch in April\n- Owner: Sam\n"_s;
    view.setMarkdown(summary + u"## Ris"_s, true);
    EXPECT_EQ(itemNames(view), (QStringList{u"markdownListItem-3"_s, u"markdownListItem-4"_s,
                                            u"structuredSummaryOverview"_s}));
    view.setMarkdown(summary + u"## Risks\n- Budget\n"_s, false);
    EXPECT_TRUE(itemNames(view).contains(u"markdownListItem-6"_s));
    EXPECT_EQ(view.widget()->findChild<QWidget *>(u"markdownListItem-4"_s)->accessibleDescription(),
              u"• Owner: Sam"_s);

    UrlCatcher catcher;
    QDesktopServices::setUrlHandler(u"https"_s, &catcher, "open");
    QPoint link;
    for (int x = 0; x < 600 && link.isNull(); x += 2) {
        for (int y = 0; y < 80 && link.isNull(); y += 2) {
            if (!view.linkAt(QPoint(x, y)).isEmpty())
                link = QPoint(x, y);
        }
    }
    ASSERT_FALSE(link.isNull());
    QTest::mouseClick(view.widget(), Qt::LeftButton, {}, link);
    QDesktopServices::unsetUrlHandler(u"https"_s);
    EXPECT_EQ(catcher.opened, (QList<QUrl>{QUrl(u"https://example.org/plan"_s)}));
    EXPECT_EQ(view.markdown(), summary + u"## Risks\n- Budget\n"_s);
    EXPECT_TRUE(view.isVisible());
}

TEST(StructuredSummaryViewTest, AGrowingSummaryKeepsTheReadersPlaceAndAnotherTextStartsAtTheTop)
{
    StructuredSummaryView view(u"noteDetailSummaryStreamingText"_s);
    view.resize(400, 200);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    QString text = u"## Decisions\n"_s;
    for (int i = 1; i <= 30; ++i)
        text += u"- Decision %1 of the meeting\n"_s.arg(i);
    view.setMarkdown(text, true);
    QScrollBar *bar = view.verticalScrollBar();
    ASSERT_GT(bar->maximum(), 100);
    bar->setValue(bar->maximum());
    text += u"- One more decision\n"_s;
    view.setMarkdown(text, true);
    EXPECT_EQ(bar->value(), bar->maximum()) << "at the bottom, the view follows the text";
    bar->setValue(40);
    view.setMarkdown(text + u"- And another\n"_s, true);
    EXPECT_EQ(bar->value(), 40) << "scrolled up to read, the view stays";
    view.setMarkdown(u"## Another note\n"_s + text, false);
    EXPECT_EQ(bar->value(), 0);
}

} // namespace

#include "StructuredSummaryViewTest.moc"
