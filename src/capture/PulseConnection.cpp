#include "capture/PulseConnection.h"

#include "base/Error.h"

#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/introspect.h>
#include <pulse/proplist.h>
#include <pulse/thread-mainloop.h>
#include <pulse/timeval.h>

namespace kestil {

namespace {

void signalLoop(pa_threaded_mainloop *mainloop)
{
    pa_threaded_mainloop_signal(mainloop, 0);
}

SystemError noAnswer()
{
    return SystemError(QStringLiteral("The sound server did not answer in time"));
}

template <typename Info> PulseDeviceInfo deviceInfo(const Info *info)
{
    PulseDeviceInfo device;
    device.name = QString::fromUtf8(info->name);
    device.description = QString::fromUtf8(info->description ? info->description : info->name);
    device.sampleSpec = info->sample_spec;
    device.channelMap = info->channel_map;
    return device;
}

struct DeviceQuery {
    pa_threaded_mainloop *mainloop;
    std::optional<PulseDeviceInfo> device;
};

} // namespace

PulseConnection::Lock::Lock(const PulseConnection &connection) : mainloop_(connection.mainloop_)
{
    pa_threaded_mainloop_lock(mainloop_);
}

PulseConnection::Lock::~Lock()
{
    pa_threaded_mainloop_unlock(mainloop_);
}

PulseConnection::PulseConnection() : mainloop_(pa_threaded_mainloop_new()) {}

PulseConnection::~PulseConnection()
{
    disconnect();
    if (started_)
        pa_threaded_mainloop_stop(mainloop_);
    if (mainloop_)
        pa_threaded_mainloop_free(mainloop_);
}

void PulseConnection::connect()
{
    if (!mainloop_)
        throw SystemError(QStringLiteral("Could not connect to the sound server: out of memory"));
    if (!started_) {
        pa_threaded_mainloop_set_name(mainloop_, "kestil-pulse");
        if (pa_threaded_mainloop_start(mainloop_) < 0)
            throw SystemError(QStringLiteral("Could not start the sound server connection."));
        started_ = true;
    }
    Lock lock(*this);
    if (context_ && pa_context_get_state(context_) == PA_CONTEXT_READY)
        return;
    if (context_) {
        pa_context_disconnect(context_);
        pa_context_unref(context_);
        context_ = nullptr;
    }
    pa_proplist *properties = pa_proplist_new();
    pa_proplist_sets(properties, PA_PROP_APPLICATION_NAME, "Kestil");
    pa_proplist_sets(properties, PA_PROP_APPLICATION_ID, "org.kestil.Kestil");
    pa_proplist_sets(properties, PA_PROP_MEDIA_ROLE, "production");
    context_ = pa_context_new_with_proplist(pa_threaded_mainloop_get_api(mainloop_), "Kestil", properties);
    pa_proplist_free(properties);
    if (!context_)
        throw SystemError(QStringLiteral("Could not connect to the sound server: out of memory"));
    pa_context_set_state_callback(
        context_, [](pa_context *, void *loop) { signalLoop(static_cast<pa_threaded_mainloop *>(loop)); },
        mainloop_);
    if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOFLAGS, nullptr) < 0)
        throw SystemError(QStringLiteral("Could not connect to the sound server: %1").arg(lastError()));
    // A server that accepts the connection and never answers (a stopped
    // process) must not hold the caller forever.
    const bool settled = waitFor([this] {
        const auto state = pa_context_get_state(context_);
        return state == PA_CONTEXT_READY || !PA_CONTEXT_IS_GOOD(state);
    });
    if (!settled)
        throw SystemError(QStringLiteral("Could not connect to the sound server: it did not answer in time"));
    if (pa_context_get_state(context_) != PA_CONTEXT_READY)
        throw SystemError(QStringLiteral("Could not connect to the sound server: %1").arg(lastError()));
}

// Waits for a device query with the main loop locked; a query the server
// never answers is cancelled and reported.
void PulseConnection::awaitQuery(pa_operation *operation)
{
    if (!operation)
        throw SystemError(
            QStringLiteral("Could not ask the sound server for its devices: %1").arg(lastError()));
    const bool answered =
        waitFor([operation] { return pa_operation_get_state(operation) != PA_OPERATION_RUNNING; });
    if (!answered)
        pa_operation_cancel(operation);
    pa_operation_unref(operation);
    if (!answered)
        throw noAnswer();
}

bool PulseConnection::waitFor(const std::function<bool()> &done)
{
    struct Deadline {
        pa_threaded_mainloop *mainloop;
        bool passed = false;
    } deadline{mainloop_, false};
    pa_mainloop_api *api = pa_threaded_mainloop_get_api(mainloop_);
    struct timeval when;
    pa_timeval_add(pa_gettimeofday(&when), pa_usec_t(answerTimeoutMilliseconds) * PA_USEC_PER_MSEC);
    pa_time_event *timer = api->time_new(
        api, &when,
        [](pa_mainloop_api *, pa_time_event *, const struct timeval *, void *data) {
            auto reached = static_cast<Deadline *>(data);
            reached->passed = true;
            signalLoop(reached->mainloop);
        },
        &deadline);
    while (!done() && !deadline.passed)
        pa_threaded_mainloop_wait(mainloop_);
    api->time_free(timer);
    return done();
}

bool PulseConnection::isConnected() const
{
    if (!context_)
        return false;
    Lock lock(*this);
    return pa_context_get_state(context_) == PA_CONTEXT_READY;
}

void PulseConnection::disconnect()
{
    if (!context_)
        return;
    Lock lock(*this);
    pa_context_set_state_callback(context_, nullptr, nullptr);
    pa_context_disconnect(context_);
    pa_context_unref(context_);
    context_ = nullptr;
}

QString PulseConnection::lastError() const
{
    if (!context_)
        return QStringLiteral("not connected");
    return QString::fromUtf8(pa_strerror(pa_context_errno(context_)));
}

PulseServerInfo PulseConnection::serverInfo()
{
    struct Query {
        pa_threaded_mainloop *mainloop;
        PulseServerInfo info;
    } query{mainloop_, {}};
    Lock lock(*this);
    auto operation = pa_context_get_server_info(
        context_,
        [](pa_context *, const pa_server_info *info, void *data) {
            auto asked = static_cast<Query *>(data);
            if (info) {
                asked->info.defaultSinkName = QString::fromUtf8(info->default_sink_name);
                asked->info.defaultSourceName = QString::fromUtf8(info->default_source_name);
            }
            signalLoop(asked->mainloop);
        },
        &query);
    awaitQuery(operation);
    return query.info;
}

std::optional<PulseDeviceInfo> PulseConnection::sourceInfo(const QString &name)
{
    DeviceQuery query{mainloop_, {}};
    Lock lock(*this);
    auto operation = pa_context_get_source_info_by_name(
        context_, name.toUtf8().constData(),
        [](pa_context *, const pa_source_info *info, int, void *data) {
            auto asked = static_cast<DeviceQuery *>(data);
            if (info)
                asked->device = deviceInfo(info);
            signalLoop(asked->mainloop);
        },
        &query);
    awaitQuery(operation);
    return query.device;
}

std::optional<PulseDeviceInfo> PulseConnection::sinkInfo(const QString &name)
{
    DeviceQuery query{mainloop_, {}};
    Lock lock(*this);
    auto operation = pa_context_get_sink_info_by_name(
        context_, name.toUtf8().constData(),
        [](pa_context *, const pa_sink_info *info, int, void *data) {
            auto asked = static_cast<DeviceQuery *>(data);
            if (info) {
                asked->device = deviceInfo(info);
                asked->device->monitorSourceName = QString::fromUtf8(info->monitor_source_name);
            }
            signalLoop(asked->mainloop);
        },
        &query);
    awaitQuery(operation);
    return query.device;
}

} // namespace kestil
