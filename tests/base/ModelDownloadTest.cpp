#include "base/ModelDownload.h"
#include "base/CancellationError.h"
#include "support/CoreApplicationEnvironment.h"
#include "support/FileBytes.h"
#include "support/LoopbackModelServer.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>

using namespace kestil;

namespace {

const DownloadWording wording{QStringLiteral("test model"), QStringLiteral("the next try")};

class ModelDownload : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(folder_.isValid());
        content_.resize(3 * 1024 * 1024 + 17);
        QRandomGenerator generator(7);
        generator.fillRange(reinterpret_cast<quint32 *>(content_.data()), content_.size() / 4);
        server_.setFile(QStringLiteral("model.bin"), content_);
        sha_ = QCryptographicHash::hash(content_, QCryptographicHash::Sha256).toHex();
    }

    QUrl url(const char *mode) const
    {
        return QUrl(server_.baseAddress(QString::fromLatin1(mode)) + QStringLiteral("model.bin"));
    }
    QString part() const { return folder_.filePath(QStringLiteral("model.bin.part")); }
    void writePart(const QByteArray &bytes) const
    {
        QFile file(part());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    }

    QString failureOf(const char *mode, const DownloadObserver &observer = {})
    {
        try {
            downloadToPartFile(url(mode), part(), observer, wording);
        } catch (const ModelDownloadError &e) {
            code_ = e.code();
            return e.localizedDescription();
        }
        return {};
    }

    QTemporaryDir folder_;
    test::LoopbackModelServer server_;
    QByteArray content_;
    QByteArray sha_;
    int code_ = -1;
};

} // namespace

TEST_F(ModelDownload, AWholeFileArrivesWithItsChecksumAndRisingProgress)
{
    std::vector<std::pair<qint64, qint64>> progress;
    DownloadObserver observer;
    observer.progress = [&](qint64 received, qint64 total) { progress.emplace_back(received, total); };
    EXPECT_EQ(downloadToPartFile(url("good"), part(), observer, wording), sha_);
    EXPECT_EQ(test::fileBytes(part()), content_);
    ASSERT_FALSE(progress.empty());
    EXPECT_EQ(progress.back(), std::make_pair(qint64(content_.size()), qint64(content_.size())));
    for (std::size_t i = 1; i < progress.size(); ++i)
        EXPECT_GE(progress[i].first, progress[i - 1].first);
    EXPECT_EQ(sha256OfFile(part()), sha_);
}

TEST_F(ModelDownload, AConnectionLostMidwayKeepsWhatArrivedAndTheNextTryAsksForTheRest)
{
    const QString first = failureOf("drop");
    EXPECT_TRUE(first.startsWith(QStringLiteral("The test model download"))) << first.toStdString();
    EXPECT_TRUE(
        first.endsWith(QStringLiteral("received so far are kept, and the next try continues from there.")))
        << first.toStdString();
    const qint64 kept = QFileInfo(part()).size();
    ASSERT_GT(kept, 0);
    ASSERT_LT(kept, content_.size());

    // The checksum covers the bytes kept from the first try as well.
    EXPECT_EQ(downloadToPartFile(url("drop"), part(), {}, wording), sha_);
    EXPECT_EQ(test::fileBytes(part()), content_);
    EXPECT_EQ(server_.requests().last().range, "bytes=" + QByteArray::number(kept) + '-');
}

TEST_F(ModelDownload, AServerThatIgnoresRangesMakesItStartOverAndAWholeFileIsCheckedWithoutAnotherByte)
{
    writePart(QByteArray(1000, 'z'));
    EXPECT_EQ(downloadToPartFile(url("norange"), part(), {}, wording), sha_);
    EXPECT_EQ(test::fileBytes(part()), content_);
    EXPECT_EQ(server_.requests().value(0).range, QByteArray("bytes=1000-"));
    // Now whole, the server answers 416: nothing more to send.
    EXPECT_EQ(downloadToPartFile(url("good"), part(), {}, wording), sha_);
    EXPECT_EQ(QFileInfo(part()).size(), content_.size());
}

TEST_F(ModelDownload, AMissingFileOrAFolderThatCannotBeWrittenIsASentenceInTheCallersWords)
{
    const QString message = failureOf("nothing-here");
    EXPECT_EQ(code_, 404);
    EXPECT_TRUE(message.startsWith(QStringLiteral("The test model server answered 404")))
        << message.toStdString();
    // Nothing arrived, so the sentence promises nothing kept.
    EXPECT_FALSE(message.contains(QStringLiteral("kept"))) << message.toStdString();
    EXPECT_EQ(QFileInfo(part()).size(), 0);

    // A folder that cannot be written is a sentence too.
    try {
        downloadToPartFile(url("good"), folder_.filePath(QStringLiteral("no/such/folder/model.part")), {},
                           wording);
        FAIL() << "a part file in a missing folder cannot be written";
    } catch (const SystemError &e) {
        EXPECT_TRUE(
            e.localizedDescription().startsWith(QStringLiteral("The test model could not be saved: ")))
            << e.localizedDescription().toStdString();
    }
}

TEST_F(ModelDownload, CancellingStopsTheTransferAndKeepsThePart)
{
    std::atomic<bool> cancel{false};
    DownloadObserver observer;
    observer.progress = [&](qint64 received, qint64) {
        if (received > 200000)
            cancel = true;
    };
    observer.isCancelled = [&] { return cancel.load(); };
    EXPECT_THROW(downloadToPartFile(url("slow"), part(), observer, wording), CancellationError);
    const qint64 kept = QFileInfo(part()).size();
    EXPECT_GT(kept, 0);
    EXPECT_LT(kept, content_.size());
}
