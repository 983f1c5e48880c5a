#include "shell/DesktopIntegration.h"

#include "capture/ProcessTapRecorder.h"
#include "core/LocalAppModel.h"
#include "core/NotesListViewModel.h"
#include "prefs/KestilEngagement.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "shell/DesktopNotifications.h"
#include "shell/EngagementPrompts.h"
#include "shell/KestilAppDelegate.h"
#include "shell/MainWindow.h"
#include "shell/SettingsWindow.h"
#include "shell/SupportPage.h"
#include "shell/ThemeManager.h"
#include "shell/WelcomeWindow.h"
#include "shell/WorkActivity.h"

#include <QApplication>
#include <QUuid>

namespace kestil {

DesktopIntegration::Environment DesktopIntegration::Environment::standard()
{
    return Environment{SleepInhibitor::Buses::standard(), QDBusConnection::sessionBus(),
                       SupportTargets::standard(), [] {
                           return QGuiApplication::applicationState() == Qt::ApplicationActive &&
                                  QApplication::activeWindow();
                       }};
}

DesktopIntegration::DesktopIntegration(KestilAppDelegate &delegate, MainWindow &window,
                                       Environment environment, QObject *parent)
    : QObject(parent), delegate_(delegate), window_(window), environment_(std::move(environment)),
      engagement_(KestilEngagement::shared())
{
    PreferenceStore &preferences = delegate_.preferences();
    themes_ = new ThemeManager(preferences, this);
    themes_->apply();

    // The counters of the support prompts live in the preferences.
    engagement_.attach(preferences);

    center_ = new DesktopNotifications(environment_.notificationBus, environment_.inFront, this);
    notifications_ = new KestilSummaryNotifications(preferences, center_->center(), this);
    connect(center_, &DesktopNotifications::activated, notifications_,
            [this](const QString &action, const QVariantMap &userInfo) {
                notifications_->didReceive(action, userInfo);
            });
    connect(notifications_, &KestilSummaryNotifications::noteToOpenChanged, this,
            &DesktopIntegration::openRequestedNote);

    activity_ = new WorkActivity(delegate_.recorder(), engagement_, environment_.sleepBuses, this);

    EngagementPrompts::Inputs inputs;
    inputs.isIdle = [this] { return isIdle(); };
    inputs.isActive = environment_.inFront;
    inputs.interfaceFree = [this] {
        return QApplication::activeWindow() == &window_ && !QApplication::activeModalWidget();
    };
    inputs.showSupportCard = [this] {
        if (card_)
            return;
        card_ = new SupportPage(engagement_, environment_.support, true, &window_);
        card_->setAttribute(Qt::WA_DeleteOnClose);
        card_->setWindowModality(Qt::WindowModal);
        card_->open();
    };
    inputs.closeSupportCard = [this] {
        if (card_)
            card_->close();
    };
    prompts_ = new EngagementPrompts(engagement_, std::move(inputs), this);
    ProcessTapRecorder &recorder = delegate_.recorder();
    for (auto signal : {&ProcessTapRecorder::recordingChanged, &ProcessTapRecorder::startingChanged,
                        &ProcessTapRecorder::finishingChanged})
        connect(&recorder, signal, prompts_, &EngagementPrompts::reconsider);
    connect(qApp, &QGuiApplication::applicationStateChanged, prompts_, &EngagementPrompts::reconsider);
    connect(qApp, &QApplication::focusChanged, prompts_, &EngagementPrompts::reconsider);
    connect(&preferences, &PreferenceStore::changed, prompts_, &EngagementPrompts::reconsider);

    watchSummaries();
    prompts_->reconsider();
}

DesktopIntegration::~DesktopIntegration() = default;

SupportPage *DesktopIntegration::supportCard() const
{
    return card_;
}

bool DesktopIntegration::isIdle() const
{
    const ProcessTapRecorder &recorder = delegate_.recorder();
    const SettingsWindow *settings = window_.settingsWindow();
    const WelcomeWindow *welcome = window_.welcomeWindow();
    return !(settings && settings->isVisible()) && !(welcome && welcome->isVisible()) &&
           settings::welcomeCompleted(delegate_.preferences()) && !delegate_.app().busy() &&
           !recorder.recording() && !recorder.starting() && !recorder.finishing();
}

void DesktopIntegration::watchSummaries()
{
    NotesListViewModel *list = window_.listModel();
    if (!list)
        return;
    // A summary starts: the desktop is asked now, so that its answer is known
    // when the summary is saved.
    connect(list, &NotesListViewModel::summaryStateChanged, this, [this, list] {
        const bool running = list->isSummaryJobRunning();
        if (running && !summaryRunning_)
            notifications_->prepareForSummary();
        summaryRunning_ = running;
    });
    // The summary is saved: it counts for the support prompts, and its
    // notification goes out with a request id of its own.
    connect(list, &NotesListViewModel::summaryGenerationComplete, this,
            [this](const ObjectId &noteID, const QString &summary) {
                engagement_.recordCompletedSummary(summary);
                for (const NotePtr &note : delegate_.app().notes()) {
                    if (note->objectId() == noteID) {
                        notifications_->deliver(note->id(), QUuid::createUuid());
                        return;
                    }
                }
            });
}

void DesktopIntegration::openRequestedNote()
{
    const std::optional<QUuid> id = notifications_->noteToOpen();
    if (!id)
        return;
    NotesListViewModel *list = window_.listModel();
    if (list) {
        try {
            delegate_.app().refreshNotes();
        } catch (const std::exception &) {
            // The notes already loaded are looked through.
        }
        for (const NotePtr &note : delegate_.app().notes()) {
            if (note->id() == id && !note->isDeleted()) {
                list->selectNote(note, false);
                list->setSelectedDetailTab(NotesListViewModel::summaryTab);
                delegate_.bringForward();
                break;
            }
        }
    }
    // A note deleted since ends the request without a word.
    notifications_->clearNoteToOpen();
}

} // namespace kestil
