#include "capture/MicrophoneSource.h"

#include "base/Error.h"

namespace kestil {

MicrophoneSource::MicrophoneSource() = default;

MicrophoneSource::~MicrophoneSource()
{
    invalidate();
}

void MicrophoneSource::prepare()
{
    if (prepared_)
        return;
    prepared_ = true;
    errorMessage_.clear();
    try {
        connection_ = std::make_unique<PulseConnection>();
        connection_->connect();
        const auto server = connection_->serverInfo();
        const auto source = server.defaultSourceName.isEmpty()
                                ? std::nullopt
                                : connection_->sourceInfo(server.defaultSourceName);
        if (!source || source->sampleSpec.rate == 0 || source->sampleSpec.channels == 0) {
            errorMessage_ = QStringLiteral("No microphone input is available.");
            connection_.reset();
            return;
        }
        device_ = *source;
        format_ = AudioFormat{AudioSampleFormat::float32, double(source->sampleSpec.rate),
                              int(source->sampleSpec.channels)};
    } catch (const std::exception &error) {
        errorMessage_ = describe(error);
        connection_.reset();
    }
}

std::optional<AudioFormat> MicrophoneSource::format() const
{
    return format_;
}

QString MicrophoneSource::errorMessage() const
{
    return errorMessage_;
}

void MicrophoneSource::run(CaptureQueue &queue, InputBlock block, InvalidationHandler invalidationHandler,
                           FailureHandler failureHandler)
{
    if (invalidated_)
        throw LocalError(QStringLiteral("This microphone recording has already ended."));
    if (!format_ || !connection_)
        throw LocalError(errorMessage_.isEmpty() ? QStringLiteral("No microphone input is available.")
                                                 : errorMessage_);
    if (running_)
        return;
    errorMessage_.clear();
    queue_ = &queue;
    block_ = std::make_shared<const InputBlock>(std::move(block));
    invalidationHandler_ = std::move(invalidationHandler);
    active_ = std::make_shared<std::atomic<bool>>(true);

    auto onFailure = [queue = queue_, active = active_,
                      failure = std::move(failureHandler)](const QString &reason) {
        if (!failure)
            return;
        const QString message =
            QStringLiteral("The sound server ended the microphone recording: %1").arg(reason);
        queue->async([active, failure, message] {
            if (*active)
                failure(message);
        });
    };
    stream_ = std::make_unique<PulseRecordStream>(
        *connection_, device_.name, int(format_->sampleRate), format_->channelCount,
        [this](std::vector<float> samples) { deliver(std::move(samples)); }, std::move(onFailure));
    try {
        stream_->start();
    } catch (const std::exception &error) {
        stream_.reset();
        errorMessage_ =
            QStringLiteral("Could not start recording from the microphone: %1").arg(describe(error));
        throw SystemError(errorMessage_);
    }
    running_ = true;
}

void MicrophoneSource::deliver(std::vector<float> samples)
{
    queue_->async([block = block_, channels = format_->channelCount, samples = std::move(samples)] {
        const AudioBuffer buffer{channels, samples.data(), qint64(samples.size() * sizeof(float))};
        (*block)(AudioBufferList(&buffer, 1));
    });
}

void MicrophoneSource::invalidate()
{
    if (running_) {
        running_ = false;
        auto rest = stream_->stop();
        if (!rest.empty())
            deliver(std::move(rest));
        *active_ = false;
        stream_.reset();
    }
    if (auto handler = std::exchange(invalidationHandler_, {}))
        handler();
    if (prepared_)
        invalidated_ = true;
    connection_.reset();
}

} // namespace kestil
