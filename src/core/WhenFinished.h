#pragma once

#include <QFuture>
#include <QFutureWatcher>
#include <QObject>

#include <utility>

namespace kestil {

// Calls `done(future)` on `context`'s thread once the future has finished,
// always from the event loop and never from inside this call. Any number of
// callers may wait on one future this way. Nothing is called when `context`
// is destroyed first.
template <typename T, typename Done> void whenFinished(const QFuture<T> &future, QObject *context, Done done)
{
    auto *watcher = new QFutureWatcher<T>(context);
    QObject::connect(watcher, &QFutureWatcherBase::finished, context,
                     [watcher, future, done = std::move(done)]() mutable {
                         watcher->deleteLater();
                         done(future);
                     });
    watcher->setFuture(future);
}

} // namespace kestil
