#include "ShellTestSupport.h"

#include "shell/TranscriptTab.h"

#include <QFile>
#include <QLabel>
#include <QLineEdit>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::test;

namespace {

TEST(MainWindowTest, LibraryListsNotesNewestFirstAndShowsTheSelection)
{
    ShellRig rig;
    rig.seed({{QStringLiteral("Oldest"), QStringLiteral("Transcript of Oldest"), {}, {}, 3},
              {QStringLiteral("Middle"), QStringLiteral("Transcript of Middle"), {}, {}, 2},
              {QStringLiteral("Newest"), QStringLiteral("We met\n\nand talked."), {}, {}, 1}});
    rig.launch();
    ASSERT_TRUE(rig.exposed);
    EXPECT_FALSE(rig.find<QLabel>(QStringLiteral("launchMessage")));
    EXPECT_EQ(rig.shownTitles(), (QStringList{"Newest", "Middle", "Oldest"}));
    EXPECT_EQ(rig.notesList()->model()->index(0, 0).data(NoteListItemModel::PreviewRole).toString(),
              QStringLiteral("We met and talked."));

    auto *title = rig.find<QLineEdit>(QStringLiteral("noteDetailTitle"));
    auto *transcript = rig.find<TranscriptTab>(QStringLiteral("noteDetailTranscriptTab"));
    ASSERT_TRUE(title && transcript);
    EXPECT_EQ(title->text(), QStringLiteral("Newest")) << "the first note is adopted as the selection";
    rig.clickRow(2);
    EXPECT_EQ(title->text(), QStringLiteral("Oldest"));
    EXPECT_EQ(transcript->plainText(), QStringLiteral("Transcript of Oldest"));
    EXPECT_EQ(rig.app->selectedNote()->title(), QStringLiteral("Oldest"));
}

TEST(MainWindowTest, TitlesAreRenamedInPlaceAndNotesDeletedWithTheKey)
{
    ShellRig rig;
    const QList<QUuid> ids = rig.seed({{QStringLiteral("Note 2"), QStringLiteral("Words."), {}, {}, 48},
                                       {QStringLiteral("Note 1"), QStringLiteral("Words."), {}, {}, 24}});
    const QUuid older = ids[0], newer = ids[1];
    rig.launch();
    auto *title = rig.find<QLineEdit>(QStringLiteral("noteDetailTitle"));
    ASSERT_TRUE(title);
    ASSERT_EQ(title->text(), QStringLiteral("Note 1"));

    title->selectAll();
    QTest::keyClicks(title, QStringLiteral("Weekly sync"));
    QTest::keyClick(title, Qt::Key_Return);
    EXPECT_EQ(rig.storedNote(newer)->title(), QStringLiteral("Weekly sync"));
    EXPECT_EQ(rig.shownTitles().first(), QStringLiteral("Weekly sync"));

    // A title still being typed is saved when another note is chosen.
    title->selectAll();
    QTest::keyClicks(title, QStringLiteral("Weekly sync, part two"));
    rig.clickRow(1);
    EXPECT_EQ(title->text(), QStringLiteral("Note 2"));
    EXPECT_EQ(rig.storedNote(newer)->title(), QStringLiteral("Weekly sync, part two"));

    // A blank title is not written.
    title->selectAll();
    QTest::keyClick(title, Qt::Key_Delete);
    QTest::keyClick(title, Qt::Key_Return);
    EXPECT_EQ(title->text(), QStringLiteral("Note 2"));
    EXPECT_EQ(rig.storedNote(older)->title(), QStringLiteral("Note 2"));

    rig.notesList()->setFocus();
    QTest::keyClick(rig.notesList(), Qt::Key_Delete);
    ASSERT_TRUE(waitUntil([&] { return rig.notesList()->model()->rowCount() == 1; }));
    EXPECT_FALSE(rig.storedNote(older)) << "the note is gone from the store";
    EXPECT_TRUE(rig.storedNote(newer));
}

TEST(MainWindowTest, FailedStoreShowsOnlyTheLaunchMessage)
{
    ShellRig rig;
    QFile junk(rig.data.filePath(QStringLiteral("KestilNotes.sqlite")));
    ASSERT_TRUE(junk.open(QIODevice::WriteOnly));
    junk.write("this is not a notes database");
    junk.close();
    rig.launch();
    auto *message = rig.find<QLabel>(QStringLiteral("launchMessage"));
    ASSERT_TRUE(message);
    EXPECT_TRUE(message->text().startsWith(QStringLiteral("Unable to open local notes: ")));
    EXPECT_TRUE(message->text().endsWith(QStringLiteral("The store was preserved.")));
    EXPECT_FALSE(rig.notesList());
}

} // namespace
