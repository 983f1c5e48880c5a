#include "capture/MonoMix.h"

#include "base/Error.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace kestil {

namespace {

qint64 bytesPerSample(AudioSampleFormat format)
{
    switch (format) {
    case AudioSampleFormat::float32:
    case AudioSampleFormat::int32:
        return 4;
    case AudioSampleFormat::int16:
        return 2;
    case AudioSampleFormat::float64:
        break;
    }
    throw LocalError(QStringLiteral("Unsupported capture sample format."));
}

int channelsOf(const AudioBuffer &buffer)
{
    return std::max(buffer.channels, 1);
}

qint64 framesOf(const AudioBuffer &buffer, qint64 sampleBytes)
{
    return buffer.byteSize / (sampleBytes * channelsOf(buffer));
}

// Adds the channel average of each frame of one buffer to `out`. Samples are
// read with memcpy: a buffer from a sound server need not be aligned. The
// common layouts (mono, stereo) get a loop with the channel count fixed at
// compile time; the arithmetic is the same in every case.
template <typename Sample, int FixedChannels>
void addFrames(const unsigned char *bytes, int channels, qint64 frames, float scale, float *out)
{
    if constexpr (FixedChannels > 0)
        channels = FixedChannels;
    const float divisor = float(channels);
    for (qint64 frame = 0; frame < frames; ++frame) {
        float sum = 0;
        for (int channel = 0; channel < channels; ++channel) {
            Sample sample;
            std::memcpy(&sample, bytes + (frame * channels + channel) * qint64(sizeof(Sample)),
                        sizeof(Sample));
            sum += float(sample) * scale;
        }
        out[frame] += sum / divisor;
    }
}

template <typename Sample> void addBuffer(const AudioBuffer &buffer, qint64 frames, float scale, float *out)
{
    const int channels = channelsOf(buffer);
    const auto *bytes = static_cast<const unsigned char *>(buffer.data);
    switch (channels) {
    case 1:
        return addFrames<Sample, 1>(bytes, channels, frames, scale, out);
    case 2:
        return addFrames<Sample, 2>(bytes, channels, frames, scale, out);
    default:
        return addFrames<Sample, 0>(bytes, channels, frames, scale, out);
    }
}

} // namespace

void mixToMono(AudioBufferList buffers, AudioSampleFormat format, std::vector<float> &out)
{
    const qint64 sampleBytes = bytesPerSample(format);
    qint64 length = 0;
    for (const auto &buffer : buffers)
        length = std::max(length, framesOf(buffer, sampleBytes));
    out.assign(size_t(length), 0.0f);
    if (length == 0)
        return;

    // The frames each contributing buffer covers. A buffer covers a prefix of
    // the output, so the number of buffers at a frame is the number of
    // coverages beyond it: no counter per frame is needed.
    qint64 coverage[16];
    std::vector<qint64> moreCoverage;
    qint64 *covered = coverage;
    if (buffers.size() > std::size(coverage)) {
        moreCoverage.resize(buffers.size());
        covered = moreCoverage.data();
    }
    size_t contributors = 0;

    for (const auto &buffer : buffers) {
        const qint64 frames = framesOf(buffer, sampleBytes);
        if (buffer.data == nullptr || frames == 0)
            continue;
        switch (format) {
        case AudioSampleFormat::float32:
            addBuffer<float>(buffer, frames, 1.0f, out.data());
            break;
        case AudioSampleFormat::int32:
            addBuffer<std::int32_t>(buffer, frames, 4.656613e-10f, out.data());
            break;
        case AudioSampleFormat::int16:
            addBuffer<std::int16_t>(buffer, frames, 1.0f / 32768.0f, out.data());
            break;
        case AudioSampleFormat::float64:
            break;
        }
        covered[contributors++] = frames;
    }
    if (contributors <= 1)
        return;

    std::sort(covered, covered + contributors, std::greater<>());
    // Frames [covered[k], covered[k-1]) are reached by exactly k buffers.
    for (size_t k = contributors; k >= 2; --k) {
        const qint64 begin = k < contributors ? covered[k] : 0;
        const qint64 end = covered[k - 1];
        const float count = float(k);
        for (qint64 frame = begin; frame < end; ++frame)
            out[size_t(frame)] /= count;
    }
}

std::vector<float> mixToMono(AudioBufferList buffers, AudioSampleFormat format)
{
    std::vector<float> out;
    mixToMono(buffers, format, out);
    return out;
}

float peakLevel(std::span<const float> samples)
{
    float peak = 0;
    for (float sample : samples)
        peak = std::max(peak, std::fabs(sample));
    return peak;
}

} // namespace kestil
