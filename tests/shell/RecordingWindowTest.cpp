// The recording controls of the window, wired to a recorder on a real file
// source: the list model's rules for starting, stopping and quitting are
// tested in tests/core/listmodel; here each control is pressed once.
#include "ShellTestSupport.h"
#include "core/CoreTestSupport.h"

#include "shell/RecordingBar.h"
#include "shell/StatusItem.h"
#include "shell/TranscriptTab.h"

#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QTabWidget>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;

namespace {

TEST(RecordingWindowTest, NewNoteButtonRecordsAndTheBarPausesAndStops)
{
    ShellRig rig;
    rig.launch();
    ASSERT_TRUE(rig.exposed);
    auto *bar = rig.find<RecordingBar>(u"recordingBar"_s);
    auto *tab = rig.find<TranscriptTab>(u"noteDetailTranscriptTab"_s);
    auto *newNote = rig.find(u"notesListNewNoteButton"_s);
    ASSERT_TRUE(bar && tab && newNote);
    EXPECT_FALSE(bar->isVisible()) << "no recording bar before a recording";
    EXPECT_TRUE(rig.showing(u"notesListNoNotesYet"_s) && rig.showing(u"noteDetailEmpty"_s));

    rig.click(u"notesListNewNoteButton"_s);
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->recording(); }));
    EXPECT_TRUE(bar->isVisible());
    EXPECT_EQ(bar->stateText(), u"Recording"_s);
    EXPECT_FALSE(newNote->isEnabled()) << "one recording at a time";
    ASSERT_EQ(rig.shownTitles(), QStringList{u"Untitled Note"_s});
    const QModelIndex row = rig.notesList()->model()->index(0, 0);
    EXPECT_EQ(row.data(Qt::AccessibleTextRole).toString(),
              u"notesListNoteRow-"_s +
                  rig.list().newNoteBeingRecorded()->id()->toString(QUuid::WithoutBraces).toUpper());
    EXPECT_TRUE(row.data(NoteListItemModel::RecordingRole).toBool());
    EXPECT_EQ(rig.find<QLineEdit>(u"noteDetailTitle"_s)->text(), u"Untitled Note"_s);
    EXPECT_EQ(rig.find<QTabWidget>(u"noteDetailTabs"_s)->currentWidget(), tab)
        << "a new recording opens its transcript";
    EXPECT_FALSE(rig.showing(u"noteDetailRecordButton"_s));
    ASSERT_TRUE(waitUntil([&] { return tab->plainText().contains(u"word3"_s); }))
        << tab->plainText().toStdString();
    EXPECT_EQ(tab->paragraphs().last().kind, TranscriptParagraph::Kind::ellipsis);

    rig.click(u"recordingBarPauseButton"_s);
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->paused(); }));
    EXPECT_EQ(bar->stateText(), u"Paused"_s);
    EXPECT_EQ(rig.find<QPushButton>(u"recordingBarPauseButton"_s)->text(), u"Resume"_s);
    rig.click(u"recordingBarPauseButton"_s);
    ASSERT_TRUE(waitUntil([&] { return !rig.recorder->paused(); }));
    EXPECT_EQ(bar->stateText(), u"Recording"_s);

    rig.click(u"recordingBarStopButton"_s);
    ASSERT_TRUE(waitUntil([&] { return rig.idle(); }));
    EXPECT_FALSE(bar->isVisible());
    EXPECT_FALSE(rig.notesList()->model()->index(0, 0).data(NoteListItemModel::RecordingRole).toBool());
    EXPECT_TRUE(rig.showing(u"noteDetailRecordButton"_s));
    EXPECT_TRUE(newNote->isEnabled());
    EXPECT_NE(tab->paragraphs().last().kind, TranscriptParagraph::Kind::ellipsis) << "the dots end with it";
    EXPECT_TRUE(tab->plainText().startsWith(u"0:00\nword1"_s)) << tab->plainText().toStdString();
}

TEST(RecordingWindowTest, TheJumpButtonLeadsBackToTheNoteBeingRecorded)
{
    ShellRig rig;
    rig.seed({{u"Earlier call"_s, u"Some words."_s, {}, {}, 24}});
    rig.launch();
    auto *jump = rig.find<QPushButton>(u"noteDetailJumpToRecordingTab"_s);
    ASSERT_TRUE(jump);
    rig.click(u"notesListNewNoteButton"_s);
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->recording(); }));
    EXPECT_FALSE(jump->isVisible()) << "the recording note is already in view";

    rig.clickRow(1);
    EXPECT_EQ(rig.find<QLineEdit>(u"noteDetailTitle"_s)->text(), u"Earlier call"_s);
    EXPECT_TRUE(jump->isVisible());
    QTest::mouseClick(jump, Qt::LeftButton);
    EXPECT_EQ(rig.find<QLineEdit>(u"noteDetailTitle"_s)->text(), u"Untitled Note"_s);
    EXPECT_EQ(rig.list().selectedNoteIDs(), QList<ObjectId>{rig.list().newNoteBeingRecorded()->objectId()});
    EXPECT_EQ(rig.notesList()->currentIndex().row(), 0) << "the list shows the recording note as selected";
    EXPECT_EQ(rig.find<QTabWidget>(u"noteDetailTabs"_s)->currentWidget(),
              rig.find(u"noteDetailTranscriptTab"_s));
    EXPECT_FALSE(jump->isVisible());
}

// Closing goes through quitting; a quit whose save fails keeps the window
// open and says why in the window's alert.
TEST(RecordingWindowTest, ClosingWhileRecordingGoesThroughQuitAndAFailedSaveKeepsTheWindowOpen)
{
    ShellRig rig;
    MainWindow &window = rig.launch();
    QTest::keyClick(&window, Qt::Key_N, Qt::ControlModifier);
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->recording(); }));
    ASSERT_TRUE(rig.recorderRig.waitForFileDelivered());
    kestil::test::failWrites(*rig.app->store(), u"note"_s, u"UPDATE"_s);
    EXPECT_FALSE(window.close());
    ASSERT_TRUE(waitUntil([&] { return !rig.delegate->quitting(); }));
    ASSERT_TRUE(rig.window->alert() && rig.window->alert()->isVisible());
    EXPECT_TRUE(rig.window->alert()->text().contains(u"disk is full"_s, Qt::CaseInsensitive));
    EXPECT_EQ(rig.terminations, 0);
    EXPECT_TRUE(window.isVisible());
    rig.window->alert()->accept();

    kestil::test::allowWrites(*rig.app->store(), u"note"_s, u"UPDATE"_s);
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    QTest::keyClick(&window, Qt::Key_Q, Qt::ControlModifier);
    ASSERT_TRUE(waitUntil([&] { return rig.terminations == 1; }));
    EXPECT_TRUE(rig.delegate->quitApproved());
    EXPECT_TRUE(window.close()) << "after an approved quit the window closes";
}

TEST(RecordingWindowTest, TheTrayEntryFollowsTheRecordingAndStartsAndStopsIt)
{
    ShellRig rig;
    rig.launch();
    StatusItem *item = rig.delegate->statusItem();
    ASSERT_TRUE(item);
    QAction *entry = item->menu()->actions().first();
    EXPECT_EQ(entry->text(), u"Start Transcription"_s);
    entry->trigger();
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->recording(); }));
    EXPECT_EQ(entry->text(), u"Stop Transcription"_s);
    EXPECT_EQ(item->toolTip(), u"Kestil — Transcribing (open menu to stop)"_s);
    EXPECT_EQ(item->trayIcon()->toolTip(), item->toolTip());
    entry->trigger();
    ASSERT_TRUE(waitUntil([&] { return rig.idle(); }));
    EXPECT_EQ(entry->text(), u"Start Transcription"_s);
    EXPECT_EQ(rig.app->notes().size(), 1);
}

} // namespace
