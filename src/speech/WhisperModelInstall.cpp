#include "WhisperModelInstall.h"

#include "base/Error.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLockFile>
#include <QMutex>
#include <QSaveFile>
#include <QSet>

namespace kestil {

namespace {

QMutex downloadsMutex;
QSet<QString> &downloads()
{
    static QSet<QString> paths;
    return paths;
}

// Marks a model as downloading for as long as it lives.
class DownloadMark {
public:
    explicit DownloadMark(const QString &path) : path_(path)
    {
        QMutexLocker lock(&downloadsMutex);
        if (downloads().contains(path_))
            throw LocalError(
                QStringLiteral("The speech model for this language is already downloading. Wait for "
                               "it to finish, then try again."));
        downloads().insert(path_);
    }
    ~DownloadMark()
    {
        QMutexLocker lock(&downloadsMutex);
        downloads().remove(path_);
    }
    DownloadMark(const DownloadMark &) = delete;
    DownloadMark &operator=(const DownloadMark &) = delete;

private:
    QString path_;
};

QString recordPath(const QString &modelPath)
{
    return modelPath + QStringLiteral(".verified");
}

QJsonObject recordFor(const QFileInfo &file, const QByteArray &sha256)
{
    return QJsonObject{{QStringLiteral("sha256"), QString::fromLatin1(sha256)},
                       {QStringLiteral("size"), double(file.size())},
                       {QStringLiteral("modified"), double(file.lastModified().toMSecsSinceEpoch())}};
}

} // namespace

QString whisperModelPath(const QString &directory, const WhisperModel &model)
{
    return directory + QLatin1Char('/') + model.fileName;
}

bool isWhisperModelInstalled(const QString &directory, const WhisperModel &model)
{
    return installedWhisperModelChecksum(whisperModelPath(directory, model)).has_value();
}

std::optional<QByteArray> installedWhisperModelChecksum(const QString &path)
{
    const QFileInfo file(path);
    if (!file.isFile())
        return std::nullopt;
    QFile record(recordPath(path));
    if (!record.open(QIODevice::ReadOnly))
        return std::nullopt;
    // The record is written only after the file matched the checksum it was
    // installed with: the catalogue's, or for an import its own.
    const QJsonObject stored = QJsonDocument::fromJson(record.read(4096)).object();
    const QByteArray sha = stored.value(QStringLiteral("sha256")).toString().toLatin1();
    if (sha.size() != 64 || stored != recordFor(file, sha))
        return std::nullopt;
    return sha;
}

bool isWhisperModelDownloading(const QString &directory, const WhisperModel &model)
{
    QMutexLocker lock(&downloadsMutex);
    return downloads().contains(whisperModelPath(directory, model));
}

void writeWhisperModelRecord(const QString &path, const QByteArray &sha256)
{
    QSaveFile record(recordPath(path));
    if (!record.open(QIODevice::WriteOnly) ||
        record.write(QJsonDocument(recordFor(QFileInfo(path), sha256)).toJson(QJsonDocument::Compact)) < 0 ||
        !record.commit()) {
        throw SystemError(QStringLiteral("The speech model “%1” was downloaded, but its check could not be "
                                         "recorded: %2. Try Set Up On-Device Speech again.")
                              .arg(QFileInfo(path).fileName(), record.errorString()));
    }
}

void installWhisperModel(const QString &directory, const WhisperModel &model, const QUrl &baseAddress,
                         const DownloadObserver &observer)
{
    if (!QDir().mkpath(directory))
        throw SystemError(QStringLiteral("The folder for speech models could not be created at %1.")
                              .arg(QDir::toNativeSeparators(directory)));
    const QString path = whisperModelPath(directory, model);
    const QString partPath = path + QStringLiteral(".part");
    DownloadMark mark(path);
    // Another Kestil on this computer may be downloading the same file.
    QLockFile lock(path + QStringLiteral(".lock"));
    if (!lock.tryLock(0))
        throw LocalError(
            QStringLiteral("The speech model for this language is already downloading. Wait for it "
                           "to finish, then try again."));

    if (isWhisperModelInstalled(directory, model))
        return;
    if (QFileInfo(path).isFile()) {
        // A finished download whose record was never written.
        if (sha256OfFile(path) == model.sha256) {
            writeWhisperModelRecord(path, model.sha256);
            return;
        }
        QFile::remove(path);
    }
    QFile::remove(recordPath(path));

    const QUrl url = baseAddress.resolved(QUrl(model.fileName));
    const QByteArray sha = downloadToPartFile(
        url, partPath, observer,
        DownloadWording{QStringLiteral("speech model"), QStringLiteral("the next set-up")});
    if (sha != model.sha256) {
        QFile::remove(partPath);
        throw ModelDownloadError(
            QStringLiteral("The downloaded speech model “%1” did not match its published "
                           "checksum, so it was deleted. Models already installed are "
                           "unchanged; try Set Up On-Device Speech again.")
                .arg(model.fileName),
            0);
    }
    if (!QFile::rename(partPath, path)) {
        throw SystemError(
            QStringLiteral("The speech model “%1” was downloaded but could not be put in place in "
                           "%2. The download is kept and is used on the next try.")
                .arg(model.fileName, QDir::toNativeSeparators(directory)));
    }
    writeWhisperModelRecord(path, sha);
}

} // namespace kestil
