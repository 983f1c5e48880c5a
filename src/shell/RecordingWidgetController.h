#pragma once

#include "shell/RecordingWidgetPanel.h"

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <functional>

namespace kestil {

class PreferenceStore;
class PreferenceValue;
class ProcessTapRecorder;
class RecordingWidgetViewModel;

// Shows the floating indicator while a recording runs and another
// application is in front, and hides it otherwise. The rule runs every half
// second, when the application comes to the front or goes behind, and at once
// when the showRecordingWidget preference changes. The panel is made when it
// is wanted and closed when it is not; its position is kept in the
// preferences when a drag ends.
class RecordingWidgetController : public QObject {
    Q_OBJECT
public:
    explicit RecordingWidgetController(PreferenceStore &preferences, QObject *parent = nullptr);
    ~RecordingWidgetController() override;

    // Starts watching; a click on the panel runs onWidgetTapped.
    void start(ProcessTapRecorder *recorder, std::function<void()> onWidgetTapped);
    // Stops watching and hides the panel.
    void stop();

    // One pass of the rule.
    void update();

    RecordingWidgetPanel *panel() const { return panel_; }
    bool wasWidgetVisible() const { return wasWidgetVisible_; }
    // Whether Kestil is the application in front; the desktop's answer
    // unless replaced (tests put their own here).
    void setApplicationActive(std::function<bool()> isActive) { isApplicationActive_ = std::move(isActive); }

private:
    void show();
    void hide();

    PreferenceStore &preferences_;
    QPointer<ProcessTapRecorder> recorder_;
    QPointer<RecordingWidgetPanel> panel_;
    RecordingWidgetViewModel *viewModel_ = nullptr;
    QTimer monitorTimer_;
    PreferenceValue *settingsObserver_ = nullptr;
    QMetaObject::Connection settingsConnection_;
    QMetaObject::Connection stateConnection_;
    bool wasWidgetVisible_ = false;
    std::function<void()> onWidgetTapped_;
    std::function<bool()> isApplicationActive_;
};

} // namespace kestil
