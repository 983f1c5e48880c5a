#include "shell/BackgroundTask.h"

#include <QElapsedTimer>
#include <QThread>

namespace kestil {

BackgroundTask::BackgroundTask(QObject *parent) : QObject(parent) {}

BackgroundTask::~BackgroundTask()
{
    if (!thread_)
        return;
    cancelled_->store(true);
    thread_->wait();
    delete thread_;
}

void BackgroundTask::start(Work work)
{
    if (thread_)
        return;
    cancelled_ = std::make_shared<std::atomic<bool>>(false);
    const std::shared_ptr<std::atomic<bool>> cancelled = cancelled_;
    thread_ = QThread::create([this, work = std::move(work), cancelled] {
        DownloadObserver observer;
        auto clock = std::make_shared<QElapsedTimer>();
        // A download reports every piece that arrives, thousands a second on
        // a fast line; a window needs a few a second, and the last one.
        observer.progress = [this, clock](qint64 received, qint64 total) {
            if (clock->isValid() && clock->elapsed() < 100 && received != total)
                return;
            clock->start();
            QMetaObject::invokeMethod(
                this, [this, received, total] { emit progress(received, total); }, Qt::QueuedConnection);
        };
        observer.isCancelled = [cancelled] { return cancelled->load(); };
        const QString message = work(observer);
        // The owner waits for this thread before it goes, so `this` is there
        // to receive the sentence.
        QMetaObject::invokeMethod(
            this, [this, message] { wrapUp(message); }, Qt::QueuedConnection);
    });
    thread_->start();
}

void BackgroundTask::cancel()
{
    if (cancelled_)
        cancelled_->store(true);
}

void BackgroundTask::wrapUp(const QString &message)
{
    if (thread_) {
        thread_->wait();
        delete thread_;
        thread_ = nullptr;
    }
    emit finished(message);
}

} // namespace kestil
