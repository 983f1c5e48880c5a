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

namespace {

QTreeWidgetItem *tagItem(TagFilterPopover *popover, const QString &tag)
{
    const auto items = popover->tagList()->findItems(tag, Qt::MatchExactly, 0);
    return items.isEmpty() ? nullptr : items.first();
}

TEST(LibraryOrganizeTest, TheSearchFieldIsReachedByKeyboardAndSearchesTheStoredTranscripts)
{
    ShellRig rig;
    rig.seed({{QStringLiteral("Budget review"), QStringLiteral("Quarterly numbers."), {}, {}, 3},
              {QStringLiteral("Design sync"), QStringLiteral("Wir treffen uns in der Straße."), {}, {}, 2},
              {QStringLiteral("Standup"), QStringLiteral("Nothing new."), {}, {}, 1}});
    rig.launch();
    rig.window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(rig.window.get()));
    auto *field = rig.find<QLineEdit>(QStringLiteral("notesListSearchField"));
    auto *clear = rig.find<QToolButton>(QStringLiteral("clearSearchButton"));
    ASSERT_TRUE(field && clear);
    EXPECT_FALSE(clear->isVisible());

    QTest::keyClick(rig.window.get(), Qt::Key_F, Qt::ControlModifier);
    EXPECT_TRUE(field->hasFocus()) << "Ctrl+F reaches the search field";
    QTest::keyClicks(field, QStringLiteral("STRASSE"));
    EXPECT_EQ(rig.shownTitles(), QStringList{QStringLiteral("Design sync")}) << "the transcript is searched";
    EXPECT_TRUE(clear->isVisible());
    QTest::mouseClick(clear, Qt::LeftButton);
    EXPECT_EQ(rig.shownTitles().size(), 3);

    QTest::keyClicks(field, QStringLiteral("zzz"));
    EXPECT_TRUE(rig.showing(QStringLiteral("notesListNoSearchResults")));
    EXPECT_EQ(rig.find<QLabel>(QStringLiteral("notesListNoSearchResultsTitle"))->text(),
              QStringLiteral("No Results for \"zzz\""));
    QTest::keyClick(field, Qt::Key_Escape);
    EXPECT_TRUE(field->text().isEmpty()) << "Escape clears the search";
    EXPECT_EQ(rig.shownTitles().size(), 3);
    field->setText(QString(10000, QLatin1Char('q')));
    EXPECT_TRUE(rig.showing(QStringLiteral("notesListNoSearchResults")));
}

TEST(LibraryOrganizeTest, TheTagPopoverAndTheSortPickerDriveTheList)
{
    ShellRig rig;
    const QString alpha = QStringLiteral("alpha"), beta = QStringLiteral("beta");
    rig.seed({{QStringLiteral("A"), {}, {alpha}, {}, 4},
              {QStringLiteral("B"), {}, {alpha, beta}, {}, 3},
              {QStringLiteral("C"), {}, {beta}, {}, 2},
              {QStringLiteral("D"), {}, {}, {}, 1}});
    rig.launch();
    NotesListFilterBar *bar = rig.window->filterBar();
    auto *button = rig.find<QToolButton>(QStringLiteral("notesListTagFilterButton"));
    ASSERT_TRUE(bar && button);
    EXPECT_FALSE(bar->showsActiveFilters());
    QTest::mouseClick(button, Qt::LeftButton);
    TagFilterPopover *popover = bar->popover();
    ASSERT_TRUE(popover->isVisible());
    ASSERT_TRUE(tagItem(popover, alpha) && tagItem(popover, beta));
    EXPECT_EQ(tagItem(popover, alpha)->text(1), QStringLiteral("2"));

    tagItem(popover, alpha)->setCheckState(0, Qt::Checked);
    tagItem(popover, beta)->setCheckState(0, Qt::Checked);
    EXPECT_EQ(rig.shownTitles(), (QStringList{"C", "B", "A"}));
    EXPECT_TRUE(bar->showsActiveFilters());
    QTest::mouseClick(rig.find<QPushButton>(QStringLiteral("tagMatchModeAll")), Qt::LeftButton);
    EXPECT_EQ(rig.shownTitles(), QStringList{QStringLiteral("B")});
    EXPECT_EQ(rig.find<QLabel>(QStringLiteral("tagMatchModeHelp"))->text(),
              tagMatchModeHelp(TagMatchMode::all));
    QTest::mouseClick(rig.find<QPushButton>(QStringLiteral("tagFilterResetButton")), Qt::LeftButton);
    EXPECT_EQ(rig.shownTitles().size(), 4);
    EXPECT_FALSE(bar->showsActiveFilters());

    auto *sort = rig.find<QComboBox>(QStringLiteral("filterSortPicker"));
    ASSERT_TRUE(sort);
    sort->setCurrentIndex(sort->findText(notesSortOptionLabel(NotesSortOption::titleZA)));
    EXPECT_EQ(rig.shownTitles(), (QStringList{"D", "C", "B", "A"}));
    EXPECT_TRUE(bar->showsActiveFilters());
    QTest::mouseClick(rig.find<QPushButton>(QStringLiteral("tagFilterClearButton")), Qt::LeftButton);
    EXPECT_EQ(rig.window->filterState()->sortOption(), NotesSortOption::dateNewest);
    popover->close();

    // Unfiled notes all hidden by a tag: the list says so, and its Clear
    // Filters brings them back without leaving the folder.
    rig.window->folderSidebar()->select(FolderSelection::unfiled());
    rig.window->filterState()->toggleTag(QStringLiteral("nowhere"));
    EXPECT_TRUE(rig.showing(QStringLiteral("notesListFiltersHidingNotes")));
    rig.click(QStringLiteral("notesListClearFiltersButton"));
    EXPECT_EQ(rig.shownTitles().size(), 4);
    EXPECT_EQ(rig.window->filterState()->selectedFolder(), FolderSelection::unfiled());
}

TEST(LibraryOrganizeTest, FoldersAreMadeRenamedAndDeletedAndNotesFiled)
{
    ShellRig rig;
    rig.seed({{QStringLiteral("Plan"), {}, {}, {}, 2}, {QStringLiteral("Chat"), {}, {}, {}, 1}});
    rig.launch();
    FolderSidebar *sidebar = rig.window->folderSidebar();
    rig.click(QStringLiteral("folderSidebarManageButton"));
    auto *sheet = rig.window->findChild<FolderManagementSheet *>(QStringLiteral("folderManagementSheet"));
    ASSERT_TRUE(sheet && sheet->isVisible());
    EXPECT_TRUE(rig.window->findChild<QLabel *>(QStringLiteral("folderManagementEmpty")));

    // How a typed name becomes a folder is tests/core's NoteOrganizingTest.
    sheet->newFolderField()->setText(QStringLiteral("Work"));
    QTest::mouseClick(sheet->findChild<QPushButton *>(QStringLiteral("folderManagementCreateButton")),
                      Qt::LeftButton);
    const QList<FolderPtr> folders = sortedFolders(rig.app->store()->context());
    ASSERT_EQ(folders.size(), 1);
    const FolderPtr work = folders.first();
    EXPECT_EQ(work->name(), QStringLiteral("Work"));
    const QString id = work->id()->toString(QUuid::WithoutBraces).toUpper();
    EXPECT_TRUE(sidebar->itemFor(FolderSelection::folder(*work->id()))) << "the sidebar lists it at once";

    // File "Plan" through the chip on the note.
    rig.list().selectNote(rig.noteTitled(QStringLiteral("Plan")), false);
    NoteFolderChip *chip = rig.window->folderChip();
    ASSERT_EQ(chip->objectName(), QStringLiteral("noteDetailFolderChip"));
    emit chip->menu()->aboutToShow();
    chip->menu()->findChild<QAction *>(QStringLiteral("noteDetailFolder-") + id)->trigger();
    EXPECT_EQ(rig.noteTitled(QStringLiteral("Plan"))->folder(), work);
    EXPECT_EQ(chip->text(), QStringLiteral("Work"));
    sidebar->select(FolderSelection::folder(*work->id()));
    EXPECT_EQ(rig.shownTitles(), QStringList{QStringLiteral("Plan")});
    sidebar->select(FolderSelection::unfiled());
    EXPECT_EQ(rig.shownTitles(), QStringList{QStringLiteral("Chat")});

    // Rename in the row.
    QTest::mouseClick(sheet->findChild<QToolButton *>(QStringLiteral("folderManagementRename-") + id),
                      Qt::LeftButton);
    auto *rename = sheet->findChild<QLineEdit *>(QStringLiteral("folderManagementRenameField"));
    ASSERT_TRUE(rename);
    rename->setText(QStringLiteral("مشاريع"));
    QTest::keyClick(rename, Qt::Key_Return);
    EXPECT_EQ(work->name(), QStringLiteral("مشاريع"));

    // Deleting the folder being shown: the sidebar goes back to All Notes and
    // its note becomes unfiled.
    sidebar->select(FolderSelection::folder(*work->id()));
    EXPECT_EQ(rig.list().pendingFolderSelection(), FolderSelection::folder(*work->id()));
    QTest::mouseClick(sheet->findChild<QToolButton *>(QStringLiteral("folderManagementDelete-") + id),
                      Qt::LeftButton);
    QMessageBox *confirmation = sheet->deleteConfirmation();
    ASSERT_TRUE(confirmation);
    EXPECT_EQ(confirmation->text(), folderDeletionMessage(QStringLiteral("مشاريع"), 1));
    QTest::mouseClick(
        confirmation->findChild<QPushButton *>(QStringLiteral("folderManagementDeleteConfirmButton")),
        Qt::LeftButton);
    EXPECT_TRUE(sortedFolders(rig.app->store()->context()).isEmpty());
    EXPECT_FALSE(rig.noteTitled(QStringLiteral("Plan"))->folder());
    EXPECT_EQ(sidebar->selection(), FolderSelection::all());
    EXPECT_EQ(rig.list().pendingFolderSelection(), FolderSelection::all());
    EXPECT_EQ(rig.shownTitles().size(), 2);
    rig.click(QStringLiteral("folderManagementDoneButton"));

    // The chip's own sheet makes a folder and files the note in it.
    emit chip->menu()->aboutToShow();
    chip->menu()->findChild<QAction *>(QStringLiteral("noteDetailFolderNew"))->trigger();
    ASSERT_TRUE(chip->createSheet());
    auto *field = chip->createSheet()->findChild<QLineEdit *>(QStringLiteral("noteFolderChipNewFolderField"));
    QTest::keyClicks(field, QStringLiteral("Clients"));
    QTest::mouseClick(
        chip->createSheet()->findChild<QPushButton *>(QStringLiteral("noteFolderChipCreateButton")),
        Qt::LeftButton);
    const NotePtr plan = rig.noteTitled(QStringLiteral("Plan"));
    ASSERT_TRUE(plan->folder());
    EXPECT_EQ(plan->folder()->name(), QStringLiteral("Clients"));
    EXPECT_TRUE(rig.storedNote(*plan->id())->folder()) << "filing is saved";
}

TEST(LibraryOrganizeTest, TagsAreAddedAndRemovedByHand)
{
    ShellRig rig;
    rig.seed({{QStringLiteral("Tagged"), {}, {QStringLiteral("kept")}, {}, 1}});
    rig.launch();
    NoteTagsBar *tags = rig.window->tagsBar();
    const NotePtr note = rig.noteTitled(QStringLiteral("Tagged"));
    rig.click(QStringLiteral("noteDetailAddTagButton"));
    AddTagPopover *popover = tags->addTagPopover();
    ASSERT_TRUE(popover && popover->isVisible());
    QTest::keyClicks(popover->field(), QStringLiteral("q3 plan!"));
    QTest::keyClick(popover->field(), Qt::Key_Return);
    EXPECT_FALSE(popover->isVisible()) << "a commit closes it";
    EXPECT_EQ(note->sortedTagNames(), (QStringList{QStringLiteral("kept"), QStringLiteral("q3plan")}));
    EXPECT_TRUE(rig.find<TagView>(QStringLiteral("tagView-q3plan")));

    rig.click(QStringLiteral("noteDetailEditTagsButton"));
    auto *remove = rig.find<QToolButton>(QStringLiteral("tagViewRemove-kept"));
    ASSERT_TRUE(remove && remove->isVisible());
    QTest::mouseClick(remove, Qt::LeftButton);
    settle();
    EXPECT_EQ(rig.storedNote(*note->id())->sortedTagNames(), QStringList{QStringLiteral("q3plan")})
        << "adding and removing are saved";
}

TEST(LibraryOrganizeTest, DeleteRemovesEveryNoteSelectedWithCtrl)
{
    ShellRig rig;
    rig.seed({{QStringLiteral("One"), QStringLiteral("match")},
              {QStringLiteral("Two"), QStringLiteral("match"), {}, {}, 1},
              {QStringLiteral("Three"), QStringLiteral("other"), {}, {}, 2}});
    rig.launch();
    rig.find<QLineEdit>(QStringLiteral("notesListSearchField"))->setText(QStringLiteral("MATCH"));
    ASSERT_EQ(rig.shownTitles(), (QStringList{QStringLiteral("One"), QStringLiteral("Two")}));
    rig.clickRow(0);
    rig.clickRow(1, Qt::ControlModifier);
    EXPECT_EQ(rig.list().selectedNoteIDs().size(), 2);
    rig.notesList()->setFocus();
    QTest::keyClick(rig.notesList(), Qt::Key_Delete);
    ASSERT_TRUE(waitUntil([&] { return rig.app->notes().size() == 1; }));
    EXPECT_TRUE(rig.showing(QStringLiteral("notesListNoSearchResults")))
        << "notes deleted while they matched the search leave it empty";
    EXPECT_EQ(rig.app->notes().first()->title(), QStringLiteral("Three"));
}

TEST(LibraryOrganizeTest, DayHeadingsMarkEachDayOfTheList)
{
    ShellRig rig;
    const QString meeting =
        QStringLiteral("We went through the quarterly numbers and agreed on the launch plan.");
    rig.seed({{QStringLiteral("Roadmap review"),
               meeting,
               {QStringLiteral("planning"), QStringLiteral("q3")},
               QStringLiteral("Product"),
               0},
              {QStringLiteral("Customer call: Zoë Sørensen"), meeting, {QStringLiteral("customers")}, {}, 0},
              {QStringLiteral("Budget sync"),
               meeting,
               {QStringLiteral("finance"), QStringLiteral("q3")},
               QStringLiteral("Finance"),
               26},
              {QStringLiteral("Design critique"),
               meeting,
               {QStringLiteral("design")},
               QStringLiteral("Product"),
               27},
              {QStringLiteral("Hiring loop debrief"), meeting, {}, {}, 24 * 4},
              {QStringLiteral("Weekly standup"), meeting, {QStringLiteral("team")}, {}, 24 * 9}});
    rig.launch();
    const QAbstractItemModel *model = rig.notesList()->model();
    const auto heading = [&](int row) {
        return model->index(row, 0).data(NoteListItemModel::DayHeadingRole).toString();
    };
    const QDate today = QDate::currentDate();
    EXPECT_EQ(heading(0), QStringLiteral("Today"));
    EXPECT_EQ(heading(1), QString()) << "one heading per day";
    EXPECT_EQ(heading(4), FilterAndSortState::dayGroupTitle(today.addDays(-4), today).value_or(QString()));
    rig.window->resize(1280, 760);
    screenshot(rig.window.get(), QStringLiteral("library-day-groups"));

    const FolderPtr product = findFolder(QStringLiteral("product"), rig.app->store()->context());
    rig.window->folderSidebar()->select(FolderSelection::folder(*product->id()));
    rig.list().selectNote(rig.noteTitled(QStringLiteral("Roadmap review")), false);
    screenshot(rig.window.get(), QStringLiteral("library-folder"));
    rig.window->folderSidebar()->select(FolderSelection::all());
    rig.window->filterBar()->showPopover();
    TagFilterPopover *popover = rig.window->filterBar()->popover();
    tagItem(popover, QStringLiteral("q3"))->setCheckState(0, Qt::Checked);
    screenshot(popover, QStringLiteral("library-tag-popover"));
    screenshot(rig.window.get(), QStringLiteral("library-filtered-by-tag"));
}

} // namespace
