#include "capture/LocalRecordingManifest.h"
#include "capture/RecordingFolder.h"

#include "CaptureTestSupport.h"

#include <QDateTime>
#include <QFileInfo>

#include <cmath>
#include <limits>

using namespace kestil;
using namespace kestil::test;

namespace {

const QUuid noteID = QUuid::fromString("6b1c2d3e-4f50-4a6b-8c7d-9e0f1a2b3c4d");

} // namespace

TEST(LocalRecordingManifest, EncodesKeysInOrderWithUpperCaseNoteAndReferenceDateSeconds)
{
    const LocalRecordingManifest manifest{noteID, 785000000.25, 48000.0, false};
    EXPECT_EQ(manifest.encode(),
              QByteArray("{\"noteID\":\"6B1C2D3E-4F50-4A6B-8C7D-9E0F1A2B3C4D\","
                         "\"createdAt\":785000000.25,\"sampleRate\":48000,\"complete\":false}"));
    auto complete = manifest;
    complete.complete = true;
    complete.sampleRate = 44100.5;
    EXPECT_TRUE(complete.encode().endsWith("\"sampleRate\":44100.5,\"complete\":true}"));
}

TEST(LocalRecordingManifest, RoundTripsEveryDigitOfTheCreationTime)
{
    for (double createdAt : {785000000.123456, 0.1, -3600.000001, 1e-9, 812345678.9876543}) {
        const LocalRecordingManifest manifest{noteID, createdAt, 16000, true};
        const auto decoded = LocalRecordingManifest::decode(manifest.encode());
        EXPECT_EQ(decoded, manifest) << createdAt;
        EXPECT_EQ(decoded.encode(), manifest.encode());
    }
}

TEST(LocalRecordingManifest, CountsFromTheFirstOfJanuary2001)
{
    const double now = LocalRecordingManifest::referenceSecondsNow();
    const double expected =
        double(QDateTime::currentMSecsSinceEpoch()) / 1000.0 -
        double(QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC).toMSecsSinceEpoch()) / 1000.0;
    EXPECT_NEAR(now, expected, 2.0);
    const LocalRecordingManifest manifest{noteID, 86400.5, 48000, false};
    EXPECT_EQ(manifest.createdAtDate(), QDateTime(QDate(2001, 1, 2), QTime(0, 0, 0, 500), Qt::UTC));
}

TEST(LocalRecordingManifest, RefusesToEncodeNumbersJsonCannotHold)
{
    LocalRecordingManifest manifest{noteID, 1, std::numeric_limits<double>::quiet_NaN(), false};
    EXPECT_THROW(manifest.encode(), SystemError);
    manifest.sampleRate = std::numeric_limits<double>::infinity();
    EXPECT_THROW(manifest.encode(), SystemError);
}

TEST(LocalRecordingManifest, ReadsKeysInAnyOrderIgnoringOthers)
{
    const auto manifest =
        LocalRecordingManifest::decode(fileBytes(dataPath("manifests/reordered-lowercase.json")));
    EXPECT_EQ(manifest.noteID, noteID);
    EXPECT_EQ(manifest.createdAt, 785000000.0);
    EXPECT_EQ(manifest.sampleRate, 44100.0);
    EXPECT_FALSE(manifest.complete);
}

TEST(LocalRecordingManifest, DamagedManifestsAreRefusedWithTheReason)
{
    const struct {
        const char *file;
        const char *reason;
    } cases[] = {
        {"truncated.json", "at byte"},
        {"empty.json", "at byte"},
        {"rate-nan.json", "at byte"},
        {"array.json", "does not hold a JSON object"},
        {"rate-as-string.json", "“sampleRate” is not a number"},
        {"date-as-string.json", "“createdAt” is not a number"},
        {"complete-as-number.json", "“complete” is not a boolean"},
        {"note-as-number.json", "“noteID” is not a string"},
        {"note-not-uuid.json", "“noteID” is not a UUID"},
        {"missing-rate.json", "the key “sampleRate” is missing"},
    };
    for (const auto &c : cases) {
        const QString text = thrownText([&] {
            LocalRecordingManifest::decode(fileBytes(dataPath(QStringLiteral("manifests/") + c.file)));
        });
        EXPECT_TRUE(text.startsWith("The recording manifest “recording.json” is damaged: "))
            << text.toStdString();
        EXPECT_TRUE(text.contains(QString::fromUtf8(c.reason))) << c.file << ": " << text.toStdString();
    }
}

TEST(LocalRecordingManifest, RatesThatAreNoRateDecodeButAreNotValid)
{
    for (const char *file : {"rate-zero.json", "rate-negative.json"}) {
        const auto manifest =
            LocalRecordingManifest::decode(fileBytes(dataPath(QStringLiteral("manifests/") + file)));
        EXPECT_FALSE(manifest.hasValidSampleRate()) << file;
    }
    EXPECT_TRUE((LocalRecordingManifest{noteID, 0, 8000, false}.hasValidSampleRate()));
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

TEST(LocalRecordingManifest, ReadingAMissingManifestSaysSo)
{
    QTemporaryDir root;
    const QString text = thrownText([&] { LocalRecordingManifest::read(root.path()); });
    EXPECT_EQ(text, "Could not read “recording.json”: No such file or directory");
}
