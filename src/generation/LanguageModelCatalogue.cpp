#include "generation/LanguageModelCatalogue.h"

#include "base/Error.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

namespace kestil {

namespace {

// The publisher's own GGUF repositories; each file below is pinned to the
// revision whose size and checksum the catalogue holds.
constexpr QLatin1StringView defaultBaseAddress{"https://huggingface.co/Qwen/"};

// The languages the Qwen2.5 models are trained for, as their publisher names
// them; summaries in other languages are refused rather than guessed at.
QStringList qwenLanguages()
{
    return {QStringLiteral("en"), QStringLiteral("zh"), QStringLiteral("fr"), QStringLiteral("es"),
            QStringLiteral("pt"), QStringLiteral("de"), QStringLiteral("it"), QStringLiteral("ru"),
            QStringLiteral("ja"), QStringLiteral("ko"), QStringLiteral("vi"), QStringLiteral("th"),
            QStringLiteral("ar")};
}

} // namespace

const QList<DownloadableLanguageModel> &languageModelCatalogue()
{
    static const QList<DownloadableLanguageModel> catalogue{
        DownloadableLanguageModel{
            QStringLiteral("Qwen2.5 1.5B Instruct"),
            QStringLiteral("qwen2.5-1.5b-instruct-q4_k_m.gguf"),
            QStringLiteral("Qwen2.5-1.5B-Instruct-GGUF/resolve/91cad51170dc346986eccefdc2dd33a9da36ead9/"
                           "qwen2.5-1.5b-instruct-q4_k_m.gguf"),
            1117320736,
            QByteArrayLiteral("6a1a2eb6d15622bf3c96857206351ba97e1af16c30d7a74ee38970e434e9407e"),
            qwenLanguages(),
            QStringLiteral("Good summaries on most laptops; needs about 2 GB of memory while it works."),
            QStringLiteral("Apache-2.0"),
        },
        DownloadableLanguageModel{
            QStringLiteral("Qwen2.5 0.5B Instruct"),
            QStringLiteral("qwen2.5-0.5b-instruct-q4_k_m.gguf"),
            QStringLiteral("Qwen2.5-0.5B-Instruct-GGUF/resolve/9217f5db79a29953eb74d5343926648285ec7e67/"
                           "qwen2.5-0.5b-instruct-q4_k_m.gguf"),
            491400032,
            QByteArrayLiteral("74a4da8c9fdbcd15bd1f6d01d621410d31c6fc00986f5eb687824e7b93d7a9db"),
            qwenLanguages(),
            QStringLiteral("Smallest and fastest, for older computers; shorter and simpler summaries."),
            QStringLiteral("Apache-2.0"),
        },
    };
    return catalogue;
}

const DownloadableLanguageModel &defaultLanguageModel()
{
    return languageModelCatalogue().first();
}

QUrl languageModelBaseAddress(const PreferenceStore &preferences)
{
    QString text = qEnvironmentVariable("KESTIL_LANGUAGE_MODEL_BASE_URL");
    if (text.isEmpty())
        text = preferences.string(settings::keys::kestilLanguageModelBaseAddress);
    if (text.isEmpty())
        text = defaultBaseAddress;
    if (!text.endsWith(QLatin1Char('/')))
        text += QLatin1Char('/');
    const QUrl url(text, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty() ||
        (scheme != QLatin1String("https") && scheme != QLatin1String("http")))
        throw LocalError(QStringLiteral("The language model address “%1” is not a web address. Use an "
                                        "address that starts with https://. Nothing was downloaded.")
                             .arg(text));
    return url;
}

QUrl languageModelAddress(const QUrl &baseAddress, const DownloadableLanguageModel &model)
{
    return baseAddress.resolved(QUrl(model.remotePath));
}

QString fileSizeText(qint64 bytes)
{
    constexpr double mega = 1000.0 * 1000.0;
    if (bytes >= 1000 * 1000 * 1000)
        return QString::number(double(bytes) / (mega * 1000.0), 'f', 2) + QStringLiteral(" GB");
    return QString::number(double(bytes) / mega, 'f', 1) + QStringLiteral(" MB");
}

} // namespace kestil
