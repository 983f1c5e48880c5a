#pragma once

#include "prefs/KestilSummaryNotifications.h"
#include "shell/SleepInhibitor.h"
#include "shell/SupportTargets.h"

#include <QDBusConnection>
#include <QObject>
#include <QPointer>

#include <functional>

namespace kestil {

class DesktopNotifications;
class EngagementPrompts;
class KestilAppDelegate;
class KestilEngagement;
class MainWindow;
class SupportPage;
class ThemeManager;
class WorkActivity;

// What makes Kestil a good citizen of the desktop, around the main window: the
// look of every window (appearance and tint), the notification of a finished
// summary and the note a click on it opens, the sleep inhibitor while work
// runs, and the support prompts when nothing is busy. The desktop's services
// are reached over D-Bus; where one is missing, only its courtesy is lost.
class DesktopIntegration : public QObject {
    Q_OBJECT

public:
    struct Environment {
        // logind (system bus) and the desktop portal (session bus).
        SleepInhibitor::Buses sleepBuses;
        // Where org.freedesktop.Notifications answers.
        QDBusConnection notificationBus;
        SupportTargets support;
        // Whether Kestil is the application in front, with one of its windows
        // active; the desktop's answer unless replaced.
        std::function<bool()> inFront;

        static Environment standard();
    };

    DesktopIntegration(KestilAppDelegate &delegate, MainWindow &window, Environment environment,
                       QObject *parent = nullptr);
    ~DesktopIntegration() override;

    ThemeManager &themes() const { return *themes_; }
    KestilEngagement &engagement() const { return engagement_; }
    KestilSummaryNotifications &notifications() const { return *notifications_; }
    DesktopNotifications &notificationCenter() const { return *center_; }
    WorkActivity &activity() const { return *activity_; }
    EngagementPrompts &prompts() const { return *prompts_; }
    const SupportTargets &supportTargets() const { return environment_.support; }
    // The automatic support card while it is open.
    SupportPage *supportCard() const;

    // Kestil is idle in the sense of the support prompts: no sheet over the
    // window, the welcome finished, nothing busy, no recording.
    bool isIdle() const;

private:
    void watchSummaries();
    void openRequestedNote();

    KestilAppDelegate &delegate_;
    MainWindow &window_;
    Environment environment_;
    KestilEngagement &engagement_;
    ThemeManager *themes_ = nullptr;
    DesktopNotifications *center_ = nullptr;
    KestilSummaryNotifications *notifications_ = nullptr;
    WorkActivity *activity_ = nullptr;
    EngagementPrompts *prompts_ = nullptr;
    QPointer<SupportPage> card_;
    bool summaryRunning_ = false;
};

} // namespace kestil
