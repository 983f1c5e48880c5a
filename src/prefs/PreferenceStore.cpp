#include "PreferenceStore.h"

#include "base/Error.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutexLocker>
#include <QSaveFile>

#include <cerrno>
#include <cmath>
#include <unistd.h>

namespace kestil {

namespace {

constexpr QLatin1StringView fileName{"preferences.json"};

QString shown(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

bool sameValue(const QVariant &a, const QVariant &b)
{
    return a.metaType() == b.metaType() && a == b;
}

// Where an unreadable file goes: beside it, named by the time it was found,
// never over an earlier one.
QString asidePath(const QString &path)
{
    const QString base = path + QStringLiteral(".unreadable-") +
                         QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString candidate = base;
    for (int n = 2; QFileInfo::exists(candidate) || QFileInfo(candidate).isSymLink(); ++n)
        candidate = base + QLatin1Char('-') + QString::number(n);
    return candidate;
}

QString unsavedSuffix()
{
    return QStringLiteral(
        " The change lasts until Kestil quits; the settings saved on disk were left as they were.");
}

} // namespace

PreferenceStore::PreferenceStore(const QString &directory, QObject *parent)
    : QObject(parent), directory_(directory), filePath_(QDir(directory).filePath(fileName))
{
    load();
}

PreferenceStore::~PreferenceStore() = default;

PreferenceStore &PreferenceStore::standard()
{
    static PreferenceStore store(standardDirectory());
    return store;
}

QString PreferenceStore::standardDirectory()
{
    const QString configured = qEnvironmentVariable("KESTIL_CONFIG_DIR");
    if (!configured.isEmpty())
        return configured;
    // A relative XDG_CONFIG_HOME is invalid and is ignored, as the base
    // directory rules ask.
    const QString xdg = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (!xdg.isEmpty() && QDir::isAbsolutePath(xdg))
        return QDir(xdg).filePath(QStringLiteral("Kestil"));
    return QDir(QDir::homePath()).filePath(QStringLiteral(".config/Kestil"));
}

void PreferenceStore::load()
{
    const QFileInfo info(filePath_);
    if (!info.exists() && !info.isSymLink())
        return;
    if (info.isDir()) {
        keepUnreadableFileAside(
            QStringLiteral("The settings file %1 is a folder, not a file.").arg(shown(filePath_)));
        return;
    }
    QFile file(filePath_);
    if (!file.open(QIODevice::ReadOnly)) {
        keepUnreadableFileAside(QStringLiteral("The settings file %1 could not be opened: %2.")
                                    .arg(shown(filePath_), file.errorString()));
        return;
    }
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        keepUnreadableFileAside(QStringLiteral("The settings file %1 could not be read: %2.")
                                    .arg(shown(filePath_), file.errorString()));
        return;
    }
    file.close();
    try {
        contents_ = decodePreferenceFile(bytes);
    } catch (const std::exception &error) {
        keepUnreadableFileAside(describe(error));
    }
}

void PreferenceStore::keepUnreadableFileAside(const QString &reason)
{
    contents_ = {};
    const QString aside = asidePath(filePath_);
    if (QDir().rename(filePath_, aside)) {
        loadWarning_ =
            QStringLiteral("%1 Kestil started with default settings and kept the unreadable file as %2.")
                .arg(reason, shown(aside));
        return;
    }
    // Saving over the file would destroy it, so nothing is saved this session.
    savingBlocked_ = true;
    loadWarning_ = QStringLiteral("%1 Kestil started with default settings and left the file untouched; "
                                  "changed settings last only until Kestil quits.")
                       .arg(reason);
}

QVariant PreferenceStore::object(const QString &key) const
{
    QMutexLocker lock(&mutex_);
    return contents_.values.value(key);
}

bool PreferenceStore::contains(const QString &key) const
{
    QMutexLocker lock(&mutex_);
    return contents_.values.contains(key);
}

QStringList PreferenceStore::keys() const
{
    QMutexLocker lock(&mutex_);
    QStringList keys = contents_.values.keys();
    keys.sort();
    return keys;
}

bool PreferenceStore::boolValue(const QString &key) const
{
    const QVariant value = object(key);
    return value.metaType().id() == QMetaType::Bool && value.toBool();
}

qint64 PreferenceStore::integer(const QString &key) const
{
    const QVariant value = object(key);
    switch (value.metaType().id()) {
    case QMetaType::LongLong:
        return value.toLongLong();
    case QMetaType::Double: {
        const double d = std::trunc(value.toDouble());
        // Outside qint64 (or NaN) there is no integer to give.
        if (d >= -9223372036854775808.0 && d < 9223372036854775808.0)
            return qint64(d);
        return 0;
    }
    default:
        return 0;
    }
}

double PreferenceStore::doubleValue(const QString &key) const
{
    const QVariant value = object(key);
    switch (value.metaType().id()) {
    case QMetaType::Double:
        return value.toDouble();
    case QMetaType::LongLong:
        return double(value.toLongLong());
    default:
        return 0;
    }
}

QString PreferenceStore::string(const QString &key) const
{
    const QVariant value = object(key);
    return value.metaType().id() == QMetaType::QString ? value.toString() : QString();
}

QStringList PreferenceStore::stringArray(const QString &key) const
{
    const QVariant value = object(key);
    return value.metaType().id() == QMetaType::QStringList ? value.toStringList() : QStringList();
}

QByteArray PreferenceStore::data(const QString &key) const
{
    const QVariant value = object(key);
    return value.metaType().id() == QMetaType::QByteArray ? value.toByteArray() : QByteArray();
}

void PreferenceStore::set(const QString &key, const QVariant &value)
{
    set(QVariantMap{{key, value}});
}

void PreferenceStore::set(const QVariantMap &values)
{
    QList<std::pair<QString, QVariant>> normalized;
    for (auto it = values.begin(); it != values.end(); ++it) {
        if (it.key().isEmpty())
            throw LocalError(QStringLiteral("A setting needs a name; nothing was saved."));
        const auto value = normalizedPreferenceValue(it.value());
        if (!value) {
            const char *type = it.value().metaType().name();
            throw LocalError(QStringLiteral("Kestil cannot keep a value of type %1 in the setting “%2”; "
                                            "the setting was left as it was.")
                                 .arg(type ? QString::fromLatin1(type) : QStringLiteral("none"), it.key()));
        }
        normalized.append({it.key(), *value});
    }

    QList<std::pair<QString, QVariant>> changes;
    QString failure;
    {
        QMutexLocker lock(&mutex_);
        for (const auto &[key, value] : normalized) {
            const auto existing = contents_.values.constFind(key);
            if (existing != contents_.values.cend() && sameValue(*existing, value))
                continue;
            contents_.values.insert(key, value);
            // The new value replaces whatever unreadable entry had the same name.
            contents_.unreadableEntries.remove(key);
            changes.append({key, value});
        }
        // After a failed save, even an unchanged value retries it.
        if (changes.isEmpty() && !unsaved_)
            return;
        failure = saveLocked();
    }
    announce(changes, failure);
}

void PreferenceStore::remove(const QString &key)
{
    QString failure;
    bool held = false;
    {
        QMutexLocker lock(&mutex_);
        held = contents_.values.remove(key) > 0;
        if (!held && !contents_.unreadableEntries.contains(key))
            return;
        contents_.unreadableEntries.remove(key);
        failure = saveLocked();
    }
    announce(held ? QList<std::pair<QString, QVariant>>{{key, QVariant()}}
                  : QList<std::pair<QString, QVariant>>{},
             failure);
}

PreferenceValue *PreferenceStore::observe(const QString &key)
{
    QMutexLocker lock(&mutex_);
    PreferenceValue *&observer = observers_[key];
    if (!observer)
        observer = new PreferenceValue(*this, key);
    return observer;
}

QString PreferenceStore::loadWarning() const
{
    QMutexLocker lock(&mutex_);
    return loadWarning_;
}

QString PreferenceStore::lastWriteError() const
{
    QMutexLocker lock(&mutex_);
    return lastWriteError_;
}

QString PreferenceStore::saveLocked()
{
    QString failure;
    if (savingBlocked_) {
        failure = QStringLiteral("Kestil did not save the change because the unreadable settings file %1 "
                                 "is kept as it was.")
                      .arg(shown(filePath_)) +
                  QStringLiteral(" The change lasts until Kestil quits.");
    } else if (!QDir().mkpath(directory_)) {
        failure =
            QStringLiteral("Kestil could not save your settings because the folder %1 could not be created.")
                .arg(shown(directory_)) +
            unsavedSuffix();
    } else {
        try {
            const QByteArray bytes = encodePreferenceFile(contents_);
            // The file on disk is always a whole old or a whole new version:
            // QSaveFile writes beside it and renames over it only when
            // everything was written.
            QSaveFile file(filePath_);
            QString reason;
            if (!file.open(QIODevice::WriteOnly)) {
                reason = file.errorString();
            } else if (file.write(bytes) != bytes.size() || !file.flush()) {
                reason = file.errorString();
                file.cancelWriting();
            } else if (::fsync(file.handle()) != 0) {
                // QSaveFile renames without syncing; without this a power cut
                // could leave an empty file where the old one was.
                reason = qt_error_string(errno);
                file.cancelWriting();
            } else if (!file.commit()) {
                reason = file.errorString();
            }
            if (!reason.isEmpty())
                failure = QStringLiteral("Kestil could not save your settings to %1: %2.")
                              .arg(shown(filePath_), reason) +
                          unsavedSuffix();
        } catch (const std::exception &error) {
            failure = describe(error) + unsavedSuffix();
        }
    }
    unsaved_ = !failure.isEmpty();
    lastWriteError_ = failure;
    return failure;
}

void PreferenceStore::announce(const QList<std::pair<QString, QVariant>> &changes, const QString &failure)
{
    QList<PreferenceValue *> observers;
    {
        QMutexLocker lock(&mutex_);
        for (const auto &change : changes)
            observers.append(observers_.value(change.first));
    }
    for (qsizetype i = 0; i < changes.size(); ++i) {
        emit changed(changes[i].first);
        if (observers[i])
            emit observers[i]->valueChanged(changes[i].second);
    }
    if (!failure.isEmpty())
        emit writeFailed(failure);
}

} // namespace kestil
