#include "shell/KestilAppDelegate.h"

#include "capture/ProcessTapRecorder.h"
#include "core/LocalAppModel.h"
#include "core/NotesListViewModel.h"
#include "core/WhenFinished.h"
#include "shell/RecordingWidgetController.h"
#include "shell/StatusItem.h"

#include <QCoreApplication>
#include <QWidget>

namespace kestil {

KestilAppDelegate::KestilAppDelegate(LocalAppModel &app, ProcessTapRecorder &recorder,
                                     PreferenceStore &preferences, QObject *parent)
    : QObject(parent), app_(app), recorder_(recorder), preferences_(preferences),
      terminate_([] { QCoreApplication::quit(); })
{
}

KestilAppDelegate::~KestilAppDelegate() = default;

void KestilAppDelegate::applicationDidFinishLaunching(QWidget *mainWindow)
{
    mainWindow_ = mainWindow;
    if (!app_.storeReady() || statusItem_)
        return;
    statusItem_ = new StatusItem(this);
    connect(statusItem_, &StatusItem::toggleRequested, this, &KestilAppDelegate::toggleTranscription);
    connect(statusItem_, &StatusItem::openRequested, this, &KestilAppDelegate::bringForward);
    connect(statusItem_, &StatusItem::quitRequested, this, &KestilAppDelegate::requestQuit);
    connect(&recorder_, &ProcessTapRecorder::processTapRecordingStateChanged, this,
            &KestilAppDelegate::refreshStatusItem);
    refreshStatusItem();

    recordingWidget_ = new RecordingWidgetController(preferences_, this);
    recordingWidget_->start(&recorder_, [this] {
        if (auto *list = roles_.recordingNotesViewModel())
            list->selectRecordingNote();
        bringForward();
    });
}

void KestilAppDelegate::refreshStatusItem()
{
    if (statusItem_)
        statusItem_->refresh(recorder_.recording());
}

void KestilAppDelegate::newTranscription()
{
    if (auto *list = roles_.activeNotesViewModel())
        list->startNewTranscription();
}

void KestilAppDelegate::toggleTranscription()
{
    if (!recorder_.recording()) {
        bringForward();
        newTranscription();
    } else if (auto *list = roles_.recordingNotesViewModel() ? roles_.recordingNotesViewModel()
                                                             : roles_.activeNotesViewModel()) {
        list->stopTranscription();
    }
    refreshStatusItem();
}

void KestilAppDelegate::bringForward()
{
    if (!mainWindow_)
        return;
    if (mainWindow_->isMinimized())
        mainWindow_->showNormal();
    else
        mainWindow_->show();
    mainWindow_->raise();
    mainWindow_->activateWindow();
}

void KestilAppDelegate::requestQuit()
{
    if (quitting_ || quitApproved_)
        return;
    quitting_ = true;
    whenFinished(roles_.prepareToQuit(app_.store()), this, [this](const QFuture<bool> &done) {
        quitting_ = false;
        bool approved = false;
        try {
            approved = done.isValid() && done.resultCount() > 0 && done.result();
        } catch (...) {
            approved = false;
        }
        if (!approved) {
            emit quitRefused();
            return;
        }
        quitApproved_ = true;
        if (recordingWidget_)
            recordingWidget_->stop();
        terminate_();
    });
}

} // namespace kestil
