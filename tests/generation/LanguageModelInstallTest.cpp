// Downloading a model of the catalogue from a loopback server: the generated
// tiny chat model, under a catalogue entry with its real size and checksum.
#include "generation/LanguageModelInstall.h"
#include "generation/LlamaLanguageModel.h"
#include "support/CoreApplicationEnvironment.h"

#include "ModelFolder.h"
#include "support/LoopbackModelServer.h"
#include "support/QtPrinters.h"
#include "support/TmpfsMount.h"

#include <QCryptographicHash>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;
using Availability = LanguageModel::Availability;

namespace {

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

DownloadableLanguageModel entryFor(const QByteArray &content)
{
    return {"Tiny chat",
            "tiny-chat.gguf",
            "tiny-chat.gguf",
            content.size(),
            QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex(),
            {"en", "fr"},
            "A model with random weights.",
            "MIT"};
}

class LanguageModelInstall : public ::testing::Test {
protected:
    void SetUp() override
    {
        KESTIL_REQUIRE_MODEL("tiny-llama-chat.gguf");
        server_.setFile("tiny-chat.gguf", tiny_);
    }

    QString failureOf(const char *mode, const DownloadableLanguageModel &entry, const QString &directory = {})
    {
        try {
            installLanguageModel(entry, QUrl(server_.baseAddress(mode)), {},
                                 directory.isEmpty() ? folder_.directory() : directory);
        } catch (const Error &e) {
            return e.localizedDescription();
        }
        return {};
    }
    QString install()
    {
        return installLanguageModel(entry_, QUrl(server_.baseAddress("good")), {}, folder_.directory());
    }
    QStringList files() const { return QDir(folder_.directory()).entryList(QDir::Files); }
    QString installed() const { return LanguageModelFiles::installedModel(folder_.directory())->path; }

    ModelFolder folder_;
    QString target_ = folder_.directory() + "/tiny-chat.gguf";
    test::LoopbackModelServer server_;
    QByteArray tiny_ = contentOf(ModelFolder::cached("tiny-llama-chat.gguf"));
    DownloadableLanguageModel entry_ = entryFor(tiny_);
};

} // namespace

TEST_F(LanguageModelInstall, AServedModelIsInstalledInOneRenameAndTheModelAnswersWithIt)
{
    LlamaLanguageModel model(folder_.directory());
    EXPECT_EQ(model.availability(),
              Availability::unavailable(LanguageModel::UnavailableReason::modelNotReady));
    std::vector<std::pair<qint64, qint64>> progress;
    DownloadObserver observer;
    observer.progress = [&](qint64 received, qint64 total) {
        progress.emplace_back(received, total);
        // While bytes arrive the model counts as downloading and not installed.
        EXPECT_TRUE(isLanguageModelDownloading(entry_, folder_.directory()));
        EXPECT_FALSE(QFile::exists(target_));
    };
    EXPECT_EQ(installLanguageModel(entry_, QUrl(server_.baseAddress("good")), observer, folder_.directory()),
              target_);
    EXPECT_EQ(contentOf(target_), tiny_);
    EXPECT_EQ(files(), (QStringList{"tiny-chat.gguf", "tiny-chat.gguf.languages.json"})) << "no part left";
    EXPECT_FALSE(isLanguageModelDownloading(entry_, folder_.directory()));
    ASSERT_FALSE(progress.empty());
    EXPECT_EQ(progress.back(), std::make_pair(qint64(tiny_.size()), qint64(tiny_.size())));

    EXPECT_EQ(model.availability(), Availability::available());
    EXPECT_EQ(installed(), target_);
    // The catalogue's languages stand in for the header's ("en" and "de").
    EXPECT_TRUE(model.supportsLocale(QLocale("fr_FR")));
    EXPECT_FALSE(model.supportsLocale(QLocale("de_DE")));
    const QString answer = model.respond("Be brief.", "Hello", GenerationOptions{0.0, 8}, {});
    EXPECT_GT(model.statistics().generatedTokens, 0) << answer.toStdString();

    // An import under the same name keeps none of the catalogue's languages.
    QTemporaryDir elsewhere;
    const QString copy = elsewhere.filePath("tiny-chat.gguf");
    ASSERT_TRUE(QFile::copy(ModelFolder::cached("tiny-llama-chat.gguf"), copy));
    LanguageModelFiles::importModel(copy, folder_.directory());
    EXPECT_EQ(LanguageModelFiles::installedModel(folder_.directory())->languages, (QStringList{"en", "de"}));
}

TEST_F(LanguageModelInstall, ANewerInstallTakesOverFromTheModelInUseWithoutARestart)
{
    folder_.install("tiny-llama-chat.gguf", "older.gguf");
    LlamaLanguageModel model(folder_.directory());
    model.respond("Be brief.", "Hello", GenerationOptions{0.0, 2}, {});
    const double firstLoad = model.statistics().loadSeconds;
    ASSERT_GT(firstLoad, 0);
    install();
    EXPECT_EQ(installed(), target_);
    model.respond("Be brief.", "Hello", GenerationOptions{0.0, 2}, {});
    EXPECT_GT(model.statistics().loadSeconds, firstLoad) << "the new file is loaded for the next request";
    // Installing the same model again needs no download.
    const qsizetype requests = server_.requests().size();
    install();
    EXPECT_EQ(server_.requests().size(), requests);
}

TEST_F(LanguageModelInstall, AFileThatFailsItsChecksumOrIsNoUsableModelIsDeletedAndTheInstalledOneStays)
{
    KESTIL_REQUIRE_MODEL("tiny-llama-no-template.gguf");
    folder_.install("tiny-llama-chat.gguf", "older.gguf");
    DownloadableLanguageModel wrong = entry_;
    wrong.sha256 = QByteArray(64, 'a');
    EXPECT_EQ(failureOf("good", wrong), "The downloaded language model “tiny-chat.gguf” did not match its "
                                        "published checksum, so it was deleted. Models already installed are "
                                        "unchanged; try the download again.");
    const QByteArray noTemplate = contentOf(ModelFolder::cached("tiny-llama-no-template.gguf"));
    server_.setFile("tiny-chat.gguf", noTemplate);
    const QString message = failureOf("good", entryFor(noTemplate));
    EXPECT_TRUE(message.contains("has no chat template")) << message.toStdString();
    EXPECT_TRUE(message.endsWith("The download was deleted, and models already installed are unchanged."))
        << message.toStdString();
    EXPECT_EQ(files(), QStringList{"older.gguf"});
    EXPECT_EQ(installed(), folder_.directory() + "/older.gguf");
}

TEST_F(LanguageModelInstall, ACutOffDownloadKeepsItsPartAndAFullDiskIsToldBeforeTheFirstByte)
{
    const QString cut = failureOf("drop", entry_);
    EXPECT_TRUE(cut.startsWith("The language model download")) << cut.toStdString();
    EXPECT_TRUE(cut.endsWith("received so far are kept, and the next download continues from there."))
        << cut.toStdString();
    const qint64 kept = partialLanguageModelDownload(entry_, folder_.directory());
    EXPECT_GT(kept, 0);
    EXPECT_LT(kept, tiny_.size());
    EXPECT_EQ(files(), QStringList{"tiny-chat.gguf.part"})
        << "half a model is never under a name that counts";
    EXPECT_FALSE(isLanguageModelDownloading(entry_, folder_.directory()));

    test::TmpfsMount small(4 * 1024 * 1024);
    ASSERT_TRUE(small.mounted()) << small.error().toStdString();
    const qsizetype requests = server_.requests().size();
    const QString full = failureOf("good", entry_, small.path() + "/Models/language");
    EXPECT_TRUE(full.startsWith("There is not enough free space for “Tiny chat”: it needs "))
        << full.toStdString();
    EXPECT_TRUE(full.endsWith("Nothing was downloaded, and models already installed are unchanged."));
    EXPECT_EQ(server_.requests().size(), requests);
    EXPECT_TRUE(QDir(small.path() + "/Models/language").entryList(QDir::Files).isEmpty());
}
