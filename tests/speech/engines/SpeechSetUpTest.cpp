#include "base/CancellationError.h"
#include "speech/LiveSpeechSession.h"
#include "speech/LocalSpeech.h"
#include "speech/WhisperModelInstall.h"
#include "support/CoreApplicationEnvironment.h"
#include "support/FileBytes.h"

#include "SpeechTestSupport.h"
#include "support/LoopbackModelServer.h"

#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;
using Status = LocalSpeech::Readiness::Status;

namespace {

void writeFile(const QString &path, const QByteArray &bytes, QIODevice::OpenMode mode)
{
    QFile file(path);
    ASSERT_TRUE(file.open(mode));
    file.write(bytes);
}

QByteArray sha256(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

QString failureOf(const std::function<void()> &action)
{
    try {
        action();
    } catch (const Error &e) {
        return e.localizedDescription();
    }
    return {};
}

// A data folder, preferences and a loopback server of the test's own; the
// server publishes the generated tiny models under the names of the real
// ones, and the catalogue holds their checksums.
class SpeechSetUp : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(data_.isValid());
        qputenv("KESTIL_DATA_DIR", data_.path().toUtf8());
        qunsetenv("KESTIL_SPEECH_MODEL_BASE_URL");
        preferences_ = std::make_unique<PreferenceStore>(data_.filePath(QStringLiteral("config")));
        english_ = test::fileBytes(test::tinyEnglishModel());
        multilingual_ = test::fileBytes(test::tinyMultilingualModel());
        server_.setFile(QStringLiteral("ggml-base.en.bin"), english_);
        server_.setFile(QStringLiteral("ggml-base.bin"), multilingual_);
        catalogue_ = {WhisperModel{"base.en", "base", true, "ggml-base.en.bin", sha256(english_)},
                      WhisperModel{"base", "base", false, "ggml-base.bin", sha256(multilingual_)}};
        directory_ = data_.filePath(QStringLiteral("Models/speech"));
    }
    void TearDown() override { qunsetenv("KESTIL_DATA_DIR"); }

    QUrl base(const char *mode) const { return QUrl(server_.baseAddress(QString::fromLatin1(mode))); }

    void useServer(const char *mode)
    {
        preferences_->set(QString(whisperModelBaseAddressKey),
                          server_.baseAddress(QString::fromLatin1(mode)));
    }

    LocalSpeech::Readiness readiness(const QString &locale) const
    {
        return LocalSpeech::readiness(locale,
                                      LocalSpeech::Inventory::current(*preferences_, catalogue_, directory_));
    }

    LocalSpeech::SetUpOptions withCatalogue() const { return {.catalogue = catalogue_}; }

    QString setUpFailure(const char *locale)
    {
        return failureOf(
            [&] { LocalSpeech::setUp(QString::fromLatin1(locale), *preferences_, withCatalogue()); });
    }

    // Serves `bytes` as the multilingual model, with their checksum in the catalogue.
    void serveAsMultilingual(const QByteArray &bytes)
    {
        server_.setFile(QStringLiteral("ggml-base.bin"), bytes);
        catalogue_[1].sha256 = sha256(bytes);
        useServer("good");
    }

    QString modelPath() const { return directory_ + QStringLiteral("/ggml-base.en.bin"); }

    QTemporaryDir data_;
    std::unique_ptr<PreferenceStore> preferences_;
    test::LoopbackModelServer server_;
    QByteArray english_;
    QByteArray multilingual_;
    QList<WhisperModel> catalogue_;
    QString directory_;
};

} // namespace

// Resuming, ranges, progress and the server's errors are the downloader's and tested with it.
TEST_F(SpeechSetUp, AServedModelCountsInstalledOnlyWhileItIsTheFileWhoseChecksumMatched)
{
    // Cut off mid-transfer: half a file is never in the model's place.
    EXPECT_FALSE(
        failureOf([&] { installWhisperModel(directory_, catalogue_[0], base("drop"), {}); }).isEmpty());
    EXPECT_FALSE(QFile::exists(modelPath()));
    EXPECT_FALSE(isWhisperModelInstalled(directory_, catalogue_[0]));

    installWhisperModel(directory_, catalogue_[0], base("good"), {});
    EXPECT_TRUE(isWhisperModelInstalled(directory_, catalogue_[0]));
    EXPECT_EQ(test::fileBytes(modelPath()), english_);
    EXPECT_FALSE(QFile::exists(modelPath() + QStringLiteral(".part")));

    // A file that changed after its check no longer counts.
    writeFile(modelPath(), "x", QIODevice::Append);
    EXPECT_FALSE(isWhisperModelInstalled(directory_, catalogue_[0]));
    // A finished file without its record, as an install cut short leaves it,
    // is checked without another download.
    writeFile(modelPath(), english_, QIODevice::WriteOnly);
    ASSERT_TRUE(QFile::remove(modelPath() + QStringLiteral(".verified")));
    EXPECT_FALSE(isWhisperModelInstalled(directory_, catalogue_[0]));
    const qsizetype requests = server_.requests().size();
    installWhisperModel(directory_, catalogue_[0], base("good"), {});
    EXPECT_TRUE(isWhisperModelInstalled(directory_, catalogue_[0]));
    EXPECT_EQ(server_.requests().size(), requests);
}

TEST_F(SpeechSetUp, SetUpInstallsWhisperProvesItAndLiveSessionsUseIt)
{
    useServer("good");
    settings::setLocalSpeechLastFailure(*preferences_, QStringLiteral("an earlier failure"));
    LocalSpeech::setUp(QStringLiteral("en-US"), *preferences_, withCatalogue());

    EXPECT_FALSE(settings::localSpeechLastFailure(*preferences_).has_value());
    const LocalSpeech::Readiness ready = LocalSpeech::readiness(QStringLiteral("en-US"), *preferences_);
    ASSERT_TRUE(ready.configuration.has_value());
    EXPECT_EQ(ready.configuration->engine, LocalSpeech::Engine::speech);
    EXPECT_EQ(ready.status, Status::installed);
    EXPECT_EQ(ready.configuration->module, modelPath());
    EXPECT_EQ(LocalSpeech::message(ready),
              QStringLiteral("On-device speech is ready. Transcription works offline."));

    // A live session now runs on the installed whisper model (what it hears is
    // WhisperRealSpeech's); its good start clears the record of an earlier one.
    settings::setLocalSpeechLastFailure(*preferences_, QStringLiteral("an earlier failure"));
    EXPECT_EQ(LiveSpeechSession::start(QStringLiteral("en-US"), {}, {}, *preferences_)->format(), 16000.0);
    EXPECT_FALSE(settings::localSpeechLastFailure(*preferences_).has_value());
    EXPECT_TRUE(failureOf([&] {
                    LocalSpeech::transcribe(data_.filePath(QStringLiteral("missing.caf")),
                                            QStringLiteral("en-US"), *preferences_);
                }).startsWith(QStringLiteral("The audio file “missing.caf” could not be read")));
}

TEST_F(SpeechSetUp, BeforeSetUpEnglishRunsOnPocketSphinxAndOtherLanguagesSayWhyTheyCannotStart)
{
    const LocalSpeech::Readiness r = LocalSpeech::readiness(QStringLiteral("en-GB"), *preferences_);
    ASSERT_TRUE(r.configuration.has_value());
    EXPECT_EQ(r.configuration->engine, LocalSpeech::Engine::dictation);
    EXPECT_EQ(r.status, Status::installed);
    const auto start = [&](const char *locale) {
        return failureOf(
            [&] { LiveSpeechSession::start(QString::fromLatin1(locale), {}, {}, *preferences_); });
    };
    EXPECT_TRUE(start("de-DE").startsWith(
        QStringLiteral("The on-device speech model for this language needs setup.")));
    const QString record = settings::localSpeechLastFailure(*preferences_).value_or(QString());
    EXPECT_TRUE(record.contains(QStringLiteral(" · de-DE\n"))) << record.toStdString();
    EXPECT_TRUE(record.contains(QStringLiteral("Whisper de-DE: supported"))) << record.toStdString();
    // Chinese without a script has no language key.
    EXPECT_TRUE(
        start("zh").startsWith(QStringLiteral("Transcription is unavailable for the selected language")));
    // Set-up refuses a language outside the keys, and records why, without a download.
    useServer("good");
    EXPECT_TRUE(
        setUpFailure("pl-PL").startsWith(QStringLiteral("Transcription is unavailable for the selected")));
    EXPECT_TRUE(
        settings::localSpeechLastFailure(*preferences_).value_or(QString()).contains("language: pl-PL\n"));
    EXPECT_TRUE(server_.requests().isEmpty());
}

TEST_F(SpeechSetUp, AFailedSetUpIsRecordedAndDeletesTheFileThatFailedItsChecksum)
{
    useServer("truncated");
    const QString message = setUpFailure("de-DE");
    EXPECT_TRUE(message.contains(QStringLiteral("did not match its published checksum")))
        << message.toStdString();
    // Recorded with the language, the error and what the computer offered.
    EXPECT_TRUE(settings::localSpeechLastFailure(*preferences_)
                    .value_or(QString())
                    .contains(QStringLiteral(" · de-DE\n") + message +
                              QStringLiteral(" (kestil.ModelDownloadError, 0)\nRequested language: de-DE")));
    EXPECT_EQ(readiness(QStringLiteral("de-DE")).status, Status::supported);
    const QString multilingual = directory_ + QStringLiteral("/ggml-base.bin");
    EXPECT_FALSE(QFile::exists(multilingual));
    EXPECT_FALSE(QFile::exists(multilingual + QStringLiteral(".part")));
}

TEST_F(SpeechSetUp, ACancelledSetUpLeavesTheLastFailureAsItWas)
{
    useServer("slow");
    settings::setLocalSpeechLastFailure(*preferences_, QStringLiteral("an earlier failure"));
    LocalSpeech::SetUpOptions options = withCatalogue();
    std::atomic<bool> cancel{false};
    bool sawDownloading = false;
    options.download.progress = [&](qint64 received, qint64) {
        // While the download runs, the language reads as downloading.
        sawDownloading = sawDownloading || readiness(QStringLiteral("de-DE")).status == Status::downloading;
        if (received > 100000)
            cancel = true;
    };
    options.download.isCancelled = [&] { return cancel.load(); };
    EXPECT_THROW(LocalSpeech::setUp(QStringLiteral("de-DE"), *preferences_, options), CancellationError);
    EXPECT_TRUE(sawDownloading);
    EXPECT_EQ(settings::localSpeechLastFailure(*preferences_), QStringLiteral("an earlier failure"));
    EXPECT_EQ(readiness(QStringLiteral("de-DE")).status, Status::supported);
}

TEST_F(SpeechSetUp, AFileThatIsNoModelNeverCountsInstalled)
{
    // The server's file matches its checksum but is no whisper model.
    serveAsMultilingual(QByteArray(4096, 'j'));
    EXPECT_EQ(setUpFailure("fr-FR"),
              QStringLiteral("Kestil has not finished installing this language's speech model. Connect to "
                             "the internet and try Set Up On-Device Speech again."));
    const LocalSpeech::Readiness r = readiness(QStringLiteral("fr-FR"));
    EXPECT_EQ(r.status, Status::supported);
    EXPECT_TRUE(r.details.contains(QStringLiteral("Whisper usable audio formats: 0")));
}

TEST_F(SpeechSetUp, AModelWhisperCannotLoadFailsTheProofAndSaysSo)
{
    // Whole and well-formed, but one tensor has a name whisper.cpp does not
    // know, so it refuses the file when set-up tries it.
    QByteArray odd = multilingual_;
    const qsizetype at = odd.indexOf("decoder.ln.bias");
    ASSERT_GT(at, 0);
    serveAsMultilingual(odd.replace(at, 15, "decoder.xx.bias"));
    EXPECT_EQ(setUpFailure("fr-FR"),
              QStringLiteral("Whisper could not load the speech model “ggml-base.bin”."));
    const QString record = settings::localSpeechLastFailure(*preferences_).value_or(QString());
    EXPECT_TRUE(record.endsWith(QStringLiteral("\nSetup verification: Whisper fr-FR")))
        << record.toStdString();
}
