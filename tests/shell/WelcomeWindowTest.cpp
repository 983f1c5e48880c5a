// The welcome flow over the program's own window, walked by object names as
// a user would: a private PulseAudio server is the microphone, the speech
// and language models are those of a fresh data folder.
#include "ShellTestSupport.h"

#include "prefs/SettingsKeys.h"
#include "shell/MicrophoneLevelMonitor.h"
#include "shell/SettingsWindow.h"
#include "shell/WelcomeWindow.h"
#include "speech/LocalSpeech.h"
#include "support/PulseAudioServer.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;
using Step = WelcomeWindow::Step;

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
