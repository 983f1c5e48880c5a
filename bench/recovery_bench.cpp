// The launch pass over recordings: a library of 1,000 notes with three
// finished segments each, where nothing needs repair. It runs before the
// first window, so its time is time the user waits.
//
//   recovery_bench [folder] [notes]
#include "capture/LocalRecordingManifest.h"
#include "capture/RecordingFolder.h"
#include "core/InterruptedSessionRecovery.h"
#include "core/LocalAppModel.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace kestil;

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList args = application.arguments();
    QTemporaryDir work(args.size() > 1 ? args[1] + QStringLiteral("/kestil-bench-XXXXXX")
                                       : QDir::tempPath() + QStringLiteral("/kestil-bench-XXXXXX"));
    const int notes = args.size() > 2 ? args[2].toInt() : 1000;
    const QString root = work.path();

    std::printf("Making a library of %d notes with 3 finished segments each...\n", notes);
    {
        SharedPersistenceController store(root);
        // The folders a writer leaves after a clean stop, written without
        // its syncs so that making the library takes seconds, not minutes.
        const QByteArray samples(4800 * 4, '\0');
        for (int n = 0; n < notes; ++n) {
            const QUuid id = QUuid::createUuid();
            store.createNote(QStringLiteral("Meeting %1").arg(n), QString(), id, QStringLiteral("local"));
            for (int s = 0; s < 3; ++s) {
                const QString segment = RecordingFolder::newSegmentFolder(root, id);
                QDir().mkpath(segment);
                const LocalRecordingManifest manifest{id, LocalRecordingManifest::referenceSecondsNow(),
                                                      48000, true};
                QFile json(RecordingFolder::manifestPath(segment));
                QFile raw(RecordingFolder::rawAudioPath(segment));
                if (!json.open(QIODevice::WriteOnly) || json.write(manifest.encode()) < 0 ||
                    !raw.open(QIODevice::WriteOnly) || raw.write(samples) < 0) {
                    std::fprintf(stderr, "cannot write the library\n");
                    return 1;
                }
            }
        }
    }

    LaunchEnvironment environment;
    environment.root = root;
    environment.languageModelAvailability = [] { return LanguageModelAvailability::available; };
    LocalAppModel model(environment);
    std::vector<double> runs;
    for (int round = 0; round < 5; ++round) {
        QElapsedTimer timer;
        timer.start();
        scanInterruptedSessions(model);
        runs.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    std::vector<double> refreshes;
    for (int round = 0; round < 5; ++round) {
        QElapsedTimer timer;
        timer.start();
        model.refreshNotes();
        refreshes.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    std::sort(runs.begin(), runs.end());
    std::sort(refreshes.begin(), refreshes.end());
    std::printf("scanInterruptedSessions over %d notes, %d segments (5 runs, warm cache):\n", notes,
                notes * 3);
    std::printf("  best %.1f ms  median %.1f ms  worst %.1f ms  (message: \"%s\")\n", runs.front(), runs[2],
                runs.back(), qPrintable(model.message()));
    std::printf("  of which the store's reload of the notes (refreshNotes): median %.1f ms\n", refreshes[2]);
    return 0;
}
