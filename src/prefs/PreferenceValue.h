#pragma once

#include <QObject>
#include <QString>
#include <QVariant>

namespace kestil {

class PreferenceStore;

// One key of a PreferenceStore as an observable value. The store makes one per
// key and owns it, so that every view bound to the key sees the same writes.
class PreferenceValue : public QObject {
    Q_OBJECT

public:
    PreferenceValue(PreferenceStore &store, const QString &key);

    QString key() const { return key_; }
    // The stored value, or an invalid QVariant while the key is missing.
    QVariant value() const;
    // Writes through the store, with the store's rules and signals.
    void setValue(const QVariant &value);
    void remove();

signals:
    // After each change of the key; an invalid value means it was removed.
    void valueChanged(const QVariant &value);

private:
    PreferenceStore &store_;
    QString key_;
};

} // namespace kestil
