#pragma once

#include "capture/AudioSource.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace kestil {

// A recording that already exists (WAV, FLAC, Ogg and the other formats
// libsndfile reads), delivered in 4096-frame buffers as if it were being
// heard: at real-time pace, or as fast as the consumer takes the buffers.
// 16-bit files arrive as 16-bit samples, 24- and 32-bit integer files as
// 32-bit integers, everything else as 32-bit float.
class AudioFileSource final : public AudioSource {
public:
    enum class Pace { realTime, asFastAsConsumed };

    static constexpr qint64 framesPerBuffer = 4096;

    explicit AudioFileSource(QString path, Pace pace = Pace::realTime);
    ~AudioFileSource() override;

    void prepare() override;
    std::optional<AudioFormat> format() const override;
    QString errorMessage() const override;
    void run(CaptureQueue &queue, InputBlock block, InvalidationHandler invalidationHandler = {},
             FailureHandler failureHandler = {}) override;
    void invalidate() override;

    // Frames in the file, known after prepare().
    qint64 totalFrames() const { return totalFrames_; }

    // Waits until every buffer of the file has been taken by the block (or
    // the source was invalidated, or reading failed). True when the whole
    // file was delivered.
    bool waitUntilFinished(std::chrono::milliseconds timeout = std::chrono::hours(24));

    // Frames whose buffers the block has returned from.
    qint64 consumedFrames() const;

private:
    struct Shared;
    void read(CaptureQueue &queue, InputBlock block, FailureHandler failureHandler);

    QString path_;
    Pace pace_;
    std::optional<AudioFormat> format_;
    QString errorMessage_;
    qint64 totalFrames_ = 0;
    int fileSubtype_ = 0;
    bool prepared_ = false;
    bool invalidated_ = false;
    std::shared_ptr<Shared> shared_;
    std::thread reader_;
    InvalidationHandler invalidationHandler_;
};

} // namespace kestil
