// The Settings window and the welcome flow, walked by object names over the
// program's own window.
#include "ShellTestSupport.h"
#include "generation/LanguageModelInstall.h"
#include "generation/LanguageModelPreference.h"
#include "generation/LlamaLanguageModel.h"
#include "prefs/SettingsKeys.h"
#include "shell/MicrophoneLevelMonitor.h"
#include "shell/SettingsWindow.h"
#include "shell/WelcomeWindow.h"
#include "speech/LocalSpeech.h"
#include "support/LoopbackModelServer.h"
#include "support/PulseAudioServer.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QTimer>

#include <gtest/gtest.h>

using namespace kestil;
using namespace std::chrono_literals;
using namespace Qt::StringLiterals;
using namespace kestil::test;
using Step = WelcomeWindow::Step;

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
    rig_.app->setSummaryStatus(u"before"_s);
    auto *progress = find<QProgressBar>(u"settingsLanguageModelProgress"_s);
    auto *download = find<QPushButton>(u"settingsLanguageModelDownloadButton"_s);

    // The main thread stays free: bytes arrive while the window repaints.
    click(u"settingsLanguageModelDownloadButton"_s);
    EXPECT_TRUE(settings_->languageModelBusy());
    EXPECT_FALSE(download->isEnabled());
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
    EXPECT_TRUE(find<QCheckBox>(u"settingsOnDeviceAISwitch"_s)->isChecked());
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
    EXPECT_TRUE(systemAudio->isChecked());
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
    ASSERT_TRUE(window && window->isVisible());
    // A second call brings the same window forward.
    rig_.window->showSettings();
    EXPECT_EQ(rig_.window->settingsWindow(), window);
}

// The welcome flow over the program's own window, walked by object names as
// a user would: a private PulseAudio server is the microphone, the speech
// and language models are those of a fresh data folder.
namespace {

class WelcomeWindowTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        // Languages are named in the user's own language.
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        qputenv("KESTIL_DATA_DIR", rig.data.path().toUtf8());
        rig.launch();
        ASSERT_TRUE(rig.exposed);
    }
    void TearDown() override { qunsetenv("KESTIL_DATA_DIR"); }

    WelcomeWindow &open()
    {
        rig.window->showWelcome();
        WelcomeWindow *welcome = rig.window->welcomeWindow();
        EXPECT_TRUE(welcome && QTest::qWaitForWindowExposed(welcome));
        return *welcome;
    }

    template <typename T = QWidget> T *find(const QString &name) const
    {
        return childOf<T>(rig.window->welcomeWindow(), name);
    }
    QString text(const QString &label) const { return find<QLabel>(label)->text(); }
    void click(const QString &name) const { clickButton(find<QAbstractButton>(name)); }
    void shoot(const QString &name) const { screenshot(rig.window->welcomeWindow(), name); }
    void choose(const QString &languageId) const
    {
        auto *picker = find<QListWidget>(u"welcomeLanguagePicker"_s);
        for (int row = 0; row < picker->count(); ++row) {
            if (picker->item(row)->data(Qt::UserRole).toString() == languageId)
                picker->setCurrentRow(row);
        }
    }

    test::ShellRig rig;
};

TEST_F(WelcomeWindowTest, ANewUserIsGuidedToAFirstRecordingInTheLanguageTheyChose)
{
    ASSERT_TRUE(test::PulseAudioServer::available());
    test::PulseAudioServer pulse;
    ASSERT_EQ(pulse.start(), QString());
    const QString tone = writeTone(rig.config.filePath(u"voice.wav"_s), 10.0, 48000);
    WelcomeWindow &welcome = open();
    EXPECT_FALSE(settings::welcomeCompleted(*rig.preferences));

    EXPECT_EQ(text(u"welcomeStepIndicator"_s), u"Step 1 of 6"_s);
    shoot(u"welcome-1-welcome"_s);
    click(u"welcomeContinueButton"_s);

    ASSERT_EQ(welcome.step(), Step::intelligence);
    EXPECT_TRUE(text(u"welcomeModelStatus"_s).startsWith(u"No language model"_s));
    EXPECT_EQ(find<QPushButton>(u"welcomeContinueButton"_s)->text(), u"Skip for Now"_s);
    shoot(u"welcome-2-intelligence"_s);
    click(u"welcomeContinueButton"_s);

    ASSERT_EQ(welcome.step(), Step::language);
    choose(u"de-DE"_s);
    EXPECT_EQ(settings::transcriptionLanguage(*rig.preferences), u"de-DE"_s);
    auto *setUp = find<QPushButton>(u"welcomeSpeechSetUpButton"_s);
    EXPECT_TRUE(setUp->isVisible());
    EXPECT_EQ(setUp->text(), u"Set Up Speech for German"_s);
    shoot(u"welcome-3-language"_s);
    click(u"welcomeContinueButton"_s);

    // The real default source, heard while something plays into it.
    ASSERT_EQ(welcome.step(), Step::microphone);
    auto player = pulse.startPlaying(tone, QLatin1String(test::PulseAudioServer::micFeed));
    auto *level = find<QProgressBar>(u"welcomeMicrophoneLevel"_s);
    ASSERT_TRUE(waitUntil([&] { return level->value() > 40; }, std::chrono::seconds(10)))
        << text(u"welcomeMicrophoneProblem"_s).toStdString();
    EXPECT_TRUE(text(u"welcomeMicrophoneName"_s).startsWith(u"Listening to “"_s));
    shoot(u"welcome-4-microphone"_s);
    click(u"welcomeContinueButton"_s);
    auto &step = static_cast<WelcomeMicrophoneStep &>(*welcome.page(Step::microphone));
    EXPECT_FALSE(step.monitor().running()) << "the microphone is let go when the step is left";
    player->kill();
    player->waitForFinished();

    ASSERT_EQ(welcome.step(), Step::systemAudio);
    auto *systemAudio = find<QCheckBox>(u"welcomeSystemAudioSwitch"_s);
    EXPECT_TRUE(systemAudio->isChecked());
    click(u"welcomeSystemAudioSwitch"_s);
    EXPECT_FALSE(settings::recordSystemAudio(*rig.preferences));
    shoot(u"welcome-5-system-audio"_s);
    click(u"welcomeContinueButton"_s);

    ASSERT_EQ(welcome.step(), Step::ready);
    const QList<WelcomeReadinessItem> items =
        static_cast<WelcomeReadinessStep *>(welcome.page(Step::ready))->items();
    ASSERT_EQ(items.size(), 4);
    EXPECT_FALSE(items[0].ready) << "German speech is not set up yet";
    EXPECT_TRUE(text(u"welcomeReadiness-speech"_s).contains(u"German"_s));
    EXPECT_FALSE(items[1].ready) << "no language model was installed";
    EXPECT_TRUE(items[2].ready);
    EXPECT_EQ(text(u"welcomeReadiness-systemAudio"_s),
              u"Only your microphone is recorded; other applications' sound is left out."_s);
    shoot(u"welcome-6-ready"_s);

    click(u"welcomeStartRecordingButton"_s);
    EXPECT_TRUE(settings::welcomeCompleted(*rig.preferences));
    ASSERT_TRUE(waitUntil([&] { return rig.recorder->recording(); }));
    EXPECT_EQ(rig.recorder->speechLocale(), u"de-DE"_s);
    EXPECT_FALSE(rig.window->welcomeWindow() && rig.window->welcomeWindow()->isVisible());
    ASSERT_TRUE(waitFor(rig.list().stopTranscription()));
}

TEST_F(WelcomeWindowTest, LeftHalfWayTheFlowIsNotFinishedAndStartsAgain)
{
    WelcomeWindow &welcome = open();
    click(u"welcomeContinueButton"_s);
    click(u"welcomeContinueButton"_s);
    ASSERT_EQ(welcome.step(), Step::language);
    welcome.close();
    EXPECT_FALSE(settings::welcomeCompleted(*rig.preferences));
    ASSERT_TRUE(waitUntil([&] { return !rig.window->welcomeWindow(); }));
    EXPECT_EQ(open().step(), Step::welcome);
}

TEST_F(WelcomeWindowTest, AnUnknownLanguageInThePreferencesIsShownAsNoChoiceUntilOneIsPicked)
{
    settings::setTranscriptionLanguage(*rig.preferences, u"xx-YY"_s);
    WelcomeWindow &welcome = open();
    welcome.goTo(Step::language);
    EXPECT_EQ(find<QListWidget>(u"welcomeLanguagePicker"_s)->currentRow(), -1);
    EXPECT_TRUE(text(u"welcomeSpeechStatus"_s).contains(u"“xx-YY”"_s));
    EXPECT_FALSE(find<QPushButton>(u"welcomeSpeechSetUpButton"_s)->isVisible());
    EXPECT_EQ(settings::transcriptionLanguage(*rig.preferences), u"xx-YY"_s);
    choose(u"fr-FR"_s);
    EXPECT_EQ(settings::transcriptionLanguage(*rig.preferences), u"fr-FR"_s);
    EXPECT_FALSE(text(u"welcomeSpeechStatus"_s).contains(u"xx-YY"_s));
}

TEST_F(WelcomeWindowTest, AMicrophoneThatGoesAwayIsToldAndTheNextOneIsHeard)
{
    ASSERT_TRUE(test::PulseAudioServer::available());
    test::PulseAudioServer pulse;
    ASSERT_EQ(pulse.start(), QString());
    WelcomeWindow &welcome = open();
    welcome.goTo(Step::microphone);
    auto &step = static_cast<WelcomeMicrophoneStep &>(*welcome.page(Step::microphone));
    ASSERT_TRUE(waitUntil([&] { return !step.monitor().sourceName().isEmpty(); }, std::chrono::seconds(10)));
    const QString first = step.monitor().sourceName();

    // The microphone's device goes, as an unplugged one does.
    QString modules;
    pulse.pactl({u"list"_s, u"short"_s, u"modules"_s}, &modules);
    const QRegularExpression feed(u"^(\\d+)\\s+module-null-sink\\s+.*sink_name=kestil_mic_feed"_s,
                                  QRegularExpression::MultilineOption);
    const QString module = feed.match(modules).captured(1);
    ASSERT_FALSE(module.isEmpty()) << modules.toStdString();
    ASSERT_EQ(pulse.pactl({u"unload-module"_s, module}), 0);

    ASSERT_TRUE(waitUntil([&] { return !step.monitor().problem().isEmpty(); }, std::chrono::seconds(10)));
    EXPECT_TRUE(text(u"welcomeMicrophoneProblem"_s).contains(first));
    EXPECT_EQ(find<QProgressBar>(u"welcomeMicrophoneLevel"_s)->value(), 0);
    shoot(u"welcome-4b-microphone-gone"_s);
    // The server's next default source is found without the user doing anything.
    ASSERT_TRUE(waitUntil([&] { return !step.monitor().sourceName().isEmpty(); }, std::chrono::seconds(15)));
    EXPECT_NE(step.monitor().sourceName(), first);
    EXPECT_TRUE(step.monitor().problem().isEmpty());
}

TEST_F(WelcomeWindowTest, SettingsReplaysTheWelcomeAndComesBackAfterIt)
{
    settings::setWelcomeCompleted(*rig.preferences, true);
    rig.window->showSettings();
    SettingsWindow *settingsWindow = rig.window->settingsWindow();
    ASSERT_TRUE(settingsWindow);
    clickButton(settingsWindow->findChild<QPushButton *>(u"settingsShowWelcomeButton"_s));
    ASSERT_TRUE(rig.window->welcomeWindow());
    EXPECT_TRUE(rig.window->welcomeWindow()->isVisible());
    EXPECT_FALSE(settingsWindow->isVisible());
    rig.window->welcomeWindow()->goTo(Step::ready);
    click(u"welcomeDoneButton"_s);
    ASSERT_TRUE(
        waitUntil([&] { return rig.window->settingsWindow() && rig.window->settingsWindow()->isVisible(); }));
    EXPECT_TRUE(settings::welcomeCompleted(*rig.preferences));
}

} // namespace
