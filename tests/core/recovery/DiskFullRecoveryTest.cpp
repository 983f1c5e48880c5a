// A recording cut short by a full disk: the launches after it report, then
// repair, the folder once there is room. What the writer keeps when the disk
// fills is the writer's own test (tests/capture).
#include "RecoveryTestSupport.h"
#include "support/TmpfsMount.h"

#include <QStorageInfo>

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;

TEST(DiskFullRecoveryTest, ALaunchWithoutRoomReportsTheSessionAndOneWithRoomRepairsIt)
{
    TmpfsMount disk(16 << 20);
    if (!disk.mounted())
        GTEST_SKIP() << disk.error().toStdString();
    Library library(disk.path() + u"/Kestil"_s);
    const QUuid id = library.createNote();
    const QString segment = interruptedSegment(library.segment(id), id, 48000, ramp(48000 * 10));
    const auto raw = readRawAudio(RecordingFolder::rawAudioPath(segment));
    // Room that the user frees later: a little, then enough.
    const QString small = disk.path() + u"/small"_s, large = disk.path() + u"/large"_s;
    writeFile(small, QByteArray(512 << 10, 'x'));
    writeFile(large, QByteArray(QStorageInfo(disk.path()).bytesAvailable(), 'x'));

    // A little room: the store opens, the playable file does not fit.
    QFile::remove(small);
    const QString first = library.launch()->message();
    EXPECT_TRUE(first.startsWith(u"Some audio needs recovery: Could not write “recovered-"_s)) << first;
    EXPECT_TRUE(first.endsWith(u". Original files were preserved."_s)) << first;
    EXPECT_EQ(QDir(segment).entryList({u"recovered-*"_s}, QDir::Files), QStringList());
    EXPECT_EQ(readRawAudio(RecordingFolder::rawAudioPath(segment)), raw);
    EXPECT_FALSE(isComplete(segment));

    // Enough room: the next launch repairs it.
    QFile::remove(large);
    EXPECT_EQ(library.launch()->message(), recoveredText(1));
    expectPlayable(segment, 48000);
    EXPECT_TRUE(isComplete(segment));
    EXPECT_EQ(library.sourceURL(id), u"Recordings/"_s + RecordingFolder::uuidText(id));
}
