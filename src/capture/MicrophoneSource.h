#pragma once

#include "capture/AudioSource.h"
#include "capture/PulseConnection.h"
#include "capture/PulseRecordStream.h"

#include <atomic>
#include <memory>
#include <mutex>

namespace kestil {

// The default source of the sound server, recorded as 32-bit float at its
// native rate and channel count in 4096-frame buffers. One source records one
// segment: after invalidate() it cannot run again.
class MicrophoneSource final : public AudioSource {
public:
    MicrophoneSource();
    ~MicrophoneSource() override;

    void prepare() override;
    std::optional<AudioFormat> format() const override;
    QString errorMessage() const override;
    void run(CaptureQueue &queue, InputBlock block, InvalidationHandler invalidationHandler = {},
             FailureHandler failureHandler = {}) override;
    void invalidate() override;

    // The sound server's name of the source being recorded.
    QString deviceName() const { return device_.name; }

private:
    void deliver(std::vector<float> samples);

    std::unique_ptr<PulseConnection> connection_;
    std::unique_ptr<PulseRecordStream> stream_;
    PulseDeviceInfo device_;
    std::optional<AudioFormat> format_;
    QString errorMessage_;
    bool prepared_ = false;
    bool running_ = false;
    bool invalidated_ = false;
    CaptureQueue *queue_ = nullptr;
    std::shared_ptr<const InputBlock> block_;
    InvalidationHandler invalidationHandler_;
    // Shared with failure blocks already on the queue: false once invalidated.
    std::shared_ptr<std::atomic<bool>> active_;
};

} // namespace kestil
