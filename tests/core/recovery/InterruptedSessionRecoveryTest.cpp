#include "RecoveryTestSupport.h"
#include "support/SoundFiles.h"

#include <sndfile.h>

#include <sys/stat.h>

using namespace kestil;
using namespace kestil::test;

namespace {

qint64 inode(const QString &path)
{
    struct stat info;
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? qint64(info.st_ino) : -1;
}

class RecoveryTest : public ::testing::Test {
protected:
    Library library;
};

} // namespace

TEST_F(RecoveryTest, ALibraryWithNothingToRepairSaysNothingAndTouchesNothing)
{
    const QUuid id = library.createNote();
    EXPECT_EQ(library.launch()->message(), QString()) << "no recordings at all";
    for (int n = 0; n < 3; ++n) {
        const QUuid other = library.createNote();
        for (int s = 0; s < 3; ++s)
            finishedSegment(library.segment(other), other, 48000, ramp(1000));
    }
    // Audio without a manifest, folders named like no note, a file among the segments.
    writeFile(library.segment(id, QStringLiteral("A")) + QStringLiteral("/audio.float32"),
              QByteArray(400, 1));
    interruptedSegment(library.root() + QStringLiteral("/Recordings/not-a-note/S"), id, 48000, ramp(100));
    interruptedSegment(library.root() + QStringLiteral("/Recordings/{") + RecordingFolder::uuidText(id) +
                           QStringLiteral("}/S"),
                       id, 48000, ramp(100));
    writeFile(library.segment(id, QStringLiteral("notes.txt")), "x");
    const auto before = snapshot(library.root() + QStringLiteral("/Recordings"));
    EXPECT_EQ(library.launch()->message(), QString());
    EXPECT_EQ(snapshot(library.root() + QStringLiteral("/Recordings")), before);
}

TEST_F(RecoveryTest, AnInterruptedSessionIsRebuiltLinkedAndMarkedLast)
{
    const QUuid id = library.createNote();
    const QString segment = interruptedSegment(library.segment(id), id, 44100, ramp(70000));
    finishedSegment(library.segment(id), id, 44100, ramp(100));
    // Leftovers of a build that a crash cut short.
    writeFile(segment + QStringLiteral("/recovered-5E0B7C56-0000-4000-8000-000000000000.caf"), "torn");

    const auto app = library.launch();
    EXPECT_EQ(app->message(), recoveredText(1));
    expectPlayable(segment, 44100);
    EXPECT_TRUE(isComplete(segment));
    EXPECT_EQ(library.sourceURL(id), QStringLiteral("Recordings/") + RecordingFolder::uuidText(id));
    EXPECT_EQ(QDir(segment).entryList({QStringLiteral("recovered-*")}, QDir::Files), QStringList());
    // The notes the model shows were reloaded after the repair.
    ASSERT_EQ(app->notes().size(), 1);
    EXPECT_EQ(app->notes().first()->sourceURL(),
              QStringLiteral("Recordings/") + RecordingFolder::uuidText(id));

    // The next launch has nothing to do.
    EXPECT_EQ(library.launch()->message(), QString());
}

TEST_F(RecoveryTest, EverySessionIsRepairedAndCountedOncePerNote)
{
    const QUuid first = library.createNote(), second = library.createNote(), third = library.createNote(),
                fourth = library.createNote();
    const QUuid gone = QUuid::createUuid();
    std::vector<std::pair<QString, double>> repaired{
        {interruptedSegment(library.segment(first), first, 48000, ramp(1000)), 48000},
        {interruptedSegment(library.segment(first), first, 16000, ramp(2000)), 16000},
        {interruptedSegment(library.segment(second), second, 48000, ramp(3000)), 48000},
        // Audio of a deleted note is repaired but not counted.
        {interruptedSegment(library.segment(gone), gone, 48000, ramp(3000)), 48000}};
    // A good playable file is kept as it is.
    const QString good = interruptedSegment(library.segment(fourth), fourth, 48000, ramp(5000));
    DurableAudioWriter::rebuildFinalAudio(good);
    const qint64 built = inode(RecordingFolder::finalAudioPath(good));
    // Playable files that do not match are rebuilt.
    const struct {
        int rate;
        int channels;
        qint64 frames;
    } wrong[] = {{44100, 1, 5000}, {48000, 2, 5000}, {48000, 1, 4999}};
    for (const auto &w : wrong) {
        const QString segment = interruptedSegment(library.segment(third), third, 48000, ramp(5000));
        std::vector<float> other(size_t(w.frames * w.channels), 0.5f);
        ASSERT_TRUE(writeSoundFile(RecordingFolder::finalAudioPath(segment), SF_FORMAT_CAF | SF_FORMAT_FLOAT,
                                   w.rate, w.channels, other));
        repaired.emplace_back(segment, 48000);
    }
    // A note that had its source gets the same value again.
    const QString thirdSource = QStringLiteral("Recordings/") + RecordingFolder::uuidText(third);
    {
        SharedPersistenceController store(library.root());
        store.applyGeneratedFields(store.noteWithId(third), {{QStringLiteral("sourceURL"), thirdSource}});
    }

    EXPECT_EQ(library.launch()->message(), recoveredText(4));
    for (const auto &[segment, rate] : repaired) {
        SCOPED_TRACE(segment.toStdString());
        expectPlayable(segment, rate);
        EXPECT_TRUE(isComplete(segment));
    }
    EXPECT_EQ(inode(RecordingFolder::finalAudioPath(good)), built);
    EXPECT_TRUE(isComplete(good));
    EXPECT_EQ(library.sourceURL(third), thirdSource);
}

TEST_F(RecoveryTest, DamagedManifestsAreReportedAndTheirFoldersUntouched)
{
    const QUuid id = library.createNote();
    for (const char *file :
         {"truncated.json", "empty.json", "array.json", "rate-as-string.json", "date-as-string.json",
          "complete-as-number.json", "note-as-number.json", "note-not-uuid.json", "missing-rate.json",
          "rate-nan.json", "rate-zero.json", "rate-negative.json"}) {
        const QString fixture = QStringLiteral(KESTIL_TEST_DATA_DIR "/capture/manifests/") + file;
        ASSERT_TRUE(QFile::exists(fixture)) << file;
        const QByteArray manifest = readFile(fixture);
        // The decoder's own words, or, for a manifest that decodes, the
        // invalid-format text.
        QString description =
            QStringLiteral("Transcription audio has an invalid format; the original audio was preserved.");
        try {
            LocalRecordingManifest::decode(manifest);
        } catch (const Error &error) {
            description = error.localizedDescription();
        }
        const QString segment = library.segment(id, QStringLiteral("S"));
        QDir(segment).removeRecursively();
        writeFile(RecordingFolder::manifestPath(segment), manifest);
        writeFile(RecordingFolder::rawAudioPath(segment), QByteArray(4000, 0));
        const auto before = snapshot(library.root() + QStringLiteral("/Recordings"));
        EXPECT_EQ(library.launch()->message(), needsRecoveryText(description)) << file;
        EXPECT_EQ(snapshot(library.root() + QStringLiteral("/Recordings")), before) << file;
        EXPECT_EQ(library.sourceURL(id), std::nullopt);
    }
}

TEST_F(RecoveryTest, OneUnreadableFolderDoesNotStopTheOthersAndTheRecoveredTextWins)
{
    const QUuid a = library.createNote(), b = library.createNote();
    const QString bad = library.segment(a, QStringLiteral("0-bad"));
    writeFile(RecordingFolder::manifestPath(bad), "{");
    const QString good1 =
        interruptedSegment(library.segment(a, QStringLiteral("1-good")), a, 48000, ramp(200));
    const QString good2 = interruptedSegment(library.segment(b), b, 48000, ramp(200));
    EXPECT_EQ(library.launch()->message(), recoveredText(2));
    EXPECT_TRUE(isComplete(good1));
    EXPECT_TRUE(isComplete(good2));
    EXPECT_EQ(readFile(RecordingFolder::manifestPath(bad)), QByteArray("{"));

    // Alone, the failure is what the user reads, at every launch.
    EXPECT_TRUE(library.launch()->message().startsWith(QStringLiteral("Some audio needs recovery: ")));
    EXPECT_TRUE(library.launch()->message().endsWith(QStringLiteral(". Original files were preserved.")));
}

TEST_F(RecoveryTest, ARawFileWithAPartialSampleYieldsItsWholeFrames)
{
    const QUuid id = library.createNote();
    const auto samples = ramp(16385);
    const QString segment = library.segment(id);
    {
        DurableAudioWriter writer(segment, id, 8000);
        writer.append(samples);
        writer.append("\x01\x02\x03", 3);
    }
    EXPECT_EQ(library.launch()->message(), recoveredText(1));
    const auto sound = readSoundFile(RecordingFolder::finalAudioPath(segment));
    ASSERT_TRUE(sound);
    EXPECT_EQ(sound->samples, samples);
    EXPECT_EQ(QFileInfo(RecordingFolder::rawAudioPath(segment)).size(), 16385 * 4 + 3);
}

TEST_F(RecoveryTest, LinksLeadingOutOfTheDataRootAreNeverWrittenThrough)
{
    QTemporaryDir outside;
    const QUuid id = library.createNote();
    QDir().mkpath(library.root() + QStringLiteral("/Recordings"));

    // A note folder that is a link to a folder outside the root.
    const QUuid linked = library.createNote();
    interruptedSegment(outside.filePath(QStringLiteral("note/S")), linked, 48000, ramp(100));
    ASSERT_TRUE(QFile::link(outside.filePath(QStringLiteral("note")),
                            RecordingFolder::noteFolder(library.root(), linked)));
    // A segment that is a link to a folder outside.
    interruptedSegment(outside.filePath(QStringLiteral("segment")), id, 48000, ramp(100));
    QDir().mkpath(RecordingFolder::noteFolder(library.root(), id));
    ASSERT_TRUE(
        QFile::link(outside.filePath(QStringLiteral("segment")), library.segment(id, QStringLiteral("L"))));
    // Files in a real segment that are links to files outside.
    const QString segment = library.segment(id, QStringLiteral("R"));
    interruptedSegment(outside.filePath(QStringLiteral("raw")), id, 48000, ramp(300));
    QDir().mkpath(segment);
    ASSERT_TRUE(QFile::link(outside.filePath(QStringLiteral("raw/audio.float32")),
                            RecordingFolder::rawAudioPath(segment)));
    ASSERT_TRUE(QFile::link(outside.filePath(QStringLiteral("raw/recording.json")),
                            RecordingFolder::manifestPath(segment)));
    writeFile(outside.filePath(QStringLiteral("old.caf")), "outside caf");
    ASSERT_TRUE(
        QFile::link(outside.filePath(QStringLiteral("old.caf")), RecordingFolder::finalAudioPath(segment)));

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
    EXPECT_TRUE(refused.startsWith(QStringLiteral("Some audio needs recovery: The recording folder “")))
        << refused;
    EXPECT_TRUE(refused.endsWith(
        QStringLiteral("” leads outside the Kestil data folder. Original files were preserved.")))
        << refused;
}

TEST_F(RecoveryTest, AFailedNoteUpdateLeavesTheManifestForTheNextLaunch)
{
    const QUuid id = library.createNote();
    const QString segment = interruptedSegment(library.segment(id), id, 48000, ramp(500));
    {
        SharedPersistenceController store(library.root());
        failWrites(store, QStringLiteral("note"), QStringLiteral("UPDATE"));
    }
    const QString message = library.launch()->message();
    EXPECT_TRUE(message.contains(QStringLiteral("disk is full"), Qt::CaseInsensitive)) << message;
    EXPECT_FALSE(isComplete(segment));
    expectPlayable(segment, 48000);
    const qint64 built = inode(RecordingFolder::finalAudioPath(segment));
    {
        SharedPersistenceController store(library.root());
        allowWrites(store, QStringLiteral("note"), QStringLiteral("UPDATE"));
    }
    EXPECT_EQ(library.launch()->message(), recoveredText(1));
    EXPECT_EQ(inode(RecordingFolder::finalAudioPath(segment)), built) << "the good file was accepted";
    EXPECT_TRUE(isComplete(segment));
}

TEST_F(RecoveryTest, RecordingsThatCannotBeListedStopTheScanWithTheReason)
{
    library.createNote();
    writeFile(library.root() + QStringLiteral("/Recordings"), "a file, not a folder");
    EXPECT_EQ(library.launch()->message(), QStringLiteral("Could not list “Recordings”: Not a directory"));
}
