// The Settings window and the welcome flow; downloads come from a loopback
// server (what a download keeps or refuses is the downloaders' tests).
#include "ShellTestSupport.h"
#include "generation/LanguageModelInstall.h"
#include "generation/LanguageModelPreference.h"
#include "generation/LlamaLanguageModel.h"
#include "prefs/SettingsKeys.h"
#include "shell/MicrophoneLevelMonitor.h"
#include "shell/SettingsWindow.h"
#include "shell/WelcomeWindow.h"
#include "support/LoopbackModelServer.h"
#include "support/PulseAudioServer.h"

#include <QCheckBox>
#include <QCryptographicHash>
#include <QFile>
#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;
using Step = WelcomeWindow::Step;

namespace {

QString testModel(const QString &name)
{
    return qEnvironmentVariable("KESTIL_TEST_MODELS_DIR") + QLatin1Char('/') + name;
}

class WindowsOfTheirOwn : public ::testing::Test {
protected:
    void SetUp() override
    {
        // Languages are named in the user's own language.
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        qputenv("KESTIL_DATA_DIR", rig.data.path().toUtf8());
        rig.launch();
        ASSERT_TRUE(rig.exposed);
    }
    void TearDown() override
    {
        settings.reset();
        qunsetenv("KESTIL_DATA_DIR");
    }

    // A catalogue of one entry: the tiny chat model with its real checksum.
    void openSettings()
    {
        QFile file(testModel(u"tiny-llama-chat.gguf"_s));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << "run scripts/test-models.sh";
        tiny = file.readAll();
        server.setFile(u"tiny-chat.gguf"_s, tiny);
        rig.preferences->set(QString(settings::keys::kestilLanguageModelBaseAddress),
                             server.baseAddress(u"good"_s));
        model = std::make_unique<LlamaLanguageModel>(directory);
        followLanguageModelSwitch(*rig.preferences, *model);
        const DownloadableLanguageModel entry{
            u"Tiny chat"_s,
            u"tiny-chat.gguf"_s,
            u"tiny-chat.gguf"_s,
            tiny.size(),
            QCryptographicHash::hash(tiny, QCryptographicHash::Sha256).toHex(),
            {u"en"_s},
            u"A model with random weights, for tests."_s,
            u"MIT"_s};
        settings = std::make_unique<SettingsWindow>(
            *rig.app, *rig.preferences, SettingsWindow::Environment{model.get(), directory, {entry}});
        settings->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(settings.get()));
    }
    WelcomeWindow &openWelcome()
    {
        rig.window->showWelcome();
        WelcomeWindow *welcome = rig.window->welcomeWindow();
        EXPECT_TRUE(welcome && QTest::qWaitForWindowExposed(welcome));
        return *welcome;
    }
    template <typename T = QWidget> T *find(const QString &name) const
    {
        return childOf<T>(settings ? static_cast<QWidget *>(settings.get()) : rig.window->welcomeWindow(),
                          name);
    }
    QString text(const QString &label) const { return find<QLabel>(label)->text(); }
    void click(const QString &name) const { clickButton(find<QAbstractButton>(name)); }
    void shoot(const QString &name) const { screenshot(rig.window->welcomeWindow(), name); }
    QStringList installedFiles() const { return QDir(directory).entryList({u"*.gguf"_s}, QDir::Files); }

    ShellRig rig;
    LoopbackModelServer server;
    QByteArray tiny;
    QString directory = rig.data.filePath(u"Models/language"_s);
    std::unique_ptr<LlamaLanguageModel> model;
    std::unique_ptr<SettingsWindow> settings;
};

using SettingsWindowTest = WindowsOfTheirOwn;
using WelcomeWindowTest = WindowsOfTheirOwn;

} // namespace

TEST_F(SettingsWindowTest, DownloadShowsProgressInstallsTheModelAndRefreshesTheSummaryLine)
{
    openSettings();
    rig.preferences->set(QString(settings::keys::kestilLanguageModelBaseAddress),
                         server.baseAddress(u"slow"_s));
    EXPECT_TRUE(
        text(u"settingsLanguageModelStatus"_s).startsWith(u"No on-device language model is installed."_s));
    rig.app->setSummaryStatus(u"before"_s);
    auto *progress = find<QProgressBar>(u"settingsLanguageModelProgress"_s);
    // The main thread stays free: bytes arrive while the window repaints.
    click(u"settingsLanguageModelDownloadButton"_s);
    EXPECT_FALSE(find(u"settingsLanguageModelDownloadButton"_s)->isEnabled());
    ASSERT_TRUE(QTest::qWaitFor([&] { return progress->isVisible() && progress->value() > 0; }, 10000));
    EXPECT_TRUE(text(u"settingsLanguageModelStatus"_s).startsWith(u"Downloading “Tiny chat”: "_s));
    EXPECT_EQ(rig.app->summaryStatus(), u"before"_s) << "a download in progress changes no status";
    click(u"settingsLanguageModelCancelButton"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !settings->languageModelBusy(); }, 10000));
    EXPECT_TRUE(installedFiles().isEmpty());

    rig.preferences->set(QString(settings::keys::kestilLanguageModelBaseAddress),
                         server.baseAddress(u"good"_s));
    click(u"settingsLanguageModelDownloadButton"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !settings->languageModelBusy(); }, 60000));
    EXPECT_EQ(text(u"settingsLanguageModelMessage"_s),
              u"“Tiny chat” is installed. Summaries, titles, tags and Ask AI use it from now on."_s);
    EXPECT_EQ(text(u"settingsLanguageModelStatus"_s),
              u"Installed: “Tiny chat” (%1). Summaries, titles, tags and Ask AI use it."_s.arg(
                  fileSizeText(tiny.size())));
    EXPECT_EQ(installedFiles(), QStringList{u"tiny-chat.gguf"_s});
    EXPECT_EQ(model->availability(), LanguageModel::Availability::available());
    EXPECT_EQ(rig.app->summaryStatus(), u"On-device summaries ready."_s);
}

TEST_F(SettingsWindowTest, TheSwitchesWriteTheirPreferencesAndTheAISwitchTurnsTheModelOff)
{
    QDir().mkpath(directory);
    ASSERT_TRUE(QFile::copy(testModel(u"tiny-llama-chat.gguf"_s), directory + u"/tiny-llama-chat.gguf"_s));
    openSettings();
    EXPECT_TRUE(find<QCheckBox>(u"settingsOnDeviceAISwitch"_s)->isChecked());
    click(u"settingsOnDeviceAISwitch"_s);
    EXPECT_FALSE(settings::onDeviceLanguageModelEnabled(*rig.preferences));
    EXPECT_EQ(model->availability(), LanguageModel::Availability::unavailable(
                                         LanguageModel::UnavailableReason::languageModelDisabled));
    EXPECT_EQ(rig.app->summaryStatus(), u"On-device AI is switched off in Settings. Switch it on "
                                        "to write summaries; your notes and transcripts remain "
                                        "available."_s);
    EXPECT_TRUE(text(u"settingsLanguageModelStatus"_s).endsWith(u"On-device AI is switched off."_s));
    click(u"settingsOnDeviceAISwitch"_s);
    EXPECT_EQ(model->availability(), LanguageModel::Availability::available());
    EXPECT_EQ(rig.app->summaryStatus(), u"On-device summaries ready."_s);

    auto *systemAudio = find<QCheckBox>(u"settingsRecordSystemAudioSwitch"_s);
    EXPECT_TRUE(systemAudio->isChecked());
    click(u"settingsRecordSystemAudioSwitch"_s);
    click(u"settingsShowRecordingWidgetSwitch"_s);
    EXPECT_FALSE(settings::recordSystemAudio(*rig.preferences));
    EXPECT_FALSE(settings::showRecordingWidget(*rig.preferences));
    // A change made elsewhere shows here too.
    settings::setRecordSystemAudio(*rig.preferences, true);
    EXPECT_TRUE(systemAudio->isChecked());
}

// A private PulseAudio server is the microphone.
TEST_F(WelcomeWindowTest, ANewUserIsGuidedToAFirstRecordingInTheLanguageTheyChose)
{
    ASSERT_TRUE(PulseAudioServer::available());
    PulseAudioServer pulse;
    ASSERT_EQ(pulse.start(), QString());
    const QString tone = writeTone(rig.config.filePath(u"voice.wav"_s), 10.0, 48000);
    WelcomeWindow &welcome = openWelcome();
    EXPECT_EQ(text(u"welcomeStepIndicator"_s), u"Step 1 of 6"_s);
    shoot(u"welcome-1-welcome"_s);
    click(u"welcomeContinueButton"_s);

    ASSERT_EQ(welcome.step(), Step::intelligence);
    EXPECT_TRUE(text(u"welcomeModelStatus"_s).startsWith(u"No language model"_s));
    EXPECT_EQ(find<QPushButton>(u"welcomeContinueButton"_s)->text(), u"Skip for Now"_s);
    shoot(u"welcome-2-intelligence"_s);
    click(u"welcomeContinueButton"_s);

    ASSERT_EQ(welcome.step(), Step::language);
    auto *picker = find<QListWidget>(u"welcomeLanguagePicker"_s);
    for (int row = 0; row < picker->count(); ++row) {
        if (picker->item(row)->data(Qt::UserRole).toString() == u"de-DE"_s)
            picker->setCurrentRow(row);
    }
    EXPECT_EQ(settings::transcriptionLanguage(*rig.preferences), u"de-DE"_s);
    EXPECT_EQ(find<QPushButton>(u"welcomeSpeechSetUpButton"_s)->text(), u"Set Up Speech for German"_s);
    shoot(u"welcome-3-language"_s);
    click(u"welcomeContinueButton"_s);

    // The real default source, heard while something plays into it.
    ASSERT_EQ(welcome.step(), Step::microphone);
    auto player = pulse.startPlaying(tone, QLatin1String(PulseAudioServer::micFeed));
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
