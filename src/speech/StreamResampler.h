#pragma once

#include <span>
#include <vector>

struct soxr;

namespace kestil {

// A streaming sample-rate converter for mono 32-bit float audio (libsoxr).
// It keeps its filter state between calls, so that audio cut into buffers
// comes out as one continuous signal; flush() gives the samples the filter
// still holds once the input has ended.
class StreamResampler {
public:
    // Throws SystemError when libsoxr refuses the rates.
    StreamResampler(double inputRate, double outputRate);
    ~StreamResampler();
    StreamResampler(const StreamResampler &) = delete;
    StreamResampler &operator=(const StreamResampler &) = delete;

    double inputRate() const { return inputRate_; }
    double outputRate() const { return outputRate_; }

    // The room one call may need for its output: the input converted to the
    // output rate, rounded up, plus 256 frames.
    std::size_t outputCapacity(std::size_t inputFrames) const;

    // Converts one buffer. Appends what the filter releases to `output` (it
    // may hold back a few samples until the next call) and returns how many
    // samples it appended. Throws SystemError with libsoxr's words on failure.
    std::size_t process(std::span<const float> input, std::vector<float> &output);

    // Ends the input: appends the samples still inside the filter.
    std::size_t flush(std::vector<float> &output);

private:
    soxr *soxr_ = nullptr;
    double inputRate_;
    double outputRate_;
};

} // namespace kestil
