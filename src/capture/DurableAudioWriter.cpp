#include "capture/DurableAudioWriter.h"

#include "base/Error.h"
#include "capture/RecordingFolder.h"

#include <QFile>

#include <sndfile.h>

#include <bit>
#include <cerrno>
#include <climits>
#include <cmath>
#include <filesystem>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kestil {

static_assert(std::endian::native == std::endian::little,
              "audio.float32 holds little-endian samples, written as they are in memory");

namespace {

const QString rawName = QString::fromLatin1(RecordingFolder::rawAudioFileName);
const QString finalName = QString::fromLatin1(RecordingFolder::finalAudioFileName);

// How much audio may be handed to the operating system without a sync.
constexpr auto syncInterval = std::chrono::seconds(1);

// The build streams the raw file in steps of this many bytes.
constexpr qint64 rebuildChunkBytes = 65536;
// and hands what it wrote to the disk in steps of this many.
constexpr qint64 writebackStepBytes = 8 << 20;

QByteArray encoded(const QString &path)
{
    return QFile::encodeName(path);
}

LocalError invalidFormat()
{
    return LocalError(
        QStringLiteral("Transcription audio has an invalid format; the original audio was preserved."));
}

// libsndfile takes whole frames per second; a rate it cannot hold makes no
// audio format.
bool audioFormatFor(double sampleRate, SF_INFO &info)
{
    if (!std::isfinite(sampleRate) || sampleRate <= 0 || sampleRate > double(INT_MAX) ||
        std::trunc(sampleRate) != sampleRate)
        return false;
    info = SF_INFO{};
    info.samplerate = int(sampleRate);
    info.channels = 1;
    // Little-endian float, the raw file's own order, so a build copies
    // samples without swapping them.
    info.format = SF_FORMAT_CAF | SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE;
    return sf_format_check(&info) != 0;
}

// Reads until `size` bytes or the end of the file: only the final chunk of a
// build is ever short, so the trailing partial sample is the only one dropped.
qint64 readFully(int fd, char *data, qint64 size, const QString &name)
{
    qint64 total = 0;
    while (total < size) {
        const ssize_t got = ::read(fd, data + total, size_t(size - total));
        if (got < 0) {
            if (errno == EINTR)
                continue;
            throw RecordingFolder::posixError(QStringLiteral("read"), name, errno);
        }
        if (got == 0)
            break;
        total += got;
    }
    return total;
}

struct SoundFileCloser {
    void operator()(SNDFILE *file) const { sf_close(file); }
};
using SoundFile = std::unique_ptr<SNDFILE, SoundFileCloser>;

} // namespace

DurableAudioWriter::DurableAudioWriter(QString directory, const QUuid &noteID, double sampleRate, Clock clock)
    : directory_(std::move(directory)), clock_(std::move(clock))
{
    if (!clock_)
        clock_ = [] { return std::chrono::steady_clock::now(); };
    lastSync_ = clock_();
    manifest_ =
        LocalRecordingManifest{noteID, LocalRecordingManifest::referenceSecondsNow(), sampleRate, false};

    RecordingFolder::createDirectories(directory_);

    // Any entry under the raw file's name counts, a dangling link included:
    // an existing folder is preserved byte for byte.
    const QString rawPath = RecordingFolder::rawAudioPath(directory_);
    struct stat info;
    if (::lstat(encoded(rawPath).constData(), &info) == 0)
        throw LocalError(QStringLiteral("Transcription audio already exists; it was preserved."));

    manifest_.write(directory_);

    handle_ = ::open(encoded(rawPath).constData(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0644);
    if (handle_ < 0)
        throw LocalError(QStringLiteral("Unable to create local audio file."));
    try {
        RecordingFolder::syncDirectory(directory_);
    } catch (...) {
        ::close(handle_);
        handle_ = -1;
        throw;
    }
}

DurableAudioWriter::~DurableAudioWriter()
{
    if (handle_ >= 0)
        ::close(handle_);
}

void DurableAudioWriter::append(const void *data, qint64 size)
{
    std::lock_guard guard(lock_);
    if (handle_ < 0)
        throw LocalError(QStringLiteral("Transcription audio capture is closed."));
    auto bytes = static_cast<const char *>(data);
    while (size > 0) {
        const ssize_t written = ::write(handle_, bytes, size_t(size));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            throw RecordingFolder::posixError(QStringLiteral("write"), rawName, errno);
        }
        bytes += written;
        size -= written;
    }
    const auto now = clock_();
    if (now - lastSync_ >= syncInterval) {
        syncLocked();
        lastSync_ = now;
        ++syncCount_;
    }
}

void DurableAudioWriter::syncLocked()
{
    // fdatasync carries the file size with it, which is all a reader needs.
    if (::fdatasync(handle_) != 0)
        throw RecordingFolder::posixError(QStringLiteral("sync"), rawName, errno);
}

void DurableAudioWriter::complete()
{
    std::lock_guard guard(lock_);
    if (handle_ >= 0) {
        syncLocked();
        const int result = ::close(handle_);
        const int error = errno;
        // Linux releases the descriptor even when close reports an error, so
        // it is never used again; the manifest stays incomplete.
        handle_ = -1;
        if (result != 0 && error != EINTR)
            throw RecordingFolder::posixError(QStringLiteral("close"), rawName, error);
    }
    auto marked = manifest_;
    marked.complete = true;
    marked.write(directory_);
    manifest_ = marked;
}

LocalRecordingManifest DurableAudioWriter::manifest() const
{
    std::lock_guard guard(lock_);
    return manifest_;
}

bool DurableAudioWriter::isOpen() const
{
    std::lock_guard guard(lock_);
    return handle_ >= 0;
}

int DurableAudioWriter::syncCount() const
{
    std::lock_guard guard(lock_);
    return syncCount_;
}

qint64 DurableAudioWriter::frameCount(const QString &segment)
{
    struct stat info;
    if (::stat(encoded(RecordingFolder::rawAudioPath(segment)).constData(), &info) != 0)
        throw RecordingFolder::posixError(QStringLiteral("read the size of"), rawName, errno);
    return qint64(info.st_size) / 4;
}

double DurableAudioWriter::recordedDuration(const QString &noteFolder)
{
    namespace fs = std::filesystem;
    const fs::path folder(encoded(noteFolder).toStdString());
    std::error_code error;
    if (!fs::exists(folder, error))
        return 0;
    fs::directory_iterator entries(folder, error);
    if (error)
        throw SystemError(QStringLiteral("Could not list the recordings of this note: %1")
                              .arg(QString::fromLocal8Bit(error.message().c_str())));
    double seconds = 0;
    for (; entries != fs::directory_iterator(); entries.increment(error)) {
        const QString segment = QFile::decodeName(entries->path().c_str());
        struct stat info;
        if (::stat(encoded(RecordingFolder::manifestPath(segment)).constData(), &info) != 0)
            continue;
        const auto manifest = LocalRecordingManifest::read(segment);
        if (!manifest.hasValidSampleRate())
            throw invalidFormat();
        seconds += double(frameCount(segment)) / manifest.sampleRate;
    }
    if (error)
        throw SystemError(QStringLiteral("Could not list the recordings of this note: %1")
                              .arg(QString::fromLocal8Bit(error.message().c_str())));
    return seconds;
}

bool DurableAudioWriter::hasValidFinalAudio(const QString &segment, const LocalRecordingManifest &manifest)
{
    SF_INFO info{};
    SoundFile file(sf_open(encoded(RecordingFolder::finalAudioPath(segment)).constData(), SFM_READ, &info));
    if (!file)
        return false;
    return info.frames == frameCount(segment) && double(info.samplerate) == manifest.sampleRate &&
           info.channels == 1;
}

QString DurableAudioWriter::finalAudioURL(const QString &segment)
{
    const auto manifest = LocalRecordingManifest::read(segment);
    if (hasValidFinalAudio(segment, manifest))
        return RecordingFolder::finalAudioPath(segment);
    return rebuildFinalAudio(segment);
}

QString DurableAudioWriter::rebuildFinalAudio(const QString &segment)
{
    const auto manifest = LocalRecordingManifest::read(segment);
    SF_INFO format;
    if (!manifest.hasValidSampleRate() || !audioFormatFor(manifest.sampleRate, format))
        throw invalidFormat();

    const int raw = ::open(encoded(RecordingFolder::rawAudioPath(segment)).constData(), O_RDONLY | O_CLOEXEC);
    if (raw < 0)
        throw RecordingFolder::posixError(QStringLiteral("read"), rawName, errno);
    ::posix_fadvise(raw, 0, 0, POSIX_FADV_SEQUENTIAL);

    const QString temporaryName = QLatin1String(RecordingFolder::temporaryAudioPrefix) +
                                  RecordingFolder::uuidText(QUuid::createUuid()) + QLatin1String(".caf");
    const QString temporary = segment + QLatin1Char('/') + temporaryName;
    const QString target = RecordingFolder::finalAudioPath(segment);

    // A fresh name, created exclusively: nothing already in the folder is
    // written through, a link included.
    int out = ::open(encoded(temporary).constData(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (out < 0) {
        const int error = errno;
        ::close(raw);
        throw RecordingFolder::posixError(QStringLiteral("create"), temporaryName, error);
    }

    try {
        SoundFile file(sf_open_fd(out, SFM_WRITE, &format, SF_FALSE));
        if (!file)
            throw SystemError(QStringLiteral("Could not create “%1”: %2")
                                  .arg(temporaryName, QString::fromUtf8(sf_strerror(nullptr))));

        std::vector<float> chunk(rebuildChunkBytes / sizeof(float));
        qint64 written = 0, flushed = 0;
        for (;;) {
            const qint64 got =
                readFully(raw, reinterpret_cast<char *>(chunk.data()), rebuildChunkBytes, rawName);
            if (got == 0)
                break;
            if (got <= 3)
                continue;
            const sf_count_t frames = got / 4;
            if (sf_writef_float(file.get(), chunk.data(), frames) != frames)
                throw SystemError(QStringLiteral("Could not write “%1”: %2")
                                      .arg(temporaryName, QString::fromUtf8(sf_strerror(file.get()))));
            // Start writing what is done to the disk while the rest is still
            // being copied, so that the final sync has little left to wait
            // for and hours of audio never pile up as dirty pages.
            written += frames * 4;
            if (written - flushed >= writebackStepBytes) {
                ::sync_file_range(out, flushed, written - flushed, SYNC_FILE_RANGE_WRITE);
                flushed = written;
            }
        }
        const int closed = sf_close(file.release());
        if (closed != 0)
            throw SystemError(QStringLiteral("Could not write “%1”: %2")
                                  .arg(temporaryName, QString::fromUtf8(sf_error_number(closed))));
        // Synced before it takes the final name, so that a power cut never
        // leaves an "audio.caf" whose header promises samples the disk lacks.
        if (::fdatasync(out) != 0)
            throw RecordingFolder::posixError(QStringLiteral("sync"), temporaryName, errno);
        const int result = ::close(out);
        out = -1;
        if (result != 0)
            throw RecordingFolder::posixError(QStringLiteral("write"), temporaryName, errno);
    } catch (...) {
        if (out >= 0)
            ::close(out);
        ::unlink(encoded(temporary).constData());
        ::close(raw);
        throw;
    }

    // rename() replaces an existing "audio.caf" (or a link of that name) in
    // one step; no backup of the old file is kept.
    if (::rename(encoded(temporary).constData(), encoded(target).constData()) != 0) {
        const int error = errno;
        ::unlink(encoded(temporary).constData());
        ::close(raw);
        throw RecordingFolder::posixError(QStringLiteral("replace"), finalName, error);
    }
    ::close(raw);
    return target;
}

} // namespace kestil
