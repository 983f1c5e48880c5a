#include "speech/LocalSpeech.h"

#include "base/Error.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

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
    int questions = 0;

    Inventory inventory()
    {
        return Inventory{whisperAvailable, whisperList, {"en-US"}, [this](Engine engine, const QString &) {
                             ++questions;
                             return engine == Engine::speech ? whisper : sphinx;
                         }};
    }
};

} // namespace

TEST(LocalSpeechKeys, LanguageKeyFollowsLanguageAndForChineseTheScript)
{
    const std::pair<const char *, const char *> cases[] = {
        {"en-US", "en"},           {"en_GB", "en"},          {"en", "en"},    {"en-us", "en"},
        {"fr-CA", "fr"},           {"nb-NO", "nb"},          {"zh", nullptr}, {"zh-CN", nullptr},
        {"pl", nullptr},           {"no", nullptr},          {"", nullptr},   {"de_DE.UTF-8", "de"},
        {"zh-Hans-CN", "zh-Hans"}, {"zh_Hant_TW", "zh-Hant"}};
    for (const auto &[id, key] : cases)
        EXPECT_EQ(languageKey(QString::fromLatin1(id)),
                  key ? std::optional(QString::fromLatin1(key)) : std::nullopt)
            << id;
    EXPECT_EQ(languageKeys().size(), 16);
    for (const auto &[id, bcp47] : {std::pair{"en_us", "en-US"}, std::pair{"zh_hans_cn", "zh-Hans-CN"},
                                    std::pair{"de_DE.UTF-8", "de-DE"}, std::pair{"es-419", "es-419"}})
        EXPECT_EQ(bcp47Identifier(id), QString::fromLatin1(bcp47));
}

TEST(LocalSpeechReadiness, ALanguageWithoutKeyIsUnsupportedWithoutAskingForAssets)
{
    FakeComputer computer;
    const Readiness r = readiness("pl", computer.inventory());
    EXPECT_FALSE(r.configuration.has_value());
    EXPECT_EQ(r.status, Status::unsupported);
    EXPECT_EQ(r.details, QStringLiteral("Requested language: pl\nNot supported by on-device speech. Choose a "
                                        "supported language in Settings."));
    EXPECT_EQ(readiness("zh", computer.inventory()).status, Status::unsupported);
    EXPECT_EQ(computer.questions, 0);
}

// Which engine answers for a language, given what the computer has.
TEST(LocalSpeechReadiness, TheEngineChosenFollowsWhatIsInstalledAndOffered)
{
    const Asset unsupported{Status::unsupported, 0, "/w"};
    const Asset sphinx{Status::installed, 1, "/sphinx"};
    const Asset downloadable{Status::supported, 0, "/m"};
    // Each answer's message, by its first words.
    const char *const needsSetUp = "The on-device speech model for this language needs setup.";
    const struct {
        const char *what;
        const char *locale;
        Asset whisper;
        Asset sphinx;
        bool whisperAvailable;
        QStringList whisperList;
        std::optional<Engine> engine;
        Status status;
        const char *chosenLocale;
        const char *message = "";
    } cases[] = {
        {"the installed preferred engine wins", "en-US",
         Asset{Status::installed, 1, "/models/ggml-base.en.bin"}, sphinx, true, whisperLocales,
         Engine::speech, Status::installed, "en-US", "On-device speech is ready."},
        {"an installed fallback beats a downloadable preferred engine", "en-GB", downloadable, sphinx, true,
         whisperLocales, Engine::dictation, Status::installed, "en-US",
         "On-device speech works with PocketSphinx,"},
        {"installed without usable formats needs set-up", "de-AT", Asset{Status::installed, 0, "/m"}, sphinx,
         true, whisperLocales, Engine::speech, Status::supported, "de-DE", needsSetUp},
        {"downloading needs set-up", "fr-FR", Asset{Status::downloading, 0, "/m"}, sphinx, true,
         whisperLocales, Engine::speech, Status::downloading, "fr-FR", needsSetUp},
        {"a language only the fallback offers", "en-US", downloadable, sphinx, true, QStringList{"de-DE"},
         Engine::dictation, Status::installed, "en-US"},
        {"the fallback without whisper", "en-US", downloadable, sphinx, false, QStringList{"de-DE"},
         Engine::dictation, Status::installed, "en-US"},
        {"no engine at all", "de-DE", downloadable, sphinx, false, whisperLocales, std::nullopt,
         Status::unsupported, nullptr, "Transcription is unavailable for the selected language"},
        {"nothing usable: the first candidate answers", "en", unsupported, unsupported, true, whisperLocales,
         Engine::speech, Status::unsupported, "en-US"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        FakeComputer computer{c.whisper, c.sphinx, c.whisperAvailable, c.whisperList};
        const Readiness r = readiness(QString::fromLatin1(c.locale), computer.inventory());
        EXPECT_EQ(r.status, c.status);
        ASSERT_EQ(r.configuration.has_value(), c.engine.has_value());
        if (c.engine) {
            EXPECT_EQ(r.configuration,
                      (Configuration{*c.engine == Engine::speech ? c.whisper.module : c.sphinx.module,
                                     *c.engine, QString::fromLatin1(c.chosenLocale)}));
        }
        EXPECT_TRUE(message(r).startsWith(QString::fromUtf8(c.message))) << message(r).toStdString();
    }
}

TEST(LocalSpeechFailureRecord, HoldsTimeLocaleErrorAndContextOnThreeLines)
{
    QTemporaryDir dir;
    PreferenceStore store(dir.path());
    recordFailure(store, LocalError(QStringLiteral("Nope.")), "en_US", QStringLiteral("Transcription: x"));
    const QStringList lines = settings::localSpeechLastFailure(store).value_or(QString()).split('\n');
    ASSERT_EQ(lines.size(), 3);
    const QStringList first = lines[0].split(QStringLiteral(" · "));
    ASSERT_EQ(first.size(), 2);
    EXPECT_TRUE(QDateTime::fromString(first[0], Qt::ISODate).isValid()) << first[0].toStdString();
    EXPECT_EQ(first[1], QStringLiteral("en-US"));
    EXPECT_EQ(lines[1], QStringLiteral("Nope. (kestil.LocalError, 0)"));
    EXPECT_EQ(lines[2], QStringLiteral("Transcription: x"));
}
