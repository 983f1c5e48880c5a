#pragma once

#include <QObject>
#include <QTimer>

namespace kestil {

class SharedPersistenceController;

// Brings the store's transcript index up to date in small slices while the
// program is otherwise idle: after launch (a library from before the index
// existed, or one whose folding rules changed) and after every save that
// changed a long transcript. Each slice takes a few milliseconds of the main
// thread; searches stay exact meanwhile, only slower for what waits.
class IdleTranscriptIndexer : public QObject {
    Q_OBJECT
public:
    explicit IdleTranscriptIndexer(SharedPersistenceController &store, QObject *parent = nullptr);

    // How long one slice may take, and the pause between slices.
    static constexpr int sliceMilliseconds = 12;
    static constexpr int pauseMilliseconds = 40;

private:
    void indexSlice();

    SharedPersistenceController &store_;
    QTimer timer_;
};

} // namespace kestil
