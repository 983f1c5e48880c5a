// The printed summary: pagination as a table of piece heights, then real PDFs
// read back with poppler's pdfinfo and pdftotext.
#include "documents/SummaryPDF.h"
#include "base/Error.h"

#include <QDir>
#include <QFile>
#include <QLocale>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;
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
        {"a row taller than a page after a gap past the foot goes on where the gap ended",
         {{698, false, 22}, {800, false, 8}},
         {{0, 0, 42, 0, 698}, {1, 0, 762, 0, -12}, {1, 1, 42, -12, 708}, {1, 2, 42, 696, 104}},
         3}};
    for (const PaginationCase &c : cases) {
        SCOPED_TRACE(c.name);
        const SummaryPDF::Pagination pagination = SummaryPDF::paginate(c.pieces);
        EXPECT_EQ(pagination.slices, c.slices);
        EXPECT_EQ(pagination.pageCount, c.pages);
    }
}

// The output of a poppler tool, with ligatures ("ﬁ") read as their letters.
QString run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(30000) || process.exitCode() != 0)
        return QString();
    return QString::fromUtf8(process.readAllStandardOutput()).normalized(QString::NormalizationForm_KC);
}

const QString weeklySync =
    u"## Summary\n"
    "The team agreed to move the **launch** to April; see [the plan](https://example.org/plan).\n\n"
    "## Key Points\n"
    "- The design review needs another week.\n"
    "- Marketing keeps its budget of $40k.\n"
    "- Priya owns the landing page.\n\n"
    "## Action Items\n"
    "- **Owner**: Sam drafts the announcement.\n"
    "- Send the budget numbers to finance by Friday.\n\n"
    "## Risks\n"
    "- No risks were mentioned.\n"
    "- n/a\n"_s;

TEST(SummaryPDFTest, WritesALetterSizedDocumentThatReadsBackAsTheSummaryOrNothing)
{
    // The date line is written in the reader's language.
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    QTemporaryDir dir;
    const QString path = dir.filePath(u"summary.pdf"_s);
    SummaryPDF::write(u"Weekly Sync"_s, QDateTime(QDate(2026, 3, 2), QTime(9, 30)), weeklySync, path,
                      QColor(0x1e, 0x6f, 0xd9));

    const QString info = run(u"pdfinfo"_s, {path});
    ASSERT_FALSE(info.isEmpty()) << "pdfinfo could not read the file";
    EXPECT_TRUE(info.contains(QRegularExpression(u"Pages:\\s+1\\n"_s)));
    EXPECT_TRUE(info.contains(QRegularExpression(u"Page size:\\s+612 x 792 pts"_s)));
    EXPECT_TRUE(info.contains(QRegularExpression(u"Title:\\s+Weekly Sync\\n"_s)));
    EXPECT_TRUE(info.contains(QRegularExpression(u"Creator:\\s+Kestil\\n"_s)));

    const QString text = run(u"pdftotext"_s, {u"-layout"_s, path, u"-"_s});
    for (const char *expected :
         {"(?m)^\\s*Weekly Sync\\s*$", "Monday, March 2, 2026.{1,5}9:30\\sAM",
          "The team agreed to move the launch to April; see the plan\\.",
          // A plain section numbers its rows from 1, whatever the text said.
          "Key Points\\s+3\\s", "(?m)^\\s*1\\s+The design review needs another week\\.",
          "(?m)^\\s*3\\s+Priya owns the landing page\\.", "Action Items\\s+2\\s", "Owner\\s+Sam drafts",
          "Send the budget numbers to finance by Friday\\."}) {
        EXPECT_TRUE(text.contains(QRegularExpression(QString::fromUtf8(expected)))) << expected << "\n"
                                                                                    << text.toStdString();
    }
    // A section of nothing but filler is no section, and no Markdown shows.
    for (const char *absent : {"Risks", "No risks were mentioned", "n/a", "Summary", "##", "**", "- "})
        EXPECT_FALSE(text.contains(QString::fromUtf8(absent))) << absent;

    // A failed write leaves no file behind, not even a temporary one.
    try {
        SummaryPDF::write(u"Weekly Sync"_s, std::nullopt, weeklySync, dir.filePath(u"gone/summary.pdf"_s),
                          Qt::blue);
        ADD_FAILURE() << "no error";
    } catch (const LocalError &error) {
        EXPECT_EQ(error.message(), u"The PDF could not be created."_s);
    }
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList{u"summary.pdf"_s});
}

} // namespace
