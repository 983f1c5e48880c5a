#include "speech/WhisperModel.h"

#include "base/Error.h"
#include "prefs/PreferenceStore.h"

#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdlib>

using namespace kestil;

TEST(WhisperModelCatalogue, OffersThreeSizesInBothKindsWithFullChecksums)
{
    const auto &catalogue = whisperModelCatalogue();
    ASSERT_EQ(catalogue.size(), 6);
    QSet<QString> files;
    QSet<QByteArray> sums;
    const QRegularExpression hex("^[0-9a-f]{64}$");
    for (const WhisperModel &m : catalogue) {
        files.insert(m.fileName);
        sums.insert(m.sha256);
        EXPECT_TRUE(hex.match(QString::fromLatin1(m.sha256)).hasMatch()) << m.name.toStdString();
        EXPECT_EQ(m.fileName, QStringLiteral("ggml-") + m.name + QStringLiteral(".bin"));
        EXPECT_EQ(m.englishOnly, m.name.endsWith(".en"));
    }
    EXPECT_EQ(files.size(), 6);
    EXPECT_EQ(sums.size(), 6);
}

TEST(WhisperModelCatalogue, EnglishGetsTheEnglishOnlyModelAndOthersTheMultilingual)
{
    const auto &catalogue = whisperModelCatalogue();
    EXPECT_EQ(whisperModelFor(catalogue, "en", "base")->name, "base.en");
    EXPECT_EQ(whisperModelFor(catalogue, "de", "base")->name, "base");
    EXPECT_EQ(whisperModelFor(catalogue, "zh-Hant", "small")->name, "small");
    EXPECT_FALSE(whisperModelFor(catalogue, "en", "huge").has_value());

    QStringList order;
    for (const auto &m : whisperModelsFor(catalogue, "en", "tiny"))
        order << m.name;
    EXPECT_EQ(order, (QStringList{"tiny.en", "small.en", "base.en"}));
}

TEST(WhisperModelCatalogue, LanguageCodesFollowWhisper)
{
    EXPECT_EQ(whisperLanguageCode("zh-Hans"), "zh");
    EXPECT_EQ(whisperLanguageCode("zh-Hant"), "zh");
    EXPECT_EQ(whisperLanguageCode("nb"), "no");
    EXPECT_EQ(whisperLanguageCode("de"), "de");
}

TEST(WhisperModelPreferences, SizeAndAddressHaveDefaultsAndTheEnvironmentWins)
{
    QTemporaryDir dir;
    PreferenceStore store(dir.path());
    qunsetenv("KESTIL_SPEECH_MODEL_BASE_URL");
    EXPECT_EQ(whisperModelSize(store), "base");
    store.set(QString(whisperModelSizeKey), "small");
    EXPECT_EQ(whisperModelSize(store), "small");
    store.set(QString(whisperModelSizeKey), "gigantic");
    EXPECT_EQ(whisperModelSize(store), "base");

    EXPECT_EQ(whisperModelBaseAddress(store).toString(),
              "https://huggingface.co/ggerganov/whisper.cpp/resolve/main/");
    store.set(QString(whisperModelBaseAddressKey), "http://127.0.0.1:8080/models");
    EXPECT_EQ(whisperModelBaseAddress(store).toString(), "http://127.0.0.1:8080/models/");
    qputenv("KESTIL_SPEECH_MODEL_BASE_URL", "https://mirror.example/whisper/");
    EXPECT_EQ(whisperModelBaseAddress(store).host(), "mirror.example");
    qputenv("KESTIL_SPEECH_MODEL_BASE_URL", "file:///etc/");
    EXPECT_THROW(whisperModelBaseAddress(store), LocalError);
    qunsetenv("KESTIL_SPEECH_MODEL_BASE_URL");
}
