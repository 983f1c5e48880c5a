#include "shell/RecordingWidgetController.h"

#include "capture/ProcessTapRecorder.h"
#include "library/RecordingWidgetRule.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "shell/RecordingIndicator.h"
#include "shell/RecordingWidgetPanel.h"
#include "shell/RecordingWidgetViewModel.h"

#include <QGuiApplication>
#include <QScreen>

namespace kestil {

RecordingWidgetController::RecordingWidgetController(PreferenceStore &preferences, QObject *parent)
    : QObject(parent), preferences_(preferences),
      isApplicationActive_([] { return QGuiApplication::applicationState() == Qt::ApplicationActive; })
{
    monitorTimer_.setInterval(500);
    connect(&monitorTimer_, &QTimer::timeout, this, &RecordingWidgetController::update);
}

RecordingWidgetController::~RecordingWidgetController()
{
    stop();
}

void RecordingWidgetController::start(ProcessTapRecorder *recorder, std::function<void()> onWidgetTapped)
{
    recorder_ = recorder;
    onWidgetTapped_ = std::move(onWidgetTapped);
    monitorTimer_.start();
    if (!settingsObserver_) {
        settingsObserver_ = preferences_.observe(QString(settings::keys::showRecordingWidget));
        settingsConnection_ = connect(settingsObserver_, &PreferenceValue::valueChanged, this,
                                      &RecordingWidgetController::update);
    }
    if (auto *application = qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        stateConnection_ = connect(application, &QGuiApplication::applicationStateChanged, this,
                                   &RecordingWidgetController::update);
    update();
}

void RecordingWidgetController::stop()
{
    monitorTimer_.stop();
    disconnect(settingsConnection_);
    disconnect(stateConnection_);
    settingsObserver_ = nullptr;
    hide();
    wasWidgetVisible_ = false;
}

void RecordingWidgetController::update()
{
    if (!recorder_)
        return;
    const RecordingWidgetAction action =
        recordingWidgetRule(settings::showRecordingWidget(preferences_), recorder_->recording(),
                            isApplicationActive_(), !panel_.isNull(), wasWidgetVisible_);
    if (action == RecordingWidgetAction::show)
        show();
    else if (action == RecordingWidgetAction::hide)
        hide();
}

void RecordingWidgetController::show()
{
    if (panel_)
        return;
    viewModel_ = new RecordingWidgetViewModel(recorder_, this);
    auto *panel = new RecordingWidgetPanel;
    panel_ = panel;
    connect(viewModel_, &RecordingWidgetViewModel::changed, panel, [panel, model = viewModel_] {
        panel->setElapsed(model->elapsedTime());
        panel->setAudioLevel(model->audioLevel());
        panel->setRecording(model->isRecording());
        panel->indicator()->setPaused(model->isPaused());
    });
    connect(panel, &RecordingWidgetPanel::tapped, this, [this] {
        if (onWidgetTapped_)
            onWidgetTapped_();
    });
    connect(panel, &RecordingWidgetPanel::moved, this, [this](const QPoint &origin) {
        settings::setRecordingWidgetPosition(preferences_,
                                             RecordingWidgetPosition{double(origin.x()), double(origin.y())});
    });

    std::optional<QRect> area;
    if (const QScreen *screen = QGuiApplication::primaryScreen())
        area = screen->availableGeometry();
    panel->move(recordingWidgetOrigin(settings::recordingWidgetPosition(preferences_), area));
    viewModel_->start();
    panel->show();
}

void RecordingWidgetController::hide()
{
    if (viewModel_) {
        viewModel_->stop();
        viewModel_->deleteLater();
        viewModel_ = nullptr;
    }
    if (panel_) {
        panel_->close(); // deletes itself
        panel_ = nullptr;
    }
}

} // namespace kestil
