// Figures of the capture path:
//   - the work done for every 4096-frame buffer (mono mix, append to the raw
//     file, peak), without the once-a-second sync, and the sync itself;
//   - building the playable file from an hour of raw audio, next to a plain
//     cp of the same file on the same disk, with the build's peak memory.
//
//   capture_bench [folder] [hours]
// The folder (default: the system's temporary folder) should be on the disk
// where recordings live.
#include "capture/CapturedBuffer.h"
#include "capture/DurableAudioWriter.h"
#include "capture/MonoMix.h"
#include "capture/RecordingFolder.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <numeric>
#include <vector>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

using namespace kestil;
using Clock = std::chrono::steady_clock;

namespace {

const QUuid noteID = QUuid::fromString(QStringLiteral("0b9c6a1e-5f2d-4e8a-9b3c-7d4e5f6a7b8c"));

struct Figures {
    double mean = 0, median = 0, p99 = 0, worst = 0;
};

Figures figures(std::vector<double> micros)
{
    std::sort(micros.begin(), micros.end());
    Figures f;
    f.mean = std::accumulate(micros.begin(), micros.end(), 0.0) / double(micros.size());
    f.median = micros[micros.size() / 2];
    f.p99 = micros[std::min(micros.size() - 1, micros.size() * 99 / 100)];
    f.worst = micros.back();
    return f;
}

void print(const char *what, const Figures &f)
{
    std::printf("  %-44s mean %7.1f us  median %7.1f  p99 %7.1f  max %8.1f\n", what, f.mean, f.median, f.p99,
                f.worst);
}

// Interleaved samples of a voice-like signal, so the mix works on real values.
std::vector<float> signal(int channels, int frames, int seed)
{
    std::vector<float> samples(size_t(frames * channels));
    for (int i = 0; i < frames; ++i)
        for (int c = 0; c < channels; ++c)
            samples[size_t(i * channels + c)] = 0.3f * std::sin(0.01f * float(i + seed) * float(c + 1));
    return samples;
}

void audioPath(const QString &folder)
{
    constexpr int frames = 4096;
    constexpr int buffers = 4000; // about six minutes at 48 kHz
    std::printf("Audio path, 4096-frame buffers at 48 kHz (a buffer lasts %.1f ms), %d buffers:\n",
                1000.0 * frames / 48000, buffers);

    struct Case {
        const char *name;
        std::vector<int> channels;
    };
    for (const Case &c :
         {Case{"stereo microphone", {2}}, Case{"microphone (1 ch) + system audio (2 ch)", {1, 2}}}) {
        std::vector<std::vector<float>> data;
        std::vector<AudioBuffer> list;
        for (size_t i = 0; i < c.channels.size(); ++i)
            data.push_back(signal(c.channels[i], frames, int(i)));
        for (size_t i = 0; i < c.channels.size(); ++i)
            list.push_back(
                AudioBuffer{c.channels[i], data[i].data(), qint64(data[i].size() * sizeof(float))});

        // A clock that stands still: no append is due for a sync.
        const auto frozen = Clock::now();
        const QString segment =
            folder + QStringLiteral("/path-") + RecordingFolder::uuidText(QUuid::createUuid());
        DurableAudioWriter writer(segment, noteID, 48000, [frozen] { return frozen; });
        std::vector<float> scratch;
        std::vector<double> mix, append, all;
        float peaks = 0;
        for (int b = 0; b < buffers; ++b) {
            const auto t0 = Clock::now();
            mixToMono(list, AudioSampleFormat::float32, scratch);
            const auto t1 = Clock::now();
            writer.append(std::span<const float>(scratch));
            peaks += peakLevel(scratch);
            const auto t2 = Clock::now();
            mix.push_back(std::chrono::duration<double, std::micro>(t1 - t0).count());
            append.push_back(std::chrono::duration<double, std::micro>(t2 - t1).count());
            all.push_back(std::chrono::duration<double, std::micro>(t2 - t0).count());
        }
        writer.complete();
        std::printf(" %s (peak sum %.0f):\n", c.name, double(peaks));
        print("mix", figures(mix));
        print("append + peak", figures(append));
        print("mix + append + peak", figures(all));
        QDir(segment).removeRecursively();
    }

    // The sync: the append that comes a second after the last one.
    auto now = Clock::now();
    const QString segment =
        folder + QStringLiteral("/sync-") + RecordingFolder::uuidText(QUuid::createUuid());
    DurableAudioWriter writer(segment, noteID, 48000, [&now] { return now; });
    const auto samples = signal(1, frames, 0);
    std::vector<double> syncs;
    for (int b = 0; b < 12 * 60; ++b) {
        now += std::chrono::microseconds(85333);
        const int before = writer.syncCount();
        const auto t0 = Clock::now();
        writer.append(samples);
        const auto t1 = Clock::now();
        if (writer.syncCount() != before)
            syncs.push_back(std::chrono::duration<double, std::micro>(t1 - t0).count());
    }
    writer.complete();
    std::printf(" once a second (%zu syncs over a minute of audio):\n", syncs.size());
    print("append that syncs", figures(syncs));
    QDir(segment).removeRecursively();
}

double seconds(const QElapsedTimer &timer)
{
    return double(timer.nsecsElapsed()) / 1e9;
}

// Runs this program again as a build of one segment, so that its peak memory
// is the build's alone.
long buildInChild(const QString &segment, double &elapsed)
{
    QByteArray self = QFile::encodeName(QCoreApplication::applicationFilePath());
    QByteArray mode("--rebuild");
    QByteArray path = QFile::encodeName(segment);
    char *argv[] = {self.data(), mode.data(), path.data(), nullptr};
    QElapsedTimer timer;
    timer.start();
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv, environ) != 0)
        return -1;
    int status = 0;
    struct rusage usage {};
    ::wait4(pid, &status, 0, &usage);
    elapsed = seconds(timer);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? usage.ru_maxrss : -1;
}

void rebuild(const QString &folder, double hours)
{
    const qint64 frames = qint64(hours * 3600 * 48000);
    const double megabytes = double(frames) * 4 / 1e6;
    std::printf("\nBuilding audio.caf from %.2f h of 48 kHz mono raw audio (%.0f MB):\n", hours, megabytes);
    const QString segment =
        folder + QStringLiteral("/hour-") + RecordingFolder::uuidText(QUuid::createUuid());
    {
        DurableAudioWriter writer(segment, noteID, 48000);
        std::vector<float> chunk(1 << 20);
        for (qint64 done = 0; done < frames;) {
            const qint64 n = std::min<qint64>(qint64(chunk.size()), frames - done);
            for (qint64 i = 0; i < n; ++i)
                chunk[size_t(i)] = float((done + i) % 48000) / 48000.0f - 0.5f;
            writer.append(chunk.data(), n * 4);
            done += n;
        }
        writer.complete();
    }
    const QString raw = RecordingFolder::rawAudioPath(segment);
    const QString copy = segment + QStringLiteral("/copy.float32");

    // Each is run three times, interleaved, and the best run counts: the
    // disk is shared with whatever else the machine does. All read the raw
    // file from the page cache, as a build right after a recording does.
    auto timed = [](const std::function<void()> &work) {
        QElapsedTimer timer;
        timer.start();
        work();
        return seconds(timer);
    };
    std::vector<double> cpRuns, cpSyncRuns, buildRuns;
    long peakKiB = 0;
    for (int round = 0; round < 3; ++round) {
        cpRuns.push_back(timed([&] { QProcess::execute(QStringLiteral("cp"), {raw, copy}); }));
        QFile::remove(copy);
        cpSyncRuns.push_back(timed([&] {
            QProcess::execute(QStringLiteral("sh"),
                              {QStringLiteral("-c"), QStringLiteral("cp \"$1\" \"$2\" && sync \"$2\""),
                               QStringLiteral("sh"), raw, copy});
        }));
        QFile::remove(copy);
        // A build of a segment without "audio.caf", like the first one.
        QFile::remove(RecordingFolder::finalAudioPath(segment));
        double elapsed = 0;
        peakKiB = std::max(peakKiB, buildInChild(segment, elapsed));
        if (peakKiB < 0) {
            std::printf("  the build failed\n");
            QDir(segment).removeRecursively();
            return;
        }
        buildRuns.push_back(elapsed);
    }
    const double cpBest = *std::min_element(cpRuns.begin(), cpRuns.end());
    const double cpSyncBest = *std::min_element(cpSyncRuns.begin(), cpSyncRuns.end());
    const double buildBest = *std::min_element(buildRuns.begin(), buildRuns.end());
    std::printf("  best of 3 runs:\n");
    std::printf("  cp                      %7.1f MB/s\n", megabytes / cpBest);
    std::printf("  cp + sync               %7.1f MB/s\n", megabytes / cpSyncBest);
    std::printf("  build (synced)          %7.1f MB/s  = %3.0f%% of cp, %3.0f%% of cp + sync\n",
                megabytes / buildBest, 100 * cpBest / buildBest, 100 * cpSyncBest / buildBest);
    std::printf("  build peak memory       %7.1f MB resident (the whole process)\n", double(peakKiB) / 1024);
    QDir(segment).removeRecursively();
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList args = application.arguments();
    if (args.size() == 3 && args[1] == QLatin1String("--rebuild")) {
        try {
            DurableAudioWriter::rebuildFinalAudio(args[2]);
            return 0;
        } catch (const std::exception &error) {
            std::fprintf(stderr, "%s\n", error.what());
            return 1;
        }
    }
    QTemporaryDir work(args.size() > 1 ? args[1] + QStringLiteral("/kestil-bench-XXXXXX")
                                       : QDir::tempPath() + QStringLiteral("/kestil-bench-XXXXXX"));
    if (!work.isValid()) {
        std::fprintf(stderr, "cannot make a folder to work in\n");
        return 1;
    }
    const double hours = args.size() > 2 ? args[2].toDouble() : 1.0;
    std::printf("Working in %s\n\n", qPrintable(work.path()));
    audioPath(work.path());
    rebuild(work.path(), hours);
    return 0;
}
