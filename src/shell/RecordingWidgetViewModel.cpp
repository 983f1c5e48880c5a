#include "shell/RecordingWidgetViewModel.h"

#include "capture/ProcessTapRecorder.h"

namespace kestil {

RecordingWidgetViewModel::RecordingWidgetViewModel(ProcessTapRecorder *recorder, QObject *parent)
    : QObject(parent), recorder_(recorder)
{
    timer_.setInterval(std::chrono::milliseconds(33));
    connect(&timer_, &QTimer::timeout, this, &RecordingWidgetViewModel::tick);
}

void RecordingWidgetViewModel::start()
{
    tick();
    timer_.start();
}

void RecordingWidgetViewModel::stop()
{
    timer_.stop();
}

void RecordingWidgetViewModel::tick()
{
    if (!recorder_)
        return;
    elapsedTime_ = recorder_->elapsed();
    audioLevel_ = recorder_->currentAudioLevel();
    isRecording_ = recorder_->recording();
    isPaused_ = recorder_->paused();
    emit changed();
}

} // namespace kestil
