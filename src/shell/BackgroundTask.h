#pragma once

#include "base/ModelDownload.h"

#include <QObject>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>

class QThread;

namespace kestil {

// One piece of long work (a download, an import, a speech set-up) on a thread
// of its own. Its progress and its closing sentence arrive on the owner's
// thread, a few progress reports a second at most. cancel() asks the work to
// stop at its next poll; destroying the task cancels it and waits, so no
// thread outlives its owner.
class BackgroundTask : public QObject {
    Q_OBJECT

public:
    // Returns the sentence to show when it ends, in every case.
    using Work = std::function<QString(const DownloadObserver &observer)>;

    explicit BackgroundTask(QObject *parent = nullptr);
    ~BackgroundTask() override;

    bool running() const { return thread_ != nullptr; }
    // Ignored while one runs.
    void start(Work work);
    void cancel();

signals:
    void progress(qint64 received, qint64 total);
    void finished(const QString &message);

private:
    void wrapUp(const QString &message);

    QThread *thread_ = nullptr;
    std::shared_ptr<std::atomic<bool>> cancelled_;
};

} // namespace kestil
