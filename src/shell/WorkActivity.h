#pragma once

#include "shell/SleepInhibitor.h"

#include <QObject>

namespace kestil {

class KestilEngagement;
class ProcessTapRecorder;

// Keeps the computer awake while Kestil works for the user: one lock while a
// recording starts, runs or finishes (a meeting must not end in suspend), and
// one while on-device model work runs (a summary, an Ask AI answer). Each is
// let go as soon as its work ends in any way: finished, failed or cancelled.
class WorkActivity : public QObject {
    Q_OBJECT

public:
    static QString recordingReason() { return QStringLiteral("Record and transcribe a note"); }
    static QString summaryReason() { return QStringLiteral("Finish on-device note summary"); }

    WorkActivity(ProcessTapRecorder &recorder, KestilEngagement &engagement, SleepInhibitor::Buses buses,
                 QObject *parent = nullptr);

    const SleepInhibitor &recording() const { return recording_; }
    const SleepInhibitor &modelWork() const { return modelWork_; }

private:
    void refresh();

    ProcessTapRecorder &recorder_;
    KestilEngagement &engagement_;
    SleepInhibitor recording_;
    SleepInhibitor modelWork_;
};

} // namespace kestil
