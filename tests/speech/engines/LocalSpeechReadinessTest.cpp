#include "speech/LocalSpeech.h"

#include "base/CancellationError.h"
#include "base/ModelDownload.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

#include <QCollator>
#include <QDateTime>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::LocalSpeech;
using Status = Readiness::Status;

namespace {

const QStringList whisperLocales{"en-US",      "da-DK", "nl-NL", "fr-FR", "de-DE", "it-IT",
                                 "nb-NO",      "pt-BR", "es-ES", "sv-SE", "tr-TR", "zh-Hans-CN",
                                 "zh-Hant-TW", "ja-JP", "ko-KR", "vi-VN"};

// An inventory whose assets the test sets, counting the questions asked.
struct FakeComputer {
    Asset whisper{Status::supported, 0, "/models/ggml-base.en.bin"};
    Asset sphinx{Status::installed, 1, "/sphinx"};
    bool whisperAvailable = true;
    QStringList whisperList = whisperLocales;
    QStringList sphinxList{"en-US"};
    int questions = 0;

    Inventory inventory()
    {
        Inventory inv;
        inv.whisperAvailable = whisperAvailable;
        inv.whisperLocales = whisperList;
        inv.pocketSphinxLocales = sphinxList;
        inv.asset = [this](Engine engine, const QString &) {
            ++questions;
            return engine == Engine::speech ? whisper : sphinx;
        };
        return inv;
    }
};

} // namespace

TEST(LocalSpeechKeys, LanguageKeyFollowsLanguageAndForChineseTheScript)
{
    for (const char *id : {"en-US", "en_GB", "en", "en-us"})
        EXPECT_EQ(languageKey(QString::fromLatin1(id)), QStringLiteral("en")) << id;
    EXPECT_EQ(languageKey("fr-CA"), QStringLiteral("fr"));
    EXPECT_EQ(languageKey("fr-FR"), QStringLiteral("fr"));
    EXPECT_EQ(languageKey("zh-Hans-CN"), QStringLiteral("zh-Hans"));
    EXPECT_EQ(languageKey("zh_Hant_TW"), QStringLiteral("zh-Hant"));
    EXPECT_EQ(languageKey("de_DE.UTF-8"), QStringLiteral("de"));
    EXPECT_EQ(languageKey("nb-NO"), QStringLiteral("nb"));
    EXPECT_FALSE(languageKey("zh").has_value());
    EXPECT_FALSE(languageKey("zh-CN").has_value());
    EXPECT_FALSE(languageKey("pl").has_value());
    EXPECT_FALSE(languageKey("no").has_value());
    EXPECT_FALSE(languageKey("").has_value());
    EXPECT_EQ(languageKeys().size(), 16);
}

TEST(LocalSpeechKeys, IdentifiersComeOutInBcp47Form)
{
    EXPECT_EQ(bcp47Identifier("en_us"), QStringLiteral("en-US"));
    EXPECT_EQ(bcp47Identifier("zh_hans_cn"), QStringLiteral("zh-Hans-CN"));
    EXPECT_EQ(bcp47Identifier("de_DE.UTF-8"), QStringLiteral("de-DE"));
    EXPECT_EQ(bcp47Identifier("es-419"), QStringLiteral("es-419"));
}

TEST(LocalSpeechReadiness, ALanguageWithoutKeyIsUnsupportedWithoutAskingForAssets)
{
    FakeComputer computer;
    const Readiness r = readiness("pl", computer.inventory());
    EXPECT_FALSE(r.configuration.has_value());
    EXPECT_EQ(r.status, Status::unsupported);
    EXPECT_EQ(r.details, QStringLiteral("Requested language: pl\nNot supported by on-device speech. Choose a "
                                        "supported language in Settings."));
    EXPECT_EQ(computer.questions, 0);
    EXPECT_EQ(readiness("zh", computer.inventory()).status, Status::unsupported);
}

TEST(LocalSpeechReadiness, AnInstalledFallbackBeatsADownloadablePreferredEngine)
{
    FakeComputer computer;
    const Readiness r = readiness("en-GB", computer.inventory());
    ASSERT_TRUE(r.configuration.has_value());
    EXPECT_EQ(r.configuration->engine, Engine::dictation);
    EXPECT_EQ(r.configuration->locale, QStringLiteral("en-US"));
    EXPECT_EQ(r.configuration->module, QStringLiteral("/sphinx"));
    EXPECT_EQ(r.status, Status::installed);
    EXPECT_EQ(r.details, QStringLiteral("Requested language: en-GB\n"
                                        "Whisper available: true\n"
                                        "Whisper languages: ") +
                             whisperLocales.join(", ") +
                             QStringLiteral("\nPocketSphinx languages: en-US\n"
                                            "Whisper en-US: supported\n"
                                            "PocketSphinx en-US: installed\n"
                                            "PocketSphinx usable audio formats: 1"));
    EXPECT_EQ(message(r),
              QStringLiteral("On-device speech works with PocketSphinx, a basic fallback engine that "
                             "gets many words wrong. Choose Set Up On-Device Speech to install "
                             "Whisper for accurate transcripts."));
}

TEST(LocalSpeechReadiness, TheInstalledPreferredEngineWins)
{
    FakeComputer computer;
    computer.whisper = Asset{Status::installed, 1, "/models/ggml-base.en.bin"};
    const Readiness r = readiness("en-US", computer.inventory());
    ASSERT_TRUE(r.configuration.has_value());
    EXPECT_EQ(r.configuration->engine, Engine::speech);
    EXPECT_EQ(r.configuration->module, QStringLiteral("/models/ggml-base.en.bin"));
    EXPECT_EQ(engineName(r.configuration->engine), QStringLiteral("Whisper"));
}

TEST(LocalSpeechReadiness, InstalledWithoutUsableFormatsNeedsSetup)
{
    FakeComputer computer;
    computer.whisper = Asset{Status::installed, 0, "/models/ggml-base.bin"};
    const Readiness r = readiness("de-AT", computer.inventory());
    ASSERT_TRUE(r.configuration.has_value());
    EXPECT_EQ(r.configuration->engine, Engine::speech);
    EXPECT_EQ(r.configuration->locale, QStringLiteral("de-DE"));
    EXPECT_EQ(r.status, Status::supported);
    EXPECT_TRUE(
        r.details.endsWith(QStringLiteral("Whisper de-DE: installed\nWhisper usable audio formats: "
                                          "0\nWhisper assets reported installed, but no "
                                          "usable audio format is exposed; setup is still required.")))
        << r.details.toStdString();
    EXPECT_EQ(message(r),
              QStringLiteral("The on-device speech model for this language needs setup. Open Settings "
                             "and choose Set Up On-Device Speech. The on-device language model uses a "
                             "separate model."));
}

TEST(LocalSpeechReadiness, DownloadingNeedsSetupInItsMessage)
{
    FakeComputer computer;
    computer.whisper = Asset{Status::downloading, 0, "/models/ggml-base.bin"};
    const Readiness r = readiness("fr-FR", computer.inventory());
    EXPECT_EQ(r.status, Status::downloading);
    EXPECT_TRUE(
        message(r).startsWith(QStringLiteral("The on-device speech model for this language needs setup.")));
}

TEST(LocalSpeechReadiness, ALanguageOnlyTheFallbackOffersGetsTheFallback)
{
    for (bool available : {true, false}) {
        FakeComputer computer;
        computer.whisperAvailable = available;
        computer.whisperList = {"de-DE"};
        const Readiness r = readiness("en-US", computer.inventory());
        ASSERT_TRUE(r.configuration.has_value());
        EXPECT_EQ(r.configuration->engine, Engine::dictation) << available;
    }
}

TEST(LocalSpeechReadiness, WithoutAnyEngineThereIsNoConfiguration)
{
    FakeComputer computer;
    computer.whisperAvailable = false;
    const Readiness r = readiness("de-DE", computer.inventory());
    EXPECT_FALSE(r.configuration.has_value());
    EXPECT_EQ(r.status, Status::unsupported);
    EXPECT_TRUE(r.details.contains(QStringLiteral("Whisper available: false")));
    EXPECT_EQ(message(r),
              QStringLiteral("Transcription is unavailable for the selected language on this device. "
                             "Choose a supported on-device speech language in Settings, or refresh "
                             "speech availability."));
}

TEST(LocalSpeechReadiness, WhenNothingIsUsableTheFirstCandidateAnswers)
{
    FakeComputer computer;
    computer.whisper = Asset{Status::unsupported, 0, "/w"};
    computer.sphinx = Asset{Status::unsupported, 0, "/s"};
    const Readiness r = readiness("en", computer.inventory());
    ASSERT_TRUE(r.configuration.has_value());
    EXPECT_EQ(r.configuration->engine, Engine::speech);
    EXPECT_EQ(r.status, Status::unsupported);
}

TEST(LocalSpeechLanguages, OneEntryPerKeyInItsMaximalRegionSortedByName)
{
    FakeComputer computer;
    const QList<Language> list = languages(computer.inventory());
    ASSERT_EQ(list.size(), 16);
    QStringList ids;
    for (const auto &l : list)
        ids << l.id;
    EXPECT_TRUE(ids.contains("en-US"));
    EXPECT_TRUE(ids.contains("pt-BR"));
    EXPECT_TRUE(ids.contains("zh-Hans-CN"));
    EXPECT_TRUE(ids.contains("zh-Hant-TW"));
    QCollator collator;
    collator.setNumericMode(true);
    for (qsizetype i = 1; i < list.size(); ++i)
        EXPECT_LE(collator.compare(displayName(list[i - 1]), displayName(list[i])), 0);
    EXPECT_NE(displayName(Language{"zh-Hans-CN"}), displayName(Language{"zh-Hant-TW"}));
    EXPECT_FALSE(displayName(Language{"de-DE"}).isEmpty());

    computer.whisperAvailable = false;
    EXPECT_EQ(languages(computer.inventory()), QList<Language>{Language{"en-US"}});
}

TEST(LocalSpeechFailureRecord, HoldsTimeLocaleErrorAndContextOnThreeLines)
{
    QTemporaryDir dir;
    PreferenceStore store(dir.path());
    recordFailure(store, ModelDownloadError(QStringLiteral("The server answered 404 Not Found."), 404),
                  "en_US", QStringLiteral("Transcription: Whisper en-US"));
    const QStringList lines = settings::localSpeechLastFailure(store).value_or(QString()).split('\n');
    ASSERT_EQ(lines.size(), 3);
    const QStringList first = lines[0].split(QStringLiteral(" · "));
    ASSERT_EQ(first.size(), 2);
    EXPECT_TRUE(QDateTime::fromString(first[0], Qt::ISODate).isValid()) << first[0].toStdString();
    EXPECT_EQ(first[1], QStringLiteral("en-US"));
    EXPECT_EQ(lines[1],
              QStringLiteral("The server answered 404 Not Found. (kestil.ModelDownloadError, 404)"));
    EXPECT_EQ(lines[2], QStringLiteral("Transcription: Whisper en-US"));

    recordFailure(store, LocalError(QStringLiteral("Nope.")), "de", QStringLiteral("ctx"));
    EXPECT_TRUE(
        settings::localSpeechLastFailure(store)->contains(QStringLiteral("Nope. (kestil.LocalError, 0)")));
}

TEST(LocalSpeechFailureRecord, ACancellationLeavesThePreferenceAlone)
{
    QTemporaryDir dir;
    PreferenceStore store(dir.path());
    settings::setLocalSpeechLastFailure(store, QStringLiteral("earlier"));
    recordFailure(store, CancellationError(), "en", QStringLiteral("ctx"));
    EXPECT_EQ(settings::localSpeechLastFailure(store), QStringLiteral("earlier"));
}
