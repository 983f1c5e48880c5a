#pragma once

#include "capture/AudioSource.h"
#include "capture/CaptureBufferPairing.h"
#include "capture/PulseConnection.h"
#include "capture/PulseRecordStream.h"

#include <atomic>
#include <memory>
#include <mutex>

namespace kestil {

// The microphone together with what the computer plays: the default source
// and the monitor of the default sink, recorded as two streams at the
// microphone's rate. Each callback on the capture queue receives the buffer
// list [microphone, system]; the mono mix averages them, and that average is
// the mix of voice and system audio. When one stream delivers nothing for a
// while (an idle output's monitor), the other goes on alone.
class SystemAudioSource final : public AudioSource {
public:
    SystemAudioSource();
    ~SystemAudioSource() override;

    void prepare() override;
    std::optional<AudioFormat> format() const override;
    QString errorMessage() const override;
    void run(CaptureQueue &queue, InputBlock block, InvalidationHandler invalidationHandler = {},
             FailureHandler failureHandler = {}) override;
    void invalidate() override;

    QString microphoneName() const { return microphone_.name; }
    QString monitorName() const { return monitorName_; }

private:
    void deliver(std::vector<CaptureBufferPairing::Pair> &ready);

    std::unique_ptr<PulseConnection> connection_;
    std::unique_ptr<PulseRecordStream> microphoneStream_;
    std::unique_ptr<PulseRecordStream> systemStream_;
    PulseDeviceInfo microphone_;
    QString monitorName_;
    int monitorChannels_ = 0;
    std::optional<AudioFormat> format_;
    QString errorMessage_;
    bool prepared_ = false;
    bool running_ = false;
    bool invalidated_ = false;
    CaptureQueue *queue_ = nullptr;
    std::shared_ptr<const InputBlock> block_;
    InvalidationHandler invalidationHandler_;
    std::shared_ptr<std::atomic<bool>> active_;
    // Both streams call in on the connection's loop thread; the lock also
    // covers the last flush from invalidate().
    std::mutex pairingLock_;
    CaptureBufferPairing pairing_;
};

} // namespace kestil
