#pragma once

#include <QString>

#include <optional>
#include <span>
#include <vector>

namespace kestil::test {

// A whole sound file in memory, as 32-bit float samples.
struct SoundFile {
    int sampleRate = 0;
    int channels = 0;
    // libsndfile's SF_FORMAT_* value: container and sample encoding.
    int format = 0;
    std::vector<float> samples;

    qint64 frames() const { return channels > 0 ? qint64(samples.size()) / channels : 0; }
    // The channels averaged.
    std::vector<float> mono() const;
};

std::optional<SoundFile> readSoundFile(const QString &path, QString *error = nullptr);
bool writeSoundFile(const QString &path, int format, int sampleRate, int channels,
                    std::span<const float> samples, QString *error = nullptr);

// The samples of a headerless little-endian float file; a trailing partial
// sample is left out.
std::vector<float> readRawAudio(const QString &path);

// A sine of the given frequency, one channel.
std::vector<float> sine(double frequency, double sampleRate, qint64 frames, float amplitude = 0.5f,
                        double phase = 0);

// Speaks the text into a WAV file (22050 Hz) with espeak-ng, in its default
// voice or the named one (for example "en-us+klatt"), at its default pace or
// the given words per minute. Returns false with the program's output in
// `error` when espeak-ng is missing or fails.
bool synthesizeSpeech(const QString &text, const QString &wavPath, QString *error = nullptr,
                      const QString &voice = {}, int wordsPerMinute = 0);

} // namespace kestil::test
