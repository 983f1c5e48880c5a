#include "capture/PulseRecordStream.h"

#include "base/Error.h"

#include <pulse/error.h>
#include <pulse/stream.h>
#include <pulse/thread-mainloop.h>

#include <algorithm>
#include <cstring>

namespace kestil {

namespace {

// The fragment the server sends at a time: about 21 ms at 48 kHz.
constexpr int framesPerFragment = 1024;

} // namespace

PulseRecordStream::PulseRecordStream(PulseConnection &connection, QString device, int sampleRate,
                                     int channels, BufferHandler onBuffer, FailureHandler onFailure)
    : connection_(connection), device_(std::move(device)), sampleRate_(sampleRate), channels_(channels),
      onBuffer_(std::move(onBuffer)), onFailure_(std::move(onFailure))
{
    pending_.reserve(size_t(framesPerBuffer) * size_t(channels_));
}

PulseRecordStream::~PulseRecordStream()
{
    stop();
}

void PulseRecordStream::start()
{
    PulseConnection::Lock lock(connection_);
    if (stream_)
        return;
    pa_sample_spec sampleSpec{PA_SAMPLE_FLOAT32LE, uint32_t(sampleRate_), uint8_t(channels_)};
    if (!pa_sample_spec_valid(&sampleSpec))
        throw SystemError(QStringLiteral("The sound server cannot record %1 channels at %2 Hz.")
                              .arg(channels_)
                              .arg(sampleRate_));
    pa_channel_map map;
    pa_channel_map_init_auto(&map, uint8_t(channels_), PA_CHANNEL_MAP_DEFAULT);
    stream_ = pa_stream_new(connection_.context(), "Kestil capture", &sampleSpec, &map);
    if (!stream_)
        throw SystemError(connection_.lastError());
    pa_stream_set_state_callback(stream_, &PulseRecordStream::onState, this);
    pa_stream_set_read_callback(stream_, &PulseRecordStream::onRead, this);
    pa_stream_set_moved_callback(stream_, &PulseRecordStream::onMovedStream, this);

    pa_buffer_attr attributes;
    std::memset(&attributes, 0xff, sizeof attributes);
    attributes.fragsize = uint32_t(pa_frame_size(&sampleSpec) * framesPerFragment);
    const QByteArray device = device_.toUtf8();
    if (pa_stream_connect_record(stream_, device.isEmpty() ? nullptr : device.constData(), &attributes,
                                 PA_STREAM_ADJUST_LATENCY) < 0) {
        const QString reason = connection_.lastError();
        release();
        throw SystemError(reason);
    }
    const bool settled = connection_.waitFor([this] {
        const auto state = pa_stream_get_state(stream_);
        return state == PA_STREAM_READY || !PA_STREAM_IS_GOOD(state);
    });
    if (settled && pa_stream_get_state(stream_) == PA_STREAM_READY) {
        running_ = true;
        return;
    }
    const QString reason =
        settled ? connection_.lastError() : QStringLiteral("the sound server did not answer in time");
    release();
    throw SystemError(reason);
}

std::vector<float> PulseRecordStream::stop()
{
    PulseConnection::Lock lock(connection_);
    release();
    std::vector<float> rest;
    rest.swap(pending_);
    return rest;
}

void PulseRecordStream::release()
{
    running_ = false;
    if (!stream_)
        return;
    pa_stream_set_read_callback(stream_, nullptr, nullptr);
    pa_stream_set_state_callback(stream_, nullptr, nullptr);
    pa_stream_set_moved_callback(stream_, nullptr, nullptr);
    if (PA_STREAM_IS_GOOD(pa_stream_get_state(stream_)))
        pa_stream_disconnect(stream_);
    pa_stream_unref(stream_);
    stream_ = nullptr;
}

void PulseRecordStream::onState(pa_stream *stream, void *self)
{
    auto recorder = static_cast<PulseRecordStream *>(self);
    if (recorder->running_ && !PA_STREAM_IS_GOOD(pa_stream_get_state(stream))) {
        recorder->running_ = false;
        if (recorder->onFailure_)
            recorder->onFailure_(recorder->connection_.lastError());
    }
    pa_threaded_mainloop_signal(recorder->connection_.mainloop(), 0);
}

void PulseRecordStream::onMovedStream(pa_stream *stream, void *self)
{
    auto recorder = static_cast<PulseRecordStream *>(self);
    if (recorder->running_ && recorder->onMoved_) {
        const char *name = pa_stream_get_device_name(stream);
        recorder->onMoved_(name ? QString::fromUtf8(name) : QString());
    }
}

void PulseRecordStream::onRead(pa_stream *stream, size_t, void *self)
{
    auto recorder = static_cast<PulseRecordStream *>(self);
    for (;;) {
        const void *data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(stream, &data, &bytes) < 0 || bytes == 0)
            return;
        // A hole (no data for a stretch) is kept as silence, so that time in
        // the recording stays time in the room.
        recorder->gather(data, bytes);
        pa_stream_drop(stream);
    }
}

void PulseRecordStream::gather(const void *data, size_t bytes)
{
    const size_t bufferSamples = size_t(framesPerBuffer) * size_t(channels_);
    const auto *source = static_cast<const unsigned char *>(data);
    size_t samples = bytes / sizeof(float);
    while (samples > 0) {
        const size_t take = std::min(samples, bufferSamples - pending_.size());
        const size_t at = pending_.size();
        pending_.resize(at + take);
        if (source) {
            std::memcpy(pending_.data() + at, source, take * sizeof(float));
            source += take * sizeof(float);
        } else {
            std::fill_n(pending_.data() + at, take, 0.0f);
        }
        samples -= take;
        if (pending_.size() == bufferSamples) {
            std::vector<float> full;
            full.reserve(bufferSamples);
            full.swap(pending_);
            onBuffer_(std::move(full));
        }
    }
}

} // namespace kestil
