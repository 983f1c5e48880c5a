#pragma once

#include <QString>

#include <pulse/channelmap.h>
#include <pulse/operation.h>
#include <pulse/sample.h>

#include <functional>
#include <optional>

struct pa_context;
struct pa_threaded_mainloop;

namespace kestil {

// What the sound server says about its defaults.
struct PulseServerInfo {
    QString defaultSinkName;
    QString defaultSourceName;
};

// A source or sink of the sound server and its native format.
struct PulseDeviceInfo {
    QString name;
    QString description;
    pa_sample_spec sampleSpec{};
    pa_channel_map channelMap{};
    // For a sink: the source that carries what it plays.
    QString monitorSourceName;
};

// One connection to the sound server (PulseAudio, or PipeWire's pulse
// server) with its own threaded main loop. Stream callbacks run on the loop's
// thread; everything else here is called from outside it and waits for the
// server's answer.
class PulseConnection {
public:
    PulseConnection();
    ~PulseConnection();

    PulseConnection(const PulseConnection &) = delete;
    PulseConnection &operator=(const PulseConnection &) = delete;

    // Starts the loop and connects. Throws SystemError with the server's
    // reason when no server answers.
    void connect();
    bool isConnected() const;

    PulseServerInfo serverInfo();
    // The named device, or nothing when the server has no such device.
    // Throws SystemError when the server cannot be asked.
    std::optional<PulseDeviceInfo> sourceInfo(const QString &name);
    std::optional<PulseDeviceInfo> sinkInfo(const QString &name);

    // The server's text for the context's last error.
    QString lastError() const;

    // Waits on the loop, with its lock held, until `done` holds. False when
    // the server has not got there within the answer time.
    bool waitFor(const std::function<bool()> &done);
    void awaitQuery(pa_operation *operation);

    // How long the server has to answer a request before Kestil gives up.
    static constexpr int answerTimeoutMilliseconds = 5000;

    pa_threaded_mainloop *mainloop() const { return mainloop_; }
    pa_context *context() const { return context_; }

    // Holds the loop's lock for a scope (never on the loop's own thread).
    class Lock {
    public:
        explicit Lock(const PulseConnection &connection);
        ~Lock();
        Lock(const Lock &) = delete;
        Lock &operator=(const Lock &) = delete;

    private:
        pa_threaded_mainloop *mainloop_;
    };

private:
    void disconnect();

    pa_threaded_mainloop *mainloop_ = nullptr;
    pa_context *context_ = nullptr;
    bool started_ = false;
};

} // namespace kestil
