#include "shell/MicrophoneLevelMonitor.h"

#include "base/Error.h"
#include "capture/PulseConnection.h"
#include "capture/PulseRecordStream.h"

#include <QThread>

#include <algorithm>
#include <cmath>

namespace kestil {

// The open connection and stream of one listening period.
struct MicrophoneLevelMonitor::Session {
    std::unique_ptr<PulseConnection> connection;
    std::unique_ptr<PulseRecordStream> stream;
    QString name;
    int generation = 0;

    ~Session()
    {
        // The stream first: after stop() its handlers are not called again.
        if (stream)
            stream->stop();
        stream.reset();
        connection.reset();
    }
};

// What the sound server's thread reports to: the monitor while it lives.
struct MicrophoneLevelMonitor::Sink {
    std::mutex mutex;
    MicrophoneLevelMonitor *owner = nullptr;

    // Runs f(monitor) on the monitor's thread, unless the monitor is gone by
    // then: a queued call to a destroyed object is dropped.
    template <typename F> void post(F f)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (owner) {
            MicrophoneLevelMonitor *monitor = owner;
            QMetaObject::invokeMethod(
                monitor, [monitor, f = std::move(f)] { f(monitor); }, Qt::QueuedConnection);
        }
    }
};

namespace {

constexpr int retryMilliseconds = 2000;
constexpr int listeningRate = 48000;

} // namespace

MicrophoneLevelMonitor::MicrophoneLevelMonitor(QObject *parent)
    : QObject(parent), sink_(std::make_shared<Sink>())
{
    sink_->owner = this;
    retry_.setSingleShot(true);
    retry_.setInterval(retryMilliseconds);
    connect(&retry_, &QTimer::timeout, this, &MicrophoneLevelMonitor::open);
}

MicrophoneLevelMonitor::~MicrophoneLevelMonitor()
{
    {
        const std::lock_guard<std::mutex> lock(sink_->mutex);
        sink_->owner = nullptr;
    }
    wanted_ = false;
    if (opening_) {
        opening_->wait();
        delete opening_;
        opening_ = nullptr;
    }
    opened_.reset();
    session_.reset();
}

float MicrophoneLevelMonitor::levelOf(const float *samples, size_t count)
{
    if (count == 0)
        return 0;
    double sum = 0;
    for (size_t i = 0; i < count; ++i)
        sum += double(samples[i]) * double(samples[i]);
    const double rms = std::sqrt(sum / double(count));
    if (rms <= 0)
        return 0;
    const double decibels = 20.0 * std::log10(rms);
    return float(std::clamp((decibels + 60.0) / 60.0, 0.0, 1.0));
}

void MicrophoneLevelMonitor::start()
{
    if (wanted_)
        return;
    wanted_ = true;
    open();
}

void MicrophoneLevelMonitor::stop()
{
    wanted_ = false;
    retry_.stop();
    ++generation_;
    close();
    if (level_ != 0) {
        level_ = 0;
        emit levelChanged(level_);
    }
}

void MicrophoneLevelMonitor::close()
{
    session_.reset();
}

void MicrophoneLevelMonitor::setState(const QString &name, const QString &problem)
{
    if (name == sourceName_ && problem == problem_)
        return;
    sourceName_ = name;
    problem_ = problem;
    emit stateChanged();
}

void MicrophoneLevelMonitor::open()
{
    if (!wanted_ || opening_ || session_)
        return;
    const int generation = ++generation_;
    const std::shared_ptr<Sink> sink = sink_;
    opening_ = QThread::create([this, generation, sink] {
        auto session = std::make_shared<Session>();
        session->generation = generation;
        QString failure;
        try {
            session->connection = std::make_unique<PulseConnection>();
            session->connection->connect();
            const PulseServerInfo server = session->connection->serverInfo();
            const std::optional<PulseDeviceInfo> source =
                session->connection->sourceInfo(server.defaultSourceName);
            if (!source)
                throw SystemError(QStringLiteral("the sound server has no default microphone"));
            session->name = source->description.isEmpty() ? source->name : source->description;
            session->stream = std::make_unique<PulseRecordStream>(
                *session->connection, source->name, listeningRate, 1,
                [sink, generation](std::vector<float> samples) {
                    const float level = levelOf(samples.data(), samples.size());
                    sink->post([generation, level](MicrophoneLevelMonitor *monitor) {
                        if (monitor->session_ && monitor->session_->generation == generation) {
                            monitor->level_ = level;
                            emit monitor->levelChanged(level);
                        }
                    });
                },
                [sink, generation](const QString &reason) {
                    sink->post([generation, reason](MicrophoneLevelMonitor *monitor) {
                        monitor->lost(generation, reason);
                    });
                });
            // The server moves the stream elsewhere when its microphone is
            // removed: that microphone is gone, and the next one is opened
            // afresh (under its own name) a moment later.
            session->stream->setMovedHandler([sink, generation](const QString &) {
                sink->post([generation](MicrophoneLevelMonitor *monitor) {
                    monitor->lost(generation, QStringLiteral("it went away"));
                });
            });
            session->stream->start();
        } catch (const std::exception &error) {
            failure = describe(error);
            session.reset();
        }
        {
            const std::lock_guard<std::mutex> lock(openedMutex_);
            opened_ = std::move(session);
            openFailure_ = failure;
        }
        sink->post([generation](MicrophoneLevelMonitor *monitor) { monitor->adopt(generation); });
    });
    opening_->start();
}

void MicrophoneLevelMonitor::adopt(int generation)
{
    if (opening_) {
        opening_->wait();
        delete opening_;
        opening_ = nullptr;
    }
    std::shared_ptr<Session> session;
    QString failure;
    {
        const std::lock_guard<std::mutex> lock(openedMutex_);
        session = std::move(opened_);
        failure = openFailure_;
    }
    // Stopped, or started again, while the source was being opened.
    if (!wanted_ || generation != generation_) {
        session.reset();
        open();
        return;
    }
    if (!session) {
        setState(QString(), QStringLiteral("No microphone answered (%1). Connect a microphone, or check your "
                                           "system's sound settings; Kestil keeps listening for one.")
                                .arg(failure));
        retry_.start();
        return;
    }
    session_ = std::move(session);
    setState(session_->name, QString());
}

void MicrophoneLevelMonitor::lost(int generation, const QString &reason)
{
    if (!session_ || session_->generation != generation)
        return;
    const QString name = session_->name;
    close();
    level_ = 0;
    emit levelChanged(level_);
    setState(QString(),
             QStringLiteral("The microphone “%1” stopped (%2). Connect a microphone, or check your "
                            "system's sound settings; Kestil keeps listening for one.")
                 .arg(name, reason.isEmpty() ? QStringLiteral("it went away") : reason));
    if (wanted_)
        retry_.start();
}

} // namespace kestil
