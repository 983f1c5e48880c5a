#include "support/SoundFiles.h"

#include <QFile>
#include <QProcess>

#include <sndfile.h>

#include <cmath>
#include <cstring>
#include <numbers>

namespace kestil::test {

std::vector<float> SoundFile::mono() const
{
    std::vector<float> out(size_t(frames()), 0.0f);
    for (qint64 frame = 0; frame < frames(); ++frame) {
        float sum = 0;
        for (int channel = 0; channel < channels; ++channel)
            sum += samples[size_t(frame * channels + channel)];
        out[size_t(frame)] = sum / float(channels);
    }
    return out;
}

std::optional<SoundFile> readSoundFile(const QString &path, QString *error)
{
    SF_INFO info{};
    SNDFILE *file = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    if (!file) {
        if (error)
            *error = QString::fromUtf8(sf_strerror(nullptr));
        return std::nullopt;
    }
    SoundFile sound;
    sound.sampleRate = info.samplerate;
    sound.channels = info.channels;
    sound.format = info.format;
    sound.samples.resize(size_t(info.frames * info.channels));
    const sf_count_t read = sf_readf_float(file, sound.samples.data(), info.frames);
    sf_close(file);
    sound.samples.resize(size_t(read * info.channels));
    return sound;
}

bool writeSoundFile(const QString &path, int format, int sampleRate, int channels,
                    std::span<const float> samples, QString *error)
{
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = channels;
    info.format = format;
    SNDFILE *file = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    if (!file) {
        if (error)
            *error = QString::fromUtf8(sf_strerror(nullptr));
        return false;
    }
    const sf_count_t frames = sf_count_t(samples.size()) / channels;
    const bool ok = sf_writef_float(file, samples.data(), frames) == frames;
    if (!ok && error)
        *error = QString::fromUtf8(sf_strerror(file));
    return sf_close(file) == 0 && ok;
}

std::vector<float> readRawAudio(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray bytes = file.readAll();
    std::vector<float> samples(size_t(bytes.size() / 4));
    std::memcpy(samples.data(), bytes.constData(), samples.size() * 4);
    return samples;
}

std::vector<float> sine(double frequency, double sampleRate, qint64 frames, float amplitude, double phase)
{
    std::vector<float> out(static_cast<size_t>(frames));
    for (qint64 i = 0; i < frames; ++i)
        out[size_t(i)] =
            amplitude * float(std::sin(2 * std::numbers::pi * frequency * double(i) / sampleRate + phase));
    return out;
}

bool synthesizeSpeech(const QString &text, const QString &wavPath, QString *error, const QString &voice,
                      int wordsPerMinute)
{
    QProcess espeak;
    espeak.setProcessChannelMode(QProcess::MergedChannels);
    QStringList arguments{QStringLiteral("-w"), wavPath, text};
    if (wordsPerMinute > 0)
        arguments = QStringList{QStringLiteral("-s"), QString::number(wordsPerMinute)} + arguments;
    if (!voice.isEmpty())
        arguments = QStringList{QStringLiteral("-v"), voice} + arguments;
    espeak.start(QStringLiteral("espeak-ng"), arguments);
    const bool ok = espeak.waitForFinished(60000) && espeak.exitStatus() == QProcess::NormalExit &&
                    espeak.exitCode() == 0 && QFile::exists(wavPath);
    if (!ok && error)
        *error = QStringLiteral("espeak-ng failed: ") + espeak.errorString() + QLatin1Char('\n') +
                 QString::fromUtf8(espeak.readAll());
    return ok;
}

} // namespace kestil::test
