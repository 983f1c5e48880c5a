#include "shell/WorkActivity.h"

#include "capture/ProcessTapRecorder.h"
#include "prefs/KestilEngagement.h"

namespace kestil {

WorkActivity::WorkActivity(ProcessTapRecorder &recorder, KestilEngagement &engagement,
                           SleepInhibitor::Buses buses, QObject *parent)
    : QObject(parent), recorder_(recorder), engagement_(engagement), recording_(buses, recordingReason()),
      modelWork_(buses, summaryReason())
{
    connect(&recorder_, &ProcessTapRecorder::recordingChanged, this, &WorkActivity::refresh);
    connect(&recorder_, &ProcessTapRecorder::startingChanged, this, &WorkActivity::refresh);
    connect(&recorder_, &ProcessTapRecorder::finishingChanged, this, &WorkActivity::refresh);
    connect(&engagement_, &KestilEngagement::processingCountChanged, this, &WorkActivity::refresh);
    refresh();
}

void WorkActivity::refresh()
{
    recording_.setWanted(recorder_.recording() || recorder_.starting() || recorder_.finishing());
    modelWork_.setWanted(engagement_.processingCount() > 0);
}

} // namespace kestil
