// Where language models live and where they are downloaded from.
#include "generation/LanguageModelFiles.h"
#include "generation/LanguageModelCatalogue.h"

#include "base/Error.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "support/QtPrinters.h"

#include <QDir>
#include <QTemporaryDir>

#include <map>

#include <gtest/gtest.h>

using namespace kestil;

namespace {

// Sets environment variables (a null value unsets one) for one test and restores them after it.
class Environment {
public:
    void set(const char *name, const QByteArray &value)
    {
        saved_.try_emplace(name, qgetenv(name));
        value.isNull() ? qunsetenv(name) : qputenv(name, value);
    }
    ~Environment()
    {
        for (const auto &[name, value] : saved_)
            value.isNull() ? qunsetenv(name.c_str()) : qputenv(name.c_str(), value);
    }

private:
    std::map<std::string, QByteArray> saved_;
};

} // namespace

TEST(LanguageModelFiles, ModelsLiveUnderTheDataRoot)
{
    Environment environment;
    environment.set("KESTIL_DATA_DIR", "/srv/kestil-data/");
    environment.set("XDG_DATA_HOME", "/home/someone/.data");
    EXPECT_EQ(LanguageModelFiles::dataRoot(), "/srv/kestil-data");
    EXPECT_EQ(LanguageModelFiles::modelsDirectory(), "/srv/kestil-data/Models/language");
    environment.set("KESTIL_DATA_DIR", QByteArray());
    EXPECT_EQ(LanguageModelFiles::dataRoot(), "/home/someone/.data/Kestil");
    EXPECT_FALSE(LanguageModelFiles::installedModel("/nonexistent/Models/language").has_value());
    // A relative XDG_DATA_HOME is invalid and ignored.
    for (const QByteArray &xdg : {QByteArray("relative/path"), QByteArray()}) {
        environment.set("XDG_DATA_HOME", xdg);
        EXPECT_EQ(LanguageModelFiles::dataRoot(), QDir::homePath() + "/.local/share/Kestil");
    }
}

TEST(LanguageModelCatalogue, EveryEntryIsPinnedWithItsChecksumAndComesFromTheChosenAddress)
{
    for (const DownloadableLanguageModel &model : languageModelCatalogue()) {
        SCOPED_TRACE(model.fileName.toStdString());
        EXPECT_EQ(model.sha256.size(), 64);
        EXPECT_EQ(model.sha256, model.sha256.toLower());
        // Pinned to one revision: the checksum belongs to that file for good.
        EXPECT_TRUE(model.remotePath.endsWith(QLatin1Char('/') + model.fileName));
        EXPECT_FALSE(model.remotePath.contains("/main/"));
    }
    EXPECT_EQ(fileSizeText(491400032), "491.4 MB");
    EXPECT_EQ(fileSizeText(1117320736), "1.12 GB");

    // The environment first, then the preference, else the publisher.
    Environment environment;
    environment.set("KESTIL_LANGUAGE_MODEL_BASE_URL", QByteArray());
    QTemporaryDir config;
    PreferenceStore preferences(config.path());
    EXPECT_EQ(languageModelAddress(languageModelBaseAddress(preferences), defaultLanguageModel()).toString(),
              "https://huggingface.co/Qwen/" + defaultLanguageModel().remotePath);
    preferences.set(QString(settings::keys::kestilLanguageModelBaseAddress),
                    QString("http://127.0.0.1:8/good"));
    EXPECT_EQ(languageModelBaseAddress(preferences), QUrl("http://127.0.0.1:8/good/"));
    environment.set("KESTIL_LANGUAGE_MODEL_BASE_URL", "http://127.0.0.1:9/mirror");
    EXPECT_EQ(languageModelBaseAddress(preferences), QUrl("http://127.0.0.1:9/mirror/"));
    environment.set("KESTIL_LANGUAGE_MODEL_BASE_URL", "file:///tmp/models/");
    EXPECT_THROW(languageModelBaseAddress(preferences), LocalError);
}
