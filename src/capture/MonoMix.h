#pragma once

#include "capture/AudioFormat.h"

#include <span>
#include <vector>

namespace kestil {

// Mixes a buffer list to mono 32-bit floats: the channels of each buffer are
// averaged, then the buffers, each frame over the buffers that reach it, so a
// frame present in only one buffer keeps its full level and no input is
// favoured. 32-bit integers are scaled by 1 / 2^31, 16-bit integers by
// 1 / 32768; no other gain or limiter is applied. Throws LocalError
// "Unsupported capture sample format." for any other encoding.
//
// `out` is replaced by the result; its storage is reused, so the audio path
// mixes without allocating once it has seen its largest buffer.
void mixToMono(AudioBufferList buffers, AudioSampleFormat format, std::vector<float> &out);
std::vector<float> mixToMono(AudioBufferList buffers, AudioSampleFormat format);

// The largest absolute sample value; 0 for no samples.
float peakLevel(std::span<const float> samples);

} // namespace kestil
