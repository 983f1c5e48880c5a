#include "generation/LanguageModelFiles.h"

#include "base/Error.h"
#include "support/QtPrinters.h"

#include <QDir>

#include <gtest/gtest.h>

using namespace kestil;

namespace {

// Sets environment variables for one test and restores them after it.
class Environment {
public:
    void set(const char *name, const QByteArray &value)
    {
        saved_.append({name, qgetenv(name), qEnvironmentVariableIsSet(name)});
        if (value.isNull())
            qunsetenv(name);
        else
            qputenv(name, value);
    }
    ~Environment()
    {
        for (auto it = saved_.crbegin(); it != saved_.crend(); ++it) {
            if (it->wasSet)
                qputenv(it->name, it->value);
            else
                qunsetenv(it->name);
        }
    }

private:
    struct Saved {
        const char *name;
        QByteArray value;
        bool wasSet;
    };
    QList<Saved> saved_;
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
    // A relative XDG_DATA_HOME is invalid and ignored.
    environment.set("XDG_DATA_HOME", "relative/path");
    EXPECT_EQ(LanguageModelFiles::dataRoot(), QDir::homePath() + "/.local/share/Kestil");
    environment.set("XDG_DATA_HOME", QByteArray());
    EXPECT_EQ(LanguageModelFiles::dataRoot(), QDir::homePath() + "/.local/share/Kestil");
}

TEST(LanguageModelFiles, AnEmptyOrMissingFolderHasNoModel)
{
    EXPECT_FALSE(LanguageModelFiles::installedModel("/nonexistent/Models/language").has_value());
    try {
        LanguageModelFiles::importModel("/nonexistent/model.gguf", "/tmp/unused");
        FAIL() << "imported a missing file";
    } catch (const LocalError &error) {
        EXPECT_TRUE(error.message().startsWith("Kestil could not open the model file “model.gguf”"));
        EXPECT_TRUE(error.message().endsWith("Nothing was installed."));
    }
}
