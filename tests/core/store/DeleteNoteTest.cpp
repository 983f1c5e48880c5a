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
    QString live() const { return root.file(QStringLiteral("Recordings/") + idText(*note->id())); }
    QString staged() const { return root.file(QStringLiteral("DeletedRecordings/") + idText(*note->id())); }
    void giveAudio() { writeFile(live() + QStringLiteral("/SEG/audio.float32"), QByteArray(4096, 'a')); }
};

TEST_F(DeleteNoteTest, RemovesNoteChatAndAudio)
{
    giveAudio();
    controller->appendChatMessage(
        {QUuid::createUuid(), QStringLiteral("user"), QStringLiteral("q?"), QDateTime::currentDateTimeUtc()},
        *note->id());
    controller->deleteNote(note);
    EXPECT_EQ(countRows(*controller, QStringLiteral("note")), 0);
    EXPECT_EQ(countRows(*controller, QStringLiteral("note_chat_message")), 0);
    EXPECT_FALSE(QFile::exists(live()));
    EXPECT_FALSE(QFile::exists(staged()));
    EXPECT_TRUE(note->isDeleted());
}

TEST_F(DeleteNoteTest, RecordingNoteCannotBeDeleted)
{
    giveAudio();
    controller->beginRecording(note);
    try {
        controller->deleteNote(note);
        FAIL();
    } catch (const LocalError &e) {
        EXPECT_EQ(e.message(), QStringLiteral("Stop this transcription before deleting its note."));
    }
    EXPECT_TRUE(QFile::exists(live() + QStringLiteral("/SEG/audio.float32")));
    EXPECT_EQ(countRows(*controller, QStringLiteral("note")), 1);
}

TEST_F(DeleteNoteTest, FailedSaveBringsNoteAndAudioBack)
{
    giveAudio();
    failWrites(*controller, QStringLiteral("note"), QStringLiteral("DELETE"));
    EXPECT_THROW(controller->deleteNote(note), SystemError);
    EXPECT_FALSE(note->isDeleted());
    EXPECT_EQ(controller->fetchNotes().size(), 1);
    EXPECT_EQ(countRows(*controller, QStringLiteral("note")), 1);
    EXPECT_EQ(readFile(live() + QStringLiteral("/SEG/audio.float32")).size(), 4096);
    EXPECT_FALSE(QFile::exists(staged()));
}

TEST_F(DeleteNoteTest, WithoutAudioAFailedSaveJustRollsBack)
{
    failWrites(*controller, QStringLiteral("note"), QStringLiteral("DELETE"));
    EXPECT_THROW(controller->deleteNote(note), SystemError);
    EXPECT_FALSE(QFile::exists(root.file(QStringLiteral("DeletedRecordings"))));
    EXPECT_EQ(controller->fetchNotes().size(), 1);
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
    try {
        controller->deleteNote(note);
        FAIL();
    } catch (const LocalError &e) {
        EXPECT_EQ(e.message(),
                  QStringLiteral("Note deletion failed. Its audio is preserved in local recovery storage "
                                 "and will be restored on launch: The disk was ejected"));
    }
    EXPECT_EQ(controller->fetchNotes().size(), 1);
    EXPECT_TRUE(QFile::exists(staged() + QStringLiteral("/SEG/audio.float32")));
    const QUuid id = *note->id();
    controller.reset();

    auto relaunched = root.open();
    EXPECT_TRUE(QFile::exists(
        root.file(QStringLiteral("Recordings/") + idText(id) + QStringLiteral("/SEG/audio.float32"))));
    EXPECT_FALSE(QFile::exists(root.file(QStringLiteral("DeletedRecordings/") + idText(id))));
}

TEST_F(DeleteNoteTest, FailedCleanupIsFinishedAtTheNextLaunch)
{
    giveAudio();
    controller->setRemoverForTesting(
        [](const QString &) { throw SystemError(QStringLiteral("Device busy")); });
    try {
        controller->deleteNote(note);
        FAIL();
    } catch (const LocalError &e) {
        EXPECT_EQ(e.message(),
                  QStringLiteral("The note was deleted. Audio cleanup remains pending locally and will "
                                 "retry on launch: Device busy"));
    }
    EXPECT_EQ(countRows(*controller, QStringLiteral("note")), 0);
    EXPECT_TRUE(QFile::exists(staged()));
    const QString stagedPath = staged();
    controller.reset();
    auto relaunched = root.open();
    EXPECT_FALSE(QFile::exists(stagedPath));
}

TEST(RestoreDeletedRecordingsTest, KeepsForeignNamesAndStopsOnConflict)
{
    TempRoot root;
    QUuid keptId, conflictId;
    {
        auto controller = root.open();
        keptId = *controller->createNote({}, {}, QUuid::createUuid(), QStringLiteral("local"))->id();
        conflictId = *controller->createNote({}, {}, QUuid::createUuid(), QStringLiteral("local"))->id();
    }
    writeFile(root.file(QStringLiteral("DeletedRecordings/not-a-uuid/x")), "keep");
    // Names that merely contain a UUID are no note's: a copy someone made by
    // hand is kept, even beside a note of that UUID.
    const QStringList lookalikes{QLatin1Char('{') + idText(QUuid::createUuid()) + QLatin1Char('}'),
                                 idText(keptId) + QStringLiteral(".old"),
                                 idText(QUuid::createUuid()) + QStringLiteral("-copy")};
    for (const QString &name : lookalikes)
        writeFile(root.file(QStringLiteral("DeletedRecordings/") + name + QStringLiteral("/x")), "keep");
    writeFile(
        root.file(QStringLiteral("DeletedRecordings/") + idText(QUuid::createUuid()) + QStringLiteral("/x")),
        "gone");
    writeFile(root.file(QStringLiteral("DeletedRecordings/") + idText(keptId) + QStringLiteral("/x")),
              "back");
    {
        auto controller = root.open();
        ASSERT_TRUE(controller->ready());
    }
    EXPECT_EQ(readFile(root.file(QStringLiteral("Recordings/") + idText(keptId) + QStringLiteral("/x"))),
              "back");
    EXPECT_EQ(readFile(root.file(QStringLiteral("DeletedRecordings/not-a-uuid/x"))), "keep");
    QStringList kept = lookalikes + QStringList{QStringLiteral("not-a-uuid")};
    kept.sort();
    EXPECT_EQ(QDir(root.file(QStringLiteral("DeletedRecordings")))
                  .entryList(QDir::NoDotAndDotDot | QDir::AllEntries, QDir::Name),
              kept);
    for (const QString &name : lookalikes)
        EXPECT_EQ(readFile(root.file(QStringLiteral("DeletedRecordings/") + name + QStringLiteral("/x"))),
                  "keep");

    writeFile(root.file(QStringLiteral("DeletedRecordings/") + idText(conflictId) + QStringLiteral("/x")),
              "staged");
    writeFile(root.file(QStringLiteral("Recordings/") + idText(conflictId) + QStringLiteral("/x")), "live");
    try {
        root.open();
        FAIL() << "two copies must stop the launch";
    } catch (const LocalError &e) {
        EXPECT_EQ(e.message(),
                  QStringLiteral("Transcription recovery found two audio copies for one note. Both were "
                                 "preserved for review."));
    }
    EXPECT_EQ(
        readFile(root.file(QStringLiteral("DeletedRecordings/") + idText(conflictId) + QStringLiteral("/x"))),
        "staged");
    EXPECT_EQ(readFile(root.file(QStringLiteral("Recordings/") + idText(conflictId) + QStringLiteral("/x"))),
              "live");
}

} // namespace
