// The single-file exports: the text of each document and the subtitles of
// its timed utterances (cut by lines, seven seconds and pauses), the
// suggested file names, and the atomic write with the sentences its failures
// give; and the Obsidian export's Markdown and the guard that keeps a note's
// audio path inside the store.
#include "DocumentsTestSupport.h"

#include "base/Error.h"
#include "documents/NoteExport.h"
#include "documents/ObsidianExport.h"
#include "documents/Subtitles.h"
#include "support/TmpfsMount.h"

#include <QDir>
#include <QFile>
#include <QLocale>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>

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
    EXPECT_EQ(test::fileBytes(replaced), QByteArray("# Caf\xC3\xA9 \xE6\x9D\xB1\xE4\xBA\xAC\n"));
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
    KESTIL_REQUIRE_MOUNT(disk);
    const QString path = disk.path() + u"/note.txt"_s;
    NoteExport::writeTextAtomically(path, u"before"_s);
    EXPECT_EQ(
        thrownText([&] { NoteExport::writeTextAtomically(path, QString(200 * 1024, QLatin1Char('a'))); }),
        u"Could not write “note.txt”: No space left on device"_s);
    EXPECT_EQ(test::fileBytes(path), QByteArray("before"));
    EXPECT_EQ(entries(disk.path()), QStringList{u"note.txt"_s});
}

TranscriptUtterance said(const QString &text, std::optional<double> start, std::optional<double> end,
                         bool interim = false)
{
    return TranscriptUtterance{newTranscriptUtteranceId(), text, start, end, {}, {}, interim};
}

// "wd00 wd01 …": words of four characters, so each takes five with its blank.
QString words(int from, int to)
{
    QStringList list;
    for (int i = from; i < to; ++i)
        list << u"wd%1"_s.arg(i, 2, 10, QLatin1Char('0'));
    return list.join(QLatin1Char(' '));
}

const QString longWord =
    u"Donaudampfschifffahrtselektrizitaetenhauptbetriebswerkbauunterbeamtengesellschaft"_s;

TEST(SubtitleCues, AreCutByLinesTimeAndPauses)
{
    const struct {
        const char *row;
        QList<TranscriptUtterance> utterances;
        QList<SubtitleCue> expected;
    } rows[] = {{"a pause ends a cue",
                 {said(u"We move the launch."_s, 0.5, 2.0), said(u"Sam writes."_s, 3.5, 4.5)},
                 {{0.5, 2.0, u"We move the launch."_s}, {3.5, 4.5, u"Sam writes."_s}}},
                {"a breath does not",
                 {said(u"Yes."_s, 1.0, 1.4), said(u"Of  course.\n"_s, 1.5, 2.3)},
                 {{1.0, 2.3, u"Yes. Of course."_s}}},
                {"interim and untimed are left out, the rest ordered",
                 {said(u"Second."_s, 5, 6), said(u"maybe"_s, 0, 1, true),
                  said(u"no times"_s, std::nullopt, std::nullopt), said(u"half"_s, 2.0, std::nullopt),
                  said(u"First."_s, 1, 2)},
                 {{1, 2, u"First."_s}, {5, 6, u"Second."_s}}},
                // 0.05 s a character: two lines of eight words fill the first cue.
                {"two lines of 42 at most",
                 {said(words(0, 20), 0, 4.95)},
                 {{0, 3.95, words(0, 8) + QLatin1Char('\n') + words(8, 16)}, {4.0, 4.95, words(16, 20)}}},
                // 0.1 s a character: the fifteenth word would end the cue after 7 s.
                {"seven seconds at most",
                 {said(words(0, 20), 0, 9.9)},
                 {{0, 6.9, words(0, 8) + QLatin1Char('\n') + words(8, 14)}, {7.0, 9.9, words(14, 20)}}},
                {"a word longer than a line stays whole",
                 // 91 characters, 0.05 s each.
                 {said(u"See "_s + longWord + u" today"_s, 0, 4.55)},
                 {{0, 4.25, u"See\n"_s + longWord}, {4.3, 4.55, u"today"_s}}},
                {"overlapping utterances never overlap as cues",
                 {said(u"Both"_s, 1.0, 2.0), said(u"talk"_s, 1.5, 1.5), said(u"Later."_s, 2.5, 2.5)},
                 {{1.0, 2.0, u"Both talk"_s}, {2.5, 2.501, u"Later."_s}}}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.row);
        const QList<SubtitleCue> cues = Subtitles::cues(row.utterances);
        ASSERT_EQ(cues.size(), row.expected.size());
        for (qsizetype i = 0; i < cues.size(); ++i) {
            EXPECT_NEAR(cues[i].start, row.expected[i].start, 0.0005) << i;
            EXPECT_NEAR(cues[i].end, row.expected[i].end, 0.0005) << i;
            EXPECT_EQ(cues[i].text, row.expected[i].text) << i;
        }
    }
}

TEST(SubtitleFormats, SrtAndWebVttWriteTheSameCues)
{
    const QList<SubtitleCue> cues = {{0.5, 2, u"We move\nthe launch."_s},
                                     {3723.004, 3725.5, u"Fish & <chips> --> now"_s}};
    EXPECT_EQ(Subtitles::srt(cues), u"1\n00:00:00,500 --> 00:00:02,000\nWe move\nthe launch.\n\n"
                                    "2\n01:02:03,004 --> 01:02:05,500\nFish & <chips> --> now\n\n"_s);
    EXPECT_EQ(Subtitles::webVtt(cues),
              u"WEBVTT\n\n00:00:00.500 --> 00:00:02.000\nWe move\nthe launch.\n\n"
              "01:02:03.004 --> 01:02:05.500\nFish &amp; &lt;chips&gt; --&gt; now\n"_s);
    // Only timed final words make subtitles.
    EXPECT_FALSE(Subtitles::hasTimedUtterances({}));
    EXPECT_FALSE(Subtitles::hasTimedUtterances({said(u"maybe"_s, 0, 1, true),
                                                said(u"no times"_s, std::nullopt, std::nullopt),
                                                said(u" "_s, 0, 1), said(u"broken"_s, 0, std::nan(""))}));
    EXPECT_TRUE(Subtitles::hasTimedUtterances({said(u"Yes."_s, 0, 1)}));
}

TEST(ObsidianMarkdown, EveryHeadingStandsAndNothingIsTrimmed)
{
    NoteExportContent note;
    note.summary = u" Ship. "_s;
    note.notes = u"bring cake\n"_s;
    EXPECT_EQ(ObsidianExport::markdown(note),
              u"# \n\n Ship. \n\n## Transcript\n\n\n\n## Notes\n\nbring cake\n\n"_s);
}

TEST(ObsidianAudioFolder, OnlyARelativePathInsideTheStoreIsFollowed)
{
    const std::optional<QString> root = u"/data/Kestil/"_s;
    const std::vector<std::pair<const char *, const char *>> rows = {
        {"", "This note has no local audio."},
        {"/etc", "This note has no local audio."},
        {"file:Recordings/A", "This note has no local audio."},
        {"a:b", "This note has no local audio."},
        {"../x", "Audio path is outside the local store."},
        {"Recordings/../../Kestil2/A", "Audio path is outside the local store."},
        {".", "Audio path is outside the local store."},
        {"Recordings/../Recordings/A/", "/data/Kestil/Recordings/A"},
        {"Recordings/A", "/data/Kestil/Recordings/A"}};
    const auto answer = [](const std::optional<QString> &storeRoot, const QString &sourceURL) {
        try {
            return ObsidianExport::noteAudioFolder(storeRoot, sourceURL);
        } catch (const LocalError &error) {
            return error.message();
        }
    };
    for (const auto &[sourceURL, expected] : rows)
        EXPECT_EQ(answer(root, QString::fromUtf8(sourceURL)), QString::fromUtf8(expected)) << sourceURL;
    EXPECT_EQ(answer(std::nullopt, u"Recordings/A"_s), u"Local storage is unavailable."_s);
}

} // namespace
