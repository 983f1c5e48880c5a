#pragma once

#include "documents/NoteExport.h"

#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>
#include <optional>

namespace kestil {

// Writes a note into a folder of an Obsidian vault: "Kestil-<UUID>.md" and,
// when the note has local audio, "Kestil-<UUID>-audio/segment-<n>.caf", one
// playable copy per recording segment. The Markdown is written last, so that
// it never points at audio that is not there. Source files are never moved or
// changed. Meant for a worker thread: it blocks for as long as the copy lasts.
namespace ObsidianExport {

struct Result {
    QString markdownPath;
    int copiedSegments = 0;
    // The sentence for the application's message line.
    QString message() const;
};

// Bytes copied so far and in all, for a progress line.
using Progress = std::function<void(qint64 done, qint64 total)>;

// The note's audio folder under the store root. Throws LocalError "Local
// storage is unavailable." without a root, "This note has no local audio."
// for an empty, absolute or scheme-bearing path, and "Audio path is outside
// the local store." for one that leaves the root.
QString noteAudioFolder(const std::optional<QString> &storeRoot, const QString &sourceURL);

// The playable audio of each segment in the folder, oldest first; a segment
// whose "audio.caf" is missing or stale is built from its raw audio first.
QStringList segmentAudioFiles(const QString &audioFolder);

// The Markdown of the note, with nothing trimmed.
QString markdown(const NoteExportContent &note);

// Runs the export. Throws LocalError (the caller adds "Export failed: " and
// ". Local source files were retained.") on any failure to read, copy or
// write; what was copied before stays. A set `cancel` stops between pieces of
// the copy and throws CancellationError; no Markdown is written then.
Result run(const NoteExportContent &note, const QString &folder, const std::optional<QString> &storeRoot,
           const Progress &progress = {}, const std::atomic_bool *cancel = nullptr);

} // namespace ObsidianExport
} // namespace kestil
