// The Obsidian export over a real store folder: segments written by the
// durable writer (one never built into playable audio, one whose raw file
// was torn mid-sample) are copied in recording order as files that sox reads
// with their length and rate, and the Markdown comes last. Failures and a
// cancel leave no Markdown and no partial copy.
#include "DocumentsTestSupport.h"

#include "base/CancellationError.h"
#include "base/Error.h"
#include "capture/DurableAudioWriter.h"
#include "capture/RecordingFolder.h"
#include "documents/ObsidianExport.h"
#include "support/SoundFiles.h"
#include "support/TmpfsMount.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

const QUuid noteID = QUuid::fromString(u"7A1B2C3D-4E5F-4061-8273-94A5B6C7D8E9"_s);

// What sox makes of a file: "<rate> <samples> <channels>".
QString soxReading(const QString &path)
{
    QStringList parts;
    for (const char *option : {"-r", "-s", "-c"}) {
        QProcess soxi;
        soxi.start(u"soxi"_s, {QString::fromLatin1(option), path});
        if (!soxi.waitForFinished(30000) || soxi.exitCode() != 0)
            return u"soxi failed: "_s + QString::fromLocal8Bit(soxi.readAllStandardError());
        parts << QString::fromLatin1(soxi.readAllStandardOutput()).trimmed();
    }
    return parts.join(QLatin1Char(' '));
}

// One completed segment made by the durable writer, with the manifest's date
// set so that the recording order is the reverse of the folder names'.
QString recordSegment(const QString &folder, double createdAt, double rate, qint64 frames)
{
    {
        DurableAudioWriter writer(folder, noteID, rate);
        writer.append(test::sine(440, rate, frames, 0.3f));
        writer.complete();
    }
    LocalRecordingManifest{noteID, createdAt, rate, true}.write(folder);
    return folder;
}

// What a run that must not go through threw.
QString failure(const std::function<void()> &run)
{
    try {
        run();
    } catch (const LocalError &error) {
        return error.message();
    } catch (const CancellationError &) {
        return u"(cancelled)"_s;
    }
    return u"(went through)"_s;
}

class ObsidianExportCopy : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        ASSERT_FALSE(QStandardPaths::findExecutable(u"soxi"_s).isEmpty()) << "sox is a test tool";
        root = dir.filePath(u"data"_s);
        vault = dir.filePath(u"vault"_s);
        ASSERT_TRUE(QDir().mkpath(vault));
        const QString noteFolder = RecordingFolder::noteFolder(root, noteID);
        first = recordSegment(noteFolder + u"/ZZ-first"_s, 100, 48000, 72000);
        second = recordSegment(noteFolder + u"/AA-second"_s, 200, 16000, 12000);
        // A crash cut the last sample of the second segment in half.
        QFile raw(RecordingFolder::rawAudioPath(second));
        ASSERT_TRUE(raw.open(QIODevice::Append));
        raw.write("\x01\x02", 2);
        raw.close();
        rawBytes = {test::fileBytes(RecordingFolder::rawAudioPath(first)),
                    test::fileBytes(RecordingFolder::rawAudioPath(second))};

        note.title = u"Launch"_s;
        note.summary = u"Ship in April."_s;
        note.transcription = u"We ship in April."_s;
        note.sourceURL = u"Recordings/"_s + RecordingFolder::uuidText(noteID);
    }

    // The base name of an export's Markdown, checked for its form.
    QString baseNameOf(const ObsidianExport::Result &result)
    {
        const QString name = QFileInfo(result.markdownPath).fileName();
        EXPECT_TRUE(QRegularExpression(u"^Kestil-[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\.md$"_s)
                        .match(name)
                        .hasMatch())
            << name.toStdString();
        EXPECT_EQ(QFileInfo(result.markdownPath).path(), vault);
        return name.chopped(3);
    }

    QTemporaryDir dir;
    QString root, vault, first, second;
    QList<QByteArray> rawBytes;
    NoteExportContent note;
};

TEST_F(ObsidianExportCopy, CopiesPlayableAudioInRecordingOrderThenWritesTheMarkdownAnewEachTime)
{
    QList<std::pair<qint64, qint64>> reports;
    const ObsidianExport::Result result =
        ObsidianExport::run(note, vault, root, [&](qint64 done, qint64 total) {
            reports.append({done, total});
        });
    const QString base = baseNameOf(result);
    const QString audio = vault + QLatin1Char('/') + base + u"-audio"_s;

    EXPECT_EQ(result.copiedSegments, 2);
    EXPECT_EQ(result.message(), u"Markdown and audio exported to the selected folder."_s);
    EXPECT_EQ(entries(vault), (QStringList{base + u"-audio"_s, base + u".md"_s}));
    EXPECT_EQ(entries(audio), (QStringList{u"segment-1.caf"_s, u"segment-2.caf"_s}));
    EXPECT_EQ(QString::fromUtf8(test::fileBytes(result.markdownPath)),
              u"# Launch\n\nShip in April.\n\n## Transcript\n\nWe ship in April.\n\n## Notes\n\n\n"_s +
                  u"\n![["_s + base + u"-audio/segment-1.caf]]\n"_s + u"\n![["_s + base +
                  u"-audio/segment-2.caf]]\n"_s);

    // The oldest recording first, each whole: the torn sample is left out.
    EXPECT_EQ(soxReading(audio + u"/segment-1.caf"_s), u"48000 72000 1"_s);
    EXPECT_EQ(soxReading(audio + u"/segment-2.caf"_s), u"16000 12000 1"_s);
    EXPECT_EQ(test::fileBytes(audio + u"/segment-2.caf"_s),
              test::fileBytes(RecordingFolder::finalAudioPath(second)));

    // The raw audio is the recording and stays as it was.
    EXPECT_EQ(test::fileBytes(RecordingFolder::rawAudioPath(first)), rawBytes[0]);
    EXPECT_EQ(test::fileBytes(RecordingFolder::rawAudioPath(second)), rawBytes[1]);

    const qint64 total =
        QFileInfo(audio + u"/segment-1.caf"_s).size() + QFileInfo(audio + u"/segment-2.caf"_s).size();
    ASSERT_FALSE(reports.isEmpty());
    EXPECT_EQ(reports.first(), std::make_pair(qint64(0), total));
    EXPECT_EQ(reports.last(), std::make_pair(total, total));
    EXPECT_TRUE(std::is_sorted(reports.begin(), reports.end()));

    // A second export of the note writes files of its own.
    EXPECT_NE(baseNameOf(ObsidianExport::run(note, vault, root)), base);
    EXPECT_EQ(entries(vault).size(), 4);
}

TEST_F(ObsidianExportCopy, AFailedOrCancelledCopyKeepsWholeCopiesAndWritesNoMarkdown)
{
    const QString file = dir.filePath(u"not-a-folder"_s);
    ASSERT_TRUE(QFile(file).open(QIODevice::WriteOnly));
    EXPECT_EQ(failure([&] { ObsidianExport::run(note, file, root); }),
              u"Could not create the folder “not-a-folder”: File exists"_s);

    std::atomic_bool cancel = false;
    EXPECT_EQ(failure([&] {
                  ObsidianExport::run(
                      note, vault, root, [&](qint64 done, qint64) { cancel = done > 0; }, &cancel);
              }),
              u"(cancelled)"_s);
    ASSERT_EQ(entries(vault).size(), 1);
    EXPECT_TRUE(entries(vault).first().endsWith(u"-audio"_s));
    EXPECT_EQ(entries(vault + QLatin1Char('/') + entries(vault).first()), QStringList());

    // Room for the first copy and not the second.
    test::TmpfsMount disk(320 * 1024);
    KESTIL_REQUIRE_MOUNT(disk);
    EXPECT_EQ(failure([&] { ObsidianExport::run(note, disk.path(), root); }),
              u"Could not write “segment-2.caf”: No space left on device"_s);
    const QStringList written = entries(disk.path());
    ASSERT_EQ(written.size(), 1);
    const QString audio = disk.path() + QLatin1Char('/') + written.first();
    EXPECT_EQ(entries(audio), QStringList{u"segment-1.caf"_s});
    EXPECT_EQ(soxReading(audio + u"/segment-1.caf"_s), u"48000 72000 1"_s);
}

} // namespace
