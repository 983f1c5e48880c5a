#include "StreamResampler.h"

#include "base/Error.h"

#include <soxr.h>

#include <cmath>

namespace kestil {

StreamResampler::StreamResampler(double inputRate, double outputRate)
    : inputRate_(inputRate), outputRate_(outputRate)
{
    if (!(inputRate > 0) || !(outputRate > 0) || !std::isfinite(inputRate) || !std::isfinite(outputRate))
        throw SystemError(
            QStringLiteral("Audio at %1 Hz cannot be converted for speech recognition.").arg(inputRate));
    soxr_error_t error = nullptr;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    // Medium quality: a flat pass band up to well above the speech band at a
    // fraction of the high-quality filter's cost on the audio path.
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_MQ, 0);
    soxr_ = soxr_create(inputRate, outputRate, 1, &error, &io, &quality, nullptr);
    if (error || !soxr_) {
        if (soxr_)
            soxr_delete(soxr_);
        throw SystemError(QStringLiteral("The audio converter could not be set up: %1.")
                              .arg(QString::fromUtf8(error ? error : "unknown error")));
    }
}

StreamResampler::~StreamResampler()
{
    soxr_delete(soxr_);
}

std::size_t StreamResampler::outputCapacity(std::size_t inputFrames) const
{
    return std::size_t(std::ceil(double(inputFrames) * outputRate_ / inputRate_)) + 256;
}

std::size_t StreamResampler::process(std::span<const float> input, std::vector<float> &output)
{
    const std::size_t start = output.size();
    std::size_t consumed = 0;
    // One pass normally takes the whole buffer; the loop is for a filter that
    // asks for more room than the estimate gave it.
    do {
        const std::size_t before = output.size();
        const std::size_t room = outputCapacity(input.size() - consumed);
        output.resize(before + room);
        std::size_t used = 0;
        std::size_t produced = 0;
        const soxr_error_t error = soxr_process(soxr_, input.data() + consumed, input.size() - consumed,
                                                &used, output.data() + before, room, &produced);
        output.resize(before + produced);
        if (error)
            throw SystemError(
                QStringLiteral("Live audio conversion failed: %1.").arg(QString::fromUtf8(error)));
        consumed += used;
        if (used == 0 && produced == 0)
            throw LocalError(QStringLiteral("Live audio conversion failed."));
    } while (consumed < input.size());
    return output.size() - start;
}

std::size_t StreamResampler::flush(std::vector<float> &output)
{
    std::size_t total = 0;
    // soxr releases its tail in pieces no larger than the room it is given.
    for (;;) {
        const std::size_t before = output.size();
        output.resize(before + 4096);
        std::size_t produced = 0;
        const soxr_error_t error =
            soxr_process(soxr_, nullptr, 0, nullptr, output.data() + before, 4096, &produced);
        output.resize(before + produced);
        if (error)
            throw SystemError(
                QStringLiteral("Live audio conversion failed: %1.").arg(QString::fromUtf8(error)));
        total += produced;
        if (produced == 0)
            break;
    }
    return total;
}

} // namespace kestil
