#include "core/StreamingSummaryViewModel.h"

namespace kestil {

StreamingSummaryViewModel::StreamingSummaryViewModel(QObject *parent) : QObject(parent) {}

void StreamingSummaryViewModel::setSummary(const QString &summary)
{
    if (summary_ == summary)
        return;
    summary_ = summary;
    emit summaryChanged(summary_);
}

void StreamingSummaryViewModel::setProgress(const LocalSummaryProgress &progress)
{
    if (progress_ == progress)
        return;
    progress_ = progress;
    emit progressChanged();
}

void StreamingSummaryViewModel::setWaitingForModel(bool waiting)
{
    if (waitingForModel_ == waiting)
        return;
    waitingForModel_ = waiting;
    emit waitingForModelChanged(waiting);
}

void StreamingSummaryViewModel::reset()
{
    setSummary(QString());
    setProgress(LocalSummaryProgress::preparing());
    setWaitingForModel(false);
}

} // namespace kestil
