#include "speech/WhisperModelFile.h"

#include "SpeechTestSupport.h"

#include "base/Error.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstring>

using namespace kestil;

namespace {

QString copyOf(const QTemporaryDir &dir, const QString &source, const char *name, qint64 keep = -1,
               const QByteArray &extra = {})
{
    QFile in(source);
    EXPECT_TRUE(in.open(QIODevice::ReadOnly));
    QByteArray bytes = in.readAll();
    if (keep >= 0)
        bytes.truncate(keep);
    bytes += extra;
    const QString path = dir.filePath(QString::fromLatin1(name));
    QFile out(path);
    EXPECT_TRUE(out.open(QIODevice::WriteOnly));
    out.write(bytes);
    return path;
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
    const QString model = test::tinyEnglishModel();
    const qint64 size = QFileInfo(model).size();
    expectDamaged(copyOf(dir, model, "cut-in-weights.bin", size - 1000));
    expectDamaged(copyOf(dir, model, "cut-in-header.bin", 30));
    expectDamaged(copyOf(dir, model, "padded.bin", -1, QByteArray(64, '\0')));
    expectDamaged(copyOf(dir, model, "empty.bin", 0));

    const QString text = dir.filePath("notes.bin");
    QFile f(text);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write("This is a text file, not a speech model.\n");
    f.close();
    expectDamaged(text);
}

TEST(WhisperModelFile, RefusesWeightTypesGgmlCannotMap)
{
    // ggml stops the program on these instead of failing the load.
    QTemporaryDir dir;
    QFile source(test::tinyEnglishModel());
    ASSERT_TRUE(source.open(QIODevice::ReadOnly));
    const QByteArray model = source.readAll();
    for (const qint32 type : {4, 5, 6, 29, 50, 1004}) {
        QByteArray odd = model;
        std::memcpy(odd.data() + 44, &type, 4);
        const QString path = dir.filePath(QStringLiteral("type-%1.bin").arg(type));
        QFile out(path);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly));
        out.write(odd);
        out.close();
        expectDamaged(path);
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
