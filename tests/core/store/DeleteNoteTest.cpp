#include "core/CoreTestSupport.h"

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;

namespace {

class DeleteNoteTest : public ::testing::Test {
protected:
    TempRoot root;
    std::unique_ptr<SharedPersistenceController> controller = root.open();
    NotePtr note = controller->createNote(u"With audio"_s, {}, QUuid::createUuid(), u"local"_s);
    QString id = idText(*note->id());
    QString live = root.file(u"Recordings/"_s + id);
    QString staged = root.file(u"DeletedRecordings/"_s + id);
    void giveAudio() { writeFile(live + u"/SEG/audio.float32"_s, QByteArray(4096, 'a')); }
    qint64 noteRows() { return countRows(*controller, u"note"_s); }
};

TEST_F(DeleteNoteTest, RemovesNoteChatAndAudioButNotWhileRecording)
{
    giveAudio();
    const QUuid lease = controller->beginRecording(note);
    EXPECT_EQ(errorOf([&] { controller->deleteNote(note); }),
              u"Stop this transcription before deleting its note."_s);
    EXPECT_TRUE(QFile::exists(live + u"/SEG/audio.float32"_s));
    EXPECT_EQ(noteRows(), 1);
    controller->endRecording(lease);

    controller->appendChatMessage({QUuid::createUuid(), u"user"_s, u"q?"_s, QDateTime::currentDateTimeUtc()},
                                  *note->id());
    controller->deleteNote(note);
    EXPECT_EQ(noteRows(), 0);
    EXPECT_EQ(countRows(*controller, u"note_chat_message"_s), 0);
    EXPECT_FALSE(QFile::exists(live));
    EXPECT_FALSE(QFile::exists(staged));
    EXPECT_TRUE(note->isDeleted());
}

TEST_F(DeleteNoteTest, AFailedSaveBringsNoteAndAudioBackOrLeavesTheAudioForTheNextLaunch)
{
    failWrites(*controller, u"note"_s, u"DELETE"_s);
    EXPECT_THROW(controller->deleteNote(note), SystemError);
    EXPECT_FALSE(QFile::exists(root.file(u"DeletedRecordings"_s)));
    giveAudio();
    EXPECT_THROW(controller->deleteNote(note), SystemError);
    EXPECT_FALSE(note->isDeleted());
    EXPECT_EQ(controller->fetchNotes().size(), 1);
    EXPECT_EQ(noteRows(), 1);
    EXPECT_EQ(fileBytes(live + u"/SEG/audio.float32"_s).size(), 4096);
    EXPECT_FALSE(QFile::exists(staged));

    // When the move back fails too, the audio waits staged for the next launch.
    int moves = 0;
    controller->setMoverForTesting([&moves](const QString &from, const QString &to) {
        if (++moves == 2)
            throw SystemError(u"The disk was ejected"_s);
        moveItemAtomically(from, to);
    });
    EXPECT_EQ(
        errorOf([&] { controller->deleteNote(note); }),
        u"Note deletion failed. Its audio is preserved in local recovery storage and will be restored on "
        "launch: The disk was ejected"_s);
    EXPECT_EQ(controller->fetchNotes().size(), 1);
    EXPECT_TRUE(QFile::exists(staged + u"/SEG/audio.float32"_s));
    controller.reset(); // the next launch
    controller = root.open();
    EXPECT_TRUE(QFile::exists(live + u"/SEG/audio.float32"_s));
    EXPECT_FALSE(QFile::exists(staged));
}

TEST_F(DeleteNoteTest, FailedCleanupIsFinishedAtTheNextLaunch)
{
    giveAudio();
    controller->setRemoverForTesting([](const QString &) { throw SystemError(u"Device busy"_s); });
    EXPECT_EQ(errorOf([&] { controller->deleteNote(note); }),
              u"The note was deleted. Audio cleanup remains pending locally and will "
              "retry on launch: Device busy"_s);
    EXPECT_EQ(noteRows(), 0);
    EXPECT_TRUE(QFile::exists(staged));
    controller.reset(); // the next launch
    controller = root.open();
    EXPECT_FALSE(QFile::exists(staged));
}

TEST(RestoreDeletedRecordingsTest, KeepsForeignNamesAndStopsTheLaunchOnAConflict)
{
    TempRoot root;
    QUuid keptId, conflictId;
    {
        auto controller = root.open();
        keptId = *controller->createNote({}, {}, QUuid::createUuid(), u"local"_s)->id();
        conflictId = *controller->createNote({}, {}, QUuid::createUuid(), u"local"_s)->id();
    }
    const auto deleted = [&](const QString &name) {
        return root.file(u"DeletedRecordings/"_s + name + u"/x"_s);
    };
    const auto live = [&](const QUuid &id) { return root.file(u"Recordings/"_s + idText(id) + u"/x"_s); };
    // Names that merely contain a UUID are no note's: a copy someone made by
    // hand is kept, even beside a note of that UUID.
    QStringList foreign{idText(keptId) + u".old"_s, u"not-a-uuid"_s,
                        QLatin1Char('{') + idText(QUuid::createUuid()) + QLatin1Char('}')};
    for (const QString &name : foreign)
        writeFile(deleted(name), "keep");
    writeFile(deleted(idText(QUuid::createUuid())), "gone");
    writeFile(deleted(idText(keptId)), "back");
    ASSERT_TRUE(root.open()->ready());
    EXPECT_EQ(fileBytes(live(keptId)), "back");
    foreign.sort();
    EXPECT_EQ(QDir(root.file(u"DeletedRecordings"_s))
                  .entryList(QDir::NoDotAndDotDot | QDir::AllEntries, QDir::Name),
              foreign);
    for (const QString &name : foreign)
        EXPECT_EQ(fileBytes(deleted(name)), "keep");

    // Two copies of one note's audio stop the launch with words, and both stay.
    writeFile(deleted(idText(conflictId)), "staged");
    writeFile(live(conflictId), "live");
    const auto app = launchApp(root.path());
    EXPECT_FALSE(app->store());
    EXPECT_EQ(app->message(), u"Transcription recovery found two audio copies for one note. Both "
                              "were preserved for review."_s);
    EXPECT_EQ(fileBytes(deleted(idText(conflictId))), "staged");
    EXPECT_EQ(fileBytes(live(conflictId)), "live");
}

} // namespace
