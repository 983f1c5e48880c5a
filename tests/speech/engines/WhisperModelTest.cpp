#include "speech/WhisperModel.h"

#include "base/Error.h"
#include "prefs/PreferenceStore.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;

namespace {

QStringList names(const QList<WhisperModel> &models)
{
    QStringList list;
    for (const WhisperModel &m : models)
        list << m.name;
    return list;
}

} // namespace

TEST(WhisperModelCatalogue, EnglishGetsTheEnglishOnlyModelsFirstAndOthersTheMultilingual)
{
    const auto &catalogue = whisperModelCatalogue();
    EXPECT_EQ(whisperModelFor(catalogue, "en", "base")->fileName, "ggml-base.en.bin");
    EXPECT_EQ(whisperModelFor(catalogue, "de", "base")->name, "base");
    EXPECT_EQ(whisperModelFor(catalogue, "zh-Hant", "small")->name, "small");
    EXPECT_FALSE(whisperModelFor(catalogue, "en", "huge").has_value());

    // The preferred size first, then the others from the largest down.
    EXPECT_EQ(names(whisperModelsFor(catalogue, "en", "tiny")),
              QStringList({"tiny.en", "small.en", "base.en"}));
    // Of what is installed, for English the English-only ones come first.
    EXPECT_EQ(names(whisperModelsServing(catalogue, "en", "tiny")),
              QStringList({"tiny.en", "small.en", "base.en", "tiny", "small", "base"}));
    EXPECT_EQ(names(whisperModelsServing(catalogue, "de", "base")), QStringList({"base", "small", "tiny"}));

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
