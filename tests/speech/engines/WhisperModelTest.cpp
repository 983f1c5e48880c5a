#include "speech/WhisperModel.h"
#include "speech/WhisperModelFile.h"

#include "SpeechTestSupport.h"

#include "base/Error.h"
#include "prefs/PreferenceStore.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstring>

using namespace kestil;

namespace {

QStringList names(const QList<WhisperModel> &models)
{
    QStringList list;
    for (const WhisperModel &m : models)
        list << m.name;
    return list;
}

// The message inspecting the file fails with.
QString refusal(const QString &path)
{
    try {
        inspectWhisperModelFile(path);
    } catch (const LocalError &e) {
        return e.message();
    }
    return QStringLiteral("accepted");
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

TEST(WhisperModelFile, AcceptsAWholeModelReadsItsShapeAndRefusesDamagedOnes)
{
    const WhisperModelFile shape = inspectWhisperModelFile(test::tinyEnglishModel());
    EXPECT_EQ(shape.vocabularySize, 51864);
    EXPECT_FALSE(shape.isMultilingual());
    EXPECT_EQ(shape.audioLayers, 1);
    EXPECT_EQ(shape.melBands, 80);
    EXPECT_EQ(shape.tensorCount, 11 + 15 + 24);
    EXPECT_TRUE(inspectWhisperModelFile(test::tinyMultilingualModel()).isMultilingual());
    EXPECT_TRUE(refusal("/nonexistent/ggml-base.en.bin")
                    .startsWith("The speech model file “ggml-base.en.bin” could not be opened"));

    // Truncated, padded and foreign files are refused, as are weight types ggml cannot map.
    QFile in(test::tinyEnglishModel());
    ASSERT_TRUE(in.open(QIODevice::ReadOnly));
    const QByteArray model = in.readAll();
    QList<QByteArray> damaged = {model.first(model.size() - 1000), model.first(30),
                                 model + QByteArray(64, '\0'), QByteArray(),
                                 "This is a text file, not a speech model.\n"};
    // ggml stops the program on these instead of failing the load.
    for (const qint32 type : {4, 5, 6, 29, 50, 1004}) {
        damaged << model;
        std::memcpy(damaged.last().data() + 44, &type, 4);
    }
    QTemporaryDir dir;
    int n = 0;
    for (const QByteArray &bytes : damaged) {
        QFile out(dir.filePath(QStringLiteral("model-%1.bin").arg(n++)));
        ASSERT_TRUE(out.open(QIODevice::WriteOnly));
        out.write(bytes);
        out.close();
        EXPECT_TRUE(refusal(out.fileName()).contains("is damaged or is not a Whisper model"))
            << out.fileName().toStdString() << ": " << refusal(out.fileName()).toStdString();
    }
}
