#pragma once

#include <QObject>
#include <QPointer>
#include <QTimer>

namespace kestil {

class ProcessTapRecorder;

// What the floating indicator shows, copied from the recorder 30 times a
// second: the panel updates at a steady rate however often levels arrive.
class RecordingWidgetViewModel : public QObject {
    Q_OBJECT
public:
    explicit RecordingWidgetViewModel(ProcessTapRecorder *recorder, QObject *parent = nullptr);

    void start();
    void stop();
    bool running() const { return timer_.isActive(); }

    double elapsedTime() const { return elapsedTime_; }
    float audioLevel() const { return audioLevel_; }
    bool isRecording() const { return isRecording_; }
    bool isPaused() const { return isPaused_; }

signals:
    void changed();

private:
    void tick();

    QPointer<ProcessTapRecorder> recorder_;
    QTimer timer_;
    double elapsedTime_ = 0;
    float audioLevel_ = 0;
    bool isRecording_ = false;
    bool isPaused_ = false;
};

} // namespace kestil
