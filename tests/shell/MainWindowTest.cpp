#include "shell/MainWindow.h"
#include "capture/ProcessTapRecorder.h"
#include "core/LocalAppModel.h"
#include "prefs/PreferenceStore.h"
#include "shell/KestilAppDelegate.h"
#include "shell/NoteListItemModel.h"
#include "shell/TranscriptTab.h"

#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPlainTextEdit>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace kestil;

namespace {

LaunchEnvironment environmentAt(const QString &root)
{
    LaunchEnvironment env;
    env.root = root;
    env.languageModelAvailability = [] { return LanguageModelAvailability::available; };
    return env;
}

// The window with what the program gives it: a recorder (that these tests
// never start) and preferences of its own.
struct ShellFixture {
    QTemporaryDir config;
    PreferenceStore preferences{config.path()};
    ProcessTapRecorder recorder;
    KestilAppDelegate delegate;
    MainWindow window;
    explicit ShellFixture(LocalAppModel &app) : delegate(app, recorder, preferences), window(app, delegate) {}
};

void seed(const QString &root, const QStringList &titles)
{
    SharedPersistenceController controller(root);
    int minutes = 0;
    for (const auto &title : titles) {
        auto note = controller.createNote(title, QStringLiteral("Transcript of ") + title,
                                          QUuid::createUuid(), QStringLiteral("transcription"));
        note->setValue(QStringLiteral("timestamp"), QDateTime::currentDateTimeUtc().addSecs(60 * minutes++));
        controller.save();
    }
}

TEST(MainWindowTest, LibraryListsNotesNewestFirstAndShowsTheSelection)
{
    QTemporaryDir dir;
    seed(dir.path(), {QStringLiteral("Oldest"), QStringLiteral("Middle"), QStringLiteral("Newest")});
    LocalAppModel app(environmentAt(dir.path()));
    ShellFixture shell(app);
    MainWindow &window = shell.window;
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));

    auto *list = window.findChild<QListView *>(QStringLiteral("notesList"));
    ASSERT_TRUE(list);
    EXPECT_FALSE(window.findChild<QLabel *>(QStringLiteral("launchMessage")));
    ASSERT_EQ(list->model()->rowCount(), 3);
    EXPECT_EQ(list->model()->index(0, 0).data(NoteListItemModel::TitleRole).toString(),
              QStringLiteral("Newest"));
    EXPECT_EQ(list->model()->index(2, 0).data(NoteListItemModel::TitleRole).toString(),
              QStringLiteral("Oldest"));

    auto *title = window.findChild<QLineEdit *>(QStringLiteral("noteDetailTitle"));
    auto *transcript = window.findChild<TranscriptTab *>(QStringLiteral("noteDetailTranscriptTab"));
    ASSERT_TRUE(title && transcript);
    EXPECT_EQ(title->text(), QStringLiteral("Newest")) << "the first note is adopted as the selection";

    const QRect third = list->visualRect(list->model()->index(2, 0));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, third.center());
    EXPECT_EQ(title->text(), QStringLiteral("Oldest"));
    EXPECT_EQ(transcript->plainText(), QStringLiteral("Transcript of Oldest"));
    EXPECT_EQ(app.selectedNote()->title(), QStringLiteral("Oldest"));
}

TEST(MainWindowTest, FailedStoreShowsOnlyTheLaunchMessage)
{
    QTemporaryDir dir;
    const QString path = dir.path() + QStringLiteral("/KestilNotes.sqlite");
    {
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write("this is not a notes database");
    }
    LocalAppModel app(environmentAt(dir.path()));
    ShellFixture shell(app);
    MainWindow &window = shell.window;
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    auto *message = window.findChild<QLabel *>(QStringLiteral("launchMessage"));
    ASSERT_TRUE(message);
    EXPECT_TRUE(message->text().startsWith(QStringLiteral("Unable to open local notes: ")));
    EXPECT_TRUE(message->text().endsWith(QStringLiteral("The store was preserved.")));
    EXPECT_FALSE(window.findChild<QListView *>(QStringLiteral("notesList")));
}

TEST(MainWindowTest, EmptyLibraryShowsItsEmptyState)
{
    QTemporaryDir dir;
    LocalAppModel app(environmentAt(dir.path()));
    ShellFixture shell(app);
    MainWindow &window = shell.window;
    window.show();
    auto *empty = window.findChild<QLabel *>(QStringLiteral("noteDetailEmpty"));
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->isVisible());
}

} // namespace

namespace {

TEST(NoteRowTest, PreviewComesFromTheSummaryOrTheTranscriptWithoutMarkdownMarks)
{
    Note note;
    note.setValue(QStringLiteral("transcription"), QStringLiteral("We met\n\nand talked."));
    EXPECT_EQ(NoteListItemModel::previewText(note), QStringLiteral("We met and talked."));
    note.setValue(
        QStringLiteral("summary"),
        QStringLiteral("## Decisions\n- Ship the **beta** on [Friday](https://example.com)\n- `v2` later"));
    EXPECT_EQ(NoteListItemModel::previewText(note),
              QStringLiteral("Decisions Ship the beta on Friday v2 later"));
    EXPECT_FALSE(NoteListItemModel::isProcessingNote(note));

    // A summary that is still being written is no content: the row shows the
    // transcript, with the processing mark.
    note.setValue(QStringLiteral("summary"), QStringLiteral("Generating summary..."));
    EXPECT_EQ(NoteListItemModel::previewText(note), QStringLiteral("We met and talked."));
    EXPECT_TRUE(NoteListItemModel::isProcessingNote(note));

    note.setValue(QStringLiteral("summary"), QVariant());
    note.setValue(QStringLiteral("transcription"), QStringLiteral(" Transcribing audio... "));
    EXPECT_EQ(NoteListItemModel::previewText(note), QString());
    EXPECT_TRUE(NoteListItemModel::isProcessingNote(note));
    note.setValue(QStringLiteral("transcription"), QStringLiteral("Transcription failed: no audio"));
    EXPECT_EQ(NoteListItemModel::previewText(note), QString());
    EXPECT_FALSE(NoteListItemModel::isProcessingNote(note));
}

} // namespace
