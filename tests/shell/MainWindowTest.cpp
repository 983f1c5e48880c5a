#include "ShellTestSupport.h"

#include "shell/TranscriptTab.h"

#include <QFile>
#include <QLabel>
#include <QLineEdit>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;

namespace {

TEST(MainWindowTest, LibraryListsNotesNewestFirstAndShowsTheSelection)
{
    ShellRig rig;
    rig.seed({{u"Oldest"_s, u"Transcript of Oldest"_s, {}, {}, 3},
              {u"Middle"_s, u"Transcript of Middle"_s, {}, {}, 2},
              {u"Newest"_s, u"We met\n\nand talked."_s, {}, {}, 1}});
    rig.launch();
    ASSERT_TRUE(rig.exposed);
    EXPECT_FALSE(rig.find<QLabel>(u"launchMessage"_s));
    EXPECT_EQ(rig.shownTitles(), (QStringList{"Newest", "Middle", "Oldest"}));
    EXPECT_EQ(rig.notesList()->model()->index(0, 0).data(NoteListItemModel::PreviewRole).toString(),
              u"We met and talked."_s);

    auto *title = rig.find<QLineEdit>(u"noteDetailTitle"_s);
    auto *transcript = rig.find<TranscriptTab>(u"noteDetailTranscriptTab"_s);
    ASSERT_TRUE(title && transcript);
    EXPECT_EQ(title->text(), u"Newest"_s) << "the first note is adopted as the selection";
    rig.clickRow(2);
    EXPECT_EQ(title->text(), u"Oldest"_s);
    EXPECT_EQ(transcript->plainText(), u"Transcript of Oldest"_s);
    EXPECT_EQ(rig.app->selectedNote()->title(), u"Oldest"_s);
}

// Return writes the title; a title still being typed is written when
// another note is chosen. (Blank titles are the list model's rule.)
TEST(MainWindowTest, TitlesAreRenamedInPlace)
{
    ShellRig rig;
    const QUuid id =
        rig.seed({{u"Note 2"_s, u"Words."_s, {}, {}, 48}, {u"Note 1"_s, u"Words."_s, {}, {}, 24}})[1];
    rig.launch();
    auto *title = rig.find<QLineEdit>(u"noteDetailTitle"_s);
    ASSERT_TRUE(title);
    ASSERT_EQ(title->text(), u"Note 1"_s);
    title->selectAll();
    QTest::keyClicks(title, u"Weekly sync"_s);
    QTest::keyClick(title, Qt::Key_Return);
    EXPECT_EQ(rig.storedNote(id)->title(), u"Weekly sync"_s);
    title->selectAll();
    QTest::keyClicks(title, u"Weekly sync, part two"_s);
    rig.clickRow(1);
    EXPECT_EQ(title->text(), u"Note 2"_s);
    EXPECT_EQ(rig.storedNote(id)->title(), u"Weekly sync, part two"_s);
    EXPECT_EQ(rig.shownTitles().first(), u"Weekly sync, part two"_s);
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
    EXPECT_TRUE(message->text().endsWith(u"The store was preserved."_s));
    EXPECT_FALSE(rig.notesList());
}

} // namespace
