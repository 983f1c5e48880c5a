#pragma once

#include "capture/LocalRecordingManifest.h"

#include <QString>
#include <QUuid>

#include <chrono>
#include <functional>
#include <mutex>
#include <span>

namespace kestil {

// Writes one recording segment so that it survives a crash at any moment:
// every mono buffer goes straight to the headerless raw file "audio.float32"
// (little-endian 32-bit float, one channel), which is synced to stable
// storage at most once a second, beside a manifest written before the first
// sample. Playable audio ("audio.caf") is built from the raw file afterwards;
// the raw file always wins and is never changed by a build.
//
// append() and complete() may be called from any thread; a lock of the
// writer's own makes them exclusive. The static readers take no lock and are
// meant for folders without a living writer.
class DurableAudioWriter {
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    // Creates the segment folder, its manifest ("complete" false) and an empty
    // raw file, and keeps the raw file open. Throws LocalError with a fixed
    // text when the folder already holds audio or the raw file cannot be
    // made, SystemError otherwise. The clock (steady_clock by default) times
    // the syncs.
    DurableAudioWriter(QString directory, const QUuid &noteID, double sampleRate, Clock clock = {});

    // Closes an open raw file without marking the manifest: the folder is then
    // an interrupted recording, recovered at the next launch.
    ~DurableAudioWriter();

    DurableAudioWriter(const DurableAudioWriter &) = delete;
    DurableAudioWriter &operator=(const DurableAudioWriter &) = delete;

    // Appends bytes to the raw file in the caller's thread, and syncs them
    // when a second or more has gone by since the last sync.
    void append(const void *data, qint64 size);
    void append(std::span<const float> samples) { append(samples.data(), qint64(samples.size_bytes())); }

    // Syncs and closes the raw file, then marks the manifest complete. A
    // second call rewrites the manifest and is harmless.
    void complete();

    const QString &directory() const { return directory_; }
    LocalRecordingManifest manifest() const;
    bool isOpen() const;
    // Syncs done by append() so far.
    int syncCount() const;

    // Frames in a segment's raw file: its size divided by 4; a trailing
    // partial sample is ignored.
    static qint64 frameCount(const QString &segment);

    // Seconds of audio in all segments of a note folder, each divided by its
    // own sample rate. A missing folder holds 0 seconds.
    static double recordedDuration(const QString &noteFolder);

    // Whether the segment's "audio.caf" opens and matches the raw file: same
    // frame count, the manifest's sample rate exactly, one channel.
    static bool hasValidFinalAudio(const QString &segment, const LocalRecordingManifest &manifest);

    // The segment's "audio.caf", proved against the raw file and rebuilt
    // first when it does not match.
    static QString finalAudioURL(const QString &segment);

    // Builds "audio.caf" from the raw file unconditionally, streaming in
    // 64 KiB steps through a temporary "recovered-<UUID>.caf" that replaces
    // the old file in one rename. Returns the location of "audio.caf".
    static QString rebuildFinalAudio(const QString &segment);

private:
    void syncLocked();

    QString directory_;
    Clock clock_;
    mutable std::mutex lock_;
    int handle_ = -1;
    LocalRecordingManifest manifest_;
    std::chrono::steady_clock::time_point lastSync_;
    int syncCount_ = 0;
};

} // namespace kestil
