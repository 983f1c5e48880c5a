#include "generation/LanguageModelFiles.h"

#include "base/Error.h"

#include <llama.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QMutexLocker>
#include <QSaveFile>

#include <algorithm>

namespace kestil::LanguageModelFiles {

namespace {

struct CachedCheck {
    qint64 size = -1;
    QDateTime modified;
    std::optional<GgufModelInfo> info;
};

QMutex checksMutex;
QHash<QString, CachedCheck> checks;

QString languagesRecordPath(const QString &modelPath)
{
    return modelPath + QStringLiteral(".languages.json");
}

QStringList recordedLanguages(const QFileInfo &file)
{
    QFile record(languagesRecordPath(file.absoluteFilePath()));
    if (!record.open(QIODevice::ReadOnly))
        return {};
    const QJsonObject stored = QJsonDocument::fromJson(record.read(65536)).object();
    if (qint64(stored.value(QStringLiteral("size")).toDouble(-1)) != file.size())
        return {};
    QStringList languages;
    for (const QJsonValue &language : stored.value(QStringLiteral("languages")).toArray()) {
        if (language.isString() && !language.toString().isEmpty())
            languages.append(language.toString());
    }
    return languages;
}

// Reading a header costs a few milliseconds; availability is asked often.
std::optional<GgufModelInfo> cachedCheck(const QFileInfo &file)
{
    const QString path = file.absoluteFilePath();
    {
        QMutexLocker lock(&checksMutex);
        auto it = checks.constFind(path);
        if (it != checks.constEnd() && it->size == file.size() && it->modified == file.lastModified())
            return it->info;
    }
    CachedCheck check{file.size(), file.lastModified(), std::nullopt};
    try {
        check.info = validatedModel(path);
        // The catalogue knows the languages of the models it offers better
        // than their headers, which often name English alone.
        if (const QStringList recorded = recordedLanguages(file); !recorded.isEmpty())
            check.info->languages = recorded;
    } catch (const Error &) {
        check.info.reset();
    }
    QMutexLocker lock(&checksMutex);
    checks.insert(path, check);
    return check.info;
}

} // namespace

QString dataRoot()
{
    const QString override = qEnvironmentVariable("KESTIL_DATA_DIR");
    if (!override.isEmpty())
        return QDir::cleanPath(override);
    const QString xdg = qEnvironmentVariable("XDG_DATA_HOME");
    if (!xdg.isEmpty() && QDir::isAbsolutePath(xdg))
        return QDir::cleanPath(xdg + QStringLiteral("/Kestil"));
    return QDir::cleanPath(QDir::homePath() + QStringLiteral("/.local/share/Kestil"));
}

QString modelsDirectory()
{
    return dataRoot() + QStringLiteral("/Models/language");
}

GgufModelInfo validatedModel(const QString &path)
{
    GgufModelInfo info = GgufModelInfo::read(path);
    const QString name = QFileInfo(path).fileName();
    if (info.chatTemplate.isEmpty())
        throw LocalError(
            QStringLiteral("“%1” has no chat template, so it cannot be used for summaries and Ask AI. "
                           "Choose an instruct model in GGUF format.")
                .arg(name));
    const QByteArray tmpl = info.chatTemplate.toUtf8();
    const llama_chat_message probe{"user", "x"};
    if (llama_chat_apply_template(tmpl.constData(), &probe, 1, true, nullptr, 0) < 0)
        throw LocalError(
            QStringLiteral("“%1” uses a chat template that Kestil does not know, so it cannot be used "
                           "for summaries and Ask AI.")
                .arg(name));
    return info;
}

std::optional<GgufModelInfo> installedModel(const QString &directory)
{
    QFileInfoList files =
        QDir(directory).entryInfoList({QStringLiteral("*.gguf")}, QDir::Files | QDir::Readable);
    std::sort(files.begin(), files.end(), [](const QFileInfo &a, const QFileInfo &b) {
        if (a.lastModified() != b.lastModified())
            return a.lastModified() > b.lastModified();
        return a.fileName() < b.fileName();
    });
    for (const QFileInfo &file : files) {
        if (auto info = cachedCheck(file))
            return info;
    }
    return std::nullopt;
}

void writeLanguagesRecord(const QString &modelPath, const QStringList &languages, qint64 size)
{
    QSaveFile record(languagesRecordPath(modelPath));
    if (record.open(QIODevice::WriteOnly)) {
        const QJsonObject stored{{QStringLiteral("size"), double(size)},
                                 {QStringLiteral("languages"), QJsonArray::fromStringList(languages)}};
        record.write(QJsonDocument(stored).toJson(QJsonDocument::Compact));
        record.commit();
    }
}

QString importModel(const QString &sourcePath, const QString &directory)
{
    const QString name = QFileInfo(sourcePath).fileName();
    try {
        validatedModel(sourcePath);
    } catch (const LocalError &error) {
        throw LocalError(error.message() + QStringLiteral(" Nothing was installed."));
    }
    if (!QDir().mkpath(directory))
        throw LocalError(QStringLiteral("Kestil could not create the folder for language models. Nothing was "
                                        "installed."));
    QString target = QDir(directory).filePath(name);
    if (!target.endsWith(QStringLiteral(".gguf"), Qt::CaseInsensitive))
        target += QStringLiteral(".gguf");
    const QString part = target + QStringLiteral(".part");
    QFile::remove(part);
    QFile source(sourcePath);
    if (!source.copy(part)) {
        QFile::remove(part);
        throw LocalError(QStringLiteral("Kestil could not copy “%1”: %2. Nothing was installed.")
                             .arg(name, source.errorString()));
    }
    // The copy is the file that will be used; it is checked again in place.
    try {
        validatedModel(part);
    } catch (const LocalError &error) {
        QFile::remove(part);
        throw LocalError(error.message() + QStringLiteral(" Nothing was installed."));
    }
    QFile::remove(target);
    // A record left by a model of the same name says nothing about this one.
    QFile::remove(languagesRecordPath(target));
    if (!QFile::rename(part, target)) {
        QFile::remove(part);
        throw LocalError(
            QStringLiteral("Kestil could not put “%1” in place. Nothing was installed.").arg(name));
    }
    // Installed last means used: the copy carries the time of the import.
    QFile installed(target);
    if (installed.open(QIODevice::ReadWrite))
        installed.setFileTime(QDateTime::currentDateTime(), QFileDevice::FileModificationTime);
    return target;
}

} // namespace kestil::LanguageModelFiles
