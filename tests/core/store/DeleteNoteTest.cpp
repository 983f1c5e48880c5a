#include "core/CoreTestSupport.h"

using namespace kestil;
using namespace kestil::test;

namespace {

class DeleteNoteTest : public ::testing::Test {
protected:
    TempRoot root;
    std::unique_ptr<SharedPersistenceController> controller = root.open();
    NotePtr note = controller->createNote(QStringLiteral("With audio"), {}, QUuid::createUuid(),
                                          QStringLiteral("local"));
    QString id = idText(*note->id());
    QString live = root.file(QStringLiteral("Recordings/") + id);
    QString staged = root.file(QStringLiteral("DeletedRecordings/") + id);
    void giveAudio() { writeFile(live + QStringLiteral("/SEG/audio.float32"), QByteArray(4096, 'a')); }
    qint64 noteRows() { return countRows(*controller, QStringLiteral("note")); }
};

TEST_F(DeleteNoteTest, RemovesNoteChatAndAudioButNotWhileRecording)
{
    giveAudio();
    const QUuid lease = controller->beginRecording(note);
    EXPECT_EQ(errorOf([&] { controller->deleteNote(note); }),
              QStringLiteral("Stop this transcription before deleting its note."));
    EXPECT_TRUE(QFile::exists(live + QStringLiteral("/SEG/audio.float32")));
    EXPECT_EQ(noteRows(), 1);
    controller->endRecording(lease);

    controller->appendChatMessage(
        {QUuid::createUuid(), QStringLiteral("user"), QStringLiteral("q?"), QDateTime::currentDateTimeUtc()},
        *note->id());
    controller->deleteNote(note);
    EXPECT_EQ(noteRows(), 0);
    EXPECT_EQ(countRows(*controller, QStringLiteral("note_chat_message")), 0);
    EXPECT_FALSE(QFile::exists(live));
    EXPECT_FALSE(QFile::exists(staged));
    EXPECT_TRUE(note->isDeleted());
}

TEST_F(DeleteNoteTest, FailedSaveBringsNoteAndAudioBack)
{
    failWrites(*controller, QStringLiteral("note"), QStringLiteral("DELETE"));
    EXPECT_THROW(controller->deleteNote(note), SystemError);
    EXPECT_FALSE(QFile::exists(root.file(QStringLiteral("DeletedRecordings"))));
    EXPECT_EQ(controller->fetchNotes().size(), 1);

    giveAudio();
    EXPECT_THROW(controller->deleteNote(note), SystemError);
    EXPECT_FALSE(note->isDeleted());
    EXPECT_EQ(controller->fetchNotes().size(), 1);
    EXPECT_EQ(noteRows(), 1);
    EXPECT_EQ(readFile(live + QStringLiteral("/SEG/audio.float32")).size(), 4096);
    EXPECT_FALSE(QFile::exists(staged));
}

TEST_F(DeleteNoteTest, FailedMoveBackLeavesAudioStagedAndTheNextLaunchRestoresIt)
{
    giveAudio();
    failWrites(*controller, QStringLiteral("note"), QStringLiteral("DELETE"));
    int moves = 0;
    controller->setMoverForTesting([&moves](const QString &from, const QString &to) {
        if (++moves == 2)
            throw SystemError(QStringLiteral("The disk was ejected"));
        moveItemAtomically(from, to);
    });
    EXPECT_EQ(errorOf([&] { controller->deleteNote(note); }),
              QStringLiteral("Note deletion failed. Its audio is preserved in local recovery storage "
                             "and will be restored on launch: The disk was ejected"));
    EXPECT_EQ(controller->fetchNotes().size(), 1);
    EXPECT_TRUE(QFile::exists(staged + QStringLiteral("/SEG/audio.float32")));
    controller.reset();
    controller = root.open();
    EXPECT_TRUE(QFile::exists(live + QStringLiteral("/SEG/audio.float32")));
    EXPECT_FALSE(QFile::exists(staged));
}

TEST_F(DeleteNoteTest, FailedCleanupIsFinishedAtTheNextLaunch)
{
    giveAudio();
    controller->setRemoverForTesting(
        [](const QString &) { throw SystemError(QStringLiteral("Device busy")); });
    EXPECT_EQ(errorOf([&] { controller->deleteNote(note); }),
              QStringLiteral("The note was deleted. Audio cleanup remains pending locally and will "
                             "retry on launch: Device busy"));
    EXPECT_EQ(noteRows(), 0);
    EXPECT_TRUE(QFile::exists(staged));
    controller.reset();
    controller = root.open();
    EXPECT_FALSE(QFile::exists(staged));
}

TEST(RestoreDeletedRecordingsTest, KeepsForeignNamesAndStopsTheLaunchOnAConflict)
{
    TempRoot root;
    QUuid keptId, conflictId;
    {
        auto controller = root.open();
        keptId = *controller->createNote({}, {}, QUuid::createUuid(), QStringLiteral("local"))->id();
        conflictId = *controller->createNote({}, {}, QUuid::createUuid(), QStringLiteral("local"))->id();
    }
    const auto deleted = [&](const QString &name) {
        return root.file(QStringLiteral("DeletedRecordings/") + name + QStringLiteral("/x"));
    };
    const auto live = [&](const QUuid &id) {
        return root.file(QStringLiteral("Recordings/") + idText(id) + QStringLiteral("/x"));
    };
    // Names that merely contain a UUID are no note's: a copy someone made by
    // hand is kept, even beside a note of that UUID.
    const QStringList foreign{QLatin1Char('{') + idText(QUuid::createUuid()) + QLatin1Char('}'),
                              idText(keptId) + QStringLiteral(".old"),
                              idText(QUuid::createUuid()) + QStringLiteral("-copy"),
                              QStringLiteral("not-a-uuid")};
    for (const QString &name : foreign)
        writeFile(deleted(name), "keep");
    writeFile(deleted(idText(QUuid::createUuid())), "gone");
    writeFile(deleted(idText(keptId)), "back");
    ASSERT_TRUE(root.open()->ready());
    EXPECT_EQ(readFile(live(keptId)), "back");
    QStringList kept = foreign;
    kept.sort();
    EXPECT_EQ(QDir(root.file(QStringLiteral("DeletedRecordings")))
                  .entryList(QDir::NoDotAndDotDot | QDir::AllEntries, QDir::Name),
              kept);
    for (const QString &name : foreign)
        EXPECT_EQ(readFile(deleted(name)), "keep");

    // Two copies of one note's audio stop the launch with words, and both stay.
    writeFile(deleted(idText(conflictId)), "staged");
    writeFile(live(conflictId), "live");
    const auto app = launchApp(root.path());
    EXPECT_FALSE(app->store());
    EXPECT_EQ(app->message(),
              QStringLiteral("Transcription recovery found two audio copies for one note. Both "
                             "were preserved for review."));
    EXPECT_EQ(readFile(deleted(idText(conflictId))), "staged");
    EXPECT_EQ(readFile(live(conflictId)), "live");
}

} // namespace
