#include "capture/CaptureBufferPairing.h"

namespace kestil {

void CaptureBufferPairing::addMicrophone(std::vector<float> samples, std::vector<Pair> &ready)
{
    microphone_.push_back(std::move(samples));
    release(ready, maximumLag_);
}

void CaptureBufferPairing::addSystem(std::vector<float> samples, std::vector<Pair> &ready)
{
    system_.push_back(std::move(samples));
    release(ready, maximumLag_);
}

void CaptureBufferPairing::flush(std::vector<Pair> &ready)
{
    release(ready, 0);
}

void CaptureBufferPairing::release(std::vector<Pair> &ready, size_t lag)
{
    for (;;) {
        if (!microphone_.empty() && !system_.empty()) {
            ready.push_back({std::move(microphone_.front()), std::move(system_.front())});
            microphone_.pop_front();
            system_.pop_front();
        } else if (microphone_.size() > lag) {
            ready.push_back({std::move(microphone_.front()), {}});
            microphone_.pop_front();
        } else if (system_.size() > lag) {
            ready.push_back({{}, std::move(system_.front())});
            system_.pop_front();
        } else {
            return;
        }
    }
}

} // namespace kestil
