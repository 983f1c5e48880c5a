// A recording that fills the disk: the write error reaches the session with
// its words, everything written before it stays, and the launches after it
// report, then repair, the folder.
#include "RecoveryTestSupport.h"
#include "capture/AudioFileSource.h"
#include "capture/CapturedBuffer.h"
#include "support/SoundFiles.h"
#include "support/TmpfsMount.h"

#include <sndfile.h>

using namespace kestil;
using namespace kestil::test;
using namespace std::chrono_literals;

TEST(DiskFullRecoveryTest, AFullDiskStopsCaptureKeepsItsAudioAndIsRepairedOnceThereIsRoom)
{
    TmpfsMount disk(16 << 20);
    if (!disk.mounted())
        GTEST_SKIP() << disk.error().toStdString();
    QTemporaryDir work;
    // A minute of sound, more than the disk holds.
    const QString input = work.filePath(QStringLiteral("meeting.flac"));
    ASSERT_TRUE(writeSoundFile(input, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, 1,
                               sine(440, 48000, 48000 * 60, 0.3f)));

    Library library(disk.path() + QStringLiteral("/Kestil"));
    const QUuid id = library.createNote();
    // Room that the user frees later: a little, then enough.
    writeFile(disk.path() + QStringLiteral("/small"), QByteArray(512 << 10, 'x'));
    writeFile(disk.path() + QStringLiteral("/large"), QByteArray(8 << 20, 'x'));

    const QString segment = library.segment(id);
    std::vector<float> appended;
    QString captureMessage;
    {
        AudioFileSource source(input, AudioFileSource::Pace::asFastAsConsumed);
        source.prepare();
        const auto format = *source.format();
        DurableAudioWriter writer(segment, id, format.sampleRate);
        CaptureQueue queue;
        std::vector<float> scratch;
        source.run(queue, [&](AudioBufferList buffers) {
            if (!captureMessage.isEmpty())
                return;
            try {
                const auto written = captureBuffer(buffers, format.sampleFormat, writer, scratch);
                appended.insert(appended.end(), written.mono.begin(), written.mono.end());
            } catch (const Error &error) {
                // What the recording session tells the user.
                captureMessage = QStringLiteral("Capture stopped: ") + error.localizedDescription() +
                                 QStringLiteral(". Captured audio was preserved.");
            }
        });
        source.waitUntilFinished(60s);
        source.invalidate();
        queue.sync();
        // No room left for the manifest either: it stays "not complete".
        try {
            writer.complete();
        } catch (const Error &) {
        }
    }
    EXPECT_EQ(captureMessage,
              QStringLiteral("Capture stopped: Could not write “audio.float32”: No space left on "
                             "device. Captured audio was preserved."));
    const auto raw = readRawAudio(RecordingFolder::rawAudioPath(segment));
    ASSERT_GT(appended.size(), size_t(48000 * 10));
    ASSERT_GE(raw.size(), appended.size());
    EXPECT_TRUE(std::equal(appended.begin(), appended.end(), raw.begin())) << "audio before the error";

    // A little room: the store opens, the playable file does not fit.
    QFile::remove(disk.path() + QStringLiteral("/small"));
    const QString first = library.launch()->message();
    EXPECT_TRUE(first.startsWith(QStringLiteral("Some audio needs recovery: Could not write “recovered-")))
        << first;
    EXPECT_TRUE(first.endsWith(QStringLiteral(". Original files were preserved."))) << first;
    EXPECT_EQ(QDir(segment).entryList({QStringLiteral("recovered-*")}, QDir::Files), QStringList());
    EXPECT_EQ(readRawAudio(RecordingFolder::rawAudioPath(segment)), raw);
    EXPECT_FALSE(isComplete(segment));

    // Enough room: the next launch repairs it.
    QFile::remove(disk.path() + QStringLiteral("/large"));
    EXPECT_EQ(library.launch()->message(), recoveredText(1));
    const auto sound = readSoundFile(RecordingFolder::finalAudioPath(segment));
    ASSERT_TRUE(sound);
    EXPECT_EQ(sound->samples, raw);
    EXPECT_TRUE(isComplete(segment));
    EXPECT_EQ(library.sourceURL(id), QStringLiteral("Recordings/") + RecordingFolder::uuidText(id));
}
