#include "core/IdleTranscriptIndexer.h"

#include "core/SharedPersistenceController.h"

namespace kestil {

IdleTranscriptIndexer::IdleTranscriptIndexer(SharedPersistenceController &store, QObject *parent)
    : QObject(parent), store_(store)
{
    timer_.setSingleShot(true);
    timer_.setInterval(pauseMilliseconds);
    connect(&timer_, &QTimer::timeout, this, &IdleTranscriptIndexer::indexSlice);
    // A save may have taken a long transcript out of the index.
    connect(&store_, &SharedPersistenceController::didSave, this, [this] {
        if (!timer_.isActive())
            timer_.start();
    });
    timer_.start();
}

void IdleTranscriptIndexer::indexSlice()
{
    if (store_.indexTranscripts(sliceMilliseconds) > 0)
        timer_.start();
}

} // namespace kestil
