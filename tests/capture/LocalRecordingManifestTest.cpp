#include "capture/LocalRecordingManifest.h"
#include "capture/RecordingFolder.h"

#include "CaptureTestSupport.h"

#include <QDateTime>
#include <QFileInfo>

#include <limits>

using namespace kestil;
using namespace kestil::test;

namespace {

const QUuid noteID = QUuid::fromString("6b1c2d3e-4f50-4a6b-8c7d-9e0f1a2b3c4d");

QByteArray manifestFile(const char *name)
{
    return fileBytes(QStringLiteral(KESTIL_TEST_DATA_DIR "/capture/manifests/") + QLatin1String(name));
}

} // namespace

// Folders written by earlier versions hold this exact text, so it is pinned.
TEST(LocalRecordingManifest, EncodesKeysInOrderWithUpperCaseNoteAndEveryDigitOfTheTime)
{
    const LocalRecordingManifest manifest{noteID, 785000000.25, 48000.0, false};
    EXPECT_EQ(manifest.encode(),
              QByteArray("{\"noteID\":\"6B1C2D3E-4F50-4A6B-8C7D-9E0F1A2B3C4D\","
                         "\"createdAt\":785000000.25,\"sampleRate\":48000,\"complete\":false}"));
    EXPECT_TRUE((LocalRecordingManifest{noteID, 1, 44100.5, true}.encode().endsWith(
        "\"sampleRate\":44100.5,\"complete\":true}")));
    for (double createdAt : {785000000.123456, -3600.000001, 1e-9, 812345678.9876543}) {
        const LocalRecordingManifest precise{noteID, createdAt, 16000, true};
        EXPECT_EQ(LocalRecordingManifest::decode(precise.encode()), precise) << createdAt;
    }
    for (double rate : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()})
        EXPECT_THROW((LocalRecordingManifest{noteID, 1, rate, false}.encode()), SystemError);
}

TEST(LocalRecordingManifest, CountsFromTheFirstOfJanuary2001)
{
    const double expected =
        double(QDateTime::currentMSecsSinceEpoch()) / 1000.0 -
        double(QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC).toMSecsSinceEpoch()) / 1000.0;
    EXPECT_NEAR(LocalRecordingManifest::referenceSecondsNow(), expected, 2.0);
    EXPECT_EQ((LocalRecordingManifest{noteID, 86400.5, 48000, false}.createdAtDate()),
              QDateTime(QDate(2001, 1, 2), QTime(0, 0, 0, 500), Qt::UTC));
}

TEST(LocalRecordingManifest, ReadsKeysInAnyOrderAndRatesThatAreNoRateAreNotValid)
{
    EXPECT_EQ(LocalRecordingManifest::decode(manifestFile("reordered-lowercase.json")),
              (LocalRecordingManifest{noteID, 785000000.0, 44100.0, false}));
    for (const char *file : {"rate-zero.json", "rate-negative.json"})
        EXPECT_FALSE(LocalRecordingManifest::decode(manifestFile(file)).hasValidSampleRate()) << file;
    EXPECT_TRUE((LocalRecordingManifest{noteID, 0, 8000, false}.hasValidSampleRate()));
}

TEST(LocalRecordingManifest, DamagedManifestsAreRefusedWithTheReason)
{
    const std::pair<const char *, const char *> cases[] = {
        {"truncated.json", "at byte"},
        {"array.json", "it does not hold a JSON object"},
        {"rate-as-string.json", "“sampleRate” is not a number"},
        {"note-not-uuid.json", "“noteID” is not a UUID"},
        {"missing-rate.json", "the key “sampleRate” is missing"},
    };
    for (const auto &[file, reason] : cases) {
        const QString text = thrownText([&] { LocalRecordingManifest::decode(manifestFile(file)); });
        EXPECT_TRUE(text.startsWith("The recording manifest “recording.json” is damaged: "))
            << text.toStdString();
        EXPECT_TRUE(text.contains(QString::fromUtf8(reason))) << file << ": " << text.toStdString();
    }
    QTemporaryDir empty;
    EXPECT_EQ(thrownText([&] { LocalRecordingManifest::read(empty.path()); }),
              "Could not read “recording.json”: No such file or directory");
}

TEST(LocalRecordingManifest, WriteReplacesTheFileInOneStepAndNeverWritesThroughALink)
{
    QTemporaryDir root;
    const QString segment = root.filePath("segment");
    QDir().mkpath(segment);
    const QString outside = root.filePath("outside.json");
    ASSERT_TRUE(writeBytes(outside, "precious"));
    ASSERT_TRUE(QFile::link(outside, RecordingFolder::manifestPath(segment)));
    const LocalRecordingManifest manifest{noteID, 1.5, 48000, true};
    manifest.write(segment);
    EXPECT_EQ(fileBytes(outside), QByteArray("precious"));
    EXPECT_FALSE(QFileInfo(RecordingFolder::manifestPath(segment)).isSymLink());
    EXPECT_EQ(LocalRecordingManifest::read(segment), manifest);
    // No temporary file stays behind.
    EXPECT_EQ(QDir(segment).entryList(QDir::Files | QDir::Hidden), QStringList{"recording.json"});
}

// A folder under Recordings counts as a note's only when its name is a whole UUID.
TEST(RecordingFolder, ANoteFolderIsNamedByTheNotesUuid)
{
    EXPECT_EQ(RecordingFolder::uuidFromName(RecordingFolder::uuidText(noteID)), noteID);
    EXPECT_EQ(RecordingFolder::uuidFromName("00000000-0000-0000-0000-000000000000"), QUuid());
    for (const QString &name : {QString("{6b1c2d3e-4f50-4a6b-8c7d-9e0f1a2b3c4d}"), QString("6b1c2d3e-4f50"),
                                QString("zzzzzzzz-4f50-4a6b-8c7d-9e0f1a2b3c4d")})
        EXPECT_FALSE(RecordingFolder::uuidFromName(name)) << name.toStdString();
}
