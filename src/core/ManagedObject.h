#pragma once

#include "core/EntityDescription.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QUuid>
#include <QVariant>

#include <memory>
#include <optional>

namespace kestil {

class ManagedObjectContext;
class ManagedObject;
using ManagedObjectPtr = std::shared_ptr<ManagedObject>;

// The identity of a row. Temporary until the row is first saved (or a
// permanent identity is obtained); stable from then on. The URI form keys
// per-note caches.
struct ObjectId {
    const EntityDescription *entity = nullptr;
    qint64 primaryKey = 0; // 0 while temporary
    QUuid temporaryId;
    QString storeId;

    bool isTemporary() const { return primaryKey == 0; }
    QString uriString() const;
    friend bool operator==(const ObjectId &a, const ObjectId &b)
    {
        return a.entity == b.entity && a.primaryKey == b.primaryKey && a.temporaryId == b.temporaryId &&
               a.storeId == b.storeId;
    }
};

// One row of the notes model in memory: its attribute values (a missing value
// is an invalid QVariant), its links, and what it looked like when it was last
// saved, so that a failed write can put everything back.
class ManagedObject : public std::enable_shared_from_this<ManagedObject> {
public:
    explicit ManagedObject(const EntityDescription &entity);
    virtual ~ManagedObject() = default;
    ManagedObject(const ManagedObject &) = delete;
    ManagedObject &operator=(const ManagedObject &) = delete;

    const EntityDescription &entity() const { return *entity_; }
    const ObjectId &objectId() const { return objectId_; }
    ManagedObjectContext *managedObjectContext() const { return context_; }
    bool isInserted() const { return inserted_; }
    bool isDeleted() const { return deleted_; }
    bool hasChanges() const;

    // Attribute access by name. Setting a key that is no attribute of the
    // entity throws std::invalid_argument: callers check the whitelist first.
    // A deferred attribute that was never asked for is read from the store
    // now (see AttributeDescription::deferred).
    QVariant value(const QString &key) const;
    void setValue(const QString &key, const QVariant &value);
    // Whether the value of `key` in memory differs from the stored one (or the
    // row was never saved).
    bool hasUnsavedValue(const QString &key) const;
    // A deferred attribute whose stored value has not been read into memory.
    bool isUnread(const QString &key) const { return faulted_.contains(key); }

    std::optional<QString> stringValue(const QString &key) const;
    std::optional<QUuid> uuidValue(const QString &key) const;
    std::optional<QDateTime> dateValue(const QString &key) const;

    // Links by relationship name.
    ManagedObjectPtr toOne(const QString &name) const { return toOne_.value(name); }
    QList<ManagedObjectPtr> toMany(const QString &name) const { return toMany_.value(name); }
    void setToOne(const QString &name, ManagedObjectPtr target);
    void setToMany(const QString &name, QList<ManagedObjectPtr> targets);

protected:
    void markChanged();

private:
    friend class ManagedObjectContext;
    friend class SqliteStore;

    void commit();
    void revert();
    // Values in memory of deferred attributes go back to the store's cache.
    void releaseDeferredValues();

    const EntityDescription *entity_;
    ObjectId objectId_;
    ManagedObjectContext *context_ = nullptr;
    bool inserted_ = false;
    bool deleted_ = false;
    bool changed_ = false;
    QHash<QString, QVariant> values_;
    // Deferred attributes whose stored value is not in values_.
    QSet<QString> faulted_;
    QSet<QString> committedFaulted_;
    QHash<QString, ManagedObjectPtr> toOne_;
    QHash<QString, QList<ManagedObjectPtr>> toMany_;
    QHash<QString, QVariant> committedValues_;
    QHash<QString, ManagedObjectPtr> committedToOne_;
    QHash<QString, QList<ManagedObjectPtr>> committedToMany_;
};

} // namespace kestil
