#include "generation/LanguageModelInstall.h"

#include "base/Error.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QMutex>
#include <QSet>
#include <QStorageInfo>

#include <filesystem>
#include <system_error>

namespace kestil {

namespace {

QMutex downloadsMutex;
QSet<QString> &downloads()
{
    static QSet<QString> paths;
    return paths;
}

QString busyMessage()
{
    return QStringLiteral(
        "This language model is already downloading. Wait for it to finish, then try again.");
}

// Marks a model as downloading for as long as it lives.
class DownloadMark {
public:
    explicit DownloadMark(const QString &path) : path_(path)
    {
        QMutexLocker lock(&downloadsMutex);
        if (downloads().contains(path_))
            throw LocalError(busyMessage());
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

QString targetPath(const QString &directory, const DownloadableLanguageModel &model)
{
    return QDir(directory).filePath(model.fileName);
}

// The model in use is the one installed last, so a new file, or a file
// installed again, carries the time of its installation.
void stampInstalled(const QString &path)
{
    QFile file(path);
    if (file.open(QIODevice::ReadWrite))
        file.setFileTime(QDateTime::currentDateTime(), QFileDevice::FileModificationTime);
}

} // namespace

bool isLanguageModelDownloading(const DownloadableLanguageModel &model, const QString &directory)
{
    QMutexLocker lock(&downloadsMutex);
    return downloads().contains(targetPath(directory, model));
}

qint64 partialLanguageModelDownload(const DownloadableLanguageModel &model, const QString &directory)
{
    const QFileInfo part(targetPath(directory, model) + QStringLiteral(".part"));
    return part.isFile() ? part.size() : 0;
}

QString installLanguageModel(const DownloadableLanguageModel &model, const QUrl &baseAddress,
                             const DownloadObserver &observer, const QString &directory)
{
    if (!QDir().mkpath(directory))
        throw SystemError(QStringLiteral("The folder for language models could not be created at %1. Nothing "
                                         "was downloaded, and models already installed are unchanged.")
                              .arg(QDir::toNativeSeparators(directory)));
    const QString path = targetPath(directory, model);
    const QString partPath = path + QStringLiteral(".part");
    DownloadMark mark(path);
    // Another Kestil on this computer may be downloading the same file.
    QLockFile lock(path + QStringLiteral(".lock"));
    if (!lock.tryLock(0))
        throw LocalError(busyMessage());

    // The published file may already be here, installed earlier.
    const QFileInfo existing(path);
    if (existing.isFile() && existing.size() == model.size && sha256OfFile(path) == model.sha256) {
        LanguageModelFiles::writeLanguagesRecord(path, model.languages, model.size);
        stampInstalled(path);
        QFile::remove(partPath);
        return path;
    }

    // A model is large: a disk that cannot hold it is told before the first
    // byte, not when it is full.
    const qint64 needed = model.size - partialLanguageModelDownload(model, directory);
    const QStorageInfo storage(directory);
    if (storage.isValid() && storage.bytesAvailable() >= 0 && storage.bytesAvailable() < needed)
        throw LocalError(
            QStringLiteral("There is not enough free space for “%1”: it needs %2 and %3 are free. "
                           "Nothing was downloaded, and models already installed are unchanged.")
                .arg(model.name, fileSizeText(needed), fileSizeText(storage.bytesAvailable())));

    const QByteArray sha = downloadToPartFile(
        languageModelAddress(baseAddress, model), partPath, observer,
        DownloadWording{QStringLiteral("language model"), QStringLiteral("the next download")});
    if (sha != model.sha256) {
        QFile::remove(partPath);
        throw ModelDownloadError(
            QStringLiteral("The downloaded language model “%1” did not match its published checksum, so it "
                           "was deleted. Models already installed are unchanged; try the download again.")
                .arg(model.fileName),
            0);
    }
    try {
        LanguageModelFiles::validatedModel(partPath);
    } catch (const LocalError &error) {
        QFile::remove(partPath);
        throw LocalError(error.message() + QStringLiteral(" The download was deleted, and models already "
                                                          "installed are unchanged."));
    }
    LanguageModelFiles::writeLanguagesRecord(path, model.languages, model.size);
    stampInstalled(partPath);
    // One rename, which also replaces an older file of the same name: the
    // folder never holds half a model under a name that counts.
    std::error_code error;
    std::filesystem::rename(QFile::encodeName(partPath).toStdString(), QFile::encodeName(path).toStdString(),
                            error);
    if (error) {
        throw SystemError(QStringLiteral("The language model “%1” was downloaded but could not be put in "
                                         "place in %2: %3. The download is kept and is used on the next try.")
                              .arg(model.fileName, QDir::toNativeSeparators(directory),
                                   QString::fromStdString(error.message())));
    }
    return path;
}

} // namespace kestil
