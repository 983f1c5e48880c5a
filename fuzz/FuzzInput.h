#pragma once

// What the harnesses share: the input as a file in a scratch folder of the
// process's own, for readers that take a path.

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <unistd.h>

namespace kestil::fuzz {

inline QByteArray bytes(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), qsizetype(size));
}

// A folder under the memory-backed temporary directory, made once and
// emptied by the harness as it needs.
inline const QString &scratch()
{
    static const QString path = [] {
        const char *shm = "/dev/shm";
        const QString base =
            QDir(QString::fromLatin1(shm)).exists() ? QString::fromLatin1(shm) : QDir::tempPath();
        QString folder = base + QStringLiteral("/kestil-fuzz-") + QString::number(::getpid());
        QDir().mkpath(folder);
        std::atexit([] { QDir(scratch()).removeRecursively(); });
        return folder;
    }();
    return path;
}

inline void writeBytes(const QString &path, const QByteArray &contents)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(contents);
}

// A file of the scratch folder holding `contents`; returns its path.
inline QString writeFile(const QString &name, const QByteArray &contents)
{
    const QString path = scratch() + QLatin1Char('/') + name;
    writeBytes(path, contents);
    return path;
}

} // namespace kestil::fuzz
