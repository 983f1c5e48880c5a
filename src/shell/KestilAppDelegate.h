#pragma once

#include "core/NotesListRoles.h"
#include "core/NotesListViewModel.h"

#include <QObject>
#include <QPointer>

#include <functional>

class QWidget;

namespace kestil {

class DesktopIntegration;
class LocalAppModel;
class PreferenceStore;
class ProcessTapRecorder;
class RecordingWidgetController;
class StatusItem;

// What the running application adds around its windows: the tray entry, the
// floating recording indicator, the New Transcription command and quitting.
// It holds the two roles a notes list can take (the recording list and the
// active list) for the tray, the command and quit. Main thread only.
class KestilAppDelegate : public QObject {
    Q_OBJECT
public:
    KestilAppDelegate(LocalAppModel &app, ProcessTapRecorder &recorder, PreferenceStore &preferences,
                      QObject *parent = nullptr);
    ~KestilAppDelegate() override;

    LocalAppModel &app() const { return app_; }
    ProcessTapRecorder &recorder() const { return recorder_; }
    PreferenceStore &preferences() const { return preferences_; }
    NotesListRoles &roles() { return roles_; }

    // The tray entry and the floating indicator, once the main window exists.
    // Without an open store there is nothing to record into, and neither is
    // made.
    void applicationDidFinishLaunching(QWidget *mainWindow);
    StatusItem *statusItem() const { return statusItem_; }
    // Appearance, notifications, the sleep inhibitor and the support prompts,
    // once the program has made them; null in a window without them.
    DesktopIntegration *desktopIntegration() const { return desktopIntegration_; }
    void setDesktopIntegration(DesktopIntegration *integration) { desktopIntegration_ = integration; }
    RecordingWidgetController *recordingWidget() const { return recordingWidget_; }

    // New Transcription (Ctrl+N): the active list starts one. Nothing happens
    // without an active list.
    void newTranscription();
    // The tray's action: start (bringing the window forward first) or stop.
    void toggleTranscription();
    // Shows, raises and activates the main window.
    void bringForward();

    // Quit: editors save, a running recording stops and is saved, then the
    // store is saved. Only when that save succeeds does the program end; a
    // failed save keeps it open with the failure in an alert.
    void requestQuit();
    bool quitting() const { return quitting_; }
    // True once quitting was allowed; the window then closes without asking.
    bool quitApproved() const { return quitApproved_; }
    // What ending the program does; QCoreApplication::quit unless replaced.
    void setTerminate(std::function<void()> terminate) { terminate_ = std::move(terminate); }

signals:
    void quitRefused();

private:
    void refreshStatusItem();

    LocalAppModel &app_;
    ProcessTapRecorder &recorder_;
    PreferenceStore &preferences_;
    NotesListRoles roles_;
    QPointer<QWidget> mainWindow_;
    StatusItem *statusItem_ = nullptr;
    RecordingWidgetController *recordingWidget_ = nullptr;
    DesktopIntegration *desktopIntegration_ = nullptr;
    std::function<void()> terminate_;
    bool quitting_ = false;
    bool quitApproved_ = false;
};

} // namespace kestil
