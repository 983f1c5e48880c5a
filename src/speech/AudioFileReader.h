#pragma once

#include <QString>

#include <vector>

typedef struct sf_private_tag SNDFILE;

namespace kestil {

// Reads an audio file (anything libsndfile reads: CAF, WAV, FLAC, ...) as mono
// 32-bit float, a block at a time; several channels are averaged.
class AudioFileReader {
public:
    // Throws SystemError naming the file when it cannot be opened as audio.
    explicit AudioFileReader(const QString &path);
    ~AudioFileReader();
    AudioFileReader(const AudioFileReader &) = delete;
    AudioFileReader &operator=(const AudioFileReader &) = delete;

    double sampleRate() const { return sampleRate_; }
    int channels() const { return channels_; }
    qint64 frames() const { return frames_; }

    // Up to `frames` mono samples; an empty block at the end of the file.
    std::vector<float> read(std::size_t frames);

private:
    SNDFILE *file_ = nullptr;
    QString name_;
    double sampleRate_ = 0;
    int channels_ = 0;
    qint64 frames_ = 0;
};

} // namespace kestil
