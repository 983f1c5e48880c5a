#include "documents/ObsidianExport.h"

#include "base/CancellationError.h"
#include "base/Error.h"
#include "capture/DurableAudioWriter.h"
#include "capture/LocalRecordingManifest.h"
#include "capture/RecordingFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kestil::ObsidianExport {

namespace {

// A copy moves this much between two looks at progress and cancellation:
// large enough for full speed, small enough to answer within a fraction of a
// second on a slow disk.
constexpr qint64 copyStepBytes = 8 << 20;
// The buffer of a copy through memory, where the kernel cannot copy.
constexpr qint64 bufferBytes = 1 << 20;

QByteArray encoded(const QString &path)
{
    return QFile::encodeName(path);
}

LocalError copyFailure(const QString &action, const QString &name, int error)
{
    return LocalError(RecordingFolder::posixError(action, name, error).localizedDescription());
}

// One open file, closed when it goes out of scope.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_;
};

// Copies one audio file, reporting each step as bytes done of all bytes; the
// file reaches stable storage before the next begins. A copy that fails or is
// cancelled is removed: only whole copies stay.
class Copier {
public:
    Copier(qint64 total, const Progress &progress, const std::atomic_bool *cancel)
        : total_(total), progress_(progress), cancel_(cancel), buffer_()
    {
    }

    void copy(const QString &source, const QString &target)
    {
        const QString sourceName = QFileInfo(source).fileName();
        const QString targetName = QFileInfo(target).fileName();
        Descriptor in(::open(encoded(source).constData(), O_RDONLY | O_CLOEXEC));
        if (in.get() < 0)
            throw copyFailure(QStringLiteral("read"), sourceName, errno);
        ::posix_fadvise(in.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
        // A fresh name, made exclusively: nothing already in the vault is
        // written through or over.
        Descriptor out(::open(encoded(target).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
        if (out.get() < 0)
            throw copyFailure(QStringLiteral("create"), targetName, errno);
        try {
            qint64 copied = 0;
            qint64 flushed = 0;
            for (;;) {
                if (cancel_ && cancel_->load())
                    throw CancellationError();
                const qint64 step = copyStep(in.get(), out.get(), sourceName, targetName);
                if (step == 0)
                    break;
                copied += step;
                done_ += step;
                // Hand each step to the disk while the next is copied, so
                // that the closing sync has little left to wait for.
                ::sync_file_range(out.get(), flushed, copied - flushed, SYNC_FILE_RANGE_WRITE);
                flushed = copied;
                report();
            }
            if (::fsync(out.get()) != 0)
                throw copyFailure(QStringLiteral("write"), targetName, errno);
            if (::close(out.release()) != 0 && errno != EINTR)
                throw copyFailure(QStringLiteral("write"), targetName, errno);
        } catch (...) {
            ::unlink(encoded(target).constData());
            throw;
        }
    }

    void report() const
    {
        if (progress_)
            progress_(done_, std::max(done_, total_));
    }

private:
    // Up to one step of bytes, in the kernel where it can, through memory
    // where it cannot (another file system, an older kernel). 0 at the end.
    qint64 copyStep(int in, int out, const QString &sourceName, const QString &targetName)
    {
        qint64 moved = 0;
        while (moved < copyStepBytes) {
            if (kernelCopy_) {
                const ssize_t got =
                    ::copy_file_range(in, nullptr, out, nullptr, size_t(copyStepBytes - moved), 0);
                if (got >= 0) {
                    if (got == 0)
                        break;
                    moved += got;
                    continue;
                }
                if (errno == EINTR)
                    continue;
                // Nothing of this file was moved by the kernel when it
                // refuses, so the copy goes on through memory from here.
                if (errno != EXDEV && errno != ENOSYS && errno != EOPNOTSUPP && errno != EINVAL &&
                    errno != EPERM)
                    throw copyFailure(QStringLiteral("write"), targetName, errno);
                kernelCopy_ = false;
            }
            if (buffer_.empty())
                buffer_.resize(size_t(bufferBytes));
            const ssize_t got = ::read(in, buffer_.data(), buffer_.size());
            if (got < 0) {
                if (errno == EINTR)
                    continue;
                throw copyFailure(QStringLiteral("read"), sourceName, errno);
            }
            if (got == 0)
                break;
            for (ssize_t written = 0; written < got;) {
                const ssize_t put = ::write(out, buffer_.data() + written, size_t(got - written));
                if (put < 0) {
                    if (errno == EINTR)
                        continue;
                    throw copyFailure(QStringLiteral("write"), targetName, errno);
                }
                written += put;
            }
            moved += got;
        }
        return moved;
    }

    qint64 total_;
    qint64 done_ = 0;
    const Progress &progress_;
    const std::atomic_bool *cancel_;
    bool kernelCopy_ = true;
    std::vector<char> buffer_;
};

qint64 fileSize(const QString &path)
{
    struct stat info;
    if (::stat(encoded(path).constData(), &info) != 0)
        throw copyFailure(QStringLiteral("read"), QFileInfo(path).fileName(), errno);
    return qint64(info.st_size);
}

} // namespace

QString Result::message() const
{
    return copiedSegments > 0 ? QStringLiteral("Markdown and audio exported to the selected folder.")
                              : QStringLiteral("Markdown exported to the selected folder.");
}

QString noteAudioFolder(const std::optional<QString> &storeRoot, const QString &sourceURL)
{
    if (!storeRoot)
        throw LocalError(QStringLiteral("Local storage is unavailable."));
    // The path may come from another computer through synchronisation: only
    // a relative one that stays under the store is ever followed.
    if (sourceURL.isEmpty() || sourceURL.startsWith(QLatin1Char('/')) || sourceURL.contains(QLatin1Char(':')))
        throw LocalError(QStringLiteral("This note has no local audio."));
    const QString root = QDir::cleanPath(*storeRoot);
    const QString folder = QDir::cleanPath(root + QLatin1Char('/') + sourceURL);
    const QString prefix = root.endsWith(QLatin1Char('/')) ? root : root + QLatin1Char('/');
    if (!folder.startsWith(prefix) || folder.size() == prefix.size())
        throw LocalError(QStringLiteral("Audio path is outside the local store."));
    return folder;
}

QStringList segmentAudioFiles(const QString &audioFolder)
{
    namespace fs = std::filesystem;
    const auto listingFailure = [](const std::error_code &error) {
        return LocalError(QStringLiteral("Could not list the recordings of this note: %1")
                              .arg(QString::fromLocal8Bit(error.message().c_str())));
    };
    std::error_code error;
    fs::directory_iterator entries(fs::path(encoded(audioFolder).toStdString()), error);
    if (error)
        throw listingFailure(error);
    QList<std::pair<LocalRecordingManifest, QString>> segments;
    for (; entries != fs::directory_iterator(); entries.increment(error)) {
        const QString segment = QFile::decodeName(entries->path().c_str());
        struct stat info;
        if (::stat(encoded(RecordingFolder::manifestPath(segment)).constData(), &info) != 0)
            continue;
        try {
            segments.append({LocalRecordingManifest::read(segment), segment});
        } catch (const Error &failure) {
            throw LocalError(failure.localizedDescription());
        }
    }
    if (error)
        throw listingFailure(error);
    // Oldest first; the folder name orders segments of one instant the same
    // way on every export.
    std::sort(segments.begin(), segments.end(), [](const auto &a, const auto &b) {
        return a.first.createdAt != b.first.createdAt ? a.first.createdAt < b.first.createdAt
                                                      : a.second < b.second;
    });
    QStringList files;
    for (const auto &segment : std::as_const(segments)) {
        try {
            files << DurableAudioWriter::finalAudioURL(segment.second);
        } catch (const Error &failure) {
            throw LocalError(failure.localizedDescription());
        }
    }
    return files;
}

QString markdown(const NoteExportContent &note)
{
    return QStringLiteral("# ") + note.title.value_or(QString()) + QStringLiteral("\n\n") + note.summary +
           QStringLiteral("\n\n## Transcript\n\n") + note.transcription + QStringLiteral("\n\n## Notes\n\n") +
           note.notes + QLatin1Char('\n');
}

Result run(const NoteExportContent &note, const QString &folder, const std::optional<QString> &storeRoot,
           const Progress &progress, const std::atomic_bool *cancel)
{
    const QString baseName = QStringLiteral("Kestil-") + RecordingFolder::uuidText(QUuid::createUuid());
    QString text = markdown(note);
    Result result;

    // A note without local audio, or with a path that leads elsewhere, is
    // exported as text alone: there is nothing of it to copy.
    std::optional<QString> audioFolder;
    try {
        audioFolder = noteAudioFolder(storeRoot, note.sourceURL);
    } catch (const Error &) {
    }
    if (audioFolder && QFileInfo(*audioFolder).isDir()) {
        const QStringList sources = segmentAudioFiles(*audioFolder);
        const QString audioName = baseName + QStringLiteral("-audio");
        const QString target = QDir(folder).filePath(audioName);
        try {
            RecordingFolder::createDirectories(target);
        } catch (const Error &failure) {
            throw LocalError(failure.localizedDescription());
        }
        qint64 total = 0;
        for (const QString &source : sources)
            total += fileSize(source);
        Copier copier(total, progress, cancel);
        copier.report();
        for (const QString &source : sources) {
            const QString fileName = QStringLiteral("segment-%1.caf").arg(result.copiedSegments + 1);
            copier.copy(source, QDir(target).filePath(fileName));
            ++result.copiedSegments;
            text +=
                QStringLiteral("\n![[") + audioName + QLatin1Char('/') + fileName + QStringLiteral("]]\n");
        }
    }
    if (cancel && cancel->load())
        throw CancellationError();

    // Last, so that it never points at audio that is not there.
    result.markdownPath = QDir(folder).filePath(baseName + QStringLiteral(".md"));
    NoteExport::writeTextAtomically(result.markdownPath, text);
    return result;
}

} // namespace kestil::ObsidianExport
