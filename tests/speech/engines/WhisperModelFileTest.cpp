#include "speech/WhisperModelFile.h"

#include "SpeechTestSupport.h"

#include "base/Error.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstring>

using namespace kestil;

namespace {

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

TEST(WhisperModelFile, AcceptsAWholeModelAndReadsItsShape)
{
    const WhisperModelFile model = inspectWhisperModelFile(test::tinyEnglishModel());
    EXPECT_EQ(model.vocabularySize, 51864);
    EXPECT_FALSE(model.isMultilingual());
    EXPECT_EQ(model.audioLayers, 1);
    EXPECT_EQ(model.melBands, 80);
    EXPECT_EQ(model.tensorCount, 11 + 15 + 24);
    EXPECT_TRUE(inspectWhisperModelFile(test::tinyMultilingualModel()).isMultilingual());
    EXPECT_TRUE(refusal("/nonexistent/ggml-base.en.bin")
                    .startsWith("The speech model file “ggml-base.en.bin” could not be opened"));
}

TEST(WhisperModelFile, RefusesTruncatedPaddedForeignFilesAndWeightTypesGgmlCannotMap)
{
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
