#include "capture/AudioFileSource.h"

#include "base/Error.h"

#include <QFile>
#include <QFileInfo>

#include <sndfile.h>

#include <chrono>
#include <cstdint>
#include <vector>

namespace kestil {

namespace {

// Buffers handed to the queue and not yet taken: enough to keep the consumer
// busy, few enough that a slow consumer holds the reader back.
constexpr int maximumInFlight = 2;

AudioSampleFormat sampleFormatFor(int subtype)
{
    switch (subtype) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_PCM_16:
        return AudioSampleFormat::int16;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_PCM_32:
        return AudioSampleFormat::int32;
    default:
        return AudioSampleFormat::float32;
    }
}

qint64 sampleBytes(AudioSampleFormat format)
{
    return format == AudioSampleFormat::int16 ? 2 : 4;
}

} // namespace

struct AudioFileSource::Shared {
    std::mutex mutex;
    std::condition_variable changed;
    SNDFILE *file = nullptr;
    bool stopping = false;
    bool readingDone = false;
    bool failed = false;
    bool reachedEnd = false;
    int inFlight = 0;
    qint64 consumedFrames = 0;

    ~Shared()
    {
        if (file)
            sf_close(file);
    }
};

AudioFileSource::AudioFileSource(QString path, Pace pace)
    : path_(std::move(path)), pace_(pace), shared_(std::make_shared<Shared>())
{
}

AudioFileSource::~AudioFileSource()
{
    invalidate();
}

void AudioFileSource::prepare()
{
    if (prepared_)
        return;
    prepared_ = true;
    SF_INFO info{};
    SNDFILE *file = sf_open(QFile::encodeName(path_).constData(), SFM_READ, &info);
    if (!file) {
        errorMessage_ = QStringLiteral("The audio file “%1” could not be opened: %2")
                            .arg(QFileInfo(path_).fileName(), QString::fromUtf8(sf_strerror(nullptr)));
        return;
    }
    if (info.samplerate <= 0 || info.channels <= 0) {
        sf_close(file);
        errorMessage_ =
            QStringLiteral("The audio file “%1” holds no audio.").arg(QFileInfo(path_).fileName());
        return;
    }
    shared_->file = file;
    totalFrames_ = info.frames;
    fileSubtype_ = info.format & SF_FORMAT_SUBMASK;
    format_ = AudioFormat{sampleFormatFor(fileSubtype_), double(info.samplerate), info.channels};
}

std::optional<AudioFormat> AudioFileSource::format() const
{
    return format_;
}

QString AudioFileSource::errorMessage() const
{
    return errorMessage_;
}

void AudioFileSource::run(CaptureQueue &queue, InputBlock block, InvalidationHandler invalidationHandler,
                          FailureHandler failureHandler)
{
    if (invalidated_)
        throw LocalError(QStringLiteral("This file recording has already ended."));
    if (!format_)
        throw LocalError(
            errorMessage_.isEmpty()
                ? QStringLiteral("The audio file “%1” was not opened.").arg(QFileInfo(path_).fileName())
                : errorMessage_);
    if (reader_.joinable())
        return;
    invalidationHandler_ = std::move(invalidationHandler);
    reader_ = std::thread([this, &queue, block = std::move(block), failure = std::move(failureHandler)] {
        read(queue, block, failure);
    });
}

void AudioFileSource::read(CaptureQueue &queue, InputBlock block, FailureHandler failureHandler)
{
    const auto shared = shared_;
    const AudioFormat format = *format_;
    const auto sharedBlock = std::make_shared<const InputBlock>(std::move(block));
    const auto started = std::chrono::steady_clock::now();
    qint64 delivered = 0;
    QString failure;

    for (;;) {
        {
            std::unique_lock lock(shared->mutex);
            if (pace_ == Pace::asFastAsConsumed)
                shared->changed.wait(lock,
                                     [&] { return shared->stopping || shared->inFlight < maximumInFlight; });
            if (shared->stopping)
                break;
        }

        std::vector<unsigned char> bytes(
            size_t(framesPerBuffer * format.channelCount * sampleBytes(format.sampleFormat)));
        sf_count_t frames = 0;
        switch (format.sampleFormat) {
        case AudioSampleFormat::int16:
            frames = sf_readf_short(shared->file, reinterpret_cast<short *>(bytes.data()), framesPerBuffer);
            break;
        case AudioSampleFormat::int32:
            frames = sf_readf_int(shared->file, reinterpret_cast<int *>(bytes.data()), framesPerBuffer);
            break;
        default:
            frames = sf_readf_float(shared->file, reinterpret_cast<float *>(bytes.data()), framesPerBuffer);
            break;
        }
        if (frames < framesPerBuffer && sf_error(shared->file) != SF_ERR_NO_ERROR)
            failure = QStringLiteral("Reading the audio file “%1” failed: %2")
                          .arg(QFileInfo(path_).fileName(), QString::fromUtf8(sf_strerror(shared->file)));
        if (frames > 0 && pace_ == Pace::realTime) {
            // A microphone hands over a buffer once its last frame was heard.
            const auto due =
                started + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                              std::chrono::duration<double>(double(delivered + frames) / format.sampleRate));
            std::unique_lock lock(shared->mutex);
            shared->changed.wait_until(lock, due, [&] { return shared->stopping; });
            if (shared->stopping)
                break;
        }
        if (frames > 0) {
            bytes.resize(size_t(frames * format.channelCount * sampleBytes(format.sampleFormat)));
            {
                std::lock_guard guard(shared->mutex);
                if (shared->stopping)
                    break;
                ++shared->inFlight;
            }
            queue.async(
                [shared, sharedBlock, channels = format.channelCount, frames, bytes = std::move(bytes)] {
                    const AudioBuffer buffer{channels, bytes.data(), qint64(bytes.size())};
                    (*sharedBlock)(AudioBufferList(&buffer, 1));
                    std::lock_guard guard(shared->mutex);
                    --shared->inFlight;
                    shared->consumedFrames += frames;
                    shared->changed.notify_all();
                });
            delivered += frames;
        }
        if (frames < framesPerBuffer) {
            if (failure.isEmpty()) {
                std::lock_guard guard(shared->mutex);
                shared->reachedEnd = true;
            }
            break;
        }
    }

    std::lock_guard guard(shared->mutex);
    shared->readingDone = true;
    if (!failure.isEmpty()) {
        shared->failed = true;
        if (failureHandler)
            queue.async([failureHandler, failure] { failureHandler(failure); });
    }
    shared->changed.notify_all();
}

bool AudioFileSource::waitUntilFinished(std::chrono::milliseconds timeout)
{
    std::unique_lock lock(shared_->mutex);
    shared_->changed.wait_for(
        lock, timeout, [&] { return shared_->stopping || (shared_->readingDone && shared_->inFlight == 0); });
    return shared_->reachedEnd && shared_->inFlight == 0;
}

qint64 AudioFileSource::consumedFrames() const
{
    std::lock_guard guard(shared_->mutex);
    return shared_->consumedFrames;
}

void AudioFileSource::invalidate()
{
    if (!prepared_)
        return;
    {
        std::lock_guard guard(shared_->mutex);
        shared_->stopping = true;
        shared_->changed.notify_all();
    }
    if (reader_.joinable())
        reader_.join();
    if (auto handler = std::exchange(invalidationHandler_, {}))
        handler();
    invalidated_ = true;
}

} // namespace kestil
