// Kestil among the desktop's services, over D-Bus: a private bus of the
// test's own where a recording notification service and a stand-in for
// logind answer (tests/support/FakeDesktopServices.cpp), the program's own
// window on a real store, and a scripted language model for summaries.
#include "ShellTestSupport.h"
#include "generation/ScriptedLanguageModel.h"

#include "prefs/KestilEngagement.h"
#include "prefs/SettingsKeys.h"
#include "shell/DesktopIntegration.h"
#include "shell/DesktopNotifications.h"
#include "shell/EngagementPrompts.h"
#include "shell/SettingsWindow.h"
#include "shell/SleepInhibitor.h"
#include "shell/SupportActionsView.h"
#include "shell/SupportPage.h"
#include "shell/ThemeManager.h"
#include "shell/WorkActivity.h"
#include "support/PrivateBus.h"

#include <QApplication>
#include <QComboBox>
#include <QDBusConnection>
#include <QJsonArray>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>

#include <gtest/gtest.h>

using namespace kestil;
using namespace std::chrono_literals;

namespace {

const QString transcript =
    QStringLiteral("Maria opened the weekly sync by reviewing the budget for the spring "
                   "campaign, and the team agreed to move the launch to April.");
const QString summary = QStringLiteral("## Decisions\n- Launch moves to **April**.");

class DesktopBusTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(test::PrivateBus::available()) << "dbus-daemon (package dbus) is needed";
        ASSERT_EQ(bus.start(), QString());
        connection = std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(
            bus.address(), QStringLiteral("kestil-test-%1").arg(++connections)));
        ASSERT_TRUE(connection->isConnected());
    }
    void TearDown() override
    {
        services.stop();
        QDBusConnection::disconnectFromBus(connection->name());
    }

    void startServices(test::FakeDesktopServices::Options options)
    {
        ASSERT_EQ(services.start(bus.address(), options), QString());
    }
    SleepInhibitor::Buses buses() const { return SleepInhibitor::Buses{*connection, *connection}; }

    static inline int connections = 0;
    test::PrivateBus bus;
    std::unique_ptr<QDBusConnection> connection;
    test::FakeDesktopServices services;
};

TEST_F(DesktopBusTest, LogindHoldsOffSleepUntilTheWorkEndsOrKestilGoes)
{
    startServices({false, true, false});
    auto inhibitor =
        std::make_unique<SleepInhibitor>(buses(), QStringLiteral("Finish on-device note summary"));
    inhibitor->setWanted(true);
    const QJsonObject taken = services.waitFor(QStringLiteral("Inhibit"));
    EXPECT_EQ(taken.value(QStringLiteral("what")).toString(), QStringLiteral("sleep:idle"));
    EXPECT_EQ(taken.value(QStringLiteral("mode")).toString(), QStringLiteral("block"));
    EXPECT_EQ(taken.value(QStringLiteral("who")).toString(), QStringLiteral("Kestil"));
    EXPECT_EQ(taken.value(QStringLiteral("why")).toString(), QStringLiteral("Finish on-device note summary"));
    ASSERT_TRUE(test::waitUntil([&] { return inhibitor->held(); }));
    EXPECT_EQ(inhibitor->holder(), SleepInhibitor::Holder::login1);
    EXPECT_EQ(services.count(QStringLiteral("Released")), 0);
    inhibitor->setWanted(false);
    EXPECT_FALSE(services.waitFor(QStringLiteral("Released")).isEmpty());

    inhibitor->setWanted(true);
    ASSERT_FALSE(services.waitFor(QStringLiteral("Inhibit"), 2).isEmpty());
    ASSERT_TRUE(test::waitUntil([&] { return inhibitor->held(); }));
    inhibitor.reset();
    EXPECT_FALSE(services.waitFor(QStringLiteral("Released"), 2).isEmpty()) << "a lock dies with its holder";
}

TEST_F(DesktopBusTest, WithoutLogindOrAPortalNothingIsHeldAndNothingFails)
{
    startServices({true, false, false});
    SleepInhibitor inhibitor(buses(), QStringLiteral("Record and transcribe a note"));
    inhibitor.setWanted(true);
    test::settle(500ms);
    EXPECT_FALSE(inhibitor.held());
    inhibitor.setWanted(false);
    EXPECT_EQ(services.count(QStringLiteral("Inhibit")), 0);
}

TEST_F(DesktopBusTest, RecordingAndModelWorkEachHoldTheirOwnLock)
{
    startServices({false, true, false});
    test::ShellRig rig;
    rig.launch();
    KestilEngagement engagement;
    WorkActivity activity(*rig.recorder, engagement, buses());

    ASSERT_TRUE(test::waitFor(rig.list().startNewTranscription()));
    const QJsonObject recording = services.waitFor(QStringLiteral("Inhibit"));
    EXPECT_EQ(recording.value(QStringLiteral("why")).toString(), WorkActivity::recordingReason());
    engagement.beginProcessing();
    const QJsonObject summarizing = services.waitFor(QStringLiteral("Inhibit"), 2);
    EXPECT_EQ(summarizing.value(QStringLiteral("why")).toString(), WorkActivity::summaryReason());

    ASSERT_TRUE(test::waitFor(rig.list().stopTranscription()));
    const QJsonObject first = services.waitFor(QStringLiteral("Released"));
    EXPECT_EQ(first.value(QStringLiteral("lock")), recording.value(QStringLiteral("lock")));
    EXPECT_TRUE(activity.modelWork().held());
    engagement.endProcessing();
    EXPECT_FALSE(services.waitFor(QStringLiteral("Released"), 2).isEmpty());
}

// The whole of it on the program's window: summaries notify, a click opens
// the note, the support card waits for a free moment.
class DesktopIntegrationTest : public DesktopBusTest {
protected:
    void launch(test::FakeDesktopServices::Options options)
    {
        startServices(options);
        rig.launch();
        ASSERT_TRUE(rig.exposed);
        rig.list().setLanguageModel(&model);
        DesktopIntegration::Environment environment{buses(), *connection, SupportTargets{},
                                                    [this] { return inFront; }};
        desktop = std::make_unique<DesktopIntegration>(*rig.delegate, *rig.window, environment);
        rig.delegate->setDesktopIntegration(desktop.get());
    }
    void TearDown() override
    {
        // The look belongs to the whole application: the next test starts
        // with the desktop's own.
        if (desktop)
            desktop->themes().setAppearanceMode(AppearanceMode::system);
        if (rig.delegate)
            rig.delegate->setDesktopIntegration(nullptr);
        desktop.reset();
        DesktopBusTest::TearDown();
    }

    NotePtr note(const QString &title) { return rig.addNote(title, transcript); }
    // A titled note needs no title: the model writes the summary, then tags.
    void summarize(const NotePtr &target)
    {
        model.replies = {summary,
                         QJsonObject{{QStringLiteral("tags"), QJsonArray{QStringLiteral("Budget")}}}};
        ASSERT_TRUE(test::waitFor(rig.list().generateSummary(target, QStringLiteral("Auto"))));
        ASSERT_EQ(target->summary(), summary);
    }

    SettingsWindow &settingsWindow()
    {
        rig.window->showSettings();
        SettingsWindow *window = rig.window->settingsWindow();
        EXPECT_TRUE(window && QTest::qWaitForWindowExposed(window));
        return *window;
    }
    template <typename T = QWidget> T *inSettings(const QString &name)
    {
        return test::childOf<T>(rig.window->settingsWindow(), name);
    }

    ScriptedLanguageModel model;
    test::ShellRig rig;
    std::unique_ptr<DesktopIntegration> desktop;
    bool inFront = false;
};

TEST_F(DesktopIntegrationTest, AFinishedSummaryNotifiesOnceAndItsClickOpensTheNoteIfItIsStillThere)
{
    launch({true, true, false});
    const NotePtr budget = note(QStringLiteral("Budget review"));
    const NotePtr other = note(QStringLiteral("Standup"));
    summarize(budget);
    const QJsonObject posted = services.waitFor(QStringLiteral("Notify"));
    ASSERT_FALSE(posted.isEmpty());
    EXPECT_EQ(posted.value(QStringLiteral("summary")).toString(), QStringLiteral("Summary ready"));
    EXPECT_EQ(posted.value(QStringLiteral("body")).toString(),
              QStringLiteral("Your summary is saved. Open Kestil to read it."));
    EXPECT_EQ(posted.value(QStringLiteral("app")).toString(), QStringLiteral("Kestil"));
    EXPECT_TRUE(posted.value(QStringLiteral("actions")).toArray().contains(QStringLiteral("default")));
    EXPECT_EQ(
        posted.value(QStringLiteral("hints")).toObject().value(QStringLiteral("desktop-entry")).toString(),
        QStringLiteral("app.kestil.Kestil"));

    rig.list().selectNote(other, false);
    rig.list().setSelectedDetailTab(NotesListViewModel::transcriptTab);
    services.invoke(uint(posted.value(QStringLiteral("id")).toInt()), QStringLiteral("default"));
    ASSERT_TRUE(
        test::waitUntil([&] { return rig.list().selectedNoteIDs() == QList{budget->objectId()}; }, 5s));
    EXPECT_EQ(rig.list().selectedDetailTab(), NotesListViewModel::summaryTab);
    EXPECT_FALSE(desktop->notifications().noteToOpen().has_value());
    EXPECT_EQ(services.count(QStringLiteral("Notify")), 1);

    // A click for a note deleted since opens nothing.
    summarize(other);
    const QJsonObject second = services.waitFor(QStringLiteral("Notify"), 2);
    ASSERT_TRUE(test::waitFor(rig.list().deleteNote(other)));
    services.invoke(uint(second.value(QStringLiteral("id")).toInt()), QStringLiteral("default"));
    test::settle(500ms);
    EXPECT_EQ(rig.list().selectedNoteIDs(), QList{budget->objectId()});
    EXPECT_FALSE(desktop->notifications().noteToOpen().has_value());

    // In front, the summary appears before the user's eyes: no notification.
    inFront = true;
    summarize(note(QStringLiteral("Retro")));
    test::settle(300ms);
    EXPECT_EQ(services.count(QStringLiteral("Notify")), 2);
}

struct MissingServiceCase {
    const char *name;
    test::FakeDesktopServices::Options services;
    std::optional<QString> deliveryError;
};

void PrintTo(const MissingServiceCase &c, std::ostream *out)
{
    *out << c.name;
}

class NotificationFaults : public DesktopIntegrationTest,
                           public ::testing::WithParamInterface<MissingServiceCase> {};

TEST_P(NotificationFaults, ASummaryIsSavedWhateverTheNotificationServiceDoes)
{
    launch(GetParam().services);
    const NotePtr budget = note(QStringLiteral("Budget review"));
    summarize(budget);
    test::settle(500ms);
    EXPECT_EQ(services.count(QStringLiteral("Notify")), 0);
    ASSERT_TRUE(test::waitUntil(
        [&] { return desktop->notifications().deliveryError() == GetParam().deliveryError; }, 5s));
    EXPECT_FALSE(rig.window->alert()) << "the summary itself succeeded";
}

INSTANTIATE_TEST_SUITE_P(
    Desktop, NotificationFaults,
    ::testing::Values(MissingServiceCase{"noService", {false, true, false}, std::nullopt},
                      MissingServiceCase{
                          "serviceRefuses",
                          {true, true, true},
                          QStringLiteral("The summary was saved, but its notification could not "
                                         "be shown.")}),
    [](const auto &param) { return std::string(param.param.name); });

TEST_F(DesktopIntegrationTest, TheSupportCardComesAtTheFifthSummaryOnlyWhenNothingIsBusy)
{
    launch({true, true, false});
    settings::setWelcomeCompleted(*rig.preferences, true);
    settings::setCompletedLocalSummaries(*rig.preferences, 4);
    desktop->engagement().attach(*rig.preferences);
    desktop->prompts().setDelays(200ms, 200ms);
    inFront = true;
    rig.window->activateWindow();
    ASSERT_TRUE(test::waitUntil([&] { return QApplication::activeWindow() == rig.window.get(); }, 5s));

    summarize(note(QStringLiteral("Budget review")));
    EXPECT_EQ(desktop->engagement().completedActions(), 5);
    ASSERT_TRUE(test::waitUntil([&] { return desktop->supportCard() != nullptr; }, 5s));
    SupportPage *card = desktop->supportCard();
    EXPECT_EQ(card->objectName(), QStringLiteral("kestilStyledSupportPrompt"));
    EXPECT_TRUE(card->isAutomatic());

    // A recording makes Kestil busy: the card goes, and does not return for
    // this count.
    ASSERT_TRUE(test::waitFor(rig.list().startNewTranscription()));
    ASSERT_TRUE(test::waitUntil([&] { return desktop->supportCard() == nullptr; }, 5s));
    ASSERT_TRUE(test::waitFor(rig.list().stopTranscription()));
    test::settle(600ms);
    EXPECT_EQ(desktop->supportCard(), nullptr);
}

TEST_F(DesktopIntegrationTest, SettingsHoldsTheLanguageNotificationAndSupportRowsAndHidesDiagnostics)
{
    qputenv("KESTIL_DATA_DIR", rig.data.path().toUtf8());
    launch({false, true, false}); // no notification service on this desktop
    settingsWindow();
    auto *language = inSettings<QComboBox>(QStringLiteral("settingsLanguagePicker"));
    EXPECT_EQ(language->currentData().toString(), QStringLiteral("en-US"));
    language->setCurrentIndex(language->findData(QStringLiteral("fr-FR")));
    EXPECT_EQ(settings::transcriptionLanguage(*rig.preferences), QStringLiteral("fr-FR"));
    EXPECT_TRUE(inSettings<QLabel>(QStringLiteral("settingsSpeechStatus"))
                    ->text()
                    .startsWith(QStringLiteral("The on-device speech model for this language needs setup.")));
    // An identifier Kestil does not know, written elsewhere: no choice shown.
    settings::setTranscriptionLanguage(*rig.preferences, QStringLiteral("tlh-QO"));
    EXPECT_EQ(language->currentIndex(), -1);
    EXPECT_TRUE(inSettings<QLabel>(QStringLiteral("settingsLanguageMessage"))
                    ->text()
                    .contains(QStringLiteral("“tlh-QO”")));

    // What the developers need stays behind "Details".
    auto *diagnostics = inSettings<QLabel>(QStringLiteral("settingsSpeechDiagnostics"));
    EXPECT_FALSE(diagnostics->isVisible());
    inSettings<QToolButton>(QStringLiteral("settingsSpeechDetailsButton"))->click();
    EXPECT_TRUE(diagnostics->isVisible());

    EXPECT_TRUE(test::waitUntil(
        [&] {
            return inSettings<QLabel>(QStringLiteral("settingsSummaryNotificationsBlocked"))->isVisible();
        },
        5s));
    EXPECT_FALSE(inSettings(QStringLiteral("settingsAllowSummaryNotifications"))->isVisible());

    QList<QUrl> opened;
    inSettings<SupportActionsView>(QString())->setOpener([&](const QUrl &url) { opened.append(url); });
    auto *check = inSettings<QLabel>(QStringLiteral("settingsSupportFeedbackCheck"));
    EXPECT_FALSE(check->isVisible());
    inSettings<QPushButton>(QStringLiteral("settingsSupportFeedback"))->click();
    EXPECT_EQ(opened, QList<QUrl>{desktop->supportTargets().feedback});
    EXPECT_TRUE(check->isVisible());
    EXPECT_TRUE(desktop->engagement().hasClicked(KestilEngagement::Action::feedback));
    EXPECT_TRUE(inSettings<QLabel>(QStringLiteral("settingsSupportExplanation"))
                    ->text()
                    .startsWith(QStringLiteral("Automatic reminders are off. ")));
    inSettings<QPushButton>(QStringLiteral("settingsSupportShowPage"))->click();
    auto *page = rig.window->settingsWindow()->findChild<SupportPage *>(QStringLiteral("kestilSupportPage"));
    ASSERT_NE(page, nullptr);
    EXPECT_NE(page->findChild<QPushButton *>(QStringLiteral("kestilSupportDismiss")), nullptr);
    test::screenshot(page, QStringLiteral("support-page"));
    page->close();
    qunsetenv("KESTIL_DATA_DIR");
}

TEST_F(DesktopIntegrationTest, AppearanceAndTintApplyAtOnceToEveryWindow)
{
    launch({true, true, false});
    const NotePtr budget = note(QStringLiteral("Budget review"));
    summarize(budget);
    rig.list().selectNote(budget, false);
    SettingsWindow &settings = settingsWindow();
    auto *mode = inSettings<QComboBox>(QStringLiteral("settingsAppearancePicker"));
    const auto windowColor = [](QWidget *widget) { return widget->palette().color(QPalette::Window); };

    // A palette reaches the widgets through their event queues.
    mode->setCurrentIndex(mode->findData(QStringLiteral("Dark")));
    test::settle(50ms);
    EXPECT_EQ(settings::selectedAppearanceMode(*rig.preferences), QStringLiteral("Dark"));
    EXPECT_LT(windowColor(rig.window.get()).lightness(), 80);
    EXPECT_LT(windowColor(&settings).lightness(), 80);
    inSettings<QToolButton>(QStringLiteral("settingsThemeColor-Teal"))->click();
    test::settle(50ms);
    EXPECT_EQ(rig.window->palette().color(QPalette::Highlight), ThemeColors::color(ThemeColor::teal, true));
    test::screenshot(rig.window.get(), QStringLiteral("appearance-dark-main"));
    test::screenshot(&settings, QStringLiteral("appearance-dark-settings"));

    mode->setCurrentIndex(mode->findData(QStringLiteral("Light")));
    test::settle(50ms);
    EXPECT_GT(windowColor(rig.window.get()).lightness(), 200);
    EXPECT_GT(windowColor(&settings).lightness(), 200);
    EXPECT_EQ(settings.palette().color(QPalette::Highlight), ThemeColors::color(ThemeColor::teal, false));
    test::screenshot(rig.window.get(), QStringLiteral("appearance-light-main"));
    test::screenshot(&settings, QStringLiteral("appearance-light-settings"));
}

} // namespace
