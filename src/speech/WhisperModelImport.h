#pragma once

#include "WhisperModel.h"
#include "base/ModelDownload.h"

#include <QList>
#include <QString>

namespace kestil {

struct WhisperModelFile;

// A model that an import put into the models folder.
struct ImportedWhisperModel {
    WhisperModel model;
    QString path;
    // Seconds the conversion took; 0 for a whisper.cpp file, which is copied.
    double conversionSeconds = 0;
};

// The name Kestil gives a model of this shape: its size ("tiny", "base",
// "small", "medium", "large", "large-v3"), with ".en" when it knows English
// only. A shape of no published size is named by its width and depth.
QString whisperModelName(const WhisperModelFile &file);

// Installs a speech model the user already has: a whisper.cpp model file
// ("ggml-*.bin", copied) or a CTranslate2 model folder as faster-whisper uses
// (converted to whisper.cpp's format). Nothing is downloaded. The model goes
// into `directory` as "ggml-<name>.bin", replacing one of the same name, and
// is recorded with its own SHA-256 as a downloaded model is, so that it
// counts as installed. Work happens under a temporary name that never counts
// as installed; on failure or cancellation that file is removed and what was
// installed before is unchanged. Blocks: run it on a worker. `observer` hears
// progress in bytes written out of the whole, and can cancel. Throws
// LocalError for a source that is not a usable Whisper model, SystemError when
// the folder cannot be written, CancellationError when cancelled.
ImportedWhisperModel importWhisperModel(const QString &source, const QString &directory,
                                        const DownloadObserver &observer = {});

// Every model in the folder that counts as installed: downloaded or imported,
// its record matching the file. Named and described from the file name.
QList<WhisperModel> installedWhisperModels(const QString &directory);

} // namespace kestil
