#pragma once

#include "WhisperModel.h"
#include "base/ModelDownload.h"

#include <QString>
#include <QUrl>

#include <optional>

namespace kestil {

// Where a model lives in the models folder.
QString whisperModelPath(const QString &directory, const WhisperModel &model);

// Installed means: the file is there, and a verification record beside it
// says that this very file (its size and time of change) matched the checksum
// it was installed with.
// A file that changed since, or one whose download never finished (it is kept
// as "<file>.part"), is not installed.
bool isWhisperModelInstalled(const QString &directory, const WhisperModel &model);
// The same for a model file by its path; the recorded SHA-256 when it is
// installed, otherwise nothing.
std::optional<QByteArray> installedWhisperModelChecksum(const QString &path);

// True while this process downloads the model.
bool isWhisperModelDownloading(const QString &directory, const WhisperModel &model);

// Puts a verified copy of the model into the folder. A finished file without
// its record (an install cut short) is checked first; otherwise the model is
// downloaded from `baseAddress` + its file name, resuming a partial download,
// and renamed into place only when its SHA-256 matches the catalogue. A file
// that does not match is deleted. Throws ModelDownloadError, SystemError,
// LocalError or CancellationError; whatever happens, no file that failed its
// check ever counts as installed.
void installWhisperModel(const QString &directory, const WhisperModel &model, const QUrl &baseAddress,
                         const DownloadObserver &observer);

// Records that the file at `path` is the published model: called after its
// checksum matched.
void writeWhisperModelRecord(const QString &path, const QByteArray &sha256);

} // namespace kestil
