// How long a preference write takes: each one rewrites and syncs the whole
// file, on the thread that writes. Prints the latency of single writes for a
// store holding every key of a well-used installation, and of reads.
//
//   prefs_write [writes] [directory]   (default 500 writes, a temporary folder)

#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

#include <QElapsedTimer>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace kestil;

namespace {

void fill(PreferenceStore &store)
{
    settings::setTranscriptionLanguage(store, "en-US");
    settings::setRecordSystemAudio(store, true);
    settings::setShowRecordingWidget(store, true);
    settings::setFoldersExpanded(store, true);
    settings::setSelectedThemeColor(store, "Purple");
    settings::setSelectedAppearanceMode(store, "Dark");
    settings::setWelcomeCompleted(store, true);
    settings::setCompletedLocalSummaries(store, 42);
    settings::setSupportClickedActions(store, {"review", "share"});
    settings::setLocalSpeechLastFailure(store, QString(300, QChar('x')));
    settings::setObsidianSyncFolderBookmark(store, QByteArray(200, 'p'));
}

void report(const char *what, std::vector<double> &ms)
{
    std::sort(ms.begin(), ms.end());
    double sum = 0;
    for (double m : ms)
        sum += m;
    std::printf("%-34s n=%zu  mean %.3f ms  median %.3f ms  p99 %.3f ms  max %.3f ms\n", what, ms.size(),
                sum / double(ms.size()), ms[ms.size() / 2], ms[std::min(ms.size() - 1, ms.size() * 99 / 100)],
                ms.back());
}

} // namespace

int main(int argc, char **argv)
{
    const int writes = argc > 1 ? std::max(1, std::atoi(argv[1])) : 500;
    QTemporaryDir scratch(argc > 2 ? QString::fromLocal8Bit(argv[2]) + "/prefs-bench-XXXXXX" : QString());
    if (!scratch.isValid()) {
        std::fprintf(stderr, "Could not create a folder for the benchmark.\n");
        return 1;
    }
    PreferenceStore store(scratch.path());
    fill(store);

    std::vector<double> counter, position, reads;
    QElapsedTimer timer;
    for (int i = 0; i < writes; ++i) {
        timer.start();
        settings::setCompletedLocalSummaries(store, i + 100);
        counter.push_back(double(timer.nsecsElapsed()) / 1e6);

        timer.start();
        settings::setRecordingWidgetPosition(store, {double(i), double(i) / 2});
        position.push_back(double(timer.nsecsElapsed()) / 1e6);

        timer.start();
        volatile bool on = settings::recordSystemAudio(store) && settings::recordingWidgetPosition(store);
        (void)on;
        reads.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    if (!store.lastWriteError().isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(store.lastWriteError()));
        return 1;
    }
    std::printf("preferences file: %s\n", qPrintable(store.filePath()));
    report("one integer write", counter);
    report("widget position (two keys, one save)", position);
    report("two typed reads", reads);
    return 0;
}
