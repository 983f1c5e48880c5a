#include "capture/RecordingFolder.h"

#include <QDir>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kestil::RecordingFolder {

namespace {

// A manifest is a few hundred bytes; anything this large is not one.
constexpr qint64 maximumSmallFileSize = 1 << 20;

QByteArray encoded(const QString &path)
{
    return QFile::encodeName(path);
}

QString fileName(const QString &path)
{
    return QFileInfo(path).fileName();
}

void writeAll(int fd, const char *data, qint64 size, const QString &path)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size_t(size));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            throw posixError(QStringLiteral("write"), fileName(path), errno);
        }
        data += written;
        size -= written;
    }
}

} // namespace

QString uuidText(const QUuid &uuid)
{
    return uuid.toString(QUuid::WithoutBraces).toUpper();
}

std::optional<QUuid> uuidFromName(const QString &name)
{
    if (name.size() != 36)
        return std::nullopt;
    const QUuid uuid = QUuid::fromString(name);
    if (uuid.isNull() && name != QLatin1String("00000000-0000-0000-0000-000000000000"))
        return std::nullopt;
    return uuid;
}

QString noteFolder(const QString &root, const QUuid &noteID)
{
    return QDir(root).filePath(QLatin1String(recordingsDirectoryName) + QLatin1Char('/') + uuidText(noteID));
}

QString newSegmentFolder(const QString &root, const QUuid &noteID)
{
    return QDir(noteFolder(root, noteID)).filePath(uuidText(QUuid::createUuid()));
}

QString manifestPath(const QString &segment)
{
    return QDir(segment).filePath(QLatin1String(manifestFileName));
}

QString rawAudioPath(const QString &segment)
{
    return QDir(segment).filePath(QLatin1String(rawAudioFileName));
}

QString finalAudioPath(const QString &segment)
{
    return QDir(segment).filePath(QLatin1String(finalAudioFileName));
}

SystemError posixError(const QString &action, const QString &path, int error)
{
    return SystemError(QStringLiteral("Could not %1 “%2”: %3")
                           .arg(action, path, QString::fromLocal8Bit(std::strerror(error))));
}

void syncDirectory(const QString &path)
{
    const int fd = ::open(encoded(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        throw posixError(QStringLiteral("open the folder"), fileName(path), errno);
    const int result = ::fsync(fd);
    const int error = errno;
    ::close(fd);
    // Some file systems cannot sync a directory; their entries are then as
    // durable as they will ever be.
    if (result != 0 && error != EINVAL && error != EROFS)
        throw posixError(QStringLiteral("sync the folder"), fileName(path), error);
}

void createDirectories(const QString &path)
{
    const QString clean = QDir::cleanPath(QDir(path).absolutePath());
    struct stat info;
    if (::stat(encoded(clean).constData(), &info) == 0) {
        if (S_ISDIR(info.st_mode))
            return;
        throw posixError(QStringLiteral("create the folder"), fileName(clean), EEXIST);
    }
    const QString parent = QFileInfo(clean).path();
    if (parent != clean)
        createDirectories(parent);
    if (::mkdir(encoded(clean).constData(), 0755) != 0 && errno != EEXIST)
        throw posixError(QStringLiteral("create the folder"), fileName(clean), errno);
    if (parent != clean)
        syncDirectory(parent);
}

void writeFileAtomically(const QString &path, const QByteArray &contents)
{
    const QString directory = QFileInfo(path).path();
    const QString temporary = QDir(directory).filePath(QLatin1Char('.') + fileName(path) + QLatin1Char('-') +
                                                       uuidText(QUuid::createUuid()));
    const int fd = ::open(encoded(temporary).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
        throw posixError(QStringLiteral("write"), fileName(path), errno);
    int error = 0;
    try {
        writeAll(fd, contents.constData(), contents.size(), path);
    } catch (...) {
        ::close(fd);
        ::unlink(encoded(temporary).constData());
        throw;
    }
    if (::fsync(fd) != 0)
        error = errno;
    if (::close(fd) != 0 && error == 0)
        error = errno;
    if (error != 0) {
        ::unlink(encoded(temporary).constData());
        throw posixError(QStringLiteral("write"), fileName(path), error);
    }
    if (::rename(encoded(temporary).constData(), encoded(path).constData()) != 0) {
        error = errno;
        ::unlink(encoded(temporary).constData());
        throw posixError(QStringLiteral("replace"), fileName(path), error);
    }
    syncDirectory(directory);
}

QByteArray readSmallFile(const QString &path)
{
    auto contents = readSmallFileIfPresent(path);
    if (!contents)
        throw posixError(QStringLiteral("read"), fileName(path), ENOENT);
    return *contents;
}

std::optional<QByteArray> readSmallFileIfPresent(const QString &path)
{
    const int fd = ::open(encoded(path).constData(), O_RDONLY | O_CLOEXEC);
    // Nothing of that name, or a path through a file that is no folder.
    if (fd < 0 && (errno == ENOENT || errno == ENOTDIR))
        return std::nullopt;
    if (fd < 0)
        throw posixError(QStringLiteral("read"), fileName(path), errno);
    QByteArray contents;
    char chunk[4096];
    for (;;) {
        const ssize_t got = ::read(fd, chunk, sizeof chunk);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            const int error = errno;
            ::close(fd);
            throw posixError(QStringLiteral("read"), fileName(path), error);
        }
        if (got == 0)
            break;
        contents.append(chunk, got);
        if (contents.size() > maximumSmallFileSize) {
            ::close(fd);
            throw posixError(QStringLiteral("read"), fileName(path), EFBIG);
        }
    }
    ::close(fd);
    return contents;
}

bool resolvesInside(const QString &path, const QString &root)
{
    const QString resolvedRoot = QFileInfo(root).canonicalFilePath();
    const QString resolved = QFileInfo(path).canonicalFilePath();
    if (resolvedRoot.isEmpty() || resolved.isEmpty())
        return false;
    if (resolvedRoot == QLatin1String("/"))
        return true;
    return resolved == resolvedRoot || resolved.startsWith(resolvedRoot + QLatin1Char('/'));
}

} // namespace kestil::RecordingFolder
