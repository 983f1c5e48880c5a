#pragma once

#include "capture/PulseConnection.h"

#include <QString>

#include <functional>
#include <vector>

struct pa_stream;

namespace kestil {

// One record stream of 32-bit float samples from a source of the sound
// server, cut into buffers of a fixed number of frames. The server sends
// smaller fragments so that little audio waits in transit when the stream
// stops; they are gathered here.
class PulseRecordStream {
public:
    // Called on the connection's loop thread with each full buffer of
    // interleaved samples.
    using BufferHandler = std::function<void(std::vector<float> samples)>;
    // Called on the loop thread, once, when the server ends a running stream
    // on its own (the server went away, the device was removed).
    using FailureHandler = std::function<void(const QString &reason)>;

    // Called on the loop thread when the server moves the running stream to
    // another source (the one it recorded from was removed), with the new
    // source's name.
    using MovedHandler = std::function<void(const QString &source)>;

    static constexpr int framesPerBuffer = 4096;

    PulseRecordStream(PulseConnection &connection, QString device, int sampleRate, int channels,
                      BufferHandler onBuffer, FailureHandler onFailure = {});
    ~PulseRecordStream();

    PulseRecordStream(const PulseRecordStream &) = delete;
    PulseRecordStream &operator=(const PulseRecordStream &) = delete;

    // Set before start().
    void setMovedHandler(MovedHandler onMoved) { onMoved_ = std::move(onMoved); }

    // Connects the stream and waits until the server has it running. Throws
    // SystemError whose description is the server's bare reason ("No such
    // entity"), for the caller to phrase.
    void start();

    // Disconnects. After it returns the handler is not called again. Returns
    // the samples of a last, partial buffer (possibly none).
    std::vector<float> stop();

    int channels() const { return channels_; }

private:
    static void onRead(pa_stream *stream, size_t bytes, void *self);
    static void onState(pa_stream *stream, void *self);
    static void onMovedStream(pa_stream *stream, void *self);
    void gather(const void *data, size_t bytes);
    void release();

    PulseConnection &connection_;
    QString device_;
    int sampleRate_;
    int channels_;
    BufferHandler onBuffer_;
    FailureHandler onFailure_;
    MovedHandler onMoved_;
    bool running_ = false;
    pa_stream *stream_ = nullptr;
    std::vector<float> pending_;
};

} // namespace kestil
