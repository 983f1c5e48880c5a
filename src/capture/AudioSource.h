#pragma once

#include "capture/AudioFormat.h"
#include "capture/CaptureQueue.h"

#include <QString>

#include <functional>
#include <optional>

namespace kestil {

// A source of capture audio: the microphone, the microphone with the
// system's output, or a file. The recording session prepares it, reads its
// format (or why there is none), runs it with a block that receives every
// buffer list on the capture queue, and invalidates it when capture stops.
class AudioSource {
public:
    using InputBlock = std::function<void(AudioBufferList buffers)>;
    using InvalidationHandler = std::function<void()>;
    // A full sentence saying why the source stopped delivering on its own.
    using FailureHandler = std::function<void(const QString &message)>;

    virtual ~AudioSource() = default;

    // Finds the device and its format. Runs once; a second call returns at
    // once. Never throws: a failure leaves format() empty and errorMessage()
    // set.
    virtual void prepare() = 0;

    // The format of every buffer to come, known after a successful prepare().
    virtual std::optional<AudioFormat> format() const = 0;

    // Why prepare() or the last run() failed; empty when nothing failed.
    virtual QString errorMessage() const = 0;

    // Starts delivering: every buffer list reaches `block` on `queue`, in
    // order. Throws an Error when the source cannot start. The invalidation
    // handler is called once, by invalidate(). The failure handler is called
    // on `queue`, after the last buffer, when the source ends without being
    // asked to (the sound server went away); it is never called after
    // invalidate() has returned. The queue must outlive the run, up to
    // invalidate().
    virtual void run(CaptureQueue &queue, InputBlock block, InvalidationHandler invalidationHandler = {},
                     FailureHandler failureHandler = {}) = 0;

    // Stops the source. When it returns, no further block is queued; audio
    // that had arrived is queued before it returns, so nothing heard is left
    // behind. Safe to call more than once, and in any state.
    virtual void invalidate() = 0;
};

} // namespace kestil
