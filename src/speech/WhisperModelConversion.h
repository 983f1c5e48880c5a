#pragma once

#include "WhisperModelFile.h"
#include "base/ModelDownload.h"

#include <QString>

namespace kestil {

// Whether a folder looks like a CTranslate2 model (the form faster-whisper
// uses): it holds "model.bin" and "config.json".
bool isCTranslate2Folder(const QString &folder);

// Converts a CTranslate2 Whisper model folder ("model.bin", "config.json",
// and "vocabulary.txt", "vocabulary.json" or "tokenizer.json") into a
// whisper.cpp model file at `output`, and returns what that file's header
// says. Matrices are written as float16, as whisper.cpp wants them;
// quantised weights are dequantised first. `observer.progress` hears the
// bytes written out of the whole, and `observer.isCancelled` is asked
// between tensors. Throws LocalError for a folder that is not a complete
// Whisper model, SystemError when the output cannot be written (a full disk),
// CancellationError when cancelled; on any failure `output` is removed.
WhisperModelFile convertCTranslate2Whisper(const QString &folder, const QString &output,
                                           const DownloadObserver &observer = {});

} // namespace kestil
