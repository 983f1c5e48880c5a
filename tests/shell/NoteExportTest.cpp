// The note's menu and the Obsidian export, driven by object names on the
// program's own window over a real store: each entry proposes its file name,
// writes its document where the dialog points, and a failed write says what
// was kept. The files written are read back from disk.
#include "ShellTestSupport.h"

#include "capture/DurableAudioWriter.h"
#include "capture/RecordingFolder.h"
#include "core/NoteTranscript.h"
#include "shell/NoteExportActions.h"
#include "shell/ObsidianExportRunner.h"
#include "shell/SettingsWindow.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>

#include <gtest/gtest.h>

#include <vector>

using namespace kestil;
using namespace kestil::test;
using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

const QString summaryMarkdown = u"## Overview\nThe team moved the launch to April.\n\n## Action Items\n"
                                "- Sam: draft the announcement\n- Priya: landing page\n"_s;

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

class NoteExportTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        rig.launch();
        ASSERT_TRUE(rig.exposed);
        SharedPersistenceController &store = *rig.app->store();
        const QUuid id = QUuid::createUuid();
        note =
            store.createNote(u"Launch a/b:c"_s, u"We move the launch. Sam writes."_s, id, u"transcription"_s);
        note->setValue(u"summary"_s, summaryMarkdown);
        note->setValue(u"sourceURL"_s, u"Recordings/"_s + RecordingFolder::uuidText(id));
        setTranscriptUtterances(
            *note, {{u"u1"_s, u"We move the launch."_s, 0.5, 2.0}, {u"u2"_s, u"Sam writes."_s, 3.5, 4.5}});
        store.save();
        // One recorded segment of a second and a half, completed as a stop
        // leaves it.
        DurableAudioWriter writer(RecordingFolder::newSegmentFolder(rig.data.path(), id), id, 16000);
        const std::vector<float> samples(24000, 0.25f);
        writer.append(samples);
        writer.complete();
        rig.app->refreshNotes();
        rig.list().selectNote(note, false);
    }

    // Chooses an entry of the note's menu and answers its save dialog with
    // `path`; returns the name the dialog proposed.
    QString exportVia(const QString &entry, const QString &path)
    {
        auto *menu = rig.find<QMenu>(u"noteDetailMenu"_s);
        EXPECT_NE(menu, nullptr);
        emit menu->aboutToShow();
        auto *action = menu->findChild<QAction *>(entry);
        if (!action)
            return u"<no entry %1>"_s.arg(entry);
        action->trigger();
        QFileDialog *dialog = rig.window->exportActions()->saveDialog();
        if (!dialog)
            return u"<no dialog>"_s;
        const QString proposed = QFileInfo(dialog->selectedFiles().value(0)).fileName();
        dialog->selectFile(path);
        static_cast<QDialog *>(dialog)->accept();
        return proposed;
    }

    ShellRig rig;
    NotePtr note;
    QTemporaryDir out;
};

TEST_F(NoteExportTest, EachEntryProposesItsNameAndWritesItsDocument)
{
    struct Case {
        const char *entry;
        const char *proposed;
        const char *contains;
    };
    const Case cases[] = {
        {"exportSummaryPDFButton", "Launch a-b-c - Summary.pdf", "%PDF-"},
        {"exportSummaryButton", "Launch a-b-c - Summary.md", "# Launch a/b:c - Summary\n\n*Exported: "},
        {"exportTranscriptButton", "Launch a-b-c - Transcript.md", "We move the launch. Sam writes.\n"},
        {"exportFullNotePlainTextButton", "Launch a-b-c.txt", "Launch a/b:c\n============\n\n"},
        {"exportFullNoteFormattedButton", "Launch a-b-c.md", "## Summary\n\n## Overview"},
        {"exportSubtitlesSRTButton", "Launch a-b-c.srt", "00:00:00,500 --> "},
        {"exportSubtitlesVTTButton", "Launch a-b-c.vtt", "WEBVTT"}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.entry);
        const QString path = out.filePath(QString::fromLatin1(c.entry) + QLatin1Char('.') +
                                          QFileInfo(QString::fromUtf8(c.proposed)).suffix());
        EXPECT_EQ(exportVia(QString::fromLatin1(c.entry), path), QString::fromUtf8(c.proposed));
        EXPECT_TRUE(readAll(path).contains(c.contains)) << readAll(path).left(200).toStdString();
    }
    EXPECT_EQ(rig.window->exportActions()->failureAlert(), nullptr);
}

TEST_F(NoteExportTest, NoteWithoutSummaryOrTimesOffersNeitherAndAFailedWriteSaysTheNoteIsSafe)
{
    note->setValue(u"summary"_s, u"Generating summary..."_s);
    setTranscriptFromPlainText(*note, u"Only plain text."_s);
    rig.app->store()->save();
    auto *menu = rig.find<QMenu>(u"noteDetailMenu"_s);
    emit menu->aboutToShow();
    for (const char *absent : {"exportSummaryPDFButton", "exportSummaryButton", "copySummaryButton",
                               "exportSubtitlesSRTButton", "exportSubtitlesVTTButton"})
        EXPECT_EQ(menu->findChild<QAction *>(QString::fromLatin1(absent)), nullptr) << absent;

    exportVia(u"exportFullNotePlainTextButton"_s, out.filePath(u"gone/note.txt"_s));
    QMessageBox *alert = rig.window->exportActions()->failureAlert();
    ASSERT_NE(alert, nullptr);
    EXPECT_EQ(alert->windowTitle(), u"Export Failed"_s);
    EXPECT_TRUE(alert->text().startsWith(u"The note could not be exported: "_s))
        << alert->text().toStdString();
    EXPECT_TRUE(alert->text().endsWith(u". Your note remains saved in Kestil."_s));
    EXPECT_FALSE(alert->text().contains(u".."_s));
    EXPECT_EQ(note->transcription(), u"Only plain text."_s);
}

TEST_F(NoteExportTest, ObsidianExportFromSettingsCopiesPlayableAudioThenWritesTheMarkdown)
{
    rig.window->showSettings();
    rig.window->settingsWindow()->findChild<QPushButton *>(u"settingsObsidianExportButton"_s)->click();
    QFileDialog *dialog = rig.window->obsidianExport()->folderDialog();
    ASSERT_NE(dialog, nullptr);
    dialog->selectFile(out.path());
    static_cast<QDialog *>(dialog)->accept();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !rig.window->obsidianExport()->running(); }, 20000));
    EXPECT_EQ(rig.app->message(), u"Markdown and audio exported to the selected folder."_s);

    // What the files hold is tests/documents' ObsidianExportTest.
    const QStringList markdown = QDir(out.path()).entryList({u"Kestil-*.md"_s}, QDir::Files);
    ASSERT_EQ(markdown.size(), 1);
    EXPECT_TRUE(readAll(out.filePath(markdown.first())).startsWith("# Launch a/b:c\n"));
    EXPECT_TRUE(QFile::exists(out.filePath(markdown.first().chopped(3) + u"-audio/segment-1.caf"_s)));
}

} // namespace
