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

namespace {

const QString summaryMarkdown =
    QStringLiteral("## Overview\nThe team moved the launch to April.\n\n## Action Items\n"
                   "- Sam: draft the announcement\n- Priya: landing page\n");

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
        note = store.createNote(QStringLiteral("Launch a/b:c"),
                                QStringLiteral("We move the launch. Sam writes."), id,
                                QStringLiteral("transcription"));
        note->setValue(QStringLiteral("summary"), summaryMarkdown);
        note->setValue(QStringLiteral("sourceURL"),
                       QStringLiteral("Recordings/") + RecordingFolder::uuidText(id));
        setTranscriptUtterances(*note,
                                {{QStringLiteral("u1"), QStringLiteral("We move the launch."), 0.5, 2.0},
                                 {QStringLiteral("u2"), QStringLiteral("Sam writes."), 3.5, 4.5}});
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
        auto *menu = rig.find<QMenu>(QStringLiteral("noteDetailMenu"));
        EXPECT_NE(menu, nullptr);
        emit menu->aboutToShow();
        auto *action = menu->findChild<QAction *>(entry);
        if (!action)
            return QStringLiteral("<no entry %1>").arg(entry);
        action->trigger();
        QFileDialog *dialog = rig.window->exportActions()->saveDialog();
        if (!dialog)
            return QStringLiteral("<no dialog>");
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
        {"exportSubtitlesVTTButton", "Launch a-b-c.vtt", "WEBVTT"},
    };
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
    note->setValue(QStringLiteral("summary"), QStringLiteral("Generating summary..."));
    setTranscriptFromPlainText(*note, QStringLiteral("Only plain text."));
    rig.app->store()->save();
    auto *menu = rig.find<QMenu>(QStringLiteral("noteDetailMenu"));
    emit menu->aboutToShow();
    for (const char *absent : {"exportSummaryPDFButton", "exportSummaryButton", "copySummaryButton",
                               "exportSubtitlesSRTButton", "exportSubtitlesVTTButton"})
        EXPECT_EQ(menu->findChild<QAction *>(QString::fromLatin1(absent)), nullptr) << absent;

    exportVia(QStringLiteral("exportFullNotePlainTextButton"), out.filePath(QStringLiteral("gone/note.txt")));
    QMessageBox *alert = rig.window->exportActions()->failureAlert();
    ASSERT_NE(alert, nullptr);
    EXPECT_EQ(alert->windowTitle(), QStringLiteral("Export Failed"));
    EXPECT_TRUE(alert->text().startsWith(QStringLiteral("The note could not be exported: ")))
        << alert->text().toStdString();
    EXPECT_TRUE(alert->text().endsWith(QStringLiteral(". Your note remains saved in Kestil.")));
    EXPECT_FALSE(alert->text().contains(QStringLiteral("..")));
    EXPECT_EQ(note->transcription(), QStringLiteral("Only plain text."));
}

TEST_F(NoteExportTest, ObsidianExportFromSettingsCopiesPlayableAudioThenWritesTheMarkdown)
{
    rig.window->showSettings();
    rig.window->settingsWindow()
        ->findChild<QPushButton *>(QStringLiteral("settingsObsidianExportButton"))
        ->click();
    QFileDialog *dialog = rig.window->obsidianExport()->folderDialog();
    ASSERT_NE(dialog, nullptr);
    dialog->selectFile(out.path());
    static_cast<QDialog *>(dialog)->accept();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !rig.window->obsidianExport()->running(); }, 20000));
    EXPECT_EQ(rig.app->message(), QStringLiteral("Markdown and audio exported to the selected folder."));

    // What the files hold is tests/documents' ObsidianExportTest.
    const QStringList markdown = QDir(out.path()).entryList({QStringLiteral("Kestil-*.md")}, QDir::Files);
    ASSERT_EQ(markdown.size(), 1);
    EXPECT_TRUE(readAll(out.filePath(markdown.first())).startsWith("# Launch a/b:c\n"));
    EXPECT_TRUE(
        QFile::exists(out.filePath(markdown.first().chopped(3) + QStringLiteral("-audio/segment-1.caf"))));
}

} // namespace
