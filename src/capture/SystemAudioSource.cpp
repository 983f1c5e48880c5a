#include "capture/SystemAudioSource.h"

#include "base/Error.h"

namespace kestil {

SystemAudioSource::SystemAudioSource() = default;

SystemAudioSource::~SystemAudioSource()
{
    invalidate();
}

void SystemAudioSource::prepare()
{
    if (prepared_)
        return;
    prepared_ = true;
    errorMessage_.clear();
    auto fail = [this](QString message) {
        errorMessage_ = std::move(message);
        connection_.reset();
    };
    try {
        connection_ = std::make_unique<PulseConnection>();
        connection_->connect();
        const auto server = connection_->serverInfo();

        const auto output =
            server.defaultSinkName.isEmpty() ? std::nullopt : connection_->sinkInfo(server.defaultSinkName);
        if (!output)
            return fail(QStringLiteral("No audio output devices found!"));
        if (output->monitorSourceName.isEmpty())
            return fail(
                QStringLiteral("System audio monitor creation failed: the output “%1” has no monitor.")
                    .arg(output->description));
        const auto monitor = connection_->sourceInfo(output->monitorSourceName);
        if (!monitor || monitor->sampleSpec.channels == 0)
            return fail(
                QStringLiteral("System audio monitor creation failed: the monitor of “%1” is missing.")
                    .arg(output->description));

        // Without a microphone there is no system-audio capture either: the
        // two are recorded and mixed as one.
        const auto input = server.defaultSourceName.isEmpty()
                               ? std::nullopt
                               : connection_->sourceInfo(server.defaultSourceName);
        if (!input || input->sampleSpec.rate == 0 || input->sampleSpec.channels == 0)
            return fail(QStringLiteral("No microphone input is available."));

        microphone_ = *input;
        monitorName_ = monitor->name;
        monitorChannels_ = monitor->sampleSpec.channels;
        // Both streams at the microphone's rate; the server converts the
        // monitor where the output runs at another rate.
        format_ = AudioFormat{AudioSampleFormat::float32, double(input->sampleSpec.rate),
                              int(input->sampleSpec.channels) + monitorChannels_};
    } catch (const Error &error) {
        fail(error.localizedDescription());
    } catch (...) {
        fail(QStringLiteral("Unknown error creating the system audio monitor."));
    }
}

std::optional<AudioFormat> SystemAudioSource::format() const
{
    return format_;
}

QString SystemAudioSource::errorMessage() const
{
    return errorMessage_;
}

void SystemAudioSource::run(CaptureQueue &queue, InputBlock block, InvalidationHandler invalidationHandler,
                            FailureHandler failureHandler)
{
    if (invalidated_)
        throw LocalError(QStringLiteral("This system audio recording has already ended."));
    if (!format_ || !connection_)
        throw LocalError(errorMessage_.isEmpty() ? QStringLiteral("System audio capture is unavailable.")
                                                 : errorMessage_);
    if (running_)
        return;
    errorMessage_.clear();
    queue_ = &queue;
    block_ = std::make_shared<const InputBlock>(std::move(block));
    invalidationHandler_ = std::move(invalidationHandler);
    active_ = std::make_shared<std::atomic<bool>>(true);

    auto onFailure =
        [queue = queue_, active = active_,
         failure = std::make_shared<FailureHandler>(std::move(failureHandler))](const QString &reason) {
            if (!*failure)
                return;
            const QString message =
                QStringLiteral("The sound server ended the system audio recording: %1").arg(reason);
            queue->async([active, failure, message] {
                // Both streams fail together when the server goes away; the
                // session hears of it once.
                if (active->exchange(false))
                    (*failure)(message);
            });
        };
    const int rate = int(format_->sampleRate);
    microphoneStream_ = std::make_unique<PulseRecordStream>(
        *connection_, microphone_.name, rate, int(microphone_.sampleSpec.channels),
        [this](std::vector<float> samples) {
            std::vector<CaptureBufferPairing::Pair> ready;
            std::lock_guard guard(pairingLock_);
            pairing_.addMicrophone(std::move(samples), ready);
            deliver(ready);
        },
        onFailure);
    systemStream_ = std::make_unique<PulseRecordStream>(
        *connection_, monitorName_, rate, monitorChannels_,
        [this](std::vector<float> samples) {
            std::vector<CaptureBufferPairing::Pair> ready;
            std::lock_guard guard(pairingLock_);
            pairing_.addSystem(std::move(samples), ready);
            deliver(ready);
        },
        onFailure);
    try {
        microphoneStream_->start();
        systemStream_->start();
    } catch (const std::exception &error) {
        microphoneStream_->stop();
        systemStream_->stop();
        microphoneStream_.reset();
        systemStream_.reset();
        errorMessage_ = QStringLiteral("Failed to start audio device: %1").arg(describe(error));
        throw SystemError(errorMessage_);
    }
    running_ = true;
}

void SystemAudioSource::deliver(std::vector<CaptureBufferPairing::Pair> &ready)
{
    const int microphoneChannels = int(microphone_.sampleSpec.channels);
    for (auto &pair : ready) {
        queue_->async(
            [block = block_, microphoneChannels, systemChannels = monitorChannels_, pair = std::move(pair)] {
                const AudioBuffer buffers[2] = {
                    {microphoneChannels, pair.microphone.empty() ? nullptr : pair.microphone.data(),
                     qint64(pair.microphone.size() * sizeof(float))},
                    {systemChannels, pair.system.empty() ? nullptr : pair.system.data(),
                     qint64(pair.system.size() * sizeof(float))},
                };
                (*block)(AudioBufferList(buffers, 2));
            });
    }
    ready.clear();
}

void SystemAudioSource::invalidate()
{
    if (running_) {
        running_ = false;
        auto microphoneRest = microphoneStream_->stop();
        auto systemRest = systemStream_->stop();
        std::vector<CaptureBufferPairing::Pair> ready;
        std::lock_guard guard(pairingLock_);
        if (!microphoneRest.empty())
            pairing_.addMicrophone(std::move(microphoneRest), ready);
        if (!systemRest.empty())
            pairing_.addSystem(std::move(systemRest), ready);
        pairing_.flush(ready);
        deliver(ready);
        *active_ = false;
        microphoneStream_.reset();
        systemStream_.reset();
    }
    if (auto handler = std::exchange(invalidationHandler_, {}))
        handler();
    if (prepared_)
        invalidated_ = true;
    connection_.reset();
}

} // namespace kestil
