#pragma once

#include "capture/AudioFormat.h"
#include "capture/DurableAudioWriter.h"

#include <span>
#include <vector>

namespace kestil {

// One buffer list after the audio path's work: its mono mix, already handed
// to the writer, and its peak level.
struct CapturedBuffer {
    // Points into the caller's scratch vector.
    std::span<const float> mono;
    float peak = 0;
};

// The work done for every buffer list on the audio path, in this order: mix
// to mono, append to the writer (audio reaches the disk before anything else
// sees it), measure the peak. Throws the mix's or the writer's error; the
// caller then stops capture and gives this buffer to nothing else. `scratch`
// keeps its storage between calls, so the path does not allocate.
CapturedBuffer captureBuffer(AudioBufferList buffers, AudioSampleFormat format, DurableAudioWriter &writer,
                             std::vector<float> &scratch);

} // namespace kestil
