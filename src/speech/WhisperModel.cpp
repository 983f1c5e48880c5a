#include "WhisperModel.h"

#include "base/Error.h"
#include "prefs/PreferenceStore.h"

namespace kestil {

namespace {

WhisperModel model(const char *name, const char *size, bool englishOnly, const char *sha256)
{
    const QString n = QString::fromLatin1(name);
    return WhisperModel{n, QString::fromLatin1(size), englishOnly,
                        QStringLiteral("ggml-") + n + QStringLiteral(".bin"), QByteArray(sha256)};
}

int sizeRank(const QString &size)
{
    if (size.startsWith(QLatin1String("large")))
        return 5;
    if (size == QLatin1String("medium"))
        return 4;
    if (size == QLatin1String("small"))
        return 3;
    if (size == QLatin1String("base"))
        return 2;
    if (size == QLatin1String("tiny"))
        return 1;
    return 0;
}

} // namespace

const QList<WhisperModel> &whisperModelCatalogue()
{
    // The SHA-256 of each file as published at the default base address.
    static const QList<WhisperModel> catalogue{
        model("tiny.en", "tiny", true, "921e4cf8686fdd993dcd081a5da5b6c365bfde1162e72b08d75ac75289920b1f"),
        model("tiny", "tiny", false, "be07e048e1e599ad46341c8d2a135645097a538221678b7acdd1b1919c6e1b21"),
        model("base.en", "base", true, "a03779c86df3323075f5e796cb2ce5029f00ec8869eee3fdfb897afe36c6d002"),
        model("base", "base", false, "60ed5bc3dd14eea856493d334349b405782ddcaf0028d4b5df4088345fba2efe"),
        model("small.en", "small", true, "c6138d6d58ecc8322097e0f987c32f1be8bb0a18532a3f88f734d1bbf9c41e5d"),
        model("small", "small", false, "1be3a9b2063867b937e64e2ec7483364a79917e157fa98c5d94b5c1fffea987b"),
    };
    return catalogue;
}

std::optional<WhisperModel> whisperModelFor(const QList<WhisperModel> &catalogue, const QString &languageKey,
                                            const QString &size)
{
    const bool english = languageKey == QLatin1String("en");
    for (const WhisperModel &m : catalogue) {
        if (m.size == size && m.englishOnly == english)
            return m;
    }
    return std::nullopt;
}

QList<WhisperModel> whisperModelsFor(const QList<WhisperModel> &catalogue, const QString &languageKey,
                                     const QString &preferredSize)
{
    const bool english = languageKey == QLatin1String("en");
    QList<WhisperModel> models;
    for (const WhisperModel &m : catalogue) {
        if (m.englishOnly == english)
            models.append(m);
    }
    std::stable_sort(models.begin(), models.end(), [&](const WhisperModel &a, const WhisperModel &b) {
        const bool aPreferred = a.size == preferredSize;
        const bool bPreferred = b.size == preferredSize;
        if (aPreferred != bPreferred)
            return aPreferred;
        return sizeRank(a.size) > sizeRank(b.size);
    });
    return models;
}

QList<WhisperModel> whisperModelsServing(const QList<WhisperModel> &models, const QString &languageKey,
                                         const QString &preferredSize)
{
    const bool english = languageKey == QLatin1String("en");
    QList<WhisperModel> serving;
    for (const WhisperModel &m : models) {
        if (english || !m.englishOnly)
            serving.append(m);
    }
    std::stable_sort(serving.begin(), serving.end(), [&](const WhisperModel &a, const WhisperModel &b) {
        if (a.englishOnly != b.englishOnly)
            return a.englishOnly;
        const bool aPreferred = a.size == preferredSize;
        const bool bPreferred = b.size == preferredSize;
        if (aPreferred != bPreferred)
            return aPreferred;
        return sizeRank(a.size) > sizeRank(b.size);
    });
    return serving;
}

QString whisperModelSize(const PreferenceStore &preferences)
{
    const QString size = preferences.string(whisperModelSizeKey);
    if (sizeRank(size) > 0 && sizeRank(size) <= 3)
        return size;
    return defaultWhisperModelSize;
}

QUrl whisperModelBaseAddress(const PreferenceStore &preferences)
{
    QString text = qEnvironmentVariable("KESTIL_SPEECH_MODEL_BASE_URL");
    if (text.isEmpty())
        text = preferences.string(whisperModelBaseAddressKey);
    if (text.isEmpty())
        text = defaultWhisperModelBaseAddress;
    if (!text.endsWith(QLatin1Char('/')))
        text += QLatin1Char('/');
    const QUrl url(text, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty() ||
        (scheme != QLatin1String("https") && scheme != QLatin1String("http")))
        throw LocalError(
            QStringLiteral("The speech model address “%1” is not a web address. Use an address that "
                           "starts with https://.")
                .arg(text));
    return url;
}

QString whisperLanguageCode(const QString &languageKey)
{
    if (languageKey.startsWith(QLatin1String("zh")))
        return QStringLiteral("zh");
    if (languageKey == QLatin1String("nb"))
        return QStringLiteral("no");
    return languageKey;
}

} // namespace kestil
