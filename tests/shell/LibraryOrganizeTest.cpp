// Finding and organising notes on the program's own window: each control,
// found by its name, drives the list's filter state and the store. The rules
// behind them (search folding, tag matching, orders, day groups, empty
// states, tag cleaning) are tests/library's; the store's, tests/core's.
#include "ShellTestSupport.h"

#include "library/FilterAndSortState.h"
#include "library/OrganizingRules.h"
#include "shell/AddTagPopover.h"
#include "shell/FolderManagementSheet.h"
#include "shell/FolderSidebar.h"
#include "shell/NoteFolderChip.h"
#include "shell/NoteTagsBar.h"
#include "shell/NotesListFilterBar.h"
#include "shell/TagFilterPopover.h"
#include "shell/TagView.h"

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QToolButton>
#include <QTreeWidget>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;

namespace {

QTreeWidgetItem *tagItem(TagFilterPopover *popover, const QString &tag)
{
    const auto items = popover->tagList()->findItems(tag, Qt::MatchExactly, 0);
    return items.isEmpty() ? nullptr : items.first();
}

TEST(LibraryOrganizeTest, TheSearchFieldIsReachedByKeyboardAndSearchesTheStoredTranscripts)
{
    ShellRig rig;
    rig.seed({{u"Budget review"_s, u"Quarterly numbers."_s, {}, {}, 3},
              {u"Design sync"_s, u"Wir treffen uns in der Straße."_s, {}, {}, 2},
              {u"Standup"_s, u"Nothing new."_s, {}, {}, 1}});
    rig.launch();
    rig.window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(rig.window.get()));
    auto *field = rig.find<QLineEdit>(u"notesListSearchField"_s);
    auto *clear = rig.find<QToolButton>(u"clearSearchButton"_s);
    ASSERT_TRUE(field && clear);
    EXPECT_FALSE(clear->isVisible());

    QTest::keyClick(rig.window.get(), Qt::Key_F, Qt::ControlModifier);
    EXPECT_TRUE(field->hasFocus()) << "Ctrl+F reaches the search field";
    QTest::keyClicks(field, u"STRASSE"_s);
    EXPECT_EQ(rig.shownTitles(), QStringList{u"Design sync"_s}) << "the transcript is searched";
    EXPECT_TRUE(clear->isVisible());
    QTest::mouseClick(clear, Qt::LeftButton);
    EXPECT_EQ(rig.shownTitles().size(), 3);

    QTest::keyClicks(field, u"zzz"_s);
    EXPECT_TRUE(rig.showing(u"notesListNoSearchResults"_s));
    EXPECT_EQ(rig.find<QLabel>(u"notesListNoSearchResultsTitle"_s)->text(), u"No Results for \"zzz\""_s);
    QTest::keyClick(field, Qt::Key_Escape);
    EXPECT_TRUE(field->text().isEmpty()) << "Escape clears the search";
    EXPECT_EQ(rig.shownTitles().size(), 3);
    field->setText(QString(10000, QLatin1Char('q')));
    EXPECT_TRUE(rig.showing(u"notesListNoSearchResults"_s));
}

TEST(LibraryOrganizeTest, TheTagPopoverAndTheSortPickerDriveTheList)
{
    ShellRig rig;
    const QString alpha = u"alpha"_s, beta = u"beta"_s;
    rig.seed({{u"A"_s, {}, {alpha}, {}, 4},
              {u"B"_s, {}, {alpha, beta}, {}, 3},
              {u"C"_s, {}, {beta}, {}, 2},
              {u"D"_s, {}, {}, {}, 1}});
    rig.launch();
    NotesListFilterBar *bar = rig.window->filterBar();
    auto *button = rig.find<QToolButton>(u"notesListTagFilterButton"_s);
    ASSERT_TRUE(bar && button);
    EXPECT_FALSE(bar->showsActiveFilters());
    QTest::mouseClick(button, Qt::LeftButton);
    TagFilterPopover *popover = bar->popover();
    ASSERT_TRUE(popover->isVisible());
    ASSERT_TRUE(tagItem(popover, alpha) && tagItem(popover, beta));
    EXPECT_EQ(tagItem(popover, alpha)->text(1), u"2"_s);

    tagItem(popover, alpha)->setCheckState(0, Qt::Checked);
    tagItem(popover, beta)->setCheckState(0, Qt::Checked);
    EXPECT_EQ(rig.shownTitles(), (QStringList{"C", "B", "A"}));
    EXPECT_TRUE(bar->showsActiveFilters());
    QTest::mouseClick(rig.find<QPushButton>(u"tagMatchModeAll"_s), Qt::LeftButton);
    EXPECT_EQ(rig.shownTitles(), QStringList{u"B"_s});
    EXPECT_EQ(rig.find<QLabel>(u"tagMatchModeHelp"_s)->text(), tagMatchModeHelp(TagMatchMode::all));
    QTest::mouseClick(rig.find<QPushButton>(u"tagFilterResetButton"_s), Qt::LeftButton);
    EXPECT_EQ(rig.shownTitles().size(), 4);
    EXPECT_FALSE(bar->showsActiveFilters());

    auto *sort = rig.find<QComboBox>(u"filterSortPicker"_s);
    ASSERT_TRUE(sort);
    sort->setCurrentIndex(sort->findText(notesSortOptionLabel(NotesSortOption::titleZA)));
    EXPECT_EQ(rig.shownTitles(), (QStringList{"D", "C", "B", "A"}));
    EXPECT_TRUE(bar->showsActiveFilters());
    QTest::mouseClick(rig.find<QPushButton>(u"tagFilterClearButton"_s), Qt::LeftButton);
    EXPECT_EQ(rig.window->filterState()->sortOption(), NotesSortOption::dateNewest);
    popover->close();

    // Unfiled notes all hidden by a tag: the list says so, and its Clear
    // Filters brings them back without leaving the folder.
    rig.window->folderSidebar()->select(FolderSelection::unfiled());
    rig.window->filterState()->toggleTag(u"nowhere"_s);
    EXPECT_TRUE(rig.showing(u"notesListFiltersHidingNotes"_s));
    rig.click(u"notesListClearFiltersButton"_s);
    EXPECT_EQ(rig.shownTitles().size(), 4);
    EXPECT_EQ(rig.window->filterState()->selectedFolder(), FolderSelection::unfiled());
}

TEST(LibraryOrganizeTest, FoldersAreMadeRenamedAndDeletedAndNotesFiled)
{
    ShellRig rig;
    rig.seed({{u"Plan"_s, {}, {}, {}, 2}, {u"Chat"_s, {}, {}, {}, 1}});
    rig.launch();
    FolderSidebar *sidebar = rig.window->folderSidebar();
    rig.click(u"folderSidebarManageButton"_s);
    auto *sheet = rig.window->findChild<FolderManagementSheet *>(u"folderManagementSheet"_s);
    ASSERT_TRUE(sheet && sheet->isVisible());
    EXPECT_TRUE(rig.window->findChild<QLabel *>(u"folderManagementEmpty"_s));

    // How a typed name becomes a folder is tests/core's NoteOrganizingTest.
    sheet->newFolderField()->setText(u"Work"_s);
    clickButton(sheet->findChild<QPushButton *>(u"folderManagementCreateButton"_s));
    const QList<FolderPtr> folders = sortedFolders(rig.app->store()->context());
    ASSERT_EQ(folders.size(), 1);
    const FolderPtr work = folders.first();
    EXPECT_EQ(work->name(), u"Work"_s);
    const QString id = work->id()->toString(QUuid::WithoutBraces).toUpper();
    EXPECT_TRUE(sidebar->itemFor(FolderSelection::folder(*work->id()))) << "the sidebar lists it at once";

    // File "Plan" through the chip on the note.
    rig.list().selectNote(rig.noteTitled(u"Plan"_s), false);
    NoteFolderChip *chip = rig.window->folderChip();
    ASSERT_EQ(chip->objectName(), u"noteDetailFolderChip"_s);
    emit chip->menu()->aboutToShow();
    chip->menu()->findChild<QAction *>(u"noteDetailFolder-"_s + id)->trigger();
    EXPECT_EQ(rig.noteTitled(u"Plan"_s)->folder(), work);
    EXPECT_EQ(chip->text(), u"Work"_s);
    sidebar->select(FolderSelection::folder(*work->id()));
    EXPECT_EQ(rig.shownTitles(), QStringList{u"Plan"_s});
    sidebar->select(FolderSelection::unfiled());
    EXPECT_EQ(rig.shownTitles(), QStringList{u"Chat"_s});

    // Rename in the row.
    QTest::mouseClick(sheet->findChild<QToolButton *>(u"folderManagementRename-"_s + id), Qt::LeftButton);
    auto *rename = sheet->findChild<QLineEdit *>(u"folderManagementRenameField"_s);
    ASSERT_TRUE(rename);
    rename->setText(u"مشاريع"_s);
    QTest::keyClick(rename, Qt::Key_Return);
    EXPECT_EQ(work->name(), u"مشاريع"_s);

    // Deleting the folder being shown: the sidebar goes back to All Notes and
    // its note becomes unfiled.
    sidebar->select(FolderSelection::folder(*work->id()));
    EXPECT_EQ(rig.list().pendingFolderSelection(), FolderSelection::folder(*work->id()));
    QTest::mouseClick(sheet->findChild<QToolButton *>(u"folderManagementDelete-"_s + id), Qt::LeftButton);
    QMessageBox *confirmation = sheet->deleteConfirmation();
    ASSERT_TRUE(confirmation);
    EXPECT_EQ(confirmation->text(), folderDeletionMessage(u"مشاريع"_s, 1));
    clickButton(confirmation->findChild<QPushButton *>(u"folderManagementDeleteConfirmButton"_s));
    EXPECT_TRUE(sortedFolders(rig.app->store()->context()).isEmpty());
    EXPECT_FALSE(rig.noteTitled(u"Plan"_s)->folder());
    EXPECT_EQ(sidebar->selection(), FolderSelection::all());
    EXPECT_EQ(rig.list().pendingFolderSelection(), FolderSelection::all());
    EXPECT_EQ(rig.shownTitles().size(), 2);
    rig.click(u"folderManagementDoneButton"_s);

    // The chip's own sheet makes a folder and files the note in it.
    emit chip->menu()->aboutToShow();
    chip->menu()->findChild<QAction *>(u"noteDetailFolderNew"_s)->trigger();
    ASSERT_TRUE(chip->createSheet());
    auto *field = chip->createSheet()->findChild<QLineEdit *>(u"noteFolderChipNewFolderField"_s);
    QTest::keyClicks(field, u"Clients"_s);
    clickButton(chip->createSheet()->findChild<QPushButton *>(u"noteFolderChipCreateButton"_s));
    const NotePtr plan = rig.noteTitled(u"Plan"_s);
    ASSERT_TRUE(plan->folder());
    EXPECT_EQ(plan->folder()->name(), u"Clients"_s);
    EXPECT_TRUE(rig.storedNote(*plan->id())->folder()) << "filing is saved";
}

TEST(LibraryOrganizeTest, TagsAreAddedAndRemovedByHand)
{
    ShellRig rig;
    rig.seed({{u"Tagged"_s, {}, {u"kept"_s}, {}, 1}});
    rig.launch();
    NoteTagsBar *tags = rig.window->tagsBar();
    const NotePtr note = rig.noteTitled(u"Tagged"_s);
    rig.click(u"noteDetailAddTagButton"_s);
    AddTagPopover *popover = tags->addTagPopover();
    ASSERT_TRUE(popover && popover->isVisible());
    QTest::keyClicks(popover->field(), u"q3 plan!"_s);
    QTest::keyClick(popover->field(), Qt::Key_Return);
    EXPECT_FALSE(popover->isVisible()) << "a commit closes it";
    EXPECT_EQ(note->sortedTagNames(), (QStringList{u"kept"_s, u"q3plan"_s}));
    EXPECT_TRUE(rig.find<TagView>(u"tagView-q3plan"_s));

    rig.click(u"noteDetailEditTagsButton"_s);
    auto *remove = rig.find<QToolButton>(u"tagViewRemove-kept"_s);
    ASSERT_TRUE(remove && remove->isVisible());
    QTest::mouseClick(remove, Qt::LeftButton);
    settle();
    EXPECT_EQ(rig.storedNote(*note->id())->sortedTagNames(), QStringList{u"q3plan"_s})
        << "adding and removing are saved";
}

TEST(LibraryOrganizeTest, DeleteRemovesEveryNoteSelectedWithCtrl)
{
    ShellRig rig;
    rig.seed(
        {{u"One"_s, u"match"_s}, {u"Two"_s, u"match"_s, {}, {}, 1}, {u"Three"_s, u"other"_s, {}, {}, 2}});
    rig.launch();
    rig.find<QLineEdit>(u"notesListSearchField"_s)->setText(u"MATCH"_s);
    ASSERT_EQ(rig.shownTitles(), (QStringList{u"One"_s, u"Two"_s}));
    rig.clickRow(0);
    rig.clickRow(1, Qt::ControlModifier);
    EXPECT_EQ(rig.list().selectedNoteIDs().size(), 2);
    rig.notesList()->setFocus();
    QTest::keyClick(rig.notesList(), Qt::Key_Delete);
    ASSERT_TRUE(waitUntil([&] { return rig.app->notes().size() == 1; }));
    EXPECT_TRUE(rig.showing(u"notesListNoSearchResults"_s))
        << "notes deleted while they matched the search leave it empty";
    EXPECT_EQ(rig.app->notes().first()->title(), u"Three"_s);
}

TEST(LibraryOrganizeTest, DayHeadingsMarkEachDayOfTheList)
{
    ShellRig rig;
    const QString meeting = u"We went through the quarterly numbers and agreed on the launch plan."_s;
    rig.seed({{u"Roadmap review"_s, meeting, {u"planning"_s, u"q3"_s}, u"Product"_s, 0},
              {u"Customer call: Zoë Sørensen"_s, meeting, {u"customers"_s}, {}, 0},
              {u"Budget sync"_s, meeting, {u"finance"_s, u"q3"_s}, u"Finance"_s, 26},
              {u"Design critique"_s, meeting, {u"design"_s}, u"Product"_s, 27},
              {u"Hiring loop debrief"_s, meeting, {}, {}, 24 * 4},
              {u"Weekly standup"_s, meeting, {u"team"_s}, {}, 24 * 9}});
    rig.launch();
    const QAbstractItemModel *model = rig.notesList()->model();
    const auto heading = [&](int row) {
        return model->index(row, 0).data(NoteListItemModel::DayHeadingRole).toString();
    };
    const QDate today = QDate::currentDate();
    EXPECT_EQ(heading(0), u"Today"_s);
    EXPECT_EQ(heading(1), QString()) << "one heading per day";
    EXPECT_EQ(heading(4), FilterAndSortState::dayGroupTitle(today.addDays(-4), today).value_or(QString()));
    rig.window->resize(1280, 760);
    screenshot(rig.window.get(), u"library-day-groups"_s);

    const FolderPtr product = findFolder(u"product"_s, rig.app->store()->context());
    rig.window->folderSidebar()->select(FolderSelection::folder(*product->id()));
    rig.list().selectNote(rig.noteTitled(u"Roadmap review"_s), false);
    screenshot(rig.window.get(), u"library-folder"_s);
    rig.window->folderSidebar()->select(FolderSelection::all());
    rig.window->filterBar()->showPopover();
    TagFilterPopover *popover = rig.window->filterBar()->popover();
    tagItem(popover, u"q3"_s)->setCheckState(0, Qt::Checked);
    screenshot(popover, u"library-tag-popover"_s);
    screenshot(rig.window.get(), u"library-filtered-by-tag"_s);
}

} // namespace
