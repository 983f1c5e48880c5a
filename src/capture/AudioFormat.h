#pragma once

#include <QtGlobal>

#include <span>

namespace kestil {

// The sample encoding of a capture buffer, as a source delivers it.
enum class AudioSampleFormat { float32, int32, int16, float64 };

// What a source reports before its first buffer.
struct AudioFormat {
    AudioSampleFormat sampleFormat = AudioSampleFormat::float32;
    double sampleRate = 0;
    // Channels of all of the source's buffers together.
    int channelCount = 0;

    friend bool operator==(const AudioFormat &, const AudioFormat &) = default;
};

// One buffer of interleaved samples. A buffer without data (null or empty)
// stands for an input that had nothing to give this time.
struct AudioBuffer {
    int channels = 1;
    const void *data = nullptr;
    qint64 byteSize = 0;
};

// The buffers that reach a source's block together: one per input, side by
// side (for microphone and system audio: [microphone, system]).
using AudioBufferList = std::span<const AudioBuffer>;

} // namespace kestil
