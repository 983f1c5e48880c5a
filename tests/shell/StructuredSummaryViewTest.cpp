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
    StructuredSummaryView view(QStringLiteral("noteDetailSummaryText"));
    view.resize(600, 500);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    const QString summary =
        QStringLiteral("Read [the plan](https://example.org/plan) first.\n\n## Decisions\n"
                       "- Launch in April\n- Owner: Sam\n");
    view.setMarkdown(summary + QStringLiteral("## Ris"), true);
    EXPECT_EQ(itemNames(view),
              (QStringList{QStringLiteral("markdownListItem-3"), QStringLiteral("markdownListItem-4"),
                           QStringLiteral("structuredSummaryOverview")}));
    view.setMarkdown(summary + QStringLiteral("## Risks\n- Budget\n"), false);
    EXPECT_TRUE(itemNames(view).contains(QStringLiteral("markdownListItem-6")));
    EXPECT_EQ(
        view.widget()->findChild<QWidget *>(QStringLiteral("markdownListItem-4"))->accessibleDescription(),
        QStringLiteral("• Owner: Sam"));

    UrlCatcher catcher;
    QDesktopServices::setUrlHandler(QStringLiteral("https"), &catcher, "open");
    QPoint link;
    for (int x = 0; x < 600 && link.isNull(); x += 2) {
        for (int y = 0; y < 80 && link.isNull(); y += 2) {
            if (!view.linkAt(QPoint(x, y)).isEmpty())
                link = QPoint(x, y);
        }
    }
    ASSERT_FALSE(link.isNull());
    QTest::mouseClick(view.widget(), Qt::LeftButton, {}, link);
    QDesktopServices::unsetUrlHandler(QStringLiteral("https"));
    EXPECT_EQ(catcher.opened, (QList<QUrl>{QUrl(QStringLiteral("https://example.org/plan"))}));
    EXPECT_EQ(view.markdown(), summary + QStringLiteral("## Risks\n- Budget\n"));
    EXPECT_TRUE(view.isVisible());
}

TEST(StructuredSummaryViewTest, AGrowingSummaryKeepsTheReadersPlaceAndAnotherTextStartsAtTheTop)
{
    StructuredSummaryView view(QStringLiteral("noteDetailSummaryStreamingText"));
    view.resize(400, 200);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    QString text = QStringLiteral("## Decisions\n");
    for (int i = 1; i <= 30; ++i)
        text += QStringLiteral("- Decision %1 of the meeting\n").arg(i);
    view.setMarkdown(text, true);
    QScrollBar *bar = view.verticalScrollBar();
    ASSERT_GT(bar->maximum(), 100);
    bar->setValue(bar->maximum());
    text += QStringLiteral("- One more decision\n");
    view.setMarkdown(text, true);
    EXPECT_EQ(bar->value(), bar->maximum()) << "at the bottom, the view follows the text";
    bar->setValue(40);
    view.setMarkdown(text + QStringLiteral("- And another\n"), true);
    EXPECT_EQ(bar->value(), 40) << "scrolled up to read, the view stays";
    view.setMarkdown(QStringLiteral("## Another note\n") + text, false);
    EXPECT_EQ(bar->value(), 0);
}

} // namespace

#include "StructuredSummaryViewTest.moc"
