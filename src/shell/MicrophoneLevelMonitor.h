#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

#include <memory>
#include <mutex>

class QThread;

namespace kestil {

// Listens to the sound server's default source, without recording anything,
// and reports how loud it is (0 silent to 1 full scale, on a 60 dB scale) and
// the source's name. Opening the source happens on a thread of its own, since
// a sound server may take seconds to answer. When the source goes away
// (unplugged, the server restarted) the monitor says so in a sentence and
// tries the default source again every few seconds while it runs.
class MicrophoneLevelMonitor : public QObject {
    Q_OBJECT

public:
    explicit MicrophoneLevelMonitor(QObject *parent = nullptr);
    ~MicrophoneLevelMonitor() override;

    void start();
    void stop();
    bool running() const { return wanted_; }

    // The source's description, empty while none is open.
    const QString &sourceName() const { return sourceName_; }
    // Why there is no level, as a sentence; empty while the level flows.
    const QString &problem() const { return problem_; }
    float level() const { return level_; }

    // The level of a buffer of samples.
    static float levelOf(const float *samples, size_t count);

signals:
    void stateChanged();
    void levelChanged(float level);

private:
    struct Session;
    struct Sink;
    void open();
    void adopt(int generation);
    void lost(int generation, const QString &reason);
    void close();
    void setState(const QString &name, const QString &problem);

    bool wanted_ = false;
    int generation_ = 0;
    QThread *opening_ = nullptr;
    std::shared_ptr<Session> session_;
    std::mutex openedMutex_;
    std::shared_ptr<Session> opened_;
    QString openFailure_;
    std::shared_ptr<Sink> sink_;
    QTimer retry_;
    QString sourceName_;
    QString problem_;
    float level_ = 0;
};

} // namespace kestil
