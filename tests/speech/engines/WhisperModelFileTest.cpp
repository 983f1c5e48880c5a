#include "speech/WhisperModelFile.h"

#include "SpeechTestSupport.h"

#include "base/Error.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstring>

using namespace kestil;

namespace {

QString written(const QTemporaryDir &dir, const QString &name, const QByteArray &bytes)
{
    QFile out(dir.filePath(name));
    EXPECT_TRUE(out.open(QIODevice::WriteOnly));
    out.write(bytes);
    return out.fileName();
}

QByteArray tinyEnglishBytes()
{
    QFile in(test::tinyEnglishModel());
    EXPECT_TRUE(in.open(QIODevice::ReadOnly));
    return in.readAll();
}

void expectDamaged(const QString &path)
{
    try {
        inspectWhisperModelFile(path);
        ADD_FAILURE() << "accepted " << path.toStdString();
    } catch (const LocalError &e) {
        EXPECT_TRUE(e.message().contains("is damaged or is not a Whisper model"))
            << e.message().toStdString();
    }
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
}

TEST(WhisperModelFile, RefusesTruncatedPaddedAndForeignFiles)
{
    QTemporaryDir dir;
    const QByteArray model = tinyEnglishBytes();
    expectDamaged(written(dir, "cut-in-weights.bin", model.first(model.size() - 1000)));
    expectDamaged(written(dir, "cut-in-header.bin", model.first(30)));
    expectDamaged(written(dir, "padded.bin", model + QByteArray(64, '\0')));
    expectDamaged(written(dir, "empty.bin", {}));
    expectDamaged(written(dir, "notes.bin", "This is a text file, not a speech model.\n"));
}

TEST(WhisperModelFile, RefusesWeightTypesGgmlCannotMap)
{
    // ggml stops the program on these instead of failing the load.
    QTemporaryDir dir;
    const QByteArray model = tinyEnglishBytes();
    for (const qint32 type : {4, 5, 6, 29, 50, 1004}) {
        QByteArray odd = model;
        std::memcpy(odd.data() + 44, &type, 4);
        expectDamaged(written(dir, QStringLiteral("type-%1.bin").arg(type), odd));
    }
}

TEST(WhisperModelFile, AMissingFileSaysItCouldNotBeOpened)
{
    try {
        inspectWhisperModelFile("/nonexistent/ggml-base.en.bin");
        FAIL();
    } catch (const LocalError &e) {
        EXPECT_TRUE(e.message().startsWith("The speech model file “ggml-base.en.bin” could not be opened"));
    }
}
