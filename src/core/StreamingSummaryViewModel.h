#pragma once

#include "generation/LocalSummaryProgress.h"

#include <QObject>
#include <QString>

namespace kestil {

// What a running summary job shows while it works: the text as it grows and
// the stage it is in. Owned by the notes list model and written only on the
// main thread; the job's worker hands every value over through a queued call.
// Nothing here ever reaches the store: a job that does not finish leaves no
// trace but these two values, and they are reset when it ends.
class StreamingSummaryViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString summary READ summary NOTIFY summaryChanged)

public:
    explicit StreamingSummaryViewModel(QObject *parent = nullptr);

    const QString &summary() const { return summary_; }
    void setSummary(const QString &summary);
    const LocalSummaryProgress &progress() const { return progress_; }
    void setProgress(const LocalSummaryProgress &progress);
    // A request of the job waits while the model answers another one.
    bool waitingForModel() const { return waitingForModel_; }
    void setWaitingForModel(bool waiting);

    // Empty text, the `preparing` stage and no wait: the state before and
    // after a job.
    void reset();

signals:
    void summaryChanged(const QString &summary);
    void progressChanged();
    void waitingForModelChanged(bool waiting);

private:
    QString summary_;
    LocalSummaryProgress progress_ = LocalSummaryProgress::preparing();
    bool waitingForModel_ = false;
};

} // namespace kestil
