#pragma once

#include "base/ModelDownload.h"
#include "generation/LanguageModelCatalogue.h"
#include "generation/LanguageModelFiles.h"

#include <QString>
#include <QUrl>

namespace kestil {

// Downloads a model of the catalogue from `baseAddress` into the folder of
// language models and returns the installed path. The file arrives as
// "<file>.part" (a part left by an earlier attempt is resumed), must match the
// catalogue's SHA-256, must be a GGUF model Kestil can use, and then takes its
// place in one rename, stamped as installed last, so that the on-device model
// uses it from its next request on. Until that rename nothing counts as
// installed; a file that fails its checks is deleted, and a download that
// stops or is cancelled keeps its part for the next try. Blocks: call it off
// the main thread. Throws ModelDownloadError, SystemError or LocalError with
// a sentence that says what was kept, or CancellationError.
QString installLanguageModel(const DownloadableLanguageModel &model, const QUrl &baseAddress,
                             const DownloadObserver &observer,
                             const QString &directory = LanguageModelFiles::modelsDirectory());

// True while this process downloads the model into the folder.
bool isLanguageModelDownloading(const DownloadableLanguageModel &model,
                                const QString &directory = LanguageModelFiles::modelsDirectory());

// Bytes of the model's unfinished download in the folder, or 0.
qint64 partialLanguageModelDownload(const DownloadableLanguageModel &model,
                                    const QString &directory = LanguageModelFiles::modelsDirectory());

} // namespace kestil
