#include "generation/LanguageModelInstall.h"
#include "generation/LanguageModelPreference.h"
#include "generation/LlamaLanguageModel.h"
#include "generation/LocalSummary.h"
#include "support/CoreApplicationEnvironment.h"

#include "ModelFolder.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "support/LoopbackModelServer.h"
#include "support/QtPrinters.h"
#include "support/TmpfsMount.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;
using Reason = LanguageModel::UnavailableReason;

namespace {

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray sha256(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

// A loopback server that publishes the generated tiny chat model, and a
// catalogue entry that holds its real size and checksum.
class LanguageModelInstall : public ::testing::Test {
protected:
    void SetUp() override
    {
        KESTIL_REQUIRE_MODEL("tiny-llama-chat.gguf");
        tiny_ = contentOf(ModelFolder::cached("tiny-llama-chat.gguf"));
        ASSERT_GT(tiny_.size(), 1000000);
        server_.setFile("tiny-chat.gguf", tiny_);
        entry_ = DownloadableLanguageModel{"Tiny chat",
                                           "tiny-chat.gguf",
                                           "tiny-chat.gguf",
                                           tiny_.size(),
                                           sha256(tiny_),
                                           {"en", "fr"},
                                           "A model with random weights.",
                                           "MIT"};
    }

    QUrl base(const char *mode) const { return QUrl(server_.baseAddress(QString::fromLatin1(mode))); }
    QString target() const { return folder_.directory() + "/tiny-chat.gguf"; }
    QString part() const { return target() + ".part"; }

    QString install(const DownloadObserver &observer = {})
    {
        return installLanguageModel(entry_, base("good"), observer, folder_.directory());
    }

    QString failureOf(const char *mode, const DownloadableLanguageModel &entry)
    {
        try {
            installLanguageModel(entry, base(mode), {}, folder_.directory());
        } catch (const Error &e) {
            return e.localizedDescription();
        }
        return {};
    }

    QStringList ggufFiles() const { return QDir(folder_.directory()).entryList({"*.gguf"}, QDir::Files); }

    ModelFolder folder_;
    test::LoopbackModelServer server_;
    QByteArray tiny_;
    DownloadableLanguageModel entry_;
};

} // namespace

TEST_F(LanguageModelInstall, AServedModelIsInstalledInOneRenameAndTheModelAnswersWithIt)
{
    LlamaLanguageModel model(folder_.directory());
    EXPECT_EQ(model.availability(), LanguageModel::Availability::unavailable(Reason::modelNotReady));

    std::vector<std::pair<qint64, qint64>> progress;
    DownloadObserver observer;
    observer.progress = [&](qint64 received, qint64 total) {
        progress.emplace_back(received, total);
        // While bytes arrive the model counts as downloading and not installed.
        EXPECT_TRUE(isLanguageModelDownloading(entry_, folder_.directory()));
        EXPECT_FALSE(QFile::exists(target()));
    };
    EXPECT_EQ(install(observer), target());
    EXPECT_EQ(contentOf(target()), tiny_);
    EXPECT_FALSE(QFile::exists(part()));
    EXPECT_FALSE(isLanguageModelDownloading(entry_, folder_.directory()));
    ASSERT_FALSE(progress.empty());
    EXPECT_EQ(progress.back(), std::make_pair(qint64(tiny_.size()), qint64(tiny_.size())));

    EXPECT_EQ(model.availability(), LanguageModel::Availability::available());
    EXPECT_EQ(LanguageModelFiles::installedModel(folder_.directory())->path, target());
    // The catalogue's languages stand in for the header's ("en" and "de").
    EXPECT_TRUE(model.supportsLocale(QLocale("fr_FR")));
    EXPECT_FALSE(model.supportsLocale(QLocale("de_DE")));
    const QString answer =
        model.respond("Be brief.", "Hello", GenerationOptions{0.0, 8}, CancellationToken());
    EXPECT_GT(model.statistics().generatedTokens, 0) << answer.toStdString();

    // An import under the same name keeps none of the catalogue's languages.
    QTemporaryDir elsewhere;
    const QString copy = elsewhere.filePath("tiny-chat.gguf");
    ASSERT_TRUE(QFile::copy(ModelFolder::cached("tiny-llama-chat.gguf"), copy));
    LanguageModelFiles::importModel(copy, folder_.directory());
    const auto imported = LanguageModelFiles::installedModel(folder_.directory());
    ASSERT_TRUE(imported);
    EXPECT_EQ(imported->languages, (QStringList{"en", "de"}));
}

TEST_F(LanguageModelInstall, ANewerInstallTakesOverFromTheModelInUseWithoutARestart)
{
    folder_.install("tiny-llama-chat.gguf", "older.gguf");
    LlamaLanguageModel model(folder_.directory());
    model.respond("Be brief.", "Hello", GenerationOptions{0.0, 2}, CancellationToken());
    const double firstLoad = model.statistics().loadSeconds;
    ASSERT_GT(firstLoad, 0);

    install();
    EXPECT_EQ(LanguageModelFiles::installedModel(folder_.directory())->path, target());
    model.respond("Be brief.", "Hello", GenerationOptions{0.0, 2}, CancellationToken());
    EXPECT_GT(model.statistics().loadSeconds, firstLoad) << "the new file is loaded for the next request";

    // Installing the same model again needs no download and makes it the newest again.
    const int requests = int(server_.requests().size());
    install();
    EXPECT_EQ(int(server_.requests().size()), requests);
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
    EXPECT_EQ(ggufFiles(), QStringList{"older.gguf"});
    EXPECT_FALSE(QFile::exists(part()));
    EXPECT_EQ(LanguageModelFiles::installedModel(folder_.directory())->path,
              folder_.directory() + "/older.gguf");

    const QByteArray noTemplate = contentOf(ModelFolder::cached("tiny-llama-no-template.gguf"));
    server_.setFile("tiny-chat.gguf", noTemplate);
    DownloadableLanguageModel entry = entry_;
    entry.size = noTemplate.size();
    entry.sha256 = sha256(noTemplate);
    const QString message = failureOf("good", entry);
    EXPECT_TRUE(message.contains("has no chat template")) << message.toStdString();
    EXPECT_TRUE(message.endsWith("The download was deleted, and models already installed are unchanged."))
        << message.toStdString();
    EXPECT_EQ(ggufFiles(), QStringList{"older.gguf"});
    EXPECT_FALSE(QFile::exists(part()));
}

TEST_F(LanguageModelInstall, ADownloadCutOffMidTransferIsReportedAsAPartAndInstallsNothing)
{
    const QString first = failureOf("drop", entry_);
    EXPECT_TRUE(first.startsWith("The language model download")) << first.toStdString();
    EXPECT_TRUE(first.endsWith("received so far are kept, and the next download continues from "
                               "there."))
        << first.toStdString();
    const qint64 kept = partialLanguageModelDownload(entry_, folder_.directory());
    EXPECT_GT(kept, 0);
    EXPECT_LT(kept, tiny_.size());
    EXPECT_TRUE(ggufFiles().isEmpty()) << "half a model is never under a name that counts";
    EXPECT_FALSE(isLanguageModelDownloading(entry_, folder_.directory()));
    EXPECT_EQ(LlamaLanguageModel(folder_.directory()).availability(),
              LanguageModel::Availability::unavailable(Reason::modelNotReady));
}

TEST_F(LanguageModelInstall, ADiskWithoutRoomForTheModelIsToldBeforeTheFirstByte)
{
    test::TmpfsMount small(4 * 1024 * 1024);
    ASSERT_TRUE(small.mounted()) << small.error().toStdString();
    const QString directory = small.path() + "/Models/language";
    try {
        installLanguageModel(entry_, base("good"), {}, directory);
        FAIL() << "a 4 MB disk cannot hold the model";
    } catch (const LocalError &e) {
        EXPECT_TRUE(e.message().startsWith("There is not enough free space for “Tiny chat”: it needs "))
            << e.message().toStdString();
        EXPECT_TRUE(
            e.message().endsWith("Nothing was downloaded, and models already installed are unchanged."));
    }
    EXPECT_TRUE(server_.requests().isEmpty());
    EXPECT_TRUE(QDir(directory).entryList(QDir::Files).isEmpty());
}

TEST_F(LanguageModelInstall, TheBaseAddressComesFromTheEnvironmentThenThePreference)
{
    QTemporaryDir config;
    PreferenceStore preferences(config.path());
    qunsetenv("KESTIL_LANGUAGE_MODEL_BASE_URL");
    EXPECT_EQ(languageModelBaseAddress(preferences), QUrl("https://huggingface.co/Qwen/"));
    EXPECT_EQ(languageModelAddress(languageModelBaseAddress(preferences), defaultLanguageModel()).toString(),
              "https://huggingface.co/Qwen/" + defaultLanguageModel().remotePath);

    preferences.set(QString(settings::keys::kestilLanguageModelBaseAddress), server_.baseAddress("good"));
    EXPECT_EQ(languageModelBaseAddress(preferences), base("good"));
    qputenv("KESTIL_LANGUAGE_MODEL_BASE_URL", "http://127.0.0.1:9/mirror");
    EXPECT_EQ(languageModelBaseAddress(preferences), QUrl("http://127.0.0.1:9/mirror/"));
    qputenv("KESTIL_LANGUAGE_MODEL_BASE_URL", "file:///tmp/models/");
    EXPECT_THROW(languageModelBaseAddress(preferences), LocalError);
    qunsetenv("KESTIL_LANGUAGE_MODEL_BASE_URL");
}

TEST(LanguageModelCatalogue, EveryEntryIsAPinnedInstructModelWithItsChecksum)
{
    const auto &catalogue = languageModelCatalogue();
    ASSERT_GE(catalogue.size(), 2);
    EXPECT_EQ(defaultLanguageModel(), catalogue.first());
    QStringList names;
    for (const auto &model : catalogue) {
        EXPECT_EQ(model.sha256.size(), 64) << model.fileName.toStdString();
        EXPECT_EQ(model.sha256, model.sha256.toLower());
        EXPECT_TRUE(model.fileName.endsWith(".gguf"));
        EXPECT_TRUE(model.remotePath.endsWith(QLatin1Char('/') + model.fileName));
        // Pinned to one revision: the checksum belongs to that file for good.
        EXPECT_FALSE(model.remotePath.contains("/main/"));
        EXPECT_GT(model.size, 100'000'000);
        EXPECT_LT(model.size, 2'000'000'000) << "small enough for a laptop";
        EXPECT_TRUE(model.languages.contains("en"));
        EXPECT_FALSE(model.description.isEmpty());
        names.append(model.fileName);
    }
    names.removeDuplicates();
    EXPECT_EQ(names.size(), catalogue.size());
    EXPECT_EQ(fileSizeText(491400032), "491.4 MB");
    EXPECT_EQ(fileSizeText(1117320736), "1.12 GB");
}

TEST(LanguageModelSwitch, ThePreferenceTurnsTheModelOffAndOnAsItChanges)
{
    KESTIL_REQUIRE_MODEL("tiny-llama-chat.gguf");
    ModelFolder folder;
    folder.install("tiny-llama-chat.gguf");
    QTemporaryDir config;
    PreferenceStore preferences(config.path());
    settings::setOnDeviceLanguageModelEnabled(preferences, false);
    LlamaLanguageModel model(folder.directory());
    ASSERT_EQ(model.availability(), LanguageModel::Availability::available());

    followLanguageModelSwitch(preferences, model);
    EXPECT_EQ(model.availability(), LanguageModel::Availability::unavailable(Reason::languageModelDisabled));
    EXPECT_EQ(LocalSummary::modelStatus(model, QLocale("en_US")).statusLine,
              "On-device summaries unavailable: languageModelDisabled. Your notes and "
              "transcripts remain available.");

    settings::setOnDeviceLanguageModelEnabled(preferences, true);
    EXPECT_EQ(model.availability(), LanguageModel::Availability::available());
    settings::setOnDeviceLanguageModelEnabled(preferences, false);
    EXPECT_EQ(model.availability(), LanguageModel::Availability::unavailable(Reason::languageModelDisabled));
    // A missing key is the default: on.
    preferences.remove(QString(settings::keys::kestilOnDeviceLanguageModelEnabled));
    EXPECT_EQ(model.availability(), LanguageModel::Availability::available());
}
