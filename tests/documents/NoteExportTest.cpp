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
using namespace Qt::StringLiterals;

namespace {

QString thrownText(const std::function<void()> &call)
{
    try {
        call();
    } catch (const Error &error) {
        return error.localizedDescription();
    }
    return u"(nothing thrown)"_s;
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
    const std::vector<std::pair<QString, bool>> rows = {{QString(), false},
                                                        {u" \n\t"_s, false},
                                                        {u"Transcription in progress..."_s, false},
                                                        {u"\n Generating summary... "_s, false},
                                                        {u"Generating summary"_s, true},
                                                        {u"## Overview\nShip in April."_s, true}};
    for (const auto &[summary, exportable] : rows)
        EXPECT_EQ(NoteExport::hasExportableSummary(summary), exportable) << summary.toStdString();
}

TEST(NoteDocuments, EachDocumentHoldsWhatTheNoteHasDatedInTheLocale)
{
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    const QString date = NoteExport::dateText(QDateTime(QDate(2024, 3, 5), QTime(15, 4, 30)));
    EXPECT_EQ(date, u"Tuesday, March 5, 2024, 3:04 PM"_s);
    NoteExportContent full;
    full.title = u"  Launch plan \n"_s;
    full.timestamp = QDateTime(QDate(2024, 3, 5), QTime(15, 4, 30));
    full.summary = u"\n## Overview\nShip in April.\n\n"_s;
    full.transcription = u" We ship in April. "_s;
    full.tags = {u"planning"_s, u"q2"_s};
    NoteExportContent blank;
    blank.title = u"  \n"_s;
    blank.summary = u"   "_s;
    NoteExportContent accented;
    // "Café" with a combining accent: four characters, five code units.
    accented.title = u"Cafe\u0301"_s;
    accented.transcription = u"Two coffees."_s;
    const std::tuple<const char *, NoteExportContent, QString, QString, QString> rows[] = {
        {"full", full,
         u"Launch plan\n===========\n\nCreated: "_s + date +
             u"\n\nTags: planning, q2\n\nSUMMARY\n-------\n## Overview\nShip in April.\n\n"
             "TRANSCRIPT\n----------\nWe ship in April.\n"_s,
         u"# Launch plan\n\n*Created: "_s + date +
             u"*\n\n**Tags:** #planning #q2\n\n## Summary\n\n## Overview\nShip in April.\n\n"
             "## Transcript\n\nWe ship in April.\n"_s,
         u"# Launch plan - Summary\n\n*Exported: "_s + date + u"*\n\n## Overview\nShip in April.\n"_s},
        {"no title",
         {},
         u"Untitled Note\n=============\n\n"_s,
         u"# Untitled Note\n\n"_s,
         u"# Untitled Note - Summary\n\n*No summary available*\n"_s},
        {"blank title", blank, u"\n\n\n"_s, u"# \n\n"_s, u"#  - Summary\n\n*No summary available*\n"_s},
        {"combining accent", accented, u"Cafe\u0301\n====\n\nTRANSCRIPT\n----------\nTwo coffees.\n"_s,
         u"# Cafe\u0301\n\n## Transcript\n\nTwo coffees.\n"_s,
         u"# Cafe\u0301 - Summary\n\n*No summary available*\n"_s}};
    for (const auto &[row, note, plain, formatted, summaryOnly] : rows) {
        SCOPED_TRACE(row);
        EXPECT_EQ(NoteExport::plainTextDocument(note), plain);
        EXPECT_EQ(NoteExport::formattedDocument(note), formatted);
        EXPECT_EQ(NoteExport::sectionDocument(note, u"Summary"_s, note.summary), summaryOnly);
    }
    EXPECT_EQ(NoteExport::sectionDocument({}, u"Transcript"_s, QString()),
              u"# Untitled Note - Transcript\n\n*No transcript available*\n"_s);
    QLocale::setDefault(QLocale::c());
}

TEST(AtomicWrite, ReplacesTheFileWithTheWholeTextOrNamesTheFileAndTheCauseAndLeavesNothingBehind)
{
    QTemporaryDir dir;
    const QString replaced = dir.filePath(u"Launch – plan.md"_s);
    ASSERT_TRUE(QFile(replaced).open(QIODevice::WriteOnly));
    NoteExport::writeTextAtomically(replaced, u"# Café \uFFFD\n"_s);
    NoteExport::writeTextAtomically(replaced, u"# Café 東京\n"_s);
    EXPECT_EQ(readAll(replaced), QByteArray("# Caf\xC3\xA9 \xE6\x9D\xB1\xE4\xBA\xAC\n"));
    EXPECT_EQ(entries(dir.path()), QStringList{u"Launch – plan.md"_s});

    const QString folder = dir.filePath(u"folder"_s);
    ASSERT_TRUE(QDir().mkpath(folder + u"/taken.md"_s));
    // Just short enough to be a name, too long to have a temporary beside it
    // under a prefix of its own.
    const QString longestName = QString(251, QLatin1Char('n')) + u".md"_s;
    const std::vector<std::tuple<const char *, QString, QString>> rows = {
        {"name too long", folder + QLatin1Char('/') + QString(10000, QLatin1Char('x')) + u".md"_s,
         u"Could not write “"_s + QString(56, QLatin1Char('x')) + u"…"_s + QString(17, QLatin1Char('x')) +
             u".md”: File name too long"_s},
        {"vanished folder", dir.filePath(u"gone/x.md"_s),
         u"Could not write “x.md”: No such file or directory"_s},
        {"a folder in the way", folder + u"/taken.md"_s, u"Could not replace “taken.md”: Is a directory"_s},
        {"longest name", folder + QLatin1Char('/') + longestName, u"(nothing thrown)"_s}};
    for (const auto &[row, path, expected] : rows)
        EXPECT_EQ(thrownText([&] { NoteExport::writeTextAtomically(path, u"text"_s); }), expected) << row;
    EXPECT_EQ(entries(folder), (QStringList{longestName, u"taken.md"_s}));
}

TEST(AtomicWrite, AFullDiskKeepsTheOldFileWhole)
{
    test::TmpfsMount disk(64 * 1024);
    if (!disk.mounted())
        GTEST_SKIP() << disk.error().toStdString();
    const QString path = disk.path() + u"/note.txt"_s;
    NoteExport::writeTextAtomically(path, u"before"_s);
    EXPECT_EQ(
        thrownText([&] { NoteExport::writeTextAtomically(path, QString(200 * 1024, QLatin1Char('a'))); }),
        u"Could not write “note.txt”: No space left on device"_s);
    EXPECT_EQ(readAll(path), QByteArray("before"));
    EXPECT_EQ(entries(disk.path()), QStringList{u"note.txt"_s});
}

} // namespace
