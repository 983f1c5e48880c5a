// The program's main window on a real store, driven by object names.
#include "ShellTestSupport.h"
#include "capture/DurableAudioWriter.h"
#include "capture/RecordingFolder.h"
#include "core/NoteTranscript.h"
#include "library/FilterAndSortState.h"
#include "library/OrganizingRules.h"
#include "shell/FolderManagementSheet.h"
#include "shell/FolderSidebar.h"
#include "shell/NoteExportActions.h"
#include "shell/NoteFolderChip.h"
#include "shell/NoteTagsBar.h"
#include "shell/NotesListFilterBar.h"
#include "shell/ObsidianExportRunner.h"
#include "shell/RecordingBar.h"
#include "shell/SettingsWindow.h"
#include "shell/StatusItem.h"
#include "shell/TagFilterPopover.h"
#include "shell/TranscriptTab.h"
#include "support/FileBytes.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QToolButton>
#include <QTreeWidget>

#include <gtest/gtest.h>

#include <vector>

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

TEST(MainWindowTest, LibraryListsNotesNewestFirstShowsTheSelectionAndRenamesItInPlace)
{
    ShellRig rig;
    const QUuid newest = rig.seed({{u"Oldest"_s, u"Transcript of Oldest"_s, {}, 3},
                                   {u"Middle"_s, u"Transcript of Middle"_s, {}, 2},
                                   {u"Newest"_s, u"We met\n\nand talked."_s, {}, 1}})[2];
    rig.launch();
    ASSERT_TRUE(rig.exposed);
    EXPECT_EQ(rig.shownTitles(), (QStringList{"Newest", "Middle", "Oldest"}));
    EXPECT_EQ(rig.notesList()->model()->index(0, 0).data(NoteListItemModel::PreviewRole).toString(),
              u"We met and talked."_s);
    auto *title = rig.find<QLineEdit>(u"noteDetailTitle"_s);
    auto *transcript = rig.find<TranscriptTab>(u"noteDetailTranscriptTab"_s);
    ASSERT_TRUE(title && transcript);
    EXPECT_EQ(title->text(), u"Newest"_s) << "the first note is adopted as the selection";
    // Return writes the title; one still being typed is written when another
    // note is chosen. (Blank titles are the list model's rule.)
    title->selectAll();
    QTest::keyClicks(title, u"Weekly sync"_s);
    QTest::keyClick(title, Qt::Key_Return);
    EXPECT_EQ(rig.storedNote(newest)->title(), u"Weekly sync"_s);
    title->selectAll();
    QTest::keyClicks(title, u"Weekly sync, part two"_s);
    rig.clickRow(2);
    EXPECT_EQ(rig.storedNote(newest)->title(), u"Weekly sync, part two"_s);
    EXPECT_EQ(rig.shownTitles().first(), u"Weekly sync, part two"_s);
    EXPECT_EQ(title->text(), u"Oldest"_s);
    EXPECT_EQ(transcript->plainText(), u"Transcript of Oldest"_s);
}

TEST(MainWindowTest, FailedStoreShowsOnlyTheLaunchMessage)
{
    ShellRig rig;
    QFile junk(rig.data.filePath(u"KestilNotes.sqlite"_s));
    ASSERT_TRUE(junk.open(QIODevice::WriteOnly));
    junk.write("this is not a notes database");
    junk.close();
    rig.launch();
    auto *message = rig.find<QLabel>(u"launchMessage"_s);
    ASSERT_TRUE(message);
    EXPECT_TRUE(message->text().startsWith(u"Unable to open local notes: "_s));
    EXPECT_FALSE(rig.notesList());
}

// Each recording control pressed once; the rules are tests/core/listmodel's.
TEST(RecordingWindowTest, NewNoteButtonRecordsTheJumpLeadsBackAndTheBarPausesAndStops)
{
    ShellRig rig;
    rig.seed({{u"Earlier call"_s, u"Some words."_s, {}, 24}});
    rig.launch();
    auto *bar = rig.find<RecordingBar>(u"recordingBar"_s);
    auto *tab = rig.find<TranscriptTab>(u"noteDetailTranscriptTab"_s);
    auto *title = rig.find<QLineEdit>(u"noteDetailTitle"_s);
    ASSERT_TRUE(bar && tab && title);
    EXPECT_FALSE(bar->isVisible()) << "no recording bar before a recording";
    rig.click(u"notesListNewNoteButton"_s);
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->recording(); }));
    EXPECT_EQ(bar->stateText(), u"Recording"_s);
    EXPECT_FALSE(rig.find(u"notesListNewNoteButton"_s)->isEnabled()) << "one recording at a time";
    EXPECT_TRUE(rig.notesList()->model()->index(0, 0).data(NoteListItemModel::RecordingRole).toBool());
    EXPECT_EQ(title->text(), u"Untitled Note"_s);
    ASSERT_TRUE(waitUntil([&] { return tab->plainText().contains(u"word3"_s); }))
        << tab->plainText().toStdString();

    rig.clickRow(1);
    EXPECT_EQ(title->text(), u"Earlier call"_s);
    ASSERT_TRUE(rig.showing(u"noteDetailJumpToRecordingTab"_s));
    rig.click(u"noteDetailJumpToRecordingTab"_s);
    EXPECT_EQ(title->text(), u"Untitled Note"_s);

    rig.click(u"recordingBarPauseButton"_s);
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->paused(); }));
    EXPECT_EQ(bar->stateText(), u"Paused"_s);
    rig.click(u"recordingBarPauseButton"_s);
    ASSERT_TRUE(waitUntil([&] { return !rig.recorder->paused(); }));
    rig.click(u"recordingBarStopButton"_s);
    ASSERT_TRUE(waitUntil([&] { return rig.idle(); }));
    EXPECT_FALSE(bar->isVisible());
    EXPECT_NE(tab->paragraphs().last().kind, TranscriptParagraph::Kind::ellipsis) << "the dots end with it";
}

TEST(RecordingWindowTest, TheTrayEntryRecordsAndClosingWhileRecordingGoesThroughQuit)
{
    ShellRig rig;
    MainWindow &window = rig.launch();
    StatusItem *item = rig.delegate->statusItem();
    ASSERT_TRUE(item);
    QAction *entry = item->menu()->actions().first();
    entry->trigger();
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->recording(); }));
    EXPECT_EQ(entry->text(), u"Stop Transcription"_s);
    EXPECT_EQ(item->trayIcon()->toolTip(), u"Kestil — Transcribing (open menu to stop)"_s);
    entry->trigger();
    ASSERT_TRUE(waitUntil([&] { return rig.idle(); }));
    EXPECT_EQ(entry->text(), u"Start Transcription"_s);

    // Closing goes through quitting, which saves the recording first.
    QTest::keyClick(&window, Qt::Key_N, Qt::ControlModifier);
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->recording(); }));
    EXPECT_FALSE(window.close());
    ASSERT_TRUE(waitUntil([&] { return rig.terminations == 1; }));
    EXPECT_TRUE(window.close()) << "after an approved quit the window closes";
}

// Finding and organising: the rules behind each control are tests/library's.
QTreeWidgetItem *tagItem(TagFilterPopover *popover, const QString &tag)
{
    const auto items = popover->tagList()->findItems(tag, Qt::MatchExactly, 0);
    return items.isEmpty() ? nullptr : items.first();
}

TEST(LibraryOrganizeTest, TheSearchFieldIsReachedByKeyboardSearchesTranscriptsAndDeletesWhatItFound)
{
    ShellRig rig;
    rig.seed({{u"Budget review"_s, u"Quarterly numbers."_s, {}, 3},
              {u"Design sync"_s, u"Wir treffen uns in der Straße."_s, {}, 2},
              {u"Standup"_s, u"Nothing new in the numbers."_s, {}, 1}});
    rig.launch();
    rig.window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(rig.window.get()));
    auto *field = rig.find<QLineEdit>(u"notesListSearchField"_s);
    ASSERT_TRUE(field);
    QTest::keyClick(rig.window.get(), Qt::Key_F, Qt::ControlModifier);
    EXPECT_TRUE(field->hasFocus()) << "Ctrl+F reaches the search field";
    QTest::keyClicks(field, u"STRASSE"_s);
    EXPECT_EQ(rig.shownTitles(), QStringList{u"Design sync"_s}) << "the transcript is searched";
    rig.click(u"clearSearchButton"_s);
    EXPECT_EQ(rig.shownTitles().size(), 3);
    QTest::keyClicks(field, u"zzz"_s);
    EXPECT_TRUE(rig.showing(u"notesListNoSearchResults"_s));
    QTest::keyClick(field, Qt::Key_Escape);
    EXPECT_TRUE(field->text().isEmpty()) << "Escape clears the search";

    // Notes chosen with Ctrl and deleted while they match leave it empty.
    QTest::keyClicks(field, u"NUMBERS"_s);
    ASSERT_EQ(rig.shownTitles(), (QStringList{u"Standup"_s, u"Budget review"_s}));
    rig.clickRow(0);
    rig.clickRow(1, Qt::ControlModifier);
    rig.notesList()->setFocus();
    QTest::keyClick(rig.notesList(), Qt::Key_Delete);
    ASSERT_TRUE(waitUntil([&] { return rig.app->notes().size() == 1; }));
    EXPECT_TRUE(rig.showing(u"notesListNoSearchResults"_s));
    EXPECT_EQ(rig.app->notes().first()->title(), u"Design sync"_s);
}

TEST(LibraryOrganizeTest, TheTagPopoverAndTheSortPickerDriveTheList)
{
    ShellRig rig;
    const QString alpha = u"alpha"_s, beta = u"beta"_s;
    rig.seed({{u"A"_s, {}, {alpha}, 4},
              {u"B"_s, {}, {alpha, beta}, 3},
              {u"C"_s, {}, {beta}, 2},
              {u"D"_s, {}, {}, 1}});
    rig.launch();
    NotesListFilterBar *bar = rig.window->filterBar();
    rig.click(u"notesListTagFilterButton"_s);
    TagFilterPopover *popover = bar->popover();
    ASSERT_TRUE(popover && popover->isVisible());
    ASSERT_TRUE(tagItem(popover, alpha) && tagItem(popover, beta));
    EXPECT_EQ(tagItem(popover, alpha)->text(1), u"2"_s);
    tagItem(popover, alpha)->setCheckState(0, Qt::Checked);
    tagItem(popover, beta)->setCheckState(0, Qt::Checked);
    EXPECT_EQ(rig.shownTitles(), (QStringList{"C", "B", "A"}));
    EXPECT_TRUE(bar->showsActiveFilters());
    rig.click(u"tagMatchModeAll"_s);
    EXPECT_EQ(rig.shownTitles(), QStringList{u"B"_s});
    rig.click(u"tagFilterResetButton"_s);
    EXPECT_EQ(rig.shownTitles().size(), 4);
    auto *sort = rig.find<QComboBox>(u"filterSortPicker"_s);
    ASSERT_TRUE(sort);
    sort->setCurrentIndex(sort->findText(notesSortOptionLabel(NotesSortOption::titleZA)));
    EXPECT_EQ(rig.shownTitles(), (QStringList{"D", "C", "B", "A"}));
    rig.click(u"tagFilterClearButton"_s);
    EXPECT_EQ(rig.window->filterState()->sortOption(), NotesSortOption::dateNewest);
    EXPECT_FALSE(bar->showsActiveFilters());
    popover->close();

    // Unfiled notes all hidden by a tag: the list's own Clear Filters brings
    // them back without leaving the folder.
    rig.window->folderSidebar()->select(FolderSelection::unfiled());
    rig.window->filterState()->toggleTag(u"nowhere"_s);
    ASSERT_TRUE(rig.showing(u"notesListFiltersHidingNotes"_s));
    rig.click(u"notesListClearFiltersButton"_s);
    EXPECT_EQ(rig.shownTitles().size(), 4);
    EXPECT_EQ(rig.window->filterState()->selectedFolder(), FolderSelection::unfiled());
}

TEST(LibraryOrganizeTest, FoldersAreMadeRenamedAndDeletedAndNotesFiled)
{
    ShellRig rig;
    rig.seed({{u"Plan"_s, {}, {}, 2}, {u"Chat"_s, {}, {}, 1}});
    rig.launch();
    FolderSidebar *sidebar = rig.window->folderSidebar();
    rig.click(u"folderSidebarManageButton"_s);
    auto *sheet = rig.window->findChild<FolderManagementSheet *>(u"folderManagementSheet"_s);
    ASSERT_TRUE(sheet && sheet->isVisible());
    sheet->newFolderField()->setText(u"Work"_s);
    clickButton(sheet->findChild<QPushButton *>(u"folderManagementCreateButton"_s));
    const QList<FolderPtr> folders = sortedFolders(rig.app->store()->context());
    ASSERT_EQ(folders.size(), 1);
    const FolderPtr work = folders.first();
    const QString id = work->id()->toString(QUuid::WithoutBraces).toUpper();
    EXPECT_TRUE(sidebar->itemFor(FolderSelection::folder(*work->id()))) << "the sidebar lists it at once";

    // Filed through the chip on the note.
    rig.list().selectNote(rig.noteTitled(u"Plan"_s), false);
    NoteFolderChip *chip = rig.window->folderChip();
    emit chip->menu()->aboutToShow();
    chip->menu()->findChild<QAction *>(u"noteDetailFolder-"_s + id)->trigger();
    EXPECT_EQ(rig.noteTitled(u"Plan"_s)->folder(), work);
    EXPECT_EQ(chip->text(), u"Work"_s);
    sidebar->select(FolderSelection::folder(*work->id()));
    EXPECT_EQ(rig.shownTitles(), QStringList{u"Plan"_s});

    QTest::mouseClick(sheet->findChild<QToolButton *>(u"folderManagementRename-"_s + id), Qt::LeftButton);
    auto *rename = sheet->findChild<QLineEdit *>(u"folderManagementRenameField"_s);
    ASSERT_TRUE(rename);
    rename->setText(u"مشاريع"_s);
    QTest::keyClick(rename, Qt::Key_Return);
    EXPECT_EQ(work->name(), u"مشاريع"_s);

    // Deleting the folder being shown: the sidebar goes back to All Notes and
    // its note becomes unfiled.
    QTest::mouseClick(sheet->findChild<QToolButton *>(u"folderManagementDelete-"_s + id), Qt::LeftButton);
    ASSERT_TRUE(sheet->deleteConfirmation());
    EXPECT_EQ(sheet->deleteConfirmation()->text(), folderDeletionMessage(u"مشاريع"_s, 1));
    clickButton(
        sheet->deleteConfirmation()->findChild<QPushButton *>(u"folderManagementDeleteConfirmButton"_s));
    EXPECT_TRUE(sortedFolders(rig.app->store()->context()).isEmpty());
    EXPECT_FALSE(rig.noteTitled(u"Plan"_s)->folder());
    EXPECT_EQ(sidebar->selection(), FolderSelection::all());
    rig.click(u"folderManagementDoneButton"_s);

    // The chip's own sheet makes a folder and files the note in it.
    emit chip->menu()->aboutToShow();
    chip->menu()->findChild<QAction *>(u"noteDetailFolderNew"_s)->trigger();
    ASSERT_TRUE(chip->createSheet());
    QTest::keyClicks(chip->createSheet()->findChild<QLineEdit *>(u"noteFolderChipNewFolderField"_s),
                     u"Clients"_s);
    clickButton(chip->createSheet()->findChild<QPushButton *>(u"noteFolderChipCreateButton"_s));
    const NotePtr plan = rig.storedNote(*rig.noteTitled(u"Plan"_s)->id());
    ASSERT_TRUE(plan->folder()) << "filing is saved";
    EXPECT_EQ(plan->folder()->name(), u"Clients"_s);
}

// The note's menu and the Obsidian export, read back from disk.

const QString summaryMarkdown = u"## Overview\nThe team moved the launch to April.\n\n## Action Items\n"
                                "- Sam: draft the announcement\n- Priya: landing page\n"_s;

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
        DurableAudioWriter writer(RecordingFolder::newSegmentFolder(rig.data.path(), id), id, 16000);
        const std::vector<float> samples(24000, 0.25f);
        writer.append(samples);
        writer.complete();
        rig.app->refreshNotes();
        rig.list().selectNote(note, false);
    }

    // Answers the entry's save dialog with `path`; returns the name proposed.
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
        EXPECT_TRUE(fileBytes(path).contains(c.contains)) << fileBytes(path).left(200).toStdString();
    }
    EXPECT_EQ(rig.window->exportActions()->failureAlert(), nullptr);
}

TEST_F(NoteExportTest, AFailedWriteSaysTheNoteIsSafe)
{
    exportVia(u"exportFullNotePlainTextButton"_s, out.filePath(u"gone/note.txt"_s));
    QMessageBox *alert = rig.window->exportActions()->failureAlert();
    ASSERT_NE(alert, nullptr);
    EXPECT_EQ(alert->windowTitle(), u"Export Failed"_s);
    EXPECT_TRUE(alert->text().startsWith(u"The note could not be exported: "_s))
        << alert->text().toStdString();
    EXPECT_TRUE(alert->text().endsWith(u". Your note remains saved in Kestil."_s));
    EXPECT_FALSE(alert->text().contains(u".."_s));
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
    EXPECT_TRUE(fileBytes(out.filePath(markdown.first())).startsWith("# Launch a/b:c\n"));
    EXPECT_TRUE(QFile::exists(out.filePath(markdown.first().chopped(3) + u"-audio/segment-1.caf"_s)));
}

} // namespace
