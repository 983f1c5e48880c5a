#include "WhisperModelImport.h"

#include "WhisperModelConversion.h"
#include "WhisperModelFile.h"
#include "WhisperModelInstall.h"

#include "base/CancellationError.h"
#include "base/Error.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace kestil {

namespace {

const QString chooseText =
    QStringLiteral("Choose a whisper.cpp model file (ggml-….bin) or a faster-whisper model folder.");

QString shown(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

[[noreturn]] void failWriting(const QString &directory, const QString &reason)
{
    throw SystemError(
        QStringLiteral("The speech model could not be written to %1: %2. Nothing was installed, "
                       "and the model you chose is unchanged.")
            .arg(shown(directory), reason));
}

// Copies a whisper.cpp file as it is, a megabyte at a time.
void copyModel(const QString &source, const QString &target, const QString &directory,
               const DownloadObserver &observer)
{
    QFile in(source);
    if (!in.open(QIODevice::ReadOnly))
        throw SystemError(QStringLiteral("The speech model “%1” could not be read: %2.")
                              .arg(QFileInfo(source).fileName(), in.errorString()));
    QFile out(target);
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate))
        failWriting(directory, out.errorString());
    const qint64 total = in.size();
    qint64 copied = 0;
    QByteArray block(1 << 20, Qt::Uninitialized);
    for (;;) {
        if (observer.isCancelled && observer.isCancelled())
            throw CancellationError();
        const qint64 got = in.read(block.data(), block.size());
        if (got < 0)
            throw SystemError(QStringLiteral("The speech model “%1” could not be read: %2.")
                                  .arg(QFileInfo(source).fileName(), in.errorString()));
        if (got == 0)
            break;
        if (out.write(block.constData(), got) != got)
            failWriting(directory, out.errorString());
        copied += got;
        if (observer.progress)
            observer.progress(copied, total);
    }
    if (!out.flush())
        failWriting(directory, out.errorString());
}

// The bytes reach the disk before the file gets its final name.
void syncToDisk(const QString &path, const QString &directory)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 || ::fsync(fd) != 0) {
        const QString reason = QString::fromLocal8Bit(strerror(errno));
        if (fd >= 0)
            ::close(fd);
        failWriting(directory, reason);
    }
    ::close(fd);
}

struct Size {
    int state;
    int layers;
    const char *name;
};

} // namespace

QString whisperModelName(const WhisperModelFile &file)
{
    static const Size sizes[] = {
        {384, 4, "tiny"}, {512, 6, "base"}, {768, 12, "small"}, {1024, 24, "medium"}, {1280, 32, "large"}};
    QString name;
    for (const Size &size : sizes) {
        if (size.state == file.audioState && size.layers == file.audioLayers)
            name = QString::fromLatin1(size.name);
    }
    if (name == QLatin1String("large") && file.melBands == 128)
        name = QStringLiteral("large-v3");
    if (name.isEmpty())
        name = QStringLiteral("custom-%1x%2").arg(file.audioState).arg(file.audioLayers);
    if (!file.isMultilingual())
        name += QStringLiteral(".en");
    return name;
}

ImportedWhisperModel importWhisperModel(const QString &source, const QString &directory,
                                        const DownloadObserver &observer)
{
    QFileInfo chosen(source);
    if (!chosen.exists())
        throw LocalError(QStringLiteral("“%1” could not be found. %2").arg(shown(source), chooseText));
    // The model file of a CTranslate2 folder stands for its folder.
    if (chosen.isFile() && chosen.fileName() == QLatin1String("model.bin") &&
        isCTranslate2Folder(chosen.absolutePath()))
        chosen = QFileInfo(chosen.absolutePath());
    if (chosen.isDir() &&
        !QFileInfo(QDir(chosen.absoluteFilePath()).filePath(QStringLiteral("model.bin"))).isFile())
        throw LocalError(
            QStringLiteral("The folder “%1” holds no model.bin, so it is no faster-whisper model. %2")
                .arg(shown(chosen.absoluteFilePath()), chooseText));
    if (!QDir().mkpath(directory))
        throw SystemError(
            QStringLiteral("The folder for speech models could not be created at %1.").arg(shown(directory)));

    // Not "ggml-*.bin": while it is written, it is no model of the folder.
    const QString part = QDir(directory).filePath(QStringLiteral("import-") +
                                                  QUuid::createUuid().toString(QUuid::WithoutBraces) +
                                                  QStringLiteral(".part"));
    ImportedWhisperModel imported;
    try {
        QElapsedTimer timer;
        timer.start();
        WhisperModelFile shape;
        if (chosen.isDir()) {
            shape = convertCTranslate2Whisper(chosen.absoluteFilePath(), part, observer);
            imported.conversionSeconds = double(timer.nsecsElapsed()) * 1e-9;
        } else {
            // A file that is truncated or not a whisper model is refused
            // before a byte is copied.
            inspectWhisperModelFile(chosen.absoluteFilePath());
            copyModel(chosen.absoluteFilePath(), part, directory, observer);
            shape = inspectWhisperModelFile(part);
        }
        syncToDisk(part, directory);
        // Read back from the disk: the record vouches for these bytes.
        const QByteArray sha = sha256OfFile(part);

        const QString name = whisperModelName(shape);
        imported.model = WhisperModel{name, name.section(QLatin1Char('.'), 0, 0), !shape.isMultilingual(),
                                      QStringLiteral("ggml-") + name + QStringLiteral(".bin"), sha};
        imported.path = QDir(directory).filePath(imported.model.fileName);
        // One step replaces a model of the same name. Its record no longer
        // fits the new file (size and time of change), so nothing counts as
        // installed until the new record is written.
        if (std::rename(QFile::encodeName(part).constData(), QFile::encodeName(imported.path).constData()) !=
            0)
            failWriting(directory, QString::fromLocal8Bit(strerror(errno)));
    } catch (...) {
        QFile::remove(part);
        throw;
    }
    try {
        writeWhisperModelRecord(imported.path, imported.model.sha256);
    } catch (const Error &) {
        // The file stays, uncounted; importing it again records it.
        failWriting(directory, QStringLiteral("its check could not be recorded"));
    }
    return imported;
}

QList<WhisperModel> installedWhisperModels(const QString &directory)
{
    QList<WhisperModel> models;
    const QStringList files =
        QDir(directory).entryList({QStringLiteral("ggml-*.bin")}, QDir::Files, QDir::Name);
    for (const QString &file : files) {
        const auto sha = installedWhisperModelChecksum(QDir(directory).filePath(file));
        if (!sha)
            continue;
        const QString name = file.mid(5, file.size() - 9);
        const bool english = name.endsWith(QStringLiteral(".en"));
        models.append(WhisperModel{name, name.section(QLatin1Char('.'), 0, 0), english, file, *sha});
    }
    return models;
}

} // namespace kestil
