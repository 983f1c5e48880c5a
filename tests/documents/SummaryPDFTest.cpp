// The printed summary: pagination as a table of piece heights, then real PDFs
// read back with poppler's pdfinfo and pdftotext.
#include "documents/SummaryPDF.h"
#include "base/Error.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;
using SummaryPDF::PieceMetrics;
using SummaryPDF::Slice;

namespace {

struct PaginationCase {
    const char *name;
    QList<PieceMetrics> pieces;
    QList<Slice> slices;
    int pages;
};

TEST(SummaryPDFTest, PaginatesByPieceKeepingHeadsWithTheirRowsAndSlicingOnlyWhatCannotFit)
{
    const PaginationCase cases[] = {
        {"a title alone is one page", {{40, false, 18}}, {{0, 0, 42, 0, 40}}, 1},
        {"a head that would leave its row behind moves with it",
         {{600, false, 22}, {34, true, 12}, {60, false, 8}},
         {{0, 0, 42, 0, 600}, {1, 1, 42, 0, 34}, {2, 1, 88, 0, 60}},
         2},
        {"a head before a row taller than a page stays, and the row is sliced",
         {{600, false, 22}, {34, true, 12}, {900, false, 8}},
         {{0, 0, 42, 0, 600},
          {1, 0, 664, 0, 34},
          {2, 0, 710, 0, 40},
          {2, 1, 42, 40, 708},
          {2, 2, 42, 748, 152}},
         3},
        {"a row taller than two pages at the top of a page is sliced over three",
         {{1500, false, 22}},
         {{0, 0, 42, 0, 708}, {0, 1, 42, 708, 708}, {0, 2, 42, 1416, 84}},
         3},
        {"the last gap makes no page", {{700, false, 22}}, {{0, 0, 42, 0, 700}}, 1},
    };
    for (const PaginationCase &c : cases) {
        SCOPED_TRACE(c.name);
        const SummaryPDF::Pagination pagination = SummaryPDF::paginate(c.pieces);
        EXPECT_EQ(pagination.slices, c.slices);
        EXPECT_EQ(pagination.pageCount, c.pages);
    }
}

QString run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(30000) || process.exitCode() != 0)
        return QString();
    return QString::fromUtf8(process.readAllStandardOutput());
}

QString meetingSummary(int sections)
{
    QString text = QStringLiteral("## Summary\nThe team agreed to move the **launch** to April, see "
                                  "[the plan](https://example.org/plan).\n\n");
    for (int s = 1; s <= sections; ++s) {
        text += QStringLiteral("## Decisions %1\n").arg(s);
        for (int i = 1; i <= 6; ++i)
            text += QStringLiteral("- Owner: Sam will draft item %1.%2 of the announcement and send it to "
                                   "finance before Friday.\n")
                        .arg(s)
                        .arg(i);
        text += QStringLiteral("\n");
    }
    return text + QStringLiteral("## Risks\n- None\n- n/a\n");
}

TEST(SummaryPDFTest, WritesALetterSizedDocumentThatReadsBackAsTheSummary)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("summary.pdf"));
    SummaryPDF::write(QStringLiteral("Weekly Sync"), QDateTime(QDate(2026, 3, 2), QTime(9, 30)),
                      meetingSummary(2), path, QColor(0x1e, 0x6f, 0xd9));

    const QString info = run(QStringLiteral("pdfinfo"), {path});
    ASSERT_FALSE(info.isEmpty()) << "pdfinfo could not read the file";
    EXPECT_TRUE(info.contains(QRegularExpression(QStringLiteral("Page size:\\s+612 x 792 pts"))));
    EXPECT_TRUE(info.contains(QRegularExpression(QStringLiteral("Title:\\s+Weekly Sync"))));
    EXPECT_TRUE(info.contains(QRegularExpression(QStringLiteral("Creator:\\s+Kestil"))));

    const QString text =
        run(QStringLiteral("pdftotext"), {QStringLiteral("-layout"), path, QStringLiteral("-")});
    for (const char *expected : {"Weekly Sync", "2026", "The team agreed to move the launch to April",
                                 "Decisions 1", "Decisions 2", "Owner", "item 2.6", "6"})
        EXPECT_TRUE(text.contains(QString::fromUtf8(expected))) << expected << "\n" << text.toStdString();
    // A section of nothing but filler is no section.
    EXPECT_FALSE(text.contains(QStringLiteral("Risks")));
    EXPECT_FALSE(text.contains(QStringLiteral("## ")));
    EXPECT_FALSE(text.contains(QStringLiteral("**")));
    EXPECT_TRUE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size() == 1);
}

TEST(SummaryPDFTest, ALongSummaryRunsOverPagesWithEveryItemAndAFailureLeavesNoFile)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("long.pdf"));
    SummaryPDF::write(QStringLiteral("Quarterly Planning"), std::nullopt, meetingSummary(14), path, Qt::blue);
    const QString info = run(QStringLiteral("pdfinfo"), {path});
    const QRegularExpressionMatch pages = QRegularExpression(QStringLiteral("Pages:\\s+(\\d+)")).match(info);
    ASSERT_TRUE(pages.hasMatch()) << info.toStdString();
    EXPECT_GE(pages.captured(1).toInt(), 3);
    const QString text = run(QStringLiteral("pdftotext"), {path, QStringLiteral("-")});
    for (int s = 1; s <= 14; ++s)
        EXPECT_TRUE(text.contains(QStringLiteral("item %1.6").arg(s))) << s;

    const QString missing = dir.filePath(QStringLiteral("gone/summary.pdf"));
    EXPECT_THROW(
        SummaryPDF::write(QStringLiteral("x"), std::nullopt, QStringLiteral("- a"), missing, Qt::blue),
        LocalError);
    EXPECT_FALSE(QFile::exists(missing));
}

} // namespace
