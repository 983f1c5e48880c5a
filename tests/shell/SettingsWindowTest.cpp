#include "ShellTestSupport.h"

#include "generation/LanguageModelInstall.h"
#include "generation/LanguageModelPreference.h"
#include "generation/LlamaLanguageModel.h"
#include "prefs/SettingsKeys.h"
#include "shell/SettingsWindow.h"
#include "speech/LocalSpeech.h"
#include "support/LoopbackModelServer.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>

#include <gtest/gtest.h>

using namespace kestil;
using namespace std::chrono_literals;

namespace {

QString testModel(const QString &name)
{
    return qEnvironmentVariable("KESTIL_TEST_MODELS_DIR") + QLatin1Char('/') + name;
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The Settings window on the program's own window and store, with a language
// model and a catalogue of the test's own: the catalogue's one entry is the
// generated tiny chat model, served by a loopback server with its real
// checksum.
class SettingsWindowTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        tiny_ = contentOf(testModel(QStringLiteral("tiny-llama-chat.gguf")));
        ASSERT_GT(tiny_.size(), 1000000) << "run scripts/test-models.sh";
        qputenv("KESTIL_DATA_DIR", rig_.data.path().toUtf8());
        qunsetenv("KESTIL_LANGUAGE_MODEL_BASE_URL");
        rig_.launch();
        ASSERT_TRUE(rig_.exposed);
        directory_ = rig_.data.filePath(QStringLiteral("Models/language"));
        model_ = std::make_unique<LlamaLanguageModel>(directory_);
        followLanguageModelSwitch(*rig_.preferences, *model_);
        server_.setFile(QStringLiteral("tiny-chat.gguf"), tiny_);
        entry_ =
            DownloadableLanguageModel{QStringLiteral("Tiny chat"),
                                      QStringLiteral("tiny-chat.gguf"),
                                      QStringLiteral("tiny-chat.gguf"),
                                      tiny_.size(),
                                      QCryptographicHash::hash(tiny_, QCryptographicHash::Sha256).toHex(),
                                      {QStringLiteral("en")},
                                      QStringLiteral("A model with random weights, for tests."),
                                      QStringLiteral("MIT")};
    }

    void TearDown() override
    {
        settings_.reset();
        qunsetenv("KESTIL_DATA_DIR");
    }

    SettingsWindow &open(const char *serverMode)
    {
        rig_.preferences->set(QString(settings::keys::kestilLanguageModelBaseAddress),
                              server_.baseAddress(QString::fromLatin1(serverMode)));
        settings_ = std::make_unique<SettingsWindow>(
            *rig_.app, *rig_.preferences, SettingsWindow::Environment{model_.get(), directory_, {entry_}});
        settings_->show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(settings_.get()));
        return *settings_;
    }

    template <typename T = QWidget> T *find(const QString &name) const
    {
        return test::childOf<T>(settings_.get(), name);
    }
    QString text(const QString &label) const { return find<QLabel>(label)->text(); }
    void click(const QString &name) const { test::clickButton(find<QAbstractButton>(name)); }

    QStringList installedFiles() const
    {
        return QDir(directory_).entryList({QStringLiteral("*.gguf")}, QDir::Files);
    }

    // Picks `path` in the import dialog as soon as it opens.
    void chooseInImportDialog(const QString &path)
    {
        auto *timer = new QTimer(settings_.get());
        timer->setInterval(20);
        QObject::connect(timer, &QTimer::timeout, timer, [timer, path] {
            auto *dialog = qobject_cast<QFileDialog *>(QApplication::activeModalWidget());
            if (!dialog || dialog->objectName() != QStringLiteral("settingsImportDialog"))
                return;
            timer->stop();
            // Typed as a user would type it: the dialog resolves the path itself.
            auto *name = dialog->findChild<QLineEdit *>(QStringLiteral("fileNameEdit"));
            if (name)
                name->setText(path);
            static_cast<QDialog *>(dialog)->accept(); // QFileDialog checks the choice first
        });
        timer->start();
    }

    test::ShellRig rig_;
    test::LoopbackModelServer server_;
    QByteArray tiny_;
    QString directory_;
    std::unique_ptr<LlamaLanguageModel> model_;
    DownloadableLanguageModel entry_;
    std::unique_ptr<SettingsWindow> settings_;
};

} // namespace

TEST_F(SettingsWindowTest, DownloadShowsProgressCancelsAndThenInstallsTheModelAndRefreshesTheSummaryLine)
{
    open("slow");
    EXPECT_TRUE(text(QStringLiteral("settingsLanguageModelStatus"))
                    .startsWith(QStringLiteral("No on-device language model is installed.")));
    EXPECT_EQ(text(QStringLiteral("settingsLanguageModelDescription")), entry_.description);
    rig_.app->setSummaryStatus(QStringLiteral("before"));
    auto *progress = find<QProgressBar>(QStringLiteral("settingsLanguageModelProgress"));
    auto *download = find<QPushButton>(QStringLiteral("settingsLanguageModelDownloadButton"));
    EXPECT_FALSE(progress->isVisible());

    // The main thread stays free: bytes arrive while the window repaints.
    const auto startDownload = [&] {
        click(QStringLiteral("settingsLanguageModelDownloadButton"));
        EXPECT_TRUE(settings_->languageModelBusy());
        EXPECT_FALSE(download->isEnabled());
        EXPECT_FALSE(find<QPushButton>(QStringLiteral("settingsLanguageModelImportButton"))->isEnabled());
        EXPECT_TRUE(find<QPushButton>(QStringLiteral("settingsLanguageModelCancelButton"))->isVisible());
        return QTest::qWaitFor([&] { return progress->isVisible() && progress->value() > 0; }, 10000);
    };
    ASSERT_TRUE(startDownload());
    const QString during = text(QStringLiteral("settingsLanguageModelStatus"));
    EXPECT_TRUE(during.startsWith(QStringLiteral("Downloading “Tiny chat”: "))) << during.toStdString();
    EXPECT_EQ(rig_.app->summaryStatus(), QStringLiteral("before"))
        << "a download in progress changes no status";
    click(QStringLiteral("settingsLanguageModelCancelButton"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !settings_->languageModelBusy(); }, 10000));
    EXPECT_EQ(text(QStringLiteral("settingsLanguageModelMessage")),
              QStringLiteral("The download of “Tiny chat” was cancelled. What arrived is kept for the next "
                             "download, and models already installed are unchanged."));
    EXPECT_TRUE(installedFiles().isEmpty());
    EXPECT_TRUE(download->isEnabled());

    ASSERT_TRUE(startDownload());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !settings_->languageModelBusy(); }, 60000));
    EXPECT_EQ(
        text(QStringLiteral("settingsLanguageModelMessage")),
        QStringLiteral("“Tiny chat” is installed. Summaries, titles, tags and Ask AI use it from now on."));
    EXPECT_EQ(text(QStringLiteral("settingsLanguageModelStatus")),
              QStringLiteral("Installed: “Tiny chat” (%1). Summaries, titles, tags and Ask AI use it.")
                  .arg(fileSizeText(tiny_.size())));
    EXPECT_FALSE(progress->isVisible());
    EXPECT_EQ(installedFiles(), QStringList{QStringLiteral("tiny-chat.gguf")});
    EXPECT_EQ(model_->availability(), LanguageModel::Availability::available());
    EXPECT_EQ(rig_.app->summaryStatus(), QStringLiteral("On-device summaries ready."));
}

TEST_F(SettingsWindowTest, ImportingAFileInstallsIt)
{
    open("good");
    chooseInImportDialog(testModel(QStringLiteral("tiny-llama-chat.gguf")));
    click(QStringLiteral("settingsLanguageModelImportButton"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !settings_->languageModelBusy(); }, 30000));
    EXPECT_EQ(text(QStringLiteral("settingsLanguageModelMessage")),
              QStringLiteral("“tiny-llama-chat.gguf” is installed. Summaries, titles, tags and Ask AI use it "
                             "from now on."));
    EXPECT_EQ(installedFiles(), QStringList{QStringLiteral("tiny-llama-chat.gguf")});
}

TEST_F(SettingsWindowTest, TheSwitchesWriteTheirPreferencesAndTheAISwitchTurnsTheModelOff)
{
    QDir().mkpath(directory_);
    ASSERT_TRUE(QFile::copy(testModel(QStringLiteral("tiny-llama-chat.gguf")),
                            directory_ + QStringLiteral("/tiny-llama-chat.gguf")));
    open("good");
    auto *aiSwitch = find<QCheckBox>(QStringLiteral("settingsOnDeviceAISwitch"));
    EXPECT_TRUE(aiSwitch->isChecked());

    click(QStringLiteral("settingsOnDeviceAISwitch"));
    EXPECT_FALSE(settings::onDeviceLanguageModelEnabled(*rig_.preferences));
    EXPECT_EQ(model_->availability(), LanguageModel::Availability::unavailable(
                                          LanguageModel::UnavailableReason::languageModelDisabled));
    EXPECT_EQ(rig_.app->summaryStatus(),
              QStringLiteral("On-device AI is switched off in Settings. Switch it on "
                             "to write summaries; your notes and transcripts remain "
                             "available."));
    EXPECT_TRUE(text(QStringLiteral("settingsLanguageModelStatus"))
                    .endsWith(QStringLiteral("On-device AI is switched off.")));

    click(QStringLiteral("settingsOnDeviceAISwitch"));
    EXPECT_TRUE(settings::onDeviceLanguageModelEnabled(*rig_.preferences));
    EXPECT_EQ(model_->availability(), LanguageModel::Availability::available());
    EXPECT_EQ(rig_.app->summaryStatus(), QStringLiteral("On-device summaries ready."));

    auto *systemAudio = find<QCheckBox>(QStringLiteral("settingsRecordSystemAudioSwitch"));
    auto *widget = find<QCheckBox>(QStringLiteral("settingsShowRecordingWidgetSwitch"));
    EXPECT_TRUE(systemAudio->isChecked());
    EXPECT_TRUE(widget->isChecked());
    click(QStringLiteral("settingsRecordSystemAudioSwitch"));
    click(QStringLiteral("settingsShowRecordingWidgetSwitch"));
    EXPECT_FALSE(settings::recordSystemAudio(*rig_.preferences));
    EXPECT_FALSE(settings::showRecordingWidget(*rig_.preferences));
    // A change made elsewhere shows here too.
    settings::setRecordSystemAudio(*rig_.preferences, true);
    EXPECT_TRUE(systemAudio->isChecked());
}

TEST_F(SettingsWindowTest, SpeechSetUpShowsProgressCancelsAndSaysWhyItFailed)
{
    // Bytes that are not the published model, served slowly: set-up shows
    // its progress, and once let through the catalogue's checksum refuses
    // them. What set-up keeps or records is tests/speech's SpeechSetUpTest.
    server_.setFile(QStringLiteral("ggml-base.en.bin"), QByteArray(4 * 1024 * 1024, 'k'));
    qputenv("KESTIL_SPEECH_MODEL_BASE_URL", server_.baseAddress(QStringLiteral("slow")).toUtf8());
    rig_.preferences->set(QString(settings::keys::kestilSpeechModelSize), QStringLiteral("base"));
    open("good");
    auto *setUp = find<QPushButton>(QStringLiteral("settingsSpeechSetUpButton"));
    auto *progress = find<QProgressBar>(QStringLiteral("settingsSpeechProgress"));
    const LocalSpeech::Readiness readiness = LocalSpeech::readiness(rig_.app->language(), *rig_.preferences);
    EXPECT_TRUE(text(QStringLiteral("settingsSpeechStatus")).startsWith(LocalSpeech::message(readiness)));
    ASSERT_TRUE(readiness.configuration.has_value()) << readiness.details.toStdString();
    ASSERT_TRUE(setUp->isEnabled());

    click(QStringLiteral("settingsSpeechSetUpButton"));
    EXPECT_TRUE(settings_->speechBusy());
    EXPECT_FALSE(setUp->isEnabled());
    ASSERT_TRUE(QTest::qWaitFor([&] { return progress->maximum() > 0 && progress->value() > 0; }, 10000));
    click(QStringLiteral("settingsSpeechCancelButton"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !settings_->speechBusy(); }, 10000));
    EXPECT_EQ(
        text(QStringLiteral("settingsSpeechMessage")),
        QStringLiteral("Speech set-up was cancelled. What was downloaded is kept for the next set-up, and "
                       "speech works as it did before."));

    click(QStringLiteral("settingsSpeechSetUpButton"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !settings_->speechBusy(); }, 60000));
    qunsetenv("KESTIL_SPEECH_MODEL_BASE_URL");
    const QString message = text(QStringLiteral("settingsSpeechMessage"));
    EXPECT_EQ(message,
              QStringLiteral("The downloaded speech model “ggml-base.en.bin” did not match its published "
                             "checksum, so it was deleted. Models already installed are unchanged; try "
                             "Set Up On-Device Speech again."));
    EXPECT_FALSE(progress->isVisible());
    EXPECT_TRUE(setUp->isEnabled());
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            return text(QStringLiteral("settingsSpeechDiagnostics"))
                .contains(QStringLiteral("Last set-up failure:\n"));
        },
        5000));
    EXPECT_TRUE(text(QStringLiteral("settingsSpeechDiagnostics")).contains(message));
}

TEST_F(SettingsWindowTest, TheSettingsMenuEntryOpensTheWindow)
{
    auto *action = rig_.window->findChild<QAction *>(QStringLiteral("settingsAction"));
    ASSERT_NE(action, nullptr);
    EXPECT_EQ(action->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Comma));
    EXPECT_EQ(action->text(), QStringLiteral("Settings…"));
    action->trigger();
    SettingsWindow *window = rig_.window->settingsWindow();
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(window->objectName(), QStringLiteral("settingsWindow"));
    // A second call brings the same window forward.
    rig_.window->showSettings();
    EXPECT_EQ(rig_.window->settingsWindow(), window);
}
