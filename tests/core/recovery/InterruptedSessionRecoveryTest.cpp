// The launch's pass over interrupted recordings on real stores and folders.
// Which playable files match their raw audio, and how a torn raw file is
// read, is the writer's business (tests/capture); here, what the launch
// repairs, counts, reports and leaves alone.
#include "RecoveryTestSupport.h"
#include "support/SoundFiles.h"

#include <sndfile.h>

#include <sys/stat.h>

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;

namespace {

qint64 inode(const QString &path)
{
    struct stat info;
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? qint64(info.st_ino) : -1;
}

QString recordingsOf(const QUuid &id)
{
    return u"Recordings/"_s + RecordingFolder::uuidText(id);
}

class RecoveryTest : public ::testing::Test {
protected:
    QMap<QString, QByteArray> recordings() const { return snapshot(library.root() + u"/Recordings"_s); }

    Library library;
};

} // namespace

TEST_F(RecoveryTest, ALibraryWithNothingToRepairSaysNothingAndTouchesNothing)
{
    const QUuid id = library.createNote();
    EXPECT_EQ(library.launch()->message(), QString()) << "no recordings at all";
    const QUuid other = library.createNote();
    for (int s = 0; s < 3; ++s)
        interruptedSegment(library.segment(other), other, 48000, ramp(1000), true);
    // Audio without a manifest, folders named like no note, a file among the segments.
    writeFile(library.segment(id, u"A"_s) + u"/audio.float32"_s, QByteArray(400, 1));
    interruptedSegment(library.root() + u"/Recordings/not-a-note/S"_s, id, 48000, ramp(100));
    interruptedSegment(library.root() + u"/Recordings/{"_s + RecordingFolder::uuidText(id) + u"}/S"_s, id,
                       48000, ramp(100));
    writeFile(library.segment(id, u"notes.txt"_s), "x");
    const auto before = recordings();
    EXPECT_EQ(library.launch()->message(), QString());
    EXPECT_EQ(recordings(), before);
}

TEST_F(RecoveryTest, EveryInterruptedSessionIsRebuiltMarkedAndCountedOncePerNote)
{
    const QUuid first = library.createNote(), second = library.createNote(), third = library.createNote();
    const QUuid gone = QUuid::createUuid();
    const std::pair<QString, double> repaired[] = {
        {interruptedSegment(library.segment(first), first, 44100, ramp(70000)), 44100},
        {interruptedSegment(library.segment(first), first, 16000, ramp(2000)), 16000},
        {interruptedSegment(library.segment(second), second, 48000, ramp(3000)), 48000},
        // Audio of a deleted note is repaired but not counted.
        {interruptedSegment(library.segment(gone), gone, 48000, ramp(3000)), 48000}};
    interruptedSegment(library.segment(first), first, 44100, ramp(100), true);
    // Leftovers of a build that a crash cut short.
    writeFile(repaired[0].first + u"/recovered-5E0B7C56-0000-4000-8000-000000000000.caf"_s, "torn");
    // A playable file that matches is kept as it is; one that does not is rebuilt.
    const QString good = interruptedSegment(library.segment(third), third, 48000, ramp(5000));
    DurableAudioWriter::rebuildFinalAudio(good);
    const qint64 built = inode(RecordingFolder::finalAudioPath(good));
    const QString wrong = interruptedSegment(library.segment(third), third, 48000, ramp(5000));
    ASSERT_TRUE(writeSoundFile(RecordingFolder::finalAudioPath(wrong), SF_FORMAT_CAF | SF_FORMAT_FLOAT, 48000,
                               1, std::vector<float>(4999, 0.5f)));
    // A note that had its source gets the same value again.
    {
        SharedPersistenceController store(library.root());
        store.applyGeneratedFields(store.noteWithId(third), {{u"sourceURL"_s, recordingsOf(third)}});
    }

    const auto app = library.launch();
    EXPECT_EQ(app->message(), recoveredText(3));
    for (const auto &[segment, rate] : repaired) {
        SCOPED_TRACE(segment.toStdString());
        expectPlayable(segment, rate);
        EXPECT_TRUE(isComplete(segment));
        EXPECT_EQ(QDir(segment).entryList({u"recovered-*"_s}, QDir::Files), QStringList());
    }
    expectPlayable(wrong, 48000);
    EXPECT_EQ(inode(RecordingFolder::finalAudioPath(good)), built);
    EXPECT_TRUE(isComplete(good) && isComplete(wrong));
    for (const QUuid &id : {first, second, third})
        EXPECT_EQ(library.sourceURL(id), recordingsOf(id));
    // The notes the model shows were reloaded after the repair.
    EXPECT_EQ(app->notes().size(), 3);
    for (const NotePtr &note : app->notes())
        EXPECT_EQ(note->sourceURL(), recordingsOf(*note->id()));

    // The next launch has nothing to do.
    EXPECT_EQ(library.launch()->message(), QString());
}

TEST_F(RecoveryTest, DamagedManifestsAreReportedInTheirOwnWordsUntouchedAndDoNotStopTheOthers)
{
    const QUuid a = library.createNote(), b = library.createNote();
    const QString bad = library.segment(a, u"0-bad"_s);
    writeFile(RecordingFolder::manifestPath(bad), "{");
    writeFile(RecordingFolder::rawAudioPath(bad), QByteArray(4000, 0));
    const QString good1 = interruptedSegment(library.segment(a, u"1-good"_s), a, 48000, ramp(200));
    const QString good2 = interruptedSegment(library.segment(b), b, 48000, ramp(200));
    EXPECT_EQ(library.launch()->message(), recoveredText(2)) << "the recovered text wins";
    EXPECT_TRUE(isComplete(good1) && isComplete(good2));

    // Alone, the failure is what the user reads at every launch: the
    // decoder's words, or for a manifest that decodes to a rate that is no
    // rate, the invalid format.
    QString decoderWords;
    try {
        LocalRecordingManifest::decode("{");
    } catch (const Error &error) {
        decoderWords = error.localizedDescription();
    }
    ASSERT_FALSE(decoderWords.isEmpty());
    const QByteArray zeroRate =
        fileBytes(QStringLiteral(KESTIL_TEST_DATA_DIR "/capture/manifests/rate-zero.json"));
    ASSERT_FALSE(zeroRate.isEmpty());
    for (const auto &[manifest, description] :
         {std::pair{QByteArray("{"), decoderWords},
          std::pair{zeroRate,
                    u"Transcription audio has an invalid format; the original audio was preserved."_s}}) {
        writeFile(RecordingFolder::manifestPath(bad), manifest);
        for (int launch = 0; launch < 2; ++launch) {
            const auto before = recordings();
            EXPECT_EQ(library.launch()->message(),
                      u"Some audio needs recovery: "_s + description + u". Original files were preserved."_s);
            EXPECT_EQ(recordings(), before);
        }
    }
    // Recordings that cannot be listed stop the scan with the reason.
    QDir(library.root() + u"/Recordings"_s).removeRecursively();
    writeFile(library.root() + u"/Recordings"_s, "a file, not a folder");
    EXPECT_EQ(library.launch()->message(), u"Could not list “Recordings”: Not a directory"_s);
}

TEST_F(RecoveryTest, LinksLeadingOutOfTheDataRootAreNeverWrittenThrough)
{
    QTemporaryDir outside;
    const QUuid id = library.createNote();
    QDir().mkpath(library.root() + u"/Recordings"_s);
    const auto link = [&](const QString &target, const QString &name) {
        ASSERT_TRUE(QFile::link(outside.filePath(target), name));
    };

    // A note folder that is a link to a folder outside the root.
    const QUuid linked = library.createNote();
    interruptedSegment(outside.filePath(u"note/S"_s), linked, 48000, ramp(100));
    link(u"note"_s, RecordingFolder::noteFolder(library.root(), linked));
    // A segment that is a link to a folder outside.
    interruptedSegment(outside.filePath(u"segment"_s), id, 48000, ramp(100));
    QDir().mkpath(RecordingFolder::noteFolder(library.root(), id));
    link(u"segment"_s, library.segment(id, u"L"_s));
    // Files in a real segment that are links to files outside.
    const QString segment = library.segment(id, u"R"_s);
    interruptedSegment(outside.filePath(u"raw"_s), id, 48000, ramp(300));
    QDir().mkpath(segment);
    link(u"raw/audio.float32"_s, RecordingFolder::rawAudioPath(segment));
    link(u"raw/recording.json"_s, RecordingFolder::manifestPath(segment));
    writeFile(outside.filePath(u"old.caf"_s), "outside caf");
    link(u"old.caf"_s, RecordingFolder::finalAudioPath(segment));

    const auto before = snapshot(outside.path());
    const QString message = library.launch()->message();
    EXPECT_EQ(snapshot(outside.path()), before) << "nothing outside the root was touched";
    // The real segment was repaired inside the root: its links to files were
    // replaced by files of its own, never written through.
    EXPECT_EQ(message, recoveredText(1));
    EXPECT_FALSE(QFileInfo(RecordingFolder::finalAudioPath(segment)).isSymLink());
    EXPECT_FALSE(QFileInfo(RecordingFolder::manifestPath(segment)).isSymLink());
    EXPECT_TRUE(isComplete(segment));
    expectPlayable(segment, 48000);
    EXPECT_EQ(library.sourceURL(linked), std::nullopt);

    // Without anything to recover the refusal itself is what the user reads.
    const QString refused = library.launch()->message();
    EXPECT_TRUE(refused.startsWith(u"Some audio needs recovery: The recording folder “"_s)) << refused;
    EXPECT_TRUE(refused.endsWith(u"” leads outside the Kestil data folder. Original files were preserved."_s))
        << refused;
}

TEST_F(RecoveryTest, AFailedBuildOrNoteUpdateLeavesTheSessionForTheNextLaunch)
{
    const QUuid id = library.createNote();
    const QString segment = interruptedSegment(library.segment(id), id, 48000, ramp(500));
    // A raw "file" that cannot be read fails the repair, as a full disk
    // fails its build; the folder stays for the next launch.
    const QString raw = RecordingFolder::rawAudioPath(segment);
    ASSERT_TRUE(QFile::rename(raw, raw + u".kept"_s));
    ASSERT_TRUE(QDir().mkdir(raw));
    const QString failed = library.launch()->message();
    EXPECT_TRUE(failed.startsWith(u"Some audio needs recovery: "_s)) << failed;
    EXPECT_TRUE(failed.endsWith(u". Original files were preserved."_s)) << failed;
    EXPECT_EQ(QDir(segment).entryList({u"recovered-*"_s}, QDir::Files), QStringList());
    EXPECT_FALSE(isComplete(segment));
    ASSERT_TRUE(QDir().rmdir(raw) && QFile::rename(raw + u".kept"_s, raw));

    // The playable file is built, but the note cannot take its folder.
    const auto writes = [&](bool fail) {
        SharedPersistenceController store(library.root());
        (fail ? failWrites : allowWrites)(store, u"note"_s, u"UPDATE"_s);
    };
    writes(true);
    const QString message = library.launch()->message();
    EXPECT_TRUE(message.contains(u"disk is full"_s, Qt::CaseInsensitive)) << message;
    EXPECT_FALSE(isComplete(segment));
    expectPlayable(segment, 48000);
    const qint64 built = inode(RecordingFolder::finalAudioPath(segment));
    writes(false);
    EXPECT_EQ(library.launch()->message(), recoveredText(1));
    EXPECT_EQ(inode(RecordingFolder::finalAudioPath(segment)), built) << "the good file was accepted";
    EXPECT_TRUE(isComplete(segment));
    EXPECT_EQ(library.sourceURL(id), recordingsOf(id));
}
