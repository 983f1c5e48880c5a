#include "AudioFileReader.h"

#include "base/Error.h"

#include <QFile>
#include <QFileInfo>

#include <sndfile.h>

namespace kestil {

AudioFileReader::AudioFileReader(const QString &path) : name_(QFileInfo(path).fileName())
{
    SF_INFO info{};
    file_ = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    if (!file_) {
        throw SystemError(QStringLiteral("The audio file “%1” could not be read: %2.")
                              .arg(name_, QString::fromUtf8(sf_strerror(nullptr))));
    }
    if (info.channels < 1 || info.samplerate < 1) {
        sf_close(file_);
        throw SystemError(QStringLiteral("The audio file “%1” holds no audio.").arg(name_));
    }
    sampleRate_ = info.samplerate;
    channels_ = info.channels;
    frames_ = info.frames;
}

AudioFileReader::~AudioFileReader()
{
    sf_close(file_);
}

std::vector<float> AudioFileReader::read(std::size_t frames)
{
    std::vector<float> interleaved(frames * std::size_t(channels_));
    const sf_count_t got = sf_readf_float(file_, interleaved.data(), sf_count_t(frames));
    if (got < 0 || (got == 0 && sf_error(file_) != SF_ERR_NO_ERROR))
        throw SystemError(QStringLiteral("The audio file “%1” could not be read: %2.")
                              .arg(name_, QString::fromUtf8(sf_strerror(file_))));
    std::vector<float> mono(static_cast<std::size_t>(got));
    for (std::size_t i = 0; i < mono.size(); ++i) {
        float sum = 0;
        for (int c = 0; c < channels_; ++c)
            sum += interleaved[i * std::size_t(channels_) + std::size_t(c)];
        mono[i] = sum / float(channels_);
    }
    return mono;
}

} // namespace kestil
