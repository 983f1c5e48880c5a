#include "capture/DurableAudioWriter.h"
#include "capture/RecordingFolder.h"

#include "CaptureTestSupport.h"
#include "support/SoundFiles.h"
#include "support/TmpfsMount.h"

#include <QFileInfo>

#include <sndfile.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace kestil;
using namespace kestil::test;
using namespace std::chrono_literals;

namespace {

const QUuid noteID = QUuid::fromString("0a1b2c3d-4e5f-4061-8293-a4b5c6d7e8f9");
const QString invalidFormat = "Transcription audio has an invalid format; the original audio was preserved.";

std::vector<float> ramp(size_t count)
{
    std::vector<float> samples(count);
    for (size_t i = 0; i < count; ++i)
        samples[i] = float(i % 2000) / 1000.0f - 1.0f;
    return samples;
}

qint64 inode(const QString &path)
{
    struct stat info;
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? qint64(info.st_ino) : -1;
}

class DurableAudioWriterTest : public ::testing::Test {
protected:
    QString segmentPath(const QString &name = "S1") const
    {
        return RecordingFolder::noteFolder(root.path(), noteID) + QLatin1Char('/') + name;
    }

    QString finishedSegment(const QString &name, double rate, std::span<const float> samples)
    {
        const QString segment = segmentPath(name);
        DurableAudioWriter writer(segment, noteID, rate);
        writer.append(samples);
        writer.complete();
        return segment;
    }

    QTemporaryDir root;
};

} // namespace

TEST_F(DurableAudioWriterTest, CreatesTheManifestAndRawFileThenAppendsLittleEndianFloatsAndCompletes)
{
    const QString segment = segmentPath();
    const double before = LocalRecordingManifest::referenceSecondsNow();
    DurableAudioWriter writer(segment, noteID, 16000);
    const auto created = LocalRecordingManifest::read(segment);
    EXPECT_EQ(created, (LocalRecordingManifest{noteID, created.createdAt, 16000, false}));
    EXPECT_NEAR(created.createdAt, before, 1.0);
    EXPECT_EQ(QFileInfo(RecordingFolder::rawAudioPath(segment)).size(), 0);
    EXPECT_FALSE(QFile::exists(RecordingFolder::finalAudioPath(segment)));
    EXPECT_TRUE(writer.isOpen());
    const auto samples = ramp(10000);
    writer.append(std::span<const float>(samples).first(4096));
    writer.append(std::span<const float>(samples).subspan(4096));
    EXPECT_EQ(readRawAudio(RecordingFolder::rawAudioPath(segment)), samples);
    EXPECT_FALSE(LocalRecordingManifest::read(segment).complete);
    writer.complete();
    EXPECT_FALSE(writer.isOpen());
    EXPECT_TRUE(LocalRecordingManifest::read(segment).complete);
    EXPECT_EQ(thrownText([&] { writer.append(samples); }), "Transcription audio capture is closed.");
    EXPECT_EQ(DurableAudioWriter::frameCount(segment), 10000);
    // A second complete rewrites the manifest and leaves it complete.
    writer.complete();
    EXPECT_EQ(LocalRecordingManifest::read(segment), writer.manifest());
    EXPECT_TRUE(writer.manifest().complete);
}

// A program started with its standard input closed is given descriptor 0 for
// the first file it opens, and the raw file may be that one.
TEST_F(DurableAudioWriterTest, ARawFileOnDescriptorZeroIsOpenLikeAnyOther)
{
    const int input = ::dup(0);
    ::close(0);
    {
        DurableAudioWriter writer(segmentPath(), noteID, 16000);
        EXPECT_TRUE(QFileInfo("/proc/self/fd/0").symLinkTarget().endsWith("/audio.float32"));
        EXPECT_TRUE(writer.isOpen());
        writer.append(ramp(100));
        writer.complete();
        EXPECT_FALSE(writer.isOpen());
    }
    ::dup2(input, 0);
    ::close(input);
    EXPECT_EQ(DurableAudioWriter::frameCount(segmentPath()), 100);
    EXPECT_TRUE(LocalRecordingManifest::read(segmentPath()).complete);
}

TEST_F(DurableAudioWriterTest, ExistingAudioIsPreservedByteForByte)
{
    QDir().mkpath(segmentPath());
    ASSERT_TRUE(writeBytes(RecordingFolder::rawAudioPath(segmentPath()), "earlier audio"));
    ASSERT_TRUE(writeBytes(RecordingFolder::manifestPath(segmentPath()), "{\"old\":true}"));
    EXPECT_EQ(thrownText([&] { DurableAudioWriter(segmentPath(), noteID, 48000); }),
              "Transcription audio already exists; it was preserved.");
    EXPECT_EQ(fileBytes(RecordingFolder::rawAudioPath(segmentPath())), "earlier audio");
    EXPECT_EQ(fileBytes(RecordingFolder::manifestPath(segmentPath())), "{\"old\":true}");
    EXPECT_EQ(QDir(segmentPath()).entryList(QDir::Files | QDir::Hidden),
              (QStringList{"audio.float32", "recording.json"}));
    // A dangling link under the raw file's name counts as existing audio too.
    const QString other = segmentPath("S2");
    QDir().mkpath(other);
    ASSERT_TRUE(QFile::link(root.filePath("nowhere"), RecordingFolder::rawAudioPath(other)));
    EXPECT_THROW(DurableAudioWriter(other, noteID, 48000), LocalError);
    EXPECT_FALSE(QFile::exists(RecordingFolder::manifestPath(other)));
}

// A sync at most once a second, driven by arriving data: no data, no sync.
TEST_F(DurableAudioWriterTest, SyncsAtMostOnceASecondDrivenByArrivingData)
{
    auto now = std::chrono::steady_clock::time_point{} + 100s;
    DurableAudioWriter writer(segmentPath(), noteID, 48000, [&] { return now; });
    const auto samples = ramp(4096);
    for (const auto &[advance, syncs] :
         {std::pair{0ms, 0}, {500ms, 0}, {499ms, 0}, {1ms, 1}, {999ms, 1}, {60s, 2}}) {
        now += advance;
        writer.append(samples);
        EXPECT_EQ(writer.syncCount(), syncs) << "after " << advance.count() << " ms more";
    }
}

TEST_F(DurableAudioWriterTest, RecordedDurationAddsSegmentsEachAtItsOwnRate)
{
    const QString noteFolder = RecordingFolder::noteFolder(root.path(), noteID);
    EXPECT_EQ(DurableAudioWriter::recordedDuration(noteFolder), 0.0) << "no folder yet";
    finishedSegment("A", 48000, std::vector<float>(48000 * 2, 0.1f));
    finishedSegment("B", 16000, std::vector<float>(8000, 0.1f));
    // Audio without a manifest is no segment; an empty segment adds nothing.
    QDir().mkpath(segmentPath("C"));
    ASSERT_TRUE(writeBytes(RecordingFolder::rawAudioPath(segmentPath("C")), QByteArray(400000, 1)));
    DurableAudioWriter empty(segmentPath("D"), noteID, 44100);
    EXPECT_DOUBLE_EQ(DurableAudioWriter::recordedDuration(noteFolder), 2.5);
}

TEST_F(DurableAudioWriterTest, FinalAudioIsARealCafWithTheRawSamplesBuiltOnlyWhenNeeded)
{
    const auto samples = ramp(100000);
    const QString segment = finishedSegment("A", 44100, samples);
    const QString url = DurableAudioWriter::finalAudioURL(segment);
    EXPECT_EQ(url, RecordingFolder::finalAudioPath(segment));
    const auto sound = readSoundFile(url);
    ASSERT_TRUE(sound);
    EXPECT_EQ(sound->format & (SF_FORMAT_TYPEMASK | SF_FORMAT_SUBMASK), SF_FORMAT_CAF | SF_FORMAT_FLOAT);
    EXPECT_EQ(sound->sampleRate, 44100);
    EXPECT_EQ(sound->channels, 1);
    EXPECT_EQ(sound->samples, samples);
    // The build leaves the raw file and the manifest as they were.
    EXPECT_EQ(readRawAudio(RecordingFolder::rawAudioPath(segment)), samples);
    EXPECT_EQ(QDir(segment).entryList(QDir::Files | QDir::Hidden),
              (QStringList{"audio.caf", "audio.float32", "recording.json"}));
    // A valid build is returned as it is; rebuildFinalAudio builds regardless.
    const qint64 built = inode(url);
    EXPECT_EQ(DurableAudioWriter::finalAudioURL(segment), url);
    EXPECT_EQ(inode(url), built) << "not rebuilt";
    DurableAudioWriter::rebuildFinalAudio(segment);
    EXPECT_NE(inode(url), built);
    // One that does not match the raw file is rebuilt: a frame short or
    // long, another rate, two channels, or no audio file at all.
    const std::vector<float> other = ramp(9000);
    const QString mismatched = finishedSegment("B", 48000, other);
    const QString caf = RecordingFolder::finalAudioPath(mismatched);
    for (const auto &[rate, channels, frames] :
         {std::tuple{48000, 1, 8999}, {48000, 1, 9001}, {44100, 1, 9000}, {48000, 2, 9000}, {0, 0, 0}}) {
        SCOPED_TRACE(testing::Message()
                     << rate << " Hz, " << channels << " channels, " << frames << " frames");
        if (rate == 0)
            ASSERT_TRUE(writeBytes(caf, "not a caf"));
        else
            ASSERT_TRUE(writeSoundFile(caf, SF_FORMAT_CAF | SF_FORMAT_FLOAT, rate, channels,
                                       std::vector<float>(size_t(frames * channels), 0.25f)));
        EXPECT_EQ(DurableAudioWriter::finalAudioURL(mismatched), caf);
        const auto rebuilt = readSoundFile(caf);
        ASSERT_TRUE(rebuilt);
        EXPECT_EQ(rebuilt->samples, other);
        EXPECT_EQ(rebuilt->sampleRate, 48000);
    }
}

TEST_F(DurableAudioWriterTest, AnInterruptedWritersBuildDropsOnlyTheTrailingPartialSample)
{
    // Around the 64 KiB step: the partial sample alone in a last chunk, and
    // inside a full last chunk.
    for (size_t frames : {0, 1, 16383, 16384, 16385, 32768}) {
        SCOPED_TRACE(frames);
        const auto samples = ramp(frames);
        const QString segment = segmentPath(QStringLiteral("F%1").arg(frames));
        {
            DurableAudioWriter writer(segment, noteID, 8000);
            writer.append(samples);
            const char partial[3] = {1, 2, 3};
            writer.append(partial, 3);
        }
        EXPECT_FALSE(LocalRecordingManifest::read(segment).complete);
        EXPECT_EQ(DurableAudioWriter::frameCount(segment), qint64(frames));
        const auto sound = readSoundFile(DurableAudioWriter::rebuildFinalAudio(segment));
        ASSERT_TRUE(sound);
        EXPECT_EQ(sound->samples, samples);
        EXPECT_EQ(sound->sampleRate, 8000);
        EXPECT_EQ(QFileInfo(RecordingFolder::rawAudioPath(segment)).size(), qint64(frames * 4 + 3))
            << "raw untouched";
    }
}

TEST_F(DurableAudioWriterTest, ABuildThatCannotWorkFailsInItsOwnWordsAndLeavesNothing)
{
    for (double rate : {0.0, -8000.0, 44100.5, 1e12}) {
        const QString segment = segmentPath(QStringLiteral("R%1").arg(rate));
        QDir().mkpath(segment);
        LocalRecordingManifest{noteID, 1, rate, false}.write(segment);
        ASSERT_TRUE(writeBytes(RecordingFolder::rawAudioPath(segment), QByteArray(400, 0)));
        EXPECT_EQ(thrownText([&] { DurableAudioWriter::rebuildFinalAudio(segment); }), invalidFormat) << rate;
        EXPECT_FALSE(QFile::exists(RecordingFolder::finalAudioPath(segment)));
    }
    EXPECT_EQ(thrownText([&] { DurableAudioWriter::frameCount(root.filePath("none")); }),
              "Could not read the size of “audio.float32”: No such file or directory");
    // A raw "file" that opens but cannot be read: the build fails after it
    // made its temporary file, and the old playable file stays.
    const QString segment = finishedSegment("A", 48000, ramp(1000));
    DurableAudioWriter::finalAudioURL(segment);
    const QByteArray oldCaf = fileBytes(RecordingFolder::finalAudioPath(segment));
    const QString raw = RecordingFolder::rawAudioPath(segment);
    ASSERT_TRUE(QFile::rename(raw, raw + ".kept"));
    ASSERT_TRUE(QDir().mkdir(raw));
    EXPECT_EQ(thrownText([&] { DurableAudioWriter::rebuildFinalAudio(segment); }),
              "Could not read “audio.float32”: Is a directory");
    EXPECT_EQ(QDir(segment).entryList({"recovered-*"}, QDir::Files), QStringList{});
    EXPECT_EQ(fileBytes(RecordingFolder::finalAudioPath(segment)), oldCaf);
}

TEST_F(DurableAudioWriterTest, ARawFileThatCannotBeCreatedLeavesFolderAndManifest)
{
    // Inodes for the mount's root, three folders and the manifest: the raw
    // file is one too many.
    TmpfsMount disk(1 << 20, 5);
    KESTIL_REQUIRE_MOUNT(disk);
    const QString segment = disk.path() + "/Recordings/N/S";
    EXPECT_EQ(thrownText([&] { DurableAudioWriter(segment, noteID, 48000); }),
              "Unable to create local audio file.");
    EXPECT_FALSE(LocalRecordingManifest::read(segment).complete);
    EXPECT_FALSE(QFile::exists(RecordingFolder::rawAudioPath(segment)));
}

TEST_F(DurableAudioWriterTest, AFullDiskStopsAppendsAndKeepsEverythingWrittenBeforeIt)
{
    TmpfsMount disk(256 * 1024);
    KESTIL_REQUIRE_MOUNT(disk);
    const QString filler = disk.path() + "/filler";
    ASSERT_TRUE(writeBytes(filler, QByteArray(64 * 1024, 'x')));
    const QString segment = disk.path() + "/Recordings/N/S";
    DurableAudioWriter writer(segment, noteID, 48000);
    std::vector<float> appended;
    QString failure;
    for (int buffer = 0; buffer < 100 && failure.isEmpty(); ++buffer) {
        const auto samples = sine(440 + buffer, 48000, 4096);
        try {
            writer.append(samples);
            appended.insert(appended.end(), samples.begin(), samples.end());
        } catch (const Error &error) {
            failure = error.localizedDescription();
        }
    }
    EXPECT_EQ(failure, "Could not write “audio.float32”: No space left on device");
    const auto raw = readRawAudio(RecordingFolder::rawAudioPath(segment));
    ASSERT_GE(raw.size(), appended.size());
    EXPECT_TRUE(std::equal(appended.begin(), appended.end(), raw.begin())) << "audio before the failure";
    EXPECT_GT(appended.size(), size_t(4096 * 5));
    // The file system fills up in whole blocks, so no sample is cut in two.
    EXPECT_EQ(QFileInfo(RecordingFolder::rawAudioPath(segment)).size() % 4, 0);
    // No room for a build either: it fails and leaves nothing behind.
    EXPECT_THROW(DurableAudioWriter::rebuildFinalAudio(segment), Error);
    EXPECT_EQ(QDir(segment).entryList({"recovered-*"}, QDir::Files), QStringList{});
    EXPECT_EQ(readRawAudio(RecordingFolder::rawAudioPath(segment)), raw);
    // Once there is room again, what follows lines up with what came before.
    ASSERT_TRUE(QFile::remove(filler));
    const auto later = sine(1000, 48000, 4096);
    writer.append(later);
    const auto after = readRawAudio(RecordingFolder::rawAudioPath(segment));
    ASSERT_EQ(after.size(), raw.size() + later.size());
    EXPECT_TRUE(std::equal(later.begin(), later.end(), after.end() - qsizetype(later.size())));
    writer.complete();
    EXPECT_TRUE(LocalRecordingManifest::read(segment).complete);
}
