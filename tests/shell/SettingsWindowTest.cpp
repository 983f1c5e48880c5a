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
using namespace Qt::StringLiterals;

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
        tiny_ = contentOf(testModel(u"tiny-llama-chat.gguf"_s));
        ASSERT_GT(tiny_.size(), 1000000) << "run scripts/test-models.sh";
        qputenv("KESTIL_DATA_DIR", rig_.data.path().toUtf8());
        qunsetenv("KESTIL_LANGUAGE_MODEL_BASE_URL");
        rig_.launch();
        ASSERT_TRUE(rig_.exposed);
        directory_ = rig_.data.filePath(u"Models/language"_s);
        model_ = std::make_unique<LlamaLanguageModel>(directory_);
        followLanguageModelSwitch(*rig_.preferences, *model_);
        server_.setFile(u"tiny-chat.gguf"_s, tiny_);
        entry_ =
            DownloadableLanguageModel{u"Tiny chat"_s,
                                      u"tiny-chat.gguf"_s,
                                      u"tiny-chat.gguf"_s,
                                      tiny_.size(),
                                      QCryptographicHash::hash(tiny_, QCryptographicHash::Sha256).toHex(),
                                      {u"en"_s},
                                      u"A model with random weights, for tests."_s,
                                      u"MIT"_s};
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

    QStringList installedFiles() const { return QDir(directory_).entryList({u"*.gguf"_s}, QDir::Files); }

    // Picks `path` in the import dialog as soon as it opens.
    void chooseInImportDialog(const QString &path)
    {
        auto *timer = new QTimer(settings_.get());
        timer->setInterval(20);
        QObject::connect(timer, &QTimer::timeout, timer, [timer, path] {
            auto *dialog = qobject_cast<QFileDialog *>(QApplication::activeModalWidget());
            if (!dialog || dialog->objectName() != u"settingsImportDialog"_s)
                return;
            timer->stop();
            // Typed as a user would type it: the dialog resolves the path itself.
            auto *name = dialog->findChild<QLineEdit *>(u"fileNameEdit"_s);
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
    EXPECT_TRUE(
        text(u"settingsLanguageModelStatus"_s).startsWith(u"No on-device language model is installed."_s));
    EXPECT_EQ(text(u"settingsLanguageModelDescription"_s), entry_.description);
    rig_.app->setSummaryStatus(u"before"_s);
    auto *progress = find<QProgressBar>(u"settingsLanguageModelProgress"_s);
    auto *download = find<QPushButton>(u"settingsLanguageModelDownloadButton"_s);
    EXPECT_FALSE(progress->isVisible());

    // The main thread stays free: bytes arrive while the window repaints.
    click(u"settingsLanguageModelDownloadButton"_s);
    EXPECT_TRUE(settings_->languageModelBusy());
    EXPECT_FALSE(download->isEnabled());
    EXPECT_FALSE(find<QPushButton>(u"settingsLanguageModelImportButton"_s)->isEnabled());
    EXPECT_TRUE(find<QPushButton>(u"settingsLanguageModelCancelButton"_s)->isVisible());
    ASSERT_TRUE(QTest::qWaitFor([&] { return progress->isVisible() && progress->value() > 0; }, 10000));
    const QString during = text(u"settingsLanguageModelStatus"_s);
    EXPECT_TRUE(during.startsWith(u"Downloading “Tiny chat”: "_s)) << during.toStdString();
    EXPECT_EQ(rig_.app->summaryStatus(), u"before"_s) << "a download in progress changes no status";
    click(u"settingsLanguageModelCancelButton"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !settings_->languageModelBusy(); }, 10000));
    EXPECT_EQ(text(u"settingsLanguageModelMessage"_s),
              u"The download of “Tiny chat” was cancelled. What arrived is kept for the next "
              "download, and models already installed are unchanged."_s);
    EXPECT_TRUE(installedFiles().isEmpty());
    EXPECT_TRUE(download->isEnabled());

    // The rest at full speed: resuming what was kept is the downloader's own test.
    rig_.preferences->set(QString(settings::keys::kestilLanguageModelBaseAddress),
                          server_.baseAddress(u"good"_s));
    click(u"settingsLanguageModelDownloadButton"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !settings_->languageModelBusy(); }, 60000));
    EXPECT_EQ(text(u"settingsLanguageModelMessage"_s),
              u"“Tiny chat” is installed. Summaries, titles, tags and Ask AI use it from now on."_s);
    EXPECT_EQ(text(u"settingsLanguageModelStatus"_s),
              u"Installed: “Tiny chat” (%1). Summaries, titles, tags and Ask AI use it."_s.arg(
                  fileSizeText(tiny_.size())));
    EXPECT_FALSE(progress->isVisible());
    EXPECT_EQ(installedFiles(), QStringList{u"tiny-chat.gguf"_s});
    EXPECT_EQ(model_->availability(), LanguageModel::Availability::available());
    EXPECT_EQ(rig_.app->summaryStatus(), u"On-device summaries ready."_s);
}

TEST_F(SettingsWindowTest, ImportingAFileInstallsIt)
{
    open("good");
    chooseInImportDialog(testModel(u"tiny-llama-chat.gguf"_s));
    click(u"settingsLanguageModelImportButton"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !settings_->languageModelBusy(); }, 30000));
    EXPECT_EQ(text(u"settingsLanguageModelMessage"_s),
              u"“tiny-llama-chat.gguf” is installed. Summaries, titles, tags and Ask AI use it "
              "from now on."_s);
    EXPECT_EQ(installedFiles(), QStringList{u"tiny-llama-chat.gguf"_s});
}

TEST_F(SettingsWindowTest, TheSwitchesWriteTheirPreferencesAndTheAISwitchTurnsTheModelOff)
{
    QDir().mkpath(directory_);
    ASSERT_TRUE(QFile::copy(testModel(u"tiny-llama-chat.gguf"_s), directory_ + u"/tiny-llama-chat.gguf"_s));
    open("good");
    auto *aiSwitch = find<QCheckBox>(u"settingsOnDeviceAISwitch"_s);
    EXPECT_TRUE(aiSwitch->isChecked());

    click(u"settingsOnDeviceAISwitch"_s);
    EXPECT_FALSE(settings::onDeviceLanguageModelEnabled(*rig_.preferences));
    EXPECT_EQ(model_->availability(), LanguageModel::Availability::unavailable(
                                          LanguageModel::UnavailableReason::languageModelDisabled));
    EXPECT_EQ(rig_.app->summaryStatus(), u"On-device AI is switched off in Settings. Switch it on "
                                         "to write summaries; your notes and transcripts remain "
                                         "available."_s);
    EXPECT_TRUE(text(u"settingsLanguageModelStatus"_s).endsWith(u"On-device AI is switched off."_s));

    click(u"settingsOnDeviceAISwitch"_s);
    EXPECT_TRUE(settings::onDeviceLanguageModelEnabled(*rig_.preferences));
    EXPECT_EQ(model_->availability(), LanguageModel::Availability::available());
    EXPECT_EQ(rig_.app->summaryStatus(), u"On-device summaries ready."_s);

    auto *systemAudio = find<QCheckBox>(u"settingsRecordSystemAudioSwitch"_s);
    auto *widget = find<QCheckBox>(u"settingsShowRecordingWidgetSwitch"_s);
    EXPECT_TRUE(systemAudio->isChecked());
    EXPECT_TRUE(widget->isChecked());
    click(u"settingsRecordSystemAudioSwitch"_s);
    click(u"settingsShowRecordingWidgetSwitch"_s);
    EXPECT_FALSE(settings::recordSystemAudio(*rig_.preferences));
    EXPECT_FALSE(settings::showRecordingWidget(*rig_.preferences));
    // A change made elsewhere shows here too.
    settings::setRecordSystemAudio(*rig_.preferences, true);
    EXPECT_TRUE(systemAudio->isChecked());
}

TEST_F(SettingsWindowTest, SpeechSetUpShowsProgressCancelsAndSaysWhyItFailed)
{
    // Bytes that are not the published model, served slowly: set-up shows
    // its progress; served at once, the catalogue's checksum refuses them.
    // What set-up keeps or records is tests/speech's SpeechSetUpTest.
    server_.setFile(u"ggml-base.en.bin"_s, QByteArray(4 * 1024 * 1024, 'k'));
    qputenv("KESTIL_SPEECH_MODEL_BASE_URL", server_.baseAddress(u"slow"_s).toUtf8());
    rig_.preferences->set(QString(settings::keys::kestilSpeechModelSize), u"base"_s);
    open("good");
    auto *setUp = find<QPushButton>(u"settingsSpeechSetUpButton"_s);
    auto *progress = find<QProgressBar>(u"settingsSpeechProgress"_s);
    const LocalSpeech::Readiness readiness = LocalSpeech::readiness(rig_.app->language(), *rig_.preferences);
    EXPECT_TRUE(text(u"settingsSpeechStatus"_s).startsWith(LocalSpeech::message(readiness)));
    ASSERT_TRUE(readiness.configuration.has_value()) << readiness.details.toStdString();
    ASSERT_TRUE(setUp->isEnabled());

    click(u"settingsSpeechSetUpButton"_s);
    EXPECT_TRUE(settings_->speechBusy());
    EXPECT_FALSE(setUp->isEnabled());
    ASSERT_TRUE(QTest::qWaitFor([&] { return progress->maximum() > 0 && progress->value() > 0; }, 10000));
    click(u"settingsSpeechCancelButton"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !settings_->speechBusy(); }, 10000));
    EXPECT_EQ(text(u"settingsSpeechMessage"_s),
              u"Speech set-up was cancelled. What was downloaded is kept for the next set-up, and "
              "speech works as it did before."_s);

    qputenv("KESTIL_SPEECH_MODEL_BASE_URL", server_.baseAddress(u"good"_s).toUtf8());
    click(u"settingsSpeechSetUpButton"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !settings_->speechBusy(); }, 60000));
    qunsetenv("KESTIL_SPEECH_MODEL_BASE_URL");
    const QString message = text(u"settingsSpeechMessage"_s);
    EXPECT_EQ(message, u"The downloaded speech model “ggml-base.en.bin” did not match its published "
                       "checksum, so it was deleted. Models already installed are unchanged; try "
                       "Set Up On-Device Speech again."_s);
    EXPECT_FALSE(progress->isVisible());
    EXPECT_TRUE(setUp->isEnabled());
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return text(u"settingsSpeechDiagnostics"_s).contains(u"Last set-up failure:\n"_s); }, 5000));
    EXPECT_TRUE(text(u"settingsSpeechDiagnostics"_s).contains(message));
}

TEST_F(SettingsWindowTest, TheSettingsMenuEntryOpensTheWindow)
{
    auto *action = rig_.window->findChild<QAction *>(u"settingsAction"_s);
    ASSERT_NE(action, nullptr);
    EXPECT_EQ(action->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Comma));
    EXPECT_EQ(action->text(), u"Settings…"_s);
    action->trigger();
    SettingsWindow *window = rig_.window->settingsWindow();
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(window->objectName(), u"settingsWindow"_s);
    // A second call brings the same window forward.
    rig_.window->showSettings();
    EXPECT_EQ(rig_.window->settingsWindow(), window);
}
