// The single-file exports: the text of each document, the suggested file
// names, and the atomic write with the sentences its failures give.
#include "DocumentsTestSupport.h"

#include "base/Error.h"
#include "documents/NoteExport.h"
#include "support/TmpfsMount.h"

#include <QDir>
#include <QFile>
#include <QLocale>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;

namespace {

QString thrownText(const std::function<void()> &call)
{
    try {
        call();
    } catch (const Error &error) {
        return error.localizedDescription();
    }
    return QStringLiteral("(nothing thrown)");
}

TEST(NoteExportFileName, ReplacesSeparatorsAndNamesTheUntitled)
{
    const struct {
        const char *row;
        std::optional<const char *> title;
        const char *suffix, *extension, *expected;
    } rows[] = {{"separators", "a/b:c", " - Summary", "pdf", "a-b-c - Summary.pdf"},
                {"all ten", "x/\\?%*|\"<>:y", "", "md", "x----------y.md"},
                {"no title", std::nullopt, "", "txt", "Untitled.txt"},
                {"blank title", " \n ", " - Summary", "md", " - Summary.md"},
                {"trimmed", "\t Q3 plan \n", " - Transcript", "md", "Q3 plan - Transcript.md"},
                {"unicode kept", "Café — 東京", "", "srt", "Café — 東京.srt"}};
    for (const auto &row : rows) {
        const std::optional<QString> title = row.title ? std::optional(q(*row.title)) : std::nullopt;
        EXPECT_EQ(NoteExport::suggestedFileName(title, q(row.suffix), q(row.extension)), q(row.expected))
            << row.row;
    }
}

TEST(NoteExportSummary, OnlyARealSummaryIsExportable)
{
    const std::vector<std::pair<QString, bool>> rows = {
        {QString(), false},
        {QStringLiteral(" \n\t"), false},
        {QStringLiteral("Transcription in progress..."), false},
        {QStringLiteral("\n Generating summary... "), false},
        {QStringLiteral("Generating summary"), true},
        {QStringLiteral("## Overview\nShip in April."), true},
    };
    for (const auto &[summary, exportable] : rows)
        EXPECT_EQ(NoteExport::hasExportableSummary(summary), exportable) << summary.toStdString();
}

class NoteDocuments : public ::testing::Test {
protected:
    void SetUp() override
    {
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        full.title = QStringLiteral("  Launch plan \n");
        full.timestamp = QDateTime(QDate(2024, 3, 5), QTime(15, 4, 30));
        full.summary = QStringLiteral("\n## Overview\nShip in April.\n\n");
        full.transcription = QStringLiteral(" We ship in April. ");
        full.tags = {QStringLiteral("planning"), QStringLiteral("q2")};
    }
    void TearDown() override { QLocale::setDefault(QLocale::c()); }

    NoteExportContent full;
};

TEST_F(NoteDocuments, AFullNoteInEachDocumentDatedInTheLocale)
{
    const QString date = NoteExport::dateText(*full.timestamp);
    EXPECT_EQ(date, QStringLiteral("Tuesday, March 5, 2024, 3:04 PM"));
    EXPECT_EQ(NoteExport::plainTextDocument(full),
              QStringLiteral("Launch plan\n===========\n\nCreated: ") + date +
                  QStringLiteral("\n\nTags: planning, q2\n\nSUMMARY\n-------\n## Overview\nShip in April.\n\n"
                                 "TRANSCRIPT\n----------\nWe ship in April.\n"));
    EXPECT_EQ(
        NoteExport::formattedDocument(full),
        QStringLiteral("# Launch plan\n\n*Created: ") + date +
            QStringLiteral("*\n\n**Tags:** #planning #q2\n\n## Summary\n\n## Overview\nShip in April.\n\n"
                           "## Transcript\n\nWe ship in April.\n"));
    EXPECT_EQ(NoteExport::sectionDocument(full, QStringLiteral("Summary"), full.summary),
              QStringLiteral("# Launch plan - Summary\n\n*Exported: ") + date +
                  QStringLiteral("*\n\n## Overview\nShip in April.\n"));
}

TEST_F(NoteDocuments, MissingPartsAreLeftOutAndNamesFollowTheTitle)
{
    struct Row {
        const char *row;
        NoteExportContent note;
        QString plain;
        QString formatted;
        QString summaryOnly;
    };
    NoteExportContent untitled;
    NoteExportContent blank;
    blank.title = QStringLiteral("  \n");
    blank.summary = QStringLiteral("   ");
    NoteExportContent accented;
    // "Café" with a combining accent: four characters, five code units.
    accented.title = QStringLiteral("Cafe\u0301");
    accented.transcription = QStringLiteral("Two coffees.");
    const std::vector<Row> rows = {
        {"no title", untitled, QStringLiteral("Untitled Note\n=============\n\n"),
         QStringLiteral("# Untitled Note\n\n"),
         QStringLiteral("# Untitled Note - Summary\n\n*No summary available*\n")},
        {"blank title", blank, QStringLiteral("\n\n\n"), QStringLiteral("# \n\n"),
         QStringLiteral("#  - Summary\n\n*No summary available*\n")},
        {"combining accent", accented,
         QStringLiteral("Cafe\u0301\n====\n\nTRANSCRIPT\n----------\nTwo coffees.\n"),
         QStringLiteral("# Cafe\u0301\n\n## Transcript\n\nTwo coffees.\n"),
         QStringLiteral("# Cafe\u0301 - Summary\n\n*No summary available*\n")},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.row);
        EXPECT_EQ(NoteExport::plainTextDocument(row.note), row.plain);
        EXPECT_EQ(NoteExport::formattedDocument(row.note), row.formatted);
        EXPECT_EQ(NoteExport::sectionDocument(row.note, QStringLiteral("Summary"), row.note.summary),
                  row.summaryOnly);
    }
    EXPECT_EQ(NoteExport::sectionDocument(untitled, QStringLiteral("Transcript"), QString()),
              QStringLiteral("# Untitled Note - Transcript\n\n*No transcript available*\n"));
}

class AtomicWrite : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dir.isValid()); }
    QTemporaryDir dir;
};

TEST_F(AtomicWrite, ReplacesTheFileWithTheWholeTextInUtf8)
{
    const QString path = dir.filePath(QStringLiteral("Launch – plan.md"));
    ASSERT_TRUE(QFile(path).open(QIODevice::WriteOnly));
    NoteExport::writeTextAtomically(path, QStringLiteral("# Café \uFFFD\n"));
    NoteExport::writeTextAtomically(path, QStringLiteral("# Café 東京\n"));
    EXPECT_EQ(readAll(path), QByteArray("# Caf\xC3\xA9 \xE6\x9D\xB1\xE4\xBA\xAC\n"));
    EXPECT_EQ(entries(dir.path()), QStringList{QStringLiteral("Launch – plan.md")});
}

TEST_F(AtomicWrite, AFailureNamesTheFileAndTheCauseAndLeavesNothingBehind)
{
    const QString folder = dir.filePath(QStringLiteral("folder"));
    ASSERT_TRUE(QDir().mkpath(folder + QStringLiteral("/taken.md")));
    // Just short enough to be a name, too long to have a temporary beside it
    // under a prefix of its own.
    const QString longestName = QString(251, QLatin1Char('n')) + QStringLiteral(".md");
    const std::vector<std::tuple<const char *, QString, QString>> rows = {
        {"name too long",
         folder + QLatin1Char('/') + QString(10000, QLatin1Char('x')) + QStringLiteral(".md"),
         QStringLiteral("Could not write “") + QString(56, QLatin1Char('x')) + QStringLiteral("…") +
             QString(17, QLatin1Char('x')) + QStringLiteral(".md”: File name too long")},
        {"vanished folder", dir.filePath(QStringLiteral("gone/x.md")),
         QStringLiteral("Could not write “x.md”: No such file or directory")},
        {"a folder in the way", folder + QStringLiteral("/taken.md"),
         QStringLiteral("Could not replace “taken.md”: Is a directory")},
        {"longest name", folder + QLatin1Char('/') + longestName, QStringLiteral("(nothing thrown)")},
    };
    for (const auto &[row, path, expected] : rows)
        EXPECT_EQ(thrownText([&] { NoteExport::writeTextAtomically(path, QStringLiteral("text")); }),
                  expected)
            << row;
    EXPECT_EQ(entries(folder), (QStringList{longestName, QStringLiteral("taken.md")}));
}

TEST_F(AtomicWrite, AFullDiskKeepsTheOldFileWhole)
{
    test::TmpfsMount disk(64 * 1024);
    if (!disk.mounted())
        GTEST_SKIP() << disk.error().toStdString();
    const QString path = disk.path() + QStringLiteral("/note.txt");
    NoteExport::writeTextAtomically(path, QStringLiteral("before"));
    EXPECT_EQ(
        thrownText([&] { NoteExport::writeTextAtomically(path, QString(200 * 1024, QLatin1Char('a'))); }),
        QStringLiteral("Could not write “note.txt”: No space left on device"));
    EXPECT_EQ(readAll(path), QByteArray("before"));
    EXPECT_EQ(entries(disk.path()), QStringList{QStringLiteral("note.txt")});
}

} // namespace
