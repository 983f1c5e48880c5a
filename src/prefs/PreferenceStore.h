#pragma once

#include "PreferenceFile.h"
#include "PreferenceValue.h"

#include <QByteArray>
#include <QHash>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <utility>

namespace kestil {

// The user's preferences: typed values under text keys, kept in one JSON file
// (<directory>/preferences.json) that is rewritten atomically on every change.
//
// Nothing registers defaults here. A missing key stays missing, distinct from a
// stored false or 0; each reader in SettingsKeys.h applies its own default.
// Values keep their type across launches: bool, qint64, double, QString,
// QStringList and QByteArray, each stored with its type name because JSON has
// no integers, no binary data and no way to tell the text "false" from false.
//
// The store belongs to the main thread; reads and writes are guarded, so a
// worker may read or write a key too, and its signals reach receivers on the
// main thread queued.
class PreferenceStore : public QObject {
    Q_OBJECT

public:
    // Loads <directory>/preferences.json. A missing file is an empty store. A
    // file that cannot be read or parsed is renamed beside itself and the store
    // starts empty; loadWarning() then holds the sentence for the user.
    explicit PreferenceStore(const QString &directory, QObject *parent = nullptr);
    ~PreferenceStore() override;

    // The process's store, in standardDirectory(), made on first use.
    static PreferenceStore &standard();
    // $KESTIL_CONFIG_DIR if set, else $XDG_CONFIG_HOME/Kestil, else ~/.config/Kestil.
    static QString standardDirectory();

    QString directory() const { return directory_; }
    QString filePath() const { return filePath_; }

    // The value in its stored type, or an invalid QVariant when the key is missing.
    QVariant object(const QString &key) const;
    bool contains(const QString &key) const;
    QStringList keys() const;

    // Readers that never throw. Each gives its type's empty value when the key
    // is missing or holds another type; integer() and doubleValue() accept
    // either kind of number (integer() truncates a double towards zero).
    bool boolValue(const QString &key) const;
    qint64 integer(const QString &key) const;
    double doubleValue(const QString &key) const;
    QString string(const QString &key) const;
    QStringList stringArray(const QString &key) const;
    QByteArray data(const QString &key) const;

    // Stores a bool, an integer (any width that fits in qint64), a float or
    // double, a QString, a QStringList or a QByteArray, and saves at once.
    // Anything else is refused with a LocalError and nothing changes. Setting
    // the value a key already holds signals nothing and writes nothing, unless
    // the last save failed: then it tries the save again.
    void set(const QString &key, const QVariant &value);
    // Several keys in one save (one file replace instead of one per key), with
    // a changed signal for each key whose value changed, in key order, once all
    // are in place. If any value is refused, none is stored.
    void set(const QVariantMap &values);
    // Removes the key and saves at once; a missing key is left alone.
    void remove(const QString &key);

    // The one observable value of a key, owned by the store: every observer of
    // the key shares it and sees each write as it happens. Call it on the
    // store's thread; the value lives there.
    PreferenceValue *observe(const QString &key);

    // The sentence explaining why the store started empty, or an empty string.
    QString loadWarning() const;
    // The sentence of the last failed save, or an empty string once a save succeeds.
    QString lastWriteError() const;

signals:
    // After every write that changed a key, in memory at least.
    void changed(const QString &key);
    // When a change could not be saved to disk. The value stays in effect in
    // memory, and the file keeps its previous contents.
    void writeFailed(const QString &message);

private:
    void load();
    void keepUnreadableFileAside(const QString &reason);
    // Saves the whole store; returns the failure sentence, or an empty string.
    QString saveLocked();
    // Signals a write once the lock is released, so that receivers may read.
    void announce(const QList<std::pair<QString, QVariant>> &changes, const QString &failure);

    QString directory_;
    QString filePath_;
    mutable QMutex mutex_;
    // The values, and the file's entries that this version cannot read, which
    // are written back unchanged.
    PreferenceFile contents_;
    QHash<QString, PreferenceValue *> observers_;
    QString loadWarning_;
    QString lastWriteError_;
    // Set when an unreadable file could not be moved aside: saving would
    // destroy it, so changes stay in memory for this session.
    bool savingBlocked_ = false;
    // Set when the last save failed, so that the next write retries even when
    // it changes nothing.
    bool unsaved_ = false;
};

} // namespace kestil
