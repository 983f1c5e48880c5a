#include "WhisperContext.h"

#include "base/ComputeBackends.h"

#include "base/Error.h"

#include <QFile>
#include <QFileInfo>

#include <whisper.h>

#include <algorithm>
#include <mutex>
#include <thread>

namespace kestil {

namespace {

// whisper.cpp talks a lot while it loads; only its errors are worth a line.
void whisperLog(ggml_log_level level, const char *text, void *)
{
    if (level == GGML_LOG_LEVEL_ERROR && text)
        qWarning("whisper: %s", text);
}

} // namespace

WhisperContext::WhisperContext(const QString &modelPath, const QString &language)
    : file_(inspectWhisperModelFile(modelPath)), language_(language.toUtf8())
{
    const QString name = QFileInfo(modelPath).fileName();
    if (whisper_lang_id(language_.constData()) < 0)
        throw LocalError(QStringLiteral("Whisper does not know the language “%1”.").arg(language));
    if (!file_.isMultilingual() && language != QLatin1String("en"))
        throw LocalError(QStringLiteral("The speech model “%1” understands English only.").arg(name));

    if (!loadComputeBackends())
        throw SystemError(QStringLiteral("Whisper could not start: the computing library it needs is missing "
                                         "from this installation. Reinstall Kestil; your recordings are "
                                         "unchanged."));
    static std::once_flag quiet;
    std::call_once(quiet, [] { whisper_log_set(whisperLog, nullptr); });
    whisper_context_params params = whisper_context_default_params();
    params.use_gpu = false;
    context_ = whisper_init_from_file_with_params(QFile::encodeName(modelPath).constData(), params);
    if (!context_)
        throw SystemError(QStringLiteral("Whisper could not load the speech model “%1”.").arg(name));
}

WhisperContext::~WhisperContext()
{
    if (context_)
        whisper_free(context_);
}

int WhisperContext::threads(int requested)
{
    if (requested > 0)
        return requested;
    return int(std::clamp(std::thread::hardware_concurrency() / 2, 1u, 4u));
}

bool WhisperContext::isSoundMarker(const QString &text)
{
    if (text.size() < 2)
        return text == QStringLiteral("♪");
    const QChar first = text.front();
    const QChar last = text.back();
    return (first == QLatin1Char('[') && last == QLatin1Char(']')) ||
           (first == QLatin1Char('(') && last == QLatin1Char(')')) ||
           (first == QLatin1Char('*') && last == QLatin1Char('*')) ||
           (first == QChar(0x266A) && last == QChar(0x266A));
}

whisper_full_params WhisperContext::greedyParams(int threads) const
{
    whisper_full_params params = whisper_full_default_params(WHISPER_SAMPLING_GREEDY);
    params.n_threads = threads;
    params.print_special = false;
    params.print_progress = false;
    params.print_realtime = false;
    params.print_timestamps = false;
    params.language = language_.constData();
    params.detect_language = false;
    params.translate = false;
    params.suppress_blank = true;
    params.suppress_nst = true;
    return params;
}

} // namespace kestil
