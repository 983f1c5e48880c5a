#pragma once

#include "base/Error.h"

#include <QByteArray>
#include <QString>
#include <QUuid>

#include <optional>

namespace kestil {

// The names and small file operations of a recording folder:
//   Recordings/<NOTE UUID>/<SEGMENT UUID>/{recording.json, audio.float32, audio.caf}
// These names outlive versions of the program, so they never change.
namespace RecordingFolder {

inline constexpr const char *recordingsDirectoryName = "Recordings";
inline constexpr const char *manifestFileName = "recording.json";
inline constexpr const char *rawAudioFileName = "audio.float32";
inline constexpr const char *finalAudioFileName = "audio.caf";
inline constexpr const char *temporaryAudioPrefix = "recovered-";

// A UUID as folder names and manifests hold it: upper case, no braces.
QString uuidText(const QUuid &uuid);

// The UUID that a folder name spells: exactly 36 characters of UUID text in
// either case. Braces, suffixes and anything else give nothing, so that a
// folder someone renamed by hand is never taken for a note's.
std::optional<QUuid> uuidFromName(const QString &name);

// `<root>/Recordings/<NOTE UUID>`.
QString noteFolder(const QString &root, const QUuid &noteID);

// A new segment path under the note folder, named by a fresh UUID.
QString newSegmentFolder(const QString &root, const QUuid &noteID);

QString manifestPath(const QString &segment);
QString rawAudioPath(const QString &segment);
QString finalAudioPath(const QString &segment);

// An error of the operating system (errno) phrased for the user, such as
// "Could not write “audio.float32”: No space left on device".
SystemError posixError(const QString &action, const QString &path, int error);

// Creates a directory and its parents; an existing directory is no failure.
// New directories are synced into their parents so that a power cut cannot
// lose a folder that already holds audio.
void createDirectories(const QString &path);

// Replaces `path` with `contents` in one rename: a reader sees either the old
// file or the whole new one. The data reaches stable storage before the
// rename, and the rename before this returns. A symbolic link at `path` is
// replaced, never followed.
void writeFileAtomically(const QString &path, const QByteArray &contents);

// Syncs a directory's entries (after a create or a rename inside it).
void syncDirectory(const QString &path);

// Reads a whole small file (a manifest).
QByteArray readSmallFile(const QString &path);
// The same, or nothing when no file has that name.
std::optional<QByteArray> readSmallFileIfPresent(const QString &path);

// Whether `path`, with every symbolic link resolved, lies inside `root` (also
// resolved). A path that cannot be resolved is not inside.
bool resolvesInside(const QString &path, const QString &root);

} // namespace RecordingFolder
} // namespace kestil
