#include "capture/CapturedBuffer.h"

#include "capture/MonoMix.h"

namespace kestil {

CapturedBuffer captureBuffer(AudioBufferList buffers, AudioSampleFormat format, DurableAudioWriter &writer,
                             std::vector<float> &scratch)
{
    mixToMono(buffers, format, scratch);
    writer.append(std::span<const float>(scratch));
    return CapturedBuffer{scratch, peakLevel(scratch)};
}

} // namespace kestil
