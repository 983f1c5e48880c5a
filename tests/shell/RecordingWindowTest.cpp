#include "ShellTestSupport.h"

#include "core/NoteTranscript.h"
#include "shell/NoteListItemModel.h"
#include "shell/RecordingBar.h"
#include "shell/StatusItem.h"
#include "shell/TranscriptTab.h"

#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QTabWidget>

#include <sqlite3.h>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

using namespace kestil;
using namespace kestil::test;

namespace {

// What another connection reads from the store file.
// The note as a second reader of the store file sees it. That reader stays
// open for the rest of the run: a note reads its transcript from its store
// when first asked for it.
NotePtr storedNote(const QString &root, const QUuid &id)
{
    static std::vector<std::unique_ptr<SharedPersistenceController>> readers;
    readers.push_back(std::make_unique<SharedPersistenceController>(root));
    return readers.back()->noteWithId(id);
}

// Makes every change of a note fail as a full disk would, through a
// connection of its own to the store file.
void failNoteWrites(const QString &root, bool fail)
{
    sqlite3 *db = nullptr;
    const QByteArray path = (root + QStringLiteral("/KestilNotes.sqlite")).toUtf8();
    ASSERT_EQ(sqlite3_open(path.constData(), &db), SQLITE_OK);
    const char *sql = fail ? "CREATE TRIGGER fail_note_update BEFORE UPDATE ON note BEGIN "
                             "SELECT RAISE(ABORT, 'database or disk is full'); END;"
                           : "DROP TRIGGER fail_note_update";
    char *error = nullptr;
    EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, &error), SQLITE_OK) << (error ? error : "");
    sqlite3_free(error);
    sqlite3_close(db);
}

TEST(RecordingWindowTest, NewNoteButtonRecordsPausesAndStopsIntoASavedNote)
{
    ShellRig rig;
    rig.launch();
    ASSERT_TRUE(rig.exposed);
    auto *bar = rig.find<RecordingBar>(QStringLiteral("recordingBar"));
    auto *list = rig.find<QListView>(QStringLiteral("notesList"));
    auto *tabs = rig.find<QTabWidget>(QStringLiteral("noteDetailTabs"));
    auto *tab = rig.find<TranscriptTab>(QStringLiteral("noteDetailTranscriptTab"));
    ASSERT_TRUE(bar && list && tabs && tab);
    EXPECT_FALSE(bar->isVisible()) << "no recording bar before a recording";
    EXPECT_TRUE(rig.find(QStringLiteral("notesListNoNotesYet"))->isVisible());

    rig.click(QStringLiteral("notesListNewNoteButton"));
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->recording(); }));
    EXPECT_TRUE(bar->isVisible());
    EXPECT_EQ(bar->stateText(), QStringLiteral("Recording"));
    EXPECT_FALSE(rig.find(QStringLiteral("notesListNewNoteButton"))->isEnabled())
        << "one recording at a time";
    ASSERT_EQ(list->model()->rowCount(), 1);
    const NotePtr note = rig.list().newNoteBeingRecorded();
    ASSERT_TRUE(note && note->id());
    const QModelIndex row = list->model()->index(0, 0);
    EXPECT_EQ(row.data(Qt::AccessibleTextRole).toString(),
              QStringLiteral("notesListNoteRow-") + note->id()->toString(QUuid::WithoutBraces).toUpper());
    EXPECT_TRUE(row.data(NoteListItemModel::RecordingRole).toBool());
    EXPECT_EQ(rig.find<QLineEdit>(QStringLiteral("noteDetailTitle"))->text(),
              QStringLiteral("Untitled Note"));
    EXPECT_EQ(tabs->currentWidget(), tab) << "a new recording opens its transcript";
    EXPECT_FALSE(rig.find(QStringLiteral("noteDetailRecordButton"))->isVisible());

    ASSERT_TRUE(waitUntil([&] { return tab->plainText().contains(QStringLiteral("word3")); }))
        << tab->plainText().toStdString();
    EXPECT_EQ(tab->paragraphs().last().kind, TranscriptParagraph::Kind::ellipsis);

    rig.click(QStringLiteral("recordingBarPauseButton"));
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->paused(); }));
    EXPECT_EQ(bar->stateText(), QStringLiteral("Paused"));
    EXPECT_EQ(rig.find<QPushButton>(QStringLiteral("recordingBarPauseButton"))->text(),
              QStringLiteral("Resume"));
    rig.click(QStringLiteral("recordingBarPauseButton"));
    ASSERT_TRUE(waitUntil([&] { return !rig.recorder->paused(); }));
    EXPECT_EQ(bar->stateText(), QStringLiteral("Recording"));

    rig.click(QStringLiteral("recordingBarStopButton"));
    ASSERT_TRUE(waitUntil([&] { return rig.idle(); }));
    EXPECT_FALSE(bar->isVisible());
    EXPECT_FALSE(list->model()->index(0, 0).data(NoteListItemModel::RecordingRole).toBool());
    EXPECT_TRUE(rig.find(QStringLiteral("noteDetailRecordButton"))->isVisible());
    EXPECT_TRUE(rig.find(QStringLiteral("notesListNewNoteButton"))->isEnabled());
    const NotePtr saved = storedNote(rig.data.path(), *note->id());
    ASSERT_TRUE(saved);
    EXPECT_TRUE(saved->transcription().value_or(QString()).startsWith(QStringLiteral("word1 word2 word3")))
        << saved->transcription().value_or(QString()).toStdString();
    EXPECT_NE(tab->paragraphs().last().kind, TranscriptParagraph::Kind::ellipsis)
        << "the dots end with the recording";
    EXPECT_TRUE(tab->plainText().startsWith(QStringLiteral("0:00\nword1"))) << tab->plainText().toStdString();
}

TEST(RecordingWindowTest, NewTranscriptionWhileOneStartsChangesNothing)
{
    ShellRig rig;
    rig.recorderRig.speechStartGate = std::make_shared<Latch>();
    MainWindow &window = rig.launch();
    QTest::keyClick(&window, Qt::Key_N, Qt::ControlModifier);
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->starting(); }));
    EXPECT_EQ(rig.find<RecordingBar>(QStringLiteral("recordingBar"))->stateText(),
              QStringLiteral("Starting…"));
    QTest::keyClick(&window, Qt::Key_N, Qt::ControlModifier);
    rig.click(QStringLiteral("notesListNewNoteButton"));
    settle(std::chrono::milliseconds(200));
    EXPECT_EQ(rig.app->notes().size(), 1);
    EXPECT_FALSE(rig.list().showSyncError()) << "a second start says nothing";
    rig.recorderRig.speechStartGate->open();
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->recording(); }));
    EXPECT_EQ(rig.app->notes().size(), 1);
}

TEST(RecordingWindowTest, TheJumpButtonLeadsBackToTheNoteBeingRecorded)
{
    ShellRig rig;
    {
        SharedPersistenceController seed(rig.data.path());
        auto other = seed.createNote(QStringLiteral("Earlier call"), QStringLiteral("Some words."),
                                     QUuid::createUuid(), QStringLiteral("transcription"));
        other->setValue(QStringLiteral("timestamp"), QDateTime::currentDateTimeUtc().addDays(-1));
        seed.save();
    }
    rig.launch();
    auto *jump = rig.find<QPushButton>(QStringLiteral("noteDetailJumpToRecordingTab"));
    ASSERT_TRUE(jump);
    EXPECT_FALSE(jump->isVisible());
    rig.click(QStringLiteral("notesListNewNoteButton"));
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->recording(); }));
    const NotePtr recording = rig.list().newNoteBeingRecorded();
    EXPECT_FALSE(jump->isVisible()) << "the recording note is already in view";

    auto *list = rig.find<QListView>(QStringLiteral("notesList"));
    ASSERT_EQ(list->model()->rowCount(), 2);
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                      list->visualRect(list->model()->index(1, 0)).center());
    EXPECT_EQ(rig.find<QLineEdit>(QStringLiteral("noteDetailTitle"))->text(), QStringLiteral("Earlier call"));
    EXPECT_TRUE(jump->isVisible());

    QTest::mouseClick(jump, Qt::LeftButton);
    EXPECT_EQ(rig.find<QLineEdit>(QStringLiteral("noteDetailTitle"))->text(),
              QStringLiteral("Untitled Note"));
    EXPECT_EQ(rig.list().selectedNoteIDs(), QList<ObjectId>{recording->objectId()});
    EXPECT_EQ(list->currentIndex().row(), 0) << "the list shows the recording note as selected";
    EXPECT_EQ(rig.find<QTabWidget>(QStringLiteral("noteDetailTabs"))->currentWidget(),
              rig.find(QStringLiteral("noteDetailTranscriptTab")));
    EXPECT_FALSE(jump->isVisible());
}

TEST(RecordingWindowTest, AFailureIsShownInAnAlertInItsOwnWords)
{
    ShellRig rig;
    rig.recorderRig.access = false;
    rig.launch();
    rig.click(QStringLiteral("notesListNewNoteButton"));
    ASSERT_TRUE(waitUntil([&] { return rig.window->alert() && rig.window->alert()->isVisible(); }));
    QMessageBox *alert = rig.window->alert();
    EXPECT_EQ(alert->objectName(), QStringLiteral("syncErrorAlert"));
    EXPECT_EQ(alert->text(), rig.list().syncErrorMessage());
    EXPECT_TRUE(alert->text().startsWith(QStringLiteral("Microphone access was denied.")))
        << alert->text().toStdString();
    EXPECT_TRUE(rig.idle());
    EXPECT_EQ(rig.app->notes().size(), 1) << "the note of a failed start stays, empty";
    alert->accept();
    EXPECT_FALSE(rig.list().showSyncError());
}

TEST(RecordingWindowTest, QuitWhileRecordingStopsSavesAndEnds)
{
    ShellRig rig;
    MainWindow &window = rig.launch();
    rig.click(QStringLiteral("notesListNewNoteButton"));
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->recording(); }));
    const NotePtr note = rig.list().newNoteBeingRecorded();
    ASSERT_TRUE(rig.recorderRig.waitForFileDelivered());

    QTest::keyClick(&window, Qt::Key_Q, Qt::ControlModifier);
    ASSERT_TRUE(waitUntil([&] { return rig.terminations == 1; }));
    EXPECT_TRUE(rig.delegate->quitApproved());
    EXPECT_FALSE(rig.recorder->recording());
    const NotePtr saved = storedNote(rig.data.path(), *note->id());
    EXPECT_TRUE(saved->transcription().value_or(QString()).contains(QStringLiteral("word3")));
    for (const QString &segment : segmentsOf(rig.data.path(), *note->id()))
        EXPECT_TRUE(LocalRecordingManifest::read(segment).complete);
    EXPECT_TRUE(window.close()) << "after an approved quit the window closes";
}

TEST(RecordingWindowTest, ClosingTheWindowWithAFailingSaveKeepsItOpenAndSaysWhy)
{
    ShellRig rig;
    MainWindow &window = rig.launch();
    rig.click(QStringLiteral("notesListNewNoteButton"));
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->recording(); }));
    const NotePtr note = rig.list().newNoteBeingRecorded();
    ASSERT_TRUE(rig.recorderRig.waitForFileDelivered());
    ASSERT_TRUE(waitUntil(
        [&] { return note->transcription().value_or(QString()).contains(QStringLiteral("word3")); }));
    failNoteWrites(rig.data.path(), true);

    EXPECT_FALSE(window.close()) << "closing goes through quitting first";
    EXPECT_TRUE(rig.delegate->quitting());
    ASSERT_TRUE(waitUntil([&] { return !rig.delegate->quitting(); }));
    ASSERT_TRUE(rig.window->alert() && rig.window->alert()->isVisible());
    EXPECT_EQ(rig.terminations, 0);
    EXPECT_TRUE(window.isVisible());
    EXPECT_FALSE(rig.delegate->quitApproved());
    EXPECT_TRUE(rig.window->alert()->text().contains(QStringLiteral("disk is full"), Qt::CaseInsensitive))
        << rig.window->alert()->text().toStdString();
    EXPECT_TRUE(rig.idle()) << "the recording was stopped all the same";
    EXPECT_TRUE(note->transcription().value_or(QString()).contains(QStringLiteral("tail")))
        << "the final text is kept in memory for the next try";
    rig.window->alert()->accept();

    failNoteWrites(rig.data.path(), false);
    EXPECT_FALSE(window.close());
    ASSERT_TRUE(waitUntil([&] { return rig.terminations == 1; }));
    EXPECT_TRUE(storedNote(rig.data.path(), *note->id())->transcription()->contains(QStringLiteral("tail")));
}

TEST(RecordingWindowTest, TheTrayEntryFollowsTheRecordingAndStartsAndStopsIt)
{
    ShellRig rig;
    rig.launch();
    StatusItem *item = rig.delegate->statusItem();
    ASSERT_TRUE(item);
    QStringList entries;
    for (QAction *action : item->menu()->actions())
        entries << (action->isSeparator() ? QStringLiteral("-") : action->text());
    EXPECT_EQ(entries, (QStringList{"Start Transcription", "-", "Open Kestil", "-", "Quit Kestil"}));
    EXPECT_EQ(item->toolTip(), QStringLiteral("Kestil — Start Transcription"));

    item->menu()->actions().first()->trigger();
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->recording(); }));
    EXPECT_EQ(item->menu()->actions().first()->text(), QStringLiteral("Stop Transcription"));
    EXPECT_EQ(item->toolTip(), QStringLiteral("Kestil — Transcribing (open menu to stop)"));
    EXPECT_EQ(item->trayIcon()->toolTip(), item->toolTip());

    item->menu()->actions().first()->trigger();
    ASSERT_TRUE(waitUntil([&] { return rig.idle(); }));
    EXPECT_EQ(item->menu()->actions().first()->text(), QStringLiteral("Start Transcription"));
    EXPECT_EQ(rig.app->notes().size(), 1);
}

} // namespace

namespace {

TEST(LibraryWindowTest, TitlesAreRenamedInPlaceAndNotesDeletedWithTheKey)
{
    ShellRig rig;
    QUuid newer, older;
    {
        SharedPersistenceController seed(rig.data.path());
        for (int age : {2, 1}) {
            const QUuid id = QUuid::createUuid();
            auto note = seed.createNote(QStringLiteral("Note %1").arg(age), QStringLiteral("Words."), id,
                                        QStringLiteral("transcription"));
            note->setValue(QStringLiteral("timestamp"), QDateTime::currentDateTimeUtc().addDays(-age));
            (age == 1 ? newer : older) = id;
        }
        seed.save();
    }
    rig.launch();
    auto *title = rig.find<QLineEdit>(QStringLiteral("noteDetailTitle"));
    auto *list = rig.find<QListView>(QStringLiteral("notesList"));
    ASSERT_TRUE(title && list);
    ASSERT_EQ(title->text(), QStringLiteral("Note 1"));

    title->selectAll();
    QTest::keyClicks(title, QStringLiteral("Weekly sync"));
    QTest::keyClick(title, Qt::Key_Return);
    EXPECT_EQ(storedNote(rig.data.path(), newer)->title(), QStringLiteral("Weekly sync"));
    EXPECT_EQ(list->model()->index(0, 0).data(NoteListItemModel::TitleRole).toString(),
              QStringLiteral("Weekly sync"));

    // A title still being typed is saved when another note is chosen.
    title->selectAll();
    QTest::keyClicks(title, QStringLiteral("Weekly sync, part two"));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                      list->visualRect(list->model()->index(1, 0)).center());
    EXPECT_EQ(title->text(), QStringLiteral("Note 2"));
    EXPECT_EQ(storedNote(rig.data.path(), newer)->title(), QStringLiteral("Weekly sync, part two"));

    // A blank title is not written.
    title->selectAll();
    QTest::keyClick(title, Qt::Key_Delete);
    QTest::keyClick(title, Qt::Key_Return);
    EXPECT_EQ(title->text(), QStringLiteral("Note 2"));
    EXPECT_EQ(storedNote(rig.data.path(), older)->title(), QStringLiteral("Note 2"));

    list->setFocus();
    QTest::keyClick(list, Qt::Key_Delete);
    ASSERT_TRUE(waitUntil([&] { return list->model()->rowCount() == 1; }));
    EXPECT_FALSE(storedNote(rig.data.path(), older)) << "the note is gone from the store";
    EXPECT_TRUE(storedNote(rig.data.path(), newer));
}

} // namespace
