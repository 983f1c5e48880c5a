#include "LocalSpeech.h"

#include "AudioFileReader.h"
#include "PocketSphinxEngine.h"
#include "SpeechPaths.h"
#include "StreamResampler.h"
#include "WhisperEngine.h"
#include "WhisperFileEngine.h"
#include "WhisperModelFile.h"
#include "WhisperModelImport.h"
#include "WhisperModelInstall.h"
#include "base/CancellationError.h"
#include "base/ComputeBackends.h"

#include "base/Error.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

#include <QCollator>
#include <QDateTime>
#include <QDir>
#include <QLocale>
#include <QRegularExpression>

#include <unicode/uloc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

namespace kestil::LocalSpeech {

namespace {

const QString unavailableText = QStringLiteral("Transcription is unavailable for the selected language on "
                                               "this device. Choose a supported on-device speech "
                                               "language in Settings, or refresh speech availability.");
const QString needsSetupText = QStringLiteral(
    "The on-device speech model for this language needs setup. Open Settings and choose Set Up "
    "On-Device Speech. The on-device language model uses a separate model.");
const QString readyText = QStringLiteral("On-device speech is ready. Transcription works offline.");
const QString fallbackText = QStringLiteral(
    "On-device speech works with PocketSphinx, a basic fallback engine that gets many words wrong.");
const QString fallbackOfferText =
    QStringLiteral("Choose Set Up On-Device Speech to install Whisper for accurate transcripts.");
const QString fallbackOnlyText =
    QStringLiteral("Whisper, the accurate engine, does not run on this processor.");
const QString notFinishedText = QStringLiteral(
    "Kestil has not finished installing this language's speech model. Connect to the internet and "
    "try Set Up On-Device Speech again.");

// Whisper's locales: one per language key, in the region that key's maximal
// form names.
const QStringList &whisperLocaleList()
{
    static const QStringList locales{
        QStringLiteral("en-US"),      QStringLiteral("da-DK"), QStringLiteral("nl-NL"),
        QStringLiteral("fr-FR"),      QStringLiteral("de-DE"), QStringLiteral("it-IT"),
        QStringLiteral("nb-NO"),      QStringLiteral("pt-BR"), QStringLiteral("es-ES"),
        QStringLiteral("sv-SE"),      QStringLiteral("tr-TR"), QStringLiteral("zh-Hans-CN"),
        QStringLiteral("zh-Hant-TW"), QStringLiteral("ja-JP"), QStringLiteral("ko-KR"),
        QStringLiteral("vi-VN")};
    return locales;
}

const QString pocketSphinxModelDirectory()
{
    return QStringLiteral(KESTIL_POCKETSPHINX_MODEL_DIR);
}

struct Subtags {
    QString language;
    QString script;
    QString region;
};

Subtags subtags(const QString &identifier)
{
    QString id = identifier.trimmed();
    // POSIX forms: "de_DE.UTF-8", "sr_RS@latin".
    const qsizetype cut = id.indexOf(QRegularExpression(QStringLiteral("[.@]")));
    if (cut >= 0)
        id.truncate(cut);
    const QStringList parts = id.split(QRegularExpression(QStringLiteral("[-_]")), Qt::SkipEmptyParts);
    Subtags tags;
    if (parts.isEmpty())
        return tags;
    tags.language = parts[0].toLower();
    for (qsizetype i = 1; i < parts.size(); ++i) {
        const QString &p = parts[i];
        if (i == 1 && p.size() == 4 && p.front().isLetter()) {
            tags.script = p.left(1).toUpper() + p.mid(1).toLower();
        } else if (tags.region.isEmpty() && (p.size() == 2 || (p.size() == 3 && p.front().isDigit()))) {
            tags.region = p.toUpper();
        }
    }
    return tags;
}

// language-Script-REGION with the likely subtags filled in.
QString maximalIdentifier(const QString &identifier)
{
    const QLocale locale(bcp47Identifier(identifier));
    if (locale.language() == QLocale::C)
        return bcp47Identifier(identifier);
    return QLocale::languageToCode(locale.language()) + QLatin1Char('-') +
           QLocale::scriptToCode(locale.script()) + QLatin1Char('-') +
           QLocale::territoryToCode(locale.territory());
}

// The identifier of the language part of a locale: its key when it has one.
QString languageOf(const QString &identifier)
{
    if (const auto key = languageKey(identifier))
        return *key;
    return subtags(identifier).language;
}

// supportedLocale(equivalentTo:), then the first entry whose language has the
// same maximal identifier as the wanted one.
std::optional<QString> equivalentLocale(const QStringList &supported, const QString &locale)
{
    const QString wanted = bcp47Identifier(locale);
    for (const QString &s : supported) {
        if (s.compare(wanted, Qt::CaseInsensitive) == 0)
            return s;
    }
    const QString language = maximalIdentifier(languageOf(locale));
    for (const QString &s : supported) {
        if (maximalIdentifier(languageOf(s)) == language)
            return s;
    }
    return std::nullopt;
}

std::pair<QString, int> domainAndCode(const std::exception &error)
{
    if (const auto *e = dynamic_cast<const ModelDownloadError *>(&error))
        return {QStringLiteral("kestil.ModelDownloadError"), e->code()};
    if (dynamic_cast<const LocalError *>(&error))
        return {QStringLiteral("kestil.LocalError"), 0};
    if (dynamic_cast<const SystemError *>(&error))
        return {QStringLiteral("kestil.SystemError"), 0};
    return {QStringLiteral("std.exception"), 0};
}

int whisperFormats(const QString &path)
{
    try {
        inspectWhisperModelFile(path);
        return 1;
    } catch (const Error &) {
        return 0;
    }
}

void prove(const Configuration &configuration)
{
    std::unique_ptr<SpeechEngine> engine = makeEngine(configuration);
    const std::vector<float> silence(std::size_t(engine->sampleRate()), 0.0f);
    if (auto *whisper = dynamic_cast<WhisperEngine *>(engine.get())) {
        // The engine itself would not even decode silence; the proof must.
        whisper->decode(silence);
        return;
    }
    engine->feed(silence);
    engine->finish();
}

} // namespace

QString engineName(Engine engine)
{
    return engine == Engine::speech ? QStringLiteral("Whisper") : QStringLiteral("PocketSphinx");
}

QString statusName(Readiness::Status status)
{
    switch (status) {
    case Readiness::Status::unsupported:
        return QStringLiteral("unsupported");
    case Readiness::Status::downloading:
        return QStringLiteral("downloading");
    case Readiness::Status::supported:
        return QStringLiteral("supported");
    case Readiness::Status::installed:
        return QStringLiteral("installed");
    }
    return QStringLiteral("unsupported");
}

const QStringList &languageKeys()
{
    static const QStringList keys{
        QStringLiteral("en"),      QStringLiteral("da"), QStringLiteral("nl"), QStringLiteral("fr"),
        QStringLiteral("de"),      QStringLiteral("it"), QStringLiteral("nb"), QStringLiteral("pt"),
        QStringLiteral("es"),      QStringLiteral("sv"), QStringLiteral("tr"), QStringLiteral("zh-Hans"),
        QStringLiteral("zh-Hant"), QStringLiteral("ja"), QStringLiteral("ko"), QStringLiteral("vi")};
    return keys;
}

std::optional<QString> languageKey(const QString &localeIdentifier)
{
    const Subtags tags = subtags(localeIdentifier);
    QString key = tags.language;
    if (key == QLatin1String("zh"))
        key += QLatin1Char('-') + tags.script;
    if (languageKeys().contains(key))
        return key;
    return std::nullopt;
}

QString bcp47Identifier(const QString &localeIdentifier)
{
    const Subtags tags = subtags(localeIdentifier);
    QStringList parts{tags.language};
    if (!tags.script.isEmpty())
        parts << tags.script;
    if (!tags.region.isEmpty())
        parts << tags.region;
    return parts.join(QLatin1Char('-'));
}

QString displayName(const Language &language)
{
    const QString key = languageKey(language.id).value_or(subtags(language.id).language);
    const QByteArray id = QString(key).replace(QLatin1Char('-'), QLatin1Char('_')).toLatin1();
    const QByteArray display = QLocale().name().toLatin1();
    UChar buffer[256];
    UErrorCode status = U_ZERO_ERROR;
    const int32_t length = uloc_getDisplayName(id.constData(), display.constData(), buffer, 256, &status);
    if (U_FAILURE(status) || length <= 0)
        return key;
    return QString::fromUtf16(reinterpret_cast<const char16_t *>(buffer), std::min<int32_t>(length, 256));
}

Inventory Inventory::current(const PreferenceStore &preferences)
{
    return current(preferences, whisperModelCatalogue(), speechModelsDirectory());
}

Inventory Inventory::current(const PreferenceStore &preferences, const QList<WhisperModel> &catalogue,
                             const QString &modelsDirectory)
{
    Inventory inventory;
    inventory.whisperAvailable = processorRunsComputeBackends();
    inventory.whisperLocales = whisperLocaleList();
    const QString sphinx = pocketSphinxModelDirectory();
    const bool sphinxPresent = PocketSphinxEngine::isModelPresent(sphinx);
    if (sphinxPresent)
        inventory.pocketSphinxLocales = {QStringLiteral("en-US")};
    const QString size = whisperModelSize(preferences);
    inventory.asset = [catalogue, modelsDirectory, size, sphinx,
                       sphinxPresent](Engine engine, const QString &locale) -> Asset {
        if (engine == Engine::dictation) {
            if (!sphinxPresent)
                return Asset{Readiness::Status::unsupported, 0, sphinx};
            return Asset{Readiness::Status::installed, 1, sphinx};
        }
        const auto key = languageKey(locale);
        if (!key)
            return Asset{};
        // Any installed model that serves the language, downloaded or
        // imported, in any size, serves until set-up brings the preferred one.
        const QList<WhisperModel> installed =
            whisperModelsServing(installedWhisperModels(modelsDirectory), *key, size);
        if (!installed.isEmpty()) {
            const QString path = whisperModelPath(modelsDirectory, installed.first());
            return Asset{Readiness::Status::installed, whisperFormats(path), path};
        }
        const QList<WhisperModel> models = whisperModelsFor(catalogue, *key, size);
        if (models.isEmpty())
            return Asset{};
        const QString preferred = whisperModelPath(modelsDirectory, models.first());
        if (isWhisperModelDownloading(modelsDirectory, models.first()))
            return Asset{Readiness::Status::downloading, 0, preferred};
        return Asset{Readiness::Status::supported, 0, preferred};
    };
    return inventory;
}

QList<Language> languages()
{
    return languages(Inventory::current(PreferenceStore::standard()));
}

QList<Language> languages(const Inventory &inventory)
{
    QStringList supported;
    if (inventory.whisperAvailable)
        supported << inventory.whisperLocales;
    supported << inventory.pocketSphinxLocales;

    QStringList keys;
    for (const QString &locale : supported) {
        const auto key = languageKey(locale);
        if (key && !keys.contains(*key))
            keys << *key;
    }
    QList<Language> list;
    for (const QString &key : keys) {
        const QString maximal = maximalIdentifier(key);
        QStringList candidates;
        for (const QString &locale : supported) {
            if (languageKey(locale) == key && !candidates.contains(bcp47Identifier(locale)))
                candidates << bcp47Identifier(locale);
        }
        const auto exact = std::find_if(candidates.begin(), candidates.end(),
                                        [&](const QString &c) { return maximalIdentifier(c) == maximal; });
        if (exact != candidates.end()) {
            list.append(Language{*exact});
        } else {
            candidates.sort();
            list.append(Language{candidates.first()});
        }
    }
    QCollator collator;
    collator.setNumericMode(true);
    std::stable_sort(list.begin(), list.end(), [&](const Language &a, const Language &b) {
        return collator.compare(displayName(a), displayName(b)) < 0;
    });
    return list;
}

Readiness readiness(const QString &locale, const Inventory &inventory)
{
    const QString id = bcp47Identifier(locale);
    if (!languageKey(locale)) {
        return Readiness{
            std::nullopt, Readiness::Status::unsupported,
            QStringLiteral("Requested language: ") + id +
                QStringLiteral("\nNot supported by on-device speech. Choose a supported language in "
                               "Settings.")};
    }
    QStringList lines{
        QStringLiteral("Requested language: ") + id,
        QStringLiteral("Whisper available: ") +
            (inventory.whisperAvailable ? QStringLiteral("true") : QStringLiteral("false")),
        QStringLiteral("Whisper languages: ") + inventory.whisperLocales.join(QStringLiteral(", ")),
        QStringLiteral("PocketSphinx languages: ") + inventory.pocketSphinxLocales.join(QStringLiteral(", ")),
    };

    struct Candidate {
        Configuration configuration;
        Readiness::Status status = Readiness::Status::unsupported;
    };
    QList<Candidate> candidates;
    if (inventory.whisperAvailable) {
        if (const auto match = equivalentLocale(inventory.whisperLocales, locale))
            candidates.append(Candidate{Configuration{QString(), Engine::speech, *match}});
    }
    if (const auto match = equivalentLocale(inventory.pocketSphinxLocales, locale))
        candidates.append(Candidate{Configuration{QString(), Engine::dictation, *match}});

    for (Candidate &candidate : candidates) {
        const QString name = engineName(candidate.configuration.engine);
        const Asset asset =
            inventory.asset ? inventory.asset(candidate.configuration.engine, candidate.configuration.locale)
                            : Asset{};
        candidate.configuration.module = asset.module;
        candidate.status = asset.status;
        lines << name + QLatin1Char(' ') + candidate.configuration.locale + QStringLiteral(": ") +
                     statusName(asset.status);
        if (asset.status == Readiness::Status::installed) {
            lines << name + QStringLiteral(" usable audio formats: ") + QString::number(asset.usableFormats);
            if (asset.usableFormats == 0) {
                candidate.status = Readiness::Status::supported;
                lines << name + QStringLiteral(
                                    " assets reported installed, but no usable audio format is exposed; "
                                    "setup is still required.");
            }
        }
    }

    const QString details = lines.join(QLatin1Char('\n'));
    if (candidates.isEmpty())
        return Readiness{std::nullopt, Readiness::Status::unsupported, details};
    auto chosen = std::find_if(candidates.begin(), candidates.end(),
                               [](const Candidate &c) { return c.status == Readiness::Status::installed; });
    if (chosen == candidates.end()) {
        chosen = std::find_if(candidates.begin(), candidates.end(), [](const Candidate &c) {
            return c.status == Readiness::Status::supported || c.status == Readiness::Status::downloading;
        });
    }
    if (chosen == candidates.end())
        chosen = candidates.begin();
    const bool whisperOffered = std::any_of(candidates.begin(), candidates.end(), [](const Candidate &c) {
        return c.configuration.engine == Engine::speech && c.status != Readiness::Status::unsupported;
    });
    return Readiness{chosen->configuration, chosen->status, details, whisperOffered};
}

Readiness readiness(const QString &locale, PreferenceStore &preferences)
{
    if (!languageKey(locale))
        return readiness(locale, Inventory{});
    return readiness(locale, Inventory::current(preferences));
}

Readiness readiness(const QString &locale)
{
    return readiness(locale, PreferenceStore::standard());
}

QString message(const Readiness &readiness)
{
    if (readiness.status == Readiness::Status::installed && readiness.configuration &&
        readiness.configuration->engine == Engine::dictation)
        return readiness.whisperOffered ? fallbackText + QLatin1Char(' ') + fallbackOfferText
                                        : fallbackText + QLatin1Char(' ') + fallbackOnlyText;
    if (readiness.status == Readiness::Status::installed)
        return readyText;
    if (!readiness.configuration)
        return unavailableText;
    return needsSetupText;
}

QString statusLine(const Readiness &readiness)
{
    if (readiness.status != Readiness::Status::installed || !readiness.configuration)
        return message(readiness);
    const QString engine =
        engineName(readiness.configuration->engine) + QStringLiteral(" · ") + readiness.configuration->locale;
    if (readiness.configuration->engine == Engine::speech)
        return QStringLiteral("Installed: ") + engine;
    return QStringLiteral("Fallback engine only: ") + engine +
           (readiness.whisperOffered
                ? QStringLiteral(". Set up Whisper in Settings for accurate transcripts.")
                : QStringLiteral("."));
}

void recordFailure(PreferenceStore &preferences, const std::exception &error, const QString &locale,
                   const QString &context)
{
    if (dynamic_cast<const CancellationError *>(&error))
        return;
    const auto [domain, code] = domainAndCode(error);
    const QString text = QDateTime::currentDateTimeUtc().toString(Qt::ISODate) + QStringLiteral(" · ") +
                         bcp47Identifier(locale) + QLatin1Char('\n') + describe(error) +
                         QStringLiteral(" (") + domain + QStringLiteral(", ") + QString::number(code) +
                         QStringLiteral(")\n") + context;
    settings::setLocalSpeechLastFailure(preferences, text);
}

Configuration configuration(const QString &locale, PreferenceStore &preferences)
{
    const Readiness answer = readiness(locale, preferences);
    if (!answer.configuration) {
        const LocalError error(unavailableText);
        recordFailure(preferences, error, locale, answer.details);
        throw error;
    }
    if (answer.configuration->engine == Engine::speech && !QDir().mkpath(speechModelsDirectory())) {
        const SystemError error(QStringLiteral("The folder for speech models could not be created at %1.")
                                    .arg(QDir::toNativeSeparators(speechModelsDirectory())));
        recordFailure(preferences, error, locale, answer.details);
        throw error;
    }
    if (answer.status != Readiness::Status::installed) {
        const LocalError error(needsSetupText);
        recordFailure(preferences, error, locale, answer.details);
        throw error;
    }
    return *answer.configuration;
}

Configuration configuration(const QString &locale)
{
    return configuration(locale, PreferenceStore::standard());
}

void setUp(const QString &locale, PreferenceStore &preferences, const SetUpOptions &options)
{
    const QList<WhisperModel> &catalogue =
        options.catalogue.isEmpty() ? whisperModelCatalogue() : options.catalogue;
    const QString directory = speechModelsDirectory();
    const auto inventory = [&] {
        return languageKey(locale) ? Inventory::current(preferences, catalogue, directory) : Inventory{};
    };
    const Readiness before = readiness(locale, inventory());
    if (!before.configuration) {
        const LocalError error(unavailableText);
        recordFailure(preferences, error, locale, before.details);
        throw error;
    }
    if (options.download.isCancelled && options.download.isCancelled())
        throw CancellationError();

    try {
        if (!QDir().mkpath(directory))
            throw SystemError(QStringLiteral("The folder for speech models could not be created at %1.")
                                  .arg(QDir::toNativeSeparators(directory)));
        // The preferred engine's model, even while an installed fallback
        // answers for the language: that is what set-up is for.
        const Inventory current = inventory();
        const QString key = *languageKey(locale);
        if (current.whisperAvailable && equivalentLocale(current.whisperLocales, locale)) {
            if (const auto model = whisperModelFor(catalogue, key, whisperModelSize(preferences))) {
                if (!isWhisperModelInstalled(directory, *model))
                    installWhisperModel(directory, *model, whisperModelBaseAddress(preferences),
                                        options.download);
            }
        }
        const Readiness after = readiness(locale, inventory());
        if (!after.configuration || after.status != Readiness::Status::installed)
            throw LocalError(notFinishedText);
    } catch (const CancellationError &) {
        throw;
    } catch (const std::exception &error) {
        recordFailure(preferences, error, locale, before.details);
        throw;
    }

    const Configuration ready = configuration(locale, preferences);
    try {
        prove(ready);
    } catch (const CancellationError &) {
        throw;
    } catch (const std::exception &error) {
        recordFailure(preferences, error, locale,
                      QStringLiteral("Setup verification: ") + engineName(ready.engine) + QLatin1Char(' ') +
                          bcp47Identifier(locale));
        throw;
    }
    settings::removeLocalSpeechLastFailure(preferences);
}

void setUp(const QString &locale, const SetUpOptions &options)
{
    setUp(locale, PreferenceStore::standard(), options);
}

std::unique_ptr<SpeechEngine> makeEngine(const Configuration &configuration, EngineUse use,
                                         std::function<void(double seconds)> progress)
{
    switch (configuration.engine) {
    case Engine::speech: {
        const QString key = languageKey(configuration.locale).value_or(QStringLiteral("en"));
        const QString language = whisperLanguageCode(key);
        // Whisper writes Chinese in either script; a line in the wanted one
        // steers it.
        QString prompt;
        if (key == QLatin1String("zh-Hans"))
            prompt = QStringLiteral("以下是普通话的句子。");
        else if (key == QLatin1String("zh-Hant"))
            prompt = QStringLiteral("以下是普通話的句子。");
        if (use == EngineUse::file) {
            WhisperFileEngine::Options options;
            options.language = language;
            options.initialPrompt = prompt;
            options.progress = std::move(progress);
            // A whole file is what the user is waiting for, unlike live text
            // beside a recording that must keep half the machine: it takes
            // every core.
            options.threads = int(std::clamp(std::thread::hardware_concurrency(), 1u, 8u));
            return std::make_unique<WhisperFileEngine>(configuration.module, options);
        }
        WhisperEngine::Options options;
        options.language = language;
        options.initialPrompt = prompt;
        return std::make_unique<WhisperEngine>(configuration.module, options);
    }
    case Engine::dictation:
        return std::make_unique<PocketSphinxEngine>(configuration.module);
    }
    throw LocalError(QStringLiteral("Unsupported on-device speech module."));
}

LocalTranscript transcribe(const QString &audioFile, const QString &locale, PreferenceStore &preferences,
                           const TranscriptionObserver &observer)
{
    const Configuration ready = configuration(locale, preferences);
    AudioFileReader reader(audioFile);
    const double total = reader.sampleRate() > 0 ? double(reader.frames()) / reader.sampleRate() : 0;
    std::unique_ptr<SpeechEngine> engine =
        makeEngine(ready, EngineUse::file, [&observer, total](double seconds) {
            if (observer.progress)
                observer.progress(std::min(seconds, total), total);
        });
    std::unique_ptr<StreamResampler> resampler;
    if (reader.sampleRate() != engine->sampleRate())
        resampler = std::make_unique<StreamResampler>(reader.sampleRate(), engine->sampleRate());

    // The observer is asked from the engine's own loop as well, so that a
    // long decode stops soon.
    std::atomic<bool> stop{false};
    std::thread watcher;
    if (observer.isCancelled) {
        watcher = std::thread([&] {
            while (!stop.load()) {
                if (observer.isCancelled()) {
                    engine->abort();
                    return;
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
        });
    }
    const auto cancelled = [&] { return observer.isCancelled && observer.isCancelled(); };
    struct Join {
        std::atomic<bool> &stop;
        std::thread &watcher;
        ~Join()
        {
            stop.store(true);
            if (watcher.joinable())
                watcher.join();
        }
    } join{stop, watcher};

    LocalTranscript transcript;
    const auto apply = [&](const std::vector<SpeechResult> &results) {
        for (const SpeechResult &result : results)
            applySpeechResult(transcript, result);
        if (!results.empty() && observer.transcript)
            observer.transcript(transcript);
    };
    // Whisper says how far its decoding is; for an engine that keeps pace
    // with its input, what was read is what was transcribed.
    const bool readingIsProgress = ready.engine != Engine::speech;
    double read = 0;
    const auto block = std::size_t(reader.sampleRate());
    for (;;) {
        if (cancelled())
            throw CancellationError();
        if (readingIsProgress && observer.progress && read > 0)
            observer.progress(read, total);
        std::vector<float> samples = reader.read(block);
        if (samples.empty())
            break;
        read += double(samples.size()) / reader.sampleRate();
        if (resampler) {
            std::vector<float> converted;
            resampler->process(samples, converted);
            samples = std::move(converted);
        }
        if (!samples.empty())
            apply(engine->feed(samples));
    }
    if (resampler) {
        std::vector<float> tail;
        resampler->flush(tail);
        if (!tail.empty())
            apply(engine->feed(tail));
    }
    apply(engine->finish());
    if (cancelled())
        throw CancellationError();
    if (observer.progress)
        observer.progress(total, total);
    return transcript;
}

LocalTranscript transcribe(const QString &audioFile, const QString &locale)
{
    return transcribe(audioFile, locale, PreferenceStore::standard());
}

} // namespace kestil::LocalSpeech
