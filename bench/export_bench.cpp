// The Obsidian export of a long note: an hour of 48 kHz mono audio in two
// segments (about 690 MB), built into playable files, then copied into a
// vault folder by the export and by `cp` in the same run, from the same
// files. The export syncs each copy to the disk and `cp` does not, so `cp`
// followed by `sync` of its copies is timed as well.
//
//   export_bench [folder] [minutes]
#include "capture/DurableAudioWriter.h"
#include "capture/LocalRecordingManifest.h"
#include "capture/RecordingFolder.h"
#include "documents/ObsidianExport.h"

#include <QCoreApplication>
#include <QTimer>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <atomic>
#include <thread>

#include <algorithm>
#include <cstdio>
#include <vector>

#include <unistd.h>

using namespace kestil;

namespace {

constexpr double rate = 48000;

double seconds(const QElapsedTimer &timer)
{
    return double(timer.nsecsElapsed()) / 1e9;
}

bool runShell(const QString &command)
{
    return QProcess::execute(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), command}) == 0;
}

QString quoted(const QString &path)
{
    return QLatin1Char('\'') + QString(path).replace(QLatin1Char('\''), QStringLiteral("'\\''")) +
           QLatin1Char('\'');
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList args = application.arguments();
    QTemporaryDir work(args.size() > 1 ? args[1] + QStringLiteral("/kestil-bench-XXXXXX")
                                       : QDir::tempPath() + QStringLiteral("/kestil-bench-XXXXXX"));
    const int minutes = args.size() > 2 ? args[2].toInt() : 60;
    const QString root = work.path() + QStringLiteral("/data");
    const QUuid noteID = QUuid::createUuid();

    std::printf("Writing %d minutes of 48 kHz mono audio in two segments under %s...\n", minutes,
                qPrintable(work.path()));
    QStringList sources;
    QElapsedTimer build;
    double buildSeconds = 0;
    for (int s = 0; s < 2; ++s) {
        const QString segment = RecordingFolder::newSegmentFolder(root, noteID);
        RecordingFolder::createDirectories(segment);
        LocalRecordingManifest{noteID, LocalRecordingManifest::referenceSecondsNow() + s, rate, true}.write(
            segment);
        QFile raw(RecordingFolder::rawAudioPath(segment));
        if (!raw.open(QIODevice::WriteOnly)) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(raw.fileName()));
            return 1;
        }
        std::vector<float> minute(size_t(rate * 60));
        for (size_t i = 0; i < minute.size(); ++i)
            minute[i] = float((i * 7919) % 2000) / 4000.0f - 0.25f;
        for (int m = 0; m < minutes / 2; ++m)
            raw.write(reinterpret_cast<const char *>(minute.data()), qint64(minute.size() * sizeof(float)));
        raw.close();
        build.start();
        sources << DurableAudioWriter::finalAudioURL(segment);
        buildSeconds += seconds(build);
    }
    qint64 bytes = 0;
    for (const QString &source : sources)
        bytes += QFileInfo(source).size();
    const double megabytes = double(bytes) / 1e6;
    std::printf("Playable audio built from the raw files: %.0f MB in %.2f s (%.0f MB/s)\n", megabytes,
                buildSeconds, megabytes / buildSeconds);

    NoteExportContent note;
    note.title = QStringLiteral("A long meeting");
    note.sourceURL = QStringLiteral("Recordings/") + RecordingFolder::uuidText(noteID);
    std::vector<double> exportRuns, copyRuns, copySyncRuns;
    for (int round = 0; round < 3; ++round) {
        const QString vault = work.path() + QStringLiteral("/vault");
        QDir().mkpath(vault);
        QElapsedTimer timer;
        // Each run starts with nothing left to write back from the one before.
        ::sync();
        timer.start();
        const auto result = ObsidianExport::run(note, vault, root);
        exportRuns.push_back(seconds(timer));
        QDir(vault).removeRecursively();
        if (result.copiedSegments != 2) {
            std::fprintf(stderr, "the export copied %d segments\n", result.copiedSegments);
            return 1;
        }

        for (const bool sync : {false, true}) {
            const QString target = work.path() + QStringLiteral("/cp");
            QDir().mkpath(target);
            QString command = QStringLiteral("cp");
            QString copies = QStringLiteral("sync");
            for (int s = 0; s < sources.size(); ++s) {
                const QString copy = QStringLiteral("%1/segment-%2.caf").arg(target).arg(s + 1);
                command += QLatin1Char(' ') + quoted(sources[s]) + QLatin1Char(' ') + quoted(copy) +
                           QStringLiteral(" && cp");
                copies += QLatin1Char(' ') + quoted(copy);
            }
            command.chop(QStringLiteral(" && cp").size());
            if (sync)
                command += QStringLiteral(" && ") + copies;
            ::sync();
            timer.start();
            if (!runShell(command)) {
                std::fprintf(stderr, "cp failed\n");
                return 1;
            }
            (sync ? copySyncRuns : copyRuns).push_back(seconds(timer));
            QDir(target).removeRecursively();
        }
    }
    const auto best = [](std::vector<double> runs) { return *std::min_element(runs.begin(), runs.end()); };
    const double exportRate = megabytes / best(exportRuns);
    const double copyRate = megabytes / best(copyRuns);
    const double copySyncRate = megabytes / best(copySyncRuns);
    std::printf("Copies of %.0f MB, best of 3 runs each:\n", megabytes);
    std::printf("  ObsidianExport::run (synced)  %.2f s  %.0f MB/s\n", best(exportRuns), exportRate);
    std::printf("  cp                            %.2f s  %.0f MB/s\n", best(copyRuns), copyRate);
    std::printf("  cp then sync of the copies    %.2f s  %.0f MB/s\n", best(copySyncRuns), copySyncRate);
    std::printf("Export / cp: %.0f%%   export / (cp + sync): %.0f%%\n", 100 * exportRate / copyRate,
                100 * exportRate / copySyncRate);

    // The window's side: the export on a worker, as the program runs it, its
    // progress posted to the main thread's event loop, which meanwhile runs a
    // 1 ms timer. The longest gap between two ticks is the longest the window
    // could not draw.
    {
        const QString vault = work.path() + QStringLiteral("/vault");
        QDir().mkpath(vault);
        ::sync();
        QObject receiver;
        int progressEvents = 0;
        std::atomic_bool done = false;
        std::thread worker([&] {
            ObsidianExport::run(note, vault, root, [&](qint64, qint64) {
                QMetaObject::invokeMethod(
                    &receiver, [&] { ++progressEvents; }, Qt::QueuedConnection);
            });
            done = true;
        });
        QElapsedTimer clock;
        clock.start();
        qint64 last = 0;
        qint64 longest = 0;
        QTimer tick;
        tick.setInterval(1);
        QObject::connect(&tick, &QTimer::timeout, [&] {
            const qint64 now = clock.nsecsElapsed();
            longest = std::max(longest, now - last);
            last = now;
            if (done)
                QCoreApplication::quit();
        });
        tick.start();
        QCoreApplication::exec();
        worker.join();
        std::printf("Main thread during the export on a worker: longest gap between 1 ms ticks %.1f ms "
                    "(%d progress updates)\n",
                    double(longest) / 1e6, progressEvents);
    }
    return 0;
}
