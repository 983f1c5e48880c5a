#pragma once

#include <cstddef>
#include <deque>
#include <vector>

namespace kestil {

// Buffers from the microphone and the system's output, paired for one
// callback: [microphone, system]. The two streams run at one rate, so their
// buffers pair in arrival order. A stream that falls silent (a monitor of an
// idle, suspended output delivers nothing at all) must never hold up the
// other: once one side is more than `maximumLag` buffers ahead, its oldest
// buffer goes out alone, with an empty partner.
class CaptureBufferPairing {
public:
    struct Pair {
        std::vector<float> microphone;
        std::vector<float> system;
    };

    // About 170 ms of audio at 48 kHz in 4096-frame buffers.
    static constexpr size_t defaultMaximumLag = 2;

    explicit CaptureBufferPairing(size_t maximumLag = defaultMaximumLag) : maximumLag_(maximumLag) {}

    // Adds a buffer and appends whatever is ready to `ready`, oldest first.
    void addMicrophone(std::vector<float> samples, std::vector<Pair> &ready);
    void addSystem(std::vector<float> samples, std::vector<Pair> &ready);

    // Everything still waiting, paired where both sides have a buffer.
    void flush(std::vector<Pair> &ready);

    size_t waitingMicrophone() const { return microphone_.size(); }
    size_t waitingSystem() const { return system_.size(); }

private:
    void release(std::vector<Pair> &ready, size_t lag);

    size_t maximumLag_;
    std::deque<std::vector<float>> microphone_;
    std::deque<std::vector<float>> system_;
};

} // namespace kestil
