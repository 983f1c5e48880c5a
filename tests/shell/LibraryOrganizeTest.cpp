#include "ShellTestSupport.h"

#include "core/NoteOrganizing.h"
#include "library/FilterAndSortState.h"
#include "shell/AddTagPopover.h"
#include "shell/FolderManagementSheet.h"
#include "shell/FolderSidebar.h"
#include "shell/NoteFolderChip.h"
#include "shell/NoteListItemModel.h"
#include "shell/NoteTagsBar.h"
#include "shell/NotesListFilterBar.h"
#include "shell/TagFilterPopover.h"
#include "shell/TagView.h"

#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QStackedWidget>
#include <QToolButton>
#include <QTreeWidget>

#include <gtest/gtest.h>

#include <algorithm>

using namespace kestil;
using namespace kestil::test;

namespace {

struct Seed {
    QString title;
    QString transcript;
    QStringList tags;
    QString folder;
    int hoursAgo = 0;
};

// The library the window opens on, written through a store of its own.
void seedLibrary(const QString &root, const QList<Seed> &notes)
{
    SharedPersistenceController store(root);
    for (const Seed &s : notes) {
        auto note =
            store.createNote(s.title, s.transcript, QUuid::createUuid(), QStringLiteral("transcription"));
        note->setValue(QStringLiteral("timestamp"),
                       QDateTime::currentDateTimeUtc().addSecs(-3600 * s.hoursAgo));
        for (const QString &tag : s.tags)
            note->addTag(tag);
        if (!s.folder.isEmpty())
            note->setFolder(createFolder(s.folder, store.context()));
        store.save();
    }
}

QStringList shownTitles(const ShellRig &rig)
{
    QStringList titles;
    const QAbstractItemModel *model = rig.find<QListView>(QStringLiteral("notesList"))->model();
    for (int row = 0; row < model->rowCount(); ++row)
        titles << model->index(row, 0).data(NoteListItemModel::TitleRole).toString();
    return titles;
}

NotePtr noteTitled(const ShellRig &rig, const QString &title)
{
    for (const NotePtr &note : rig.app->notes()) {
        if (note->title() == title)
            return note;
    }
    return nullptr;
}

QTreeWidgetItem *tagItem(TagFilterPopover *popover, const QString &tag)
{
    const auto items = popover->tagList()->findItems(tag, Qt::MatchExactly, 0);
    return items.isEmpty() ? nullptr : items.first();
}

bool visiblePage(const ShellRig &rig, const QString &name)
{
    QWidget *page = rig.find(name);
    return page && page->isVisible();
}

TEST(LibraryOrganizeTest, SearchFieldFindsTitlesTranscriptsAndTagsByKeyboard)
{
    ShellRig rig;
    seedLibrary(
        rig.data.path(),
        {{QStringLiteral("Budget review"), QStringLiteral("Quarterly numbers."), {}, {}, 3},
         {QStringLiteral("Design sync"), QStringLiteral("Wir treffen uns in der Straße."), {}, {}, 2},
         {QStringLiteral("Standup"), QStringLiteral("Nothing new?!"), {QStringLiteral("daily")}, {}, 1}});
    rig.launch();
    ASSERT_TRUE(rig.exposed);
    rig.window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(rig.window.get()));
    auto *field = rig.find<QLineEdit>(QStringLiteral("notesListSearchField"));
    auto *clear = rig.find<QToolButton>(QStringLiteral("clearSearchButton"));
    ASSERT_TRUE(field && clear);
    EXPECT_EQ(field->placeholderText(), QStringLiteral("Search..."));
    EXPECT_FALSE(clear->isVisible());

    QTest::keyClick(rig.window.get(), Qt::Key_F, Qt::ControlModifier);
    EXPECT_TRUE(field->hasFocus()) << "Ctrl+F reaches the search field";
    QTest::keyClicks(field, QStringLiteral("STRASSE"));
    EXPECT_EQ(shownTitles(rig), QStringList{QStringLiteral("Design sync")}) << "transcripts fold ß to ss";
    EXPECT_TRUE(clear->isVisible());
    QTest::mouseClick(clear, Qt::LeftButton);
    EXPECT_EQ(shownTitles(rig).size(), 3);

    QTest::keyClicks(field, QStringLiteral("daily"));
    EXPECT_EQ(shownTitles(rig), QStringList{QStringLiteral("Standup")}) << "tag names are searched";
    QTest::keyClick(field, Qt::Key_Escape);
    EXPECT_TRUE(field->text().isEmpty()) << "Escape clears the search";

    QTest::keyClicks(field, QStringLiteral("?!"));
    EXPECT_EQ(shownTitles(rig), QStringList{QStringLiteral("Standup")}) << "punctuation alone is a search";
    field->setText(QString(10000, QLatin1Char('q')));
    EXPECT_TRUE(visiblePage(rig, QStringLiteral("notesListNoSearchResults")));
    field->setText(QStringLiteral("zzz"));
    EXPECT_TRUE(visiblePage(rig, QStringLiteral("notesListNoSearchResults")));
    EXPECT_EQ(rig.find<QLabel>(QStringLiteral("notesListNoSearchResultsTitle"))->text(),
              QStringLiteral("No Results for \"zzz\""));
    field->setText(QStringLiteral("   "));
    EXPECT_EQ(shownTitles(rig).size(), 3) << "a blank search shows every note";
}

TEST(LibraryOrganizeTest, TagFilterAnyAllSortAndClearFilters)
{
    ShellRig rig;
    const QString alpha = QStringLiteral("alpha"), beta = QStringLiteral("beta");
    seedLibrary(rig.data.path(), {{QStringLiteral("A"), {}, {alpha}, {}, 4},
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
    EXPECT_EQ(shownTitles(rig), (QStringList{QStringLiteral("B"), QStringLiteral("A")}));
    EXPECT_TRUE(bar->showsActiveFilters());
    tagItem(popover, beta)->setCheckState(0, Qt::Checked);
    EXPECT_EQ(shownTitles(rig), (QStringList{QStringLiteral("C"), QStringLiteral("B"), QStringLiteral("A")}));
    QTest::mouseClick(rig.find<QPushButton>(QStringLiteral("tagMatchModeAll")), Qt::LeftButton);
    EXPECT_EQ(shownTitles(rig), QStringList{QStringLiteral("B")});
    EXPECT_EQ(rig.find<QLabel>(QStringLiteral("tagMatchModeHelp"))->text(),
              QStringLiteral("Match notes that have every selected tag"));

    auto *sort = rig.find<QComboBox>(QStringLiteral("filterSortPicker"));
    ASSERT_TRUE(sort);
    ASSERT_EQ(sort->count(), 5);
    QTest::mouseClick(rig.find<QPushButton>(QStringLiteral("tagFilterResetButton")), Qt::LeftButton);
    EXPECT_EQ(shownTitles(rig).size(), 4);
    EXPECT_FALSE(bar->showsActiveFilters());
    sort->setCurrentIndex(sort->findText(QStringLiteral("Title Z→A")));
    EXPECT_EQ(shownTitles(rig), (QStringList{"D", "C", "B", "A"}));
    EXPECT_TRUE(bar->showsActiveFilters());
    sort->setCurrentIndex(sort->findText(QStringLiteral("Most tags")));
    EXPECT_EQ(shownTitles(rig).first(), QStringLiteral("B"));
    QTest::mouseClick(rig.find<QPushButton>(QStringLiteral("tagFilterClearButton")), Qt::LeftButton);
    EXPECT_EQ(shownTitles(rig), (QStringList{"D", "C", "B", "A"}));
    popover->close();

    // Unfiled notes all hidden by a tag: the filters say so, and Clear
    // Filters brings them back without leaving the folder.
    rig.window->folderSidebar()->select(FolderSelection::unfiled());
    rig.window->filterState()->toggleTag(QStringLiteral("nowhere"));
    EXPECT_TRUE(visiblePage(rig, QStringLiteral("notesListFiltersHidingNotes")));
    rig.click(QStringLiteral("notesListClearFiltersButton"));
    EXPECT_EQ(shownTitles(rig).size(), 4);
    EXPECT_EQ(rig.window->filterState()->selectedFolder(), FolderSelection::unfiled());
}

TEST(LibraryOrganizeTest, FoldersAreMadeRenamedAndDeletedAndNotesFiled)
{
    ShellRig rig;
    seedLibrary(rig.data.path(),
                {{QStringLiteral("Plan"), {}, {}, {}, 2}, {QStringLiteral("Chat"), {}, {}, {}, 1}});
    rig.launch();
    FolderSidebar *sidebar = rig.window->folderSidebar();
    rig.click(QStringLiteral("folderSidebarManageButton"));
    auto *sheet = rig.window->findChild<FolderManagementSheet *>(QStringLiteral("folderManagementSheet"));
    ASSERT_TRUE(sheet && sheet->isVisible());
    EXPECT_TRUE(rig.window->findChild<QLabel *>(QStringLiteral("folderManagementEmpty")));

    // Blank, then a name, then the same name in another case: one folder.
    for (const QString &typed : {QStringLiteral("   "), QStringLiteral(" Work "), QStringLiteral("WORK")}) {
        sheet->newFolderField()->setText(typed);
        QTest::mouseClick(sheet->findChild<QPushButton *>(QStringLiteral("folderManagementCreateButton")),
                          Qt::LeftButton);
    }
    const QList<FolderPtr> folders = sortedFolders(rig.app->store()->context());
    ASSERT_EQ(folders.size(), 1);
    const FolderPtr work = folders.first();
    EXPECT_EQ(work->name(), QStringLiteral("Work"));
    const QString id = work->id()->toString(QUuid::WithoutBraces).toUpper();
    EXPECT_TRUE(sidebar->itemFor(FolderSelection::folder(*work->id()))) << "the sidebar lists it at once";

    // File "Plan" through the chip on the note.
    rig.list().selectNote(noteTitled(rig, QStringLiteral("Plan")), false);
    NoteFolderChip *chip = rig.window->folderChip();
    ASSERT_EQ(chip->objectName(), QStringLiteral("noteDetailFolderChip"));
    emit chip->menu()->aboutToShow();
    chip->menu()->findChild<QAction *>(QStringLiteral("noteDetailFolder-") + id)->trigger();
    EXPECT_EQ(noteTitled(rig, QStringLiteral("Plan"))->folder(), work);
    EXPECT_EQ(chip->text(), QStringLiteral("Work"));
    sidebar->select(FolderSelection::folder(*work->id()));
    EXPECT_EQ(shownTitles(rig), QStringList{QStringLiteral("Plan")});
    sidebar->select(FolderSelection::unfiled());
    EXPECT_EQ(shownTitles(rig), QStringList{QStringLiteral("Chat")});

    // Rename in the row, with a right-to-left name.
    QTest::mouseClick(sheet->findChild<QToolButton *>(QStringLiteral("folderManagementRename-") + id),
                      Qt::LeftButton);
    auto *rename = sheet->findChild<QLineEdit *>(QStringLiteral("folderManagementRenameField"));
    ASSERT_TRUE(rename);
    rename->setText(QStringLiteral("  مشاريع "));
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
    EXPECT_EQ(confirmation->text(),
              QStringLiteral("“مشاريع” will be removed. 1 note in this folder will become Unfiled."));
    QTest::mouseClick(
        confirmation->findChild<QPushButton *>(QStringLiteral("folderManagementDeleteConfirmButton")),
        Qt::LeftButton);
    EXPECT_TRUE(sortedFolders(rig.app->store()->context()).isEmpty());
    EXPECT_FALSE(noteTitled(rig, QStringLiteral("Plan"))->folder());
    EXPECT_EQ(sidebar->selection(), FolderSelection::all());
    EXPECT_EQ(rig.list().pendingFolderSelection(), FolderSelection::all());
    EXPECT_EQ(shownTitles(rig).size(), 2);
    rig.click(QStringLiteral("folderManagementDoneButton"));

    // The chip's own sheet makes a folder and files the note in it.
    emit chip->menu()->aboutToShow();
    chip->menu()->findChild<QAction *>(QStringLiteral("noteDetailFolderNew"))->trigger();
    ASSERT_TRUE(chip->createSheet());
    auto *field = chip->createSheet()->findChild<QLineEdit *>(QStringLiteral("noteFolderChipNewFolderField"));
    QTest::keyClicks(field, QString(500, QLatin1Char('L')));
    QTest::mouseClick(
        chip->createSheet()->findChild<QPushButton *>(QStringLiteral("noteFolderChipCreateButton")),
        Qt::LeftButton);
    const NotePtr plan = noteTitled(rig, QStringLiteral("Plan"));
    ASSERT_TRUE(plan->folder());
    EXPECT_EQ(plan->folder()->name()->size(), 500);
    SharedPersistenceController reread(rig.data.path());
    EXPECT_TRUE(reread.noteWithId(*plan->id())->folder()) << "filing is saved";
}

TEST(LibraryOrganizeTest, ANewRecordingLandsInTheFolderBeingShown)
{
    ShellRig rig;
    seedLibrary(rig.data.path(), {{QStringLiteral("Old"), {}, {}, QStringLiteral("Calls"), 5}});
    rig.launch();
    const FolderPtr calls = sortedFolders(rig.app->store()->context()).first();
    rig.window->folderSidebar()->select(FolderSelection::folder(*calls->id()));
    rig.click(QStringLiteral("notesListNewNoteButton"));
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->recording(); }));
    const NotePtr recorded = rig.list().newNoteBeingRecorded();
    ASSERT_TRUE(recorded);
    EXPECT_EQ(recorded->folder(), calls);
    EXPECT_EQ(shownTitles(rig), (QStringList{QStringLiteral("Untitled Note"), QStringLiteral("Old")}));

    // The folder goes while the recording files into it: the note stays,
    // unfiled, and the recording goes on.
    rig.app->store()->context().deleteObject(calls);
    rig.app->store()->save();
    EXPECT_FALSE(recorded->folder());
    EXPECT_EQ(rig.window->folderSidebar()->selection(), FolderSelection::all());
    EXPECT_TRUE(rig.recorder->recording());
    rig.click(QStringLiteral("recordingBarStopButton"));
    ASSERT_TRUE(waitUntil([&] { return rig.idle(); }));
    EXPECT_TRUE(shownTitles(rig).contains(QStringLiteral("Untitled Note")));
}

TEST(LibraryOrganizeTest, TagsAreAddedAndRemovedByHand)
{
    ShellRig rig;
    seedLibrary(rig.data.path(), {{QStringLiteral("Tagged"), {}, {QStringLiteral("kept")}, {}, 1}});
    rig.launch();
    NoteTagsBar *tags = rig.window->tagsBar();
    const NotePtr note = noteTitled(rig, QStringLiteral("Tagged"));
    const auto addTyped = [&](const QString &typed) {
        rig.click(QStringLiteral("noteDetailAddTagButton"));
        AddTagPopover *popover = tags->addTagPopover();
        EXPECT_TRUE(popover && popover->isVisible());
        if (!popover)
            return;
        EXPECT_EQ(popover->field()->placeholderText(),
                  QStringLiteral("Enter tag name (letters, numbers, dashes)"));
        QTest::keyClicks(popover->field(), typed);
        QTest::keyClick(popover->field(), Qt::Key_Return);
        EXPECT_TRUE(!tags->addTagPopover() || !tags->addTagPopover()->isVisible())
            << "every commit closes it";
    };
    addTyped(QStringLiteral("q3 plan!"));
    addTyped(QStringLiteral("#$%"));
    EXPECT_EQ(note->sortedTagNames(), (QStringList{QStringLiteral("kept"), QStringLiteral("q3plan")}));
    ASSERT_TRUE(rig.find<TagView>(QStringLiteral("tagView-q3plan")));
    for (int i = 0; note->tags().size() < 10; ++i)
        addTyped(QStringLiteral("t%1").arg(i));
    addTyped(QStringLiteral("eleventh"));
    EXPECT_EQ(note->tags().size(), 10) << "the eleventh is dropped without a word";
    EXPECT_FALSE(rig.list().showSyncError());

    rig.click(QStringLiteral("noteDetailEditTagsButton"));
    auto *remove = rig.find<QToolButton>(QStringLiteral("tagViewRemove-kept"));
    ASSERT_TRUE(remove && remove->isVisible());
    QTest::mouseClick(remove, Qt::LeftButton);
    settle();
    EXPECT_FALSE(note->sortedTagNames().contains(QStringLiteral("kept")));
    SharedPersistenceController reread(rig.data.path());
    EXPECT_EQ(reread.noteWithId(*note->id())->tags().size(), 9) << "adding and removing are saved";
    const QList<LocalTagCandidate> library = reread.fetchTagCandidates();
    const auto kept = std::find_if(library.begin(), library.end(), [](const LocalTagCandidate &c) {
        return c.name == QStringLiteral("kept");
    });
    ASSERT_NE(kept, library.end()) << "the removed tag stays in the library";
    EXPECT_EQ(kept->usageCount, 0);
}

TEST(LibraryOrganizeTest, DeleteRemovesEveryNoteSelectedWithCtrl)
{
    ShellRig rig;
    seedLibrary(rig.data.path(), {{QStringLiteral("One"), QStringLiteral("match")},
                                  {QStringLiteral("Two"), QStringLiteral("match"), {}, {}, 1},
                                  {QStringLiteral("Three"), QStringLiteral("other"), {}, {}, 2}});
    rig.launch();
    auto *list = rig.find<QListView>(QStringLiteral("notesList"));
    rig.find<QLineEdit>(QStringLiteral("notesListSearchField"))->setText(QStringLiteral("MATCH"));
    ASSERT_EQ(shownTitles(rig), (QStringList{QStringLiteral("One"), QStringLiteral("Two")}));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                      list->visualRect(list->model()->index(0, 0)).center());
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::ControlModifier,
                      list->visualRect(list->model()->index(1, 0)).center());
    EXPECT_EQ(rig.list().selectedNoteIDs().size(), 2);
    list->setFocus();
    QTest::keyClick(list, Qt::Key_Delete);
    ASSERT_TRUE(waitUntil([&] { return rig.app->notes().size() == 1; }));
    EXPECT_TRUE(visiblePage(rig, QStringLiteral("notesListNoSearchResults")))
        << "notes deleted while they matched the search leave it empty";
    EXPECT_EQ(rig.app->notes().first()->title(), QStringLiteral("Three"));
}

void picture(QWidget *widget, const QString &name)
{
    QDir().mkpath(QStringLiteral(KESTIL_SCREENSHOT_DIR));
    settle();
    widget->grab().save(QStringLiteral(KESTIL_SCREENSHOT_DIR "/") + name + QStringLiteral(".png"));
}

TEST(LibraryOrganizeTest, DayHeadingsUnderDateOrdersOnly)
{
    ShellRig rig;
    const QString meeting =
        QStringLiteral("We went through the quarterly numbers and agreed on the launch plan.");
    seedLibrary(
        rig.data.path(),
        {{QStringLiteral("Roadmap review"),
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
    const QAbstractItemModel *model = rig.find<QListView>(QStringLiteral("notesList"))->model();
    const auto heading = [&](int row) {
        return model->index(row, 0).data(NoteListItemModel::DayHeadingRole).toString();
    };
    const QDate today = QDate::currentDate();
    EXPECT_EQ(heading(0), QStringLiteral("Today"));
    EXPECT_EQ(heading(1), QString()) << "one heading per day";
    EXPECT_EQ(heading(4), QLocale().toString(today.addDays(-4), QStringLiteral("ddd, MMM d")));
    rig.window->resize(1280, 760);
    picture(rig.window.get(), QStringLiteral("library-day-groups"));

    rig.window->filterState()->setSortOption(NotesSortOption::titleAZ);
    for (int row = 0; row < model->rowCount(); ++row)
        EXPECT_EQ(heading(row), QString()) << "no headings under an order by title";
    rig.window->filterState()->clearFilters();

    const FolderPtr product = findFolder(QStringLiteral("product"), rig.app->store()->context());
    rig.window->folderSidebar()->select(FolderSelection::folder(*product->id()));
    rig.list().selectNote(noteTitled(rig, QStringLiteral("Roadmap review")), false);
    EXPECT_EQ(shownTitles(rig),
              (QStringList{QStringLiteral("Roadmap review"), QStringLiteral("Design critique")}));
    picture(rig.window.get(), QStringLiteral("library-folder"));

    rig.window->folderSidebar()->select(FolderSelection::all());
    rig.window->filterBar()->showPopover();
    TagFilterPopover *popover = rig.window->filterBar()->popover();
    tagItem(popover, QStringLiteral("q3"))->setCheckState(0, Qt::Checked);
    EXPECT_EQ(tagItem(popover, QStringLiteral("q3"))->text(1), QStringLiteral("2"));
    picture(popover, QStringLiteral("library-tag-popover"));
    picture(rig.window.get(), QStringLiteral("library-filtered-by-tag"));
}

} // namespace
