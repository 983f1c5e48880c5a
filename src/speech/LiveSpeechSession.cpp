#include "LiveSpeechSession.h"

#include "LocalSpeech.h"

#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

#include <cmath>
#include <cstring>

namespace kestil {

namespace {

const QString incompleteSampleText = QStringLiteral("Live audio contains an incomplete PCM sample.");
const QString invalidBufferText = QStringLiteral("Invalid live audio buffer.");
const QString conversionUnavailableText = QStringLiteral("Live audio conversion is unavailable.");
const QString fellBehindText = QStringLiteral(
    "Live transcription fell behind the microphone. Transcription must stop to avoid silently losing words.");

} // namespace

std::unique_ptr<LiveSpeechSession> LiveSpeechSession::start(const QString &locale, FailureCallback failure,
                                                            ResultCallback onResult)
{
    return start(locale, std::move(failure), std::move(onResult), PreferenceStore::standard());
}

std::unique_ptr<LiveSpeechSession> LiveSpeechSession::start(const QString &locale, FailureCallback failure,
                                                            ResultCallback onResult,
                                                            PreferenceStore &preferences)
{
    // Recorded by LocalSpeech when it fails.
    const LocalSpeech::Configuration configuration = LocalSpeech::configuration(locale, preferences);

    std::unique_ptr<SpeechEngine> engine;
    try {
        engine = LocalSpeech::makeEngine(configuration);
        if (!(engine->sampleRate() > 0))
            throw LocalError(QStringLiteral("No compatible on-device speech audio format."));
    } catch (const std::exception &error) {
        if (engine)
            engine->abort();
        LocalSpeech::recordFailure(preferences, error, locale,
                                   QStringLiteral("Transcription: ") +
                                       LocalSpeech::engineName(configuration.engine) + QLatin1Char(' ') +
                                       LocalSpeech::bcp47Identifier(locale));
        throw;
    }
    // From here on the preference means the latest session that could not start.
    settings::removeLocalSpeechLastFailure(preferences);
    return std::make_unique<LiveSpeechSession>(std::move(engine), std::move(failure), std::move(onResult));
}

LiveSpeechSession::LiveSpeechSession(std::unique_ptr<SpeechEngine> engine, FailureCallback failure,
                                     ResultCallback onResult)
    : engine_(std::move(engine)), format_(engine_->sampleRate()), failure_(std::move(failure)),
      onResult_(std::move(onResult))
{
    worker_ = std::thread([this] { run(); });
}

LiveSpeechSession::~LiveSpeechSession()
{
    if (!ended_.load())
        cancel();
}

void LiveSpeechSession::append(const void *data, qsizetype bytes, double sampleRate)
{
    std::lock_guard lock(lock_);
    if (conversionError_)
        return; // dropped on purpose: the audio is on disk already
    try {
        appendLocked(data, bytes, sampleRate);
    } catch (const Error &) {
        failLocked(std::current_exception());
    } catch (const std::bad_alloc &) {
        try {
            throw LocalError(invalidBufferText);
        } catch (const Error &) {
            failLocked(std::current_exception());
        }
    }
}

void LiveSpeechSession::appendLocked(const void *data, qsizetype bytes, double sampleRate)
{
    if (bytes <= 0 || bytes % qsizetype(sizeof(float)) != 0)
        throw LocalError(incompleteSampleText);
    if (!data || !(sampleRate > 0) || !std::isfinite(sampleRate))
        throw LocalError(invalidBufferText);

    // The one copy of the capture buffer.
    std::vector<float> source(std::size_t(bytes) / sizeof(float));
    std::memcpy(source.data(), data, std::size_t(bytes));

    if (sampleRate == format_) {
        pushLocked(std::move(source));
        return;
    }

    if (!converter_ || inputRate_ != sampleRate) {
        std::vector<float> tail;
        if (converter_) {
            // The old converter still holds the end of the previous stretch.
            converter_->flush(tail);
        }
        try {
            converter_ = std::make_unique<StreamResampler>(sampleRate, format_);
        } catch (const Error &) {
            converter_.reset();
            inputRate_ = 0;
            throw LocalError(conversionUnavailableText);
        }
        inputRate_ = sampleRate;
        if (!tail.empty())
            pushLocked(std::move(tail));
    }

    std::vector<float> converted;
    converted.reserve(converter_->outputCapacity(source.size()));
    converter_->process(source, converted);
    if (!converted.empty())
        pushLocked(std::move(converted));
}

void LiveSpeechSession::pushLocked(std::vector<float> &&buffer)
{
    // A terminated stream needs nothing: the session ends it only on failure
    // or in finish().
    if (queue_.yield(std::move(buffer)) == BoundedAudioQueue::YieldResult::dropped)
        throw LocalError(fellBehindText);
}

void LiveSpeechSession::failLocked(std::exception_ptr error)
{
    conversionError_ = error;
    // The end of the stream lets the engine run out over what it has.
    queue_.finish();
    if (!failure_)
        return;
    try {
        std::rethrow_exception(error);
    } catch (const Error &e) {
        failure_(e);
    } catch (...) {
    }
}

void LiveSpeechSession::run()
{
    try {
        for (;;) {
            auto buffers = queue_.takeAll();
            if (buffers.empty())
                break;
            std::size_t total = 0;
            for (const auto &b : buffers)
                total += b.size();
            std::vector<float> joined;
            joined.reserve(total);
            for (const auto &b : buffers)
                joined.insert(joined.end(), b.begin(), b.end());
            deliver(engine_->feed(joined));
        }
        std::unique_lock lock(controlMutex_);
        control_.wait(lock, [this] { return finalize_ || cancelled_; });
        const bool finalize = finalize_ && !cancelled_;
        lock.unlock();
        if (finalize)
            deliver(engine_->finish());
    } catch (...) {
        analysisError_ = std::current_exception();
        // No more input can be taken; appends from now on meet a finished
        // stream and return.
        queue_.finish();
        bool cancelled;
        {
            std::lock_guard lock(controlMutex_);
            cancelled = cancelled_;
        }
        if (!cancelled && failure_) {
            std::lock_guard lock(lock_);
            try {
                std::rethrow_exception(analysisError_);
            } catch (const Error &e) {
                failure_(e);
            } catch (...) {
            }
        }
    }
}

void LiveSpeechSession::deliver(const std::vector<SpeechResult> &results)
{
    for (const SpeechResult &result : results) {
        {
            std::lock_guard lock(controlMutex_);
            if (cancelled_)
                return;
        }
        applySpeechResult(transcript_, result);
        if (onResult_)
            onResult_(transcript_);
    }
}

LocalTranscript LiveSpeechSession::finish()
{
    if (ended_.exchange(true))
        throw LocalError(QStringLiteral("This live transcription has already ended."));
    {
        std::lock_guard lock(lock_);
        // The converter holds the last few milliseconds of audio.
        if (!conversionError_ && converter_) {
            try {
                std::vector<float> tail;
                converter_->flush(tail);
                if (!tail.empty())
                    pushLocked(std::move(tail));
            } catch (const Error &) {
                failLocked(std::current_exception());
            }
        }
        queue_.finish();
    }
    {
        std::lock_guard lock(controlMutex_);
        finalize_ = true;
    }
    control_.notify_all();
    worker_.join();

    std::exception_ptr conversionError;
    {
        std::lock_guard lock(lock_);
        conversionError = conversionError_;
    }
    // The first cause wins over its consequences.
    if (conversionError)
        std::rethrow_exception(conversionError);
    if (analysisError_)
        std::rethrow_exception(analysisError_);
    return transcript_;
}

void LiveSpeechSession::cancel()
{
    if (ended_.exchange(true) && !worker_.joinable())
        return;
    queue_.finish();
    {
        std::lock_guard lock(controlMutex_);
        cancelled_ = true;
    }
    control_.notify_all();
    engine_->abort();
    if (worker_.joinable())
        worker_.join();
}

} // namespace kestil
