#pragma once

#include "base/BoundedCache.h"
#include "core/ManagedObject.h"

#include <QList>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

namespace kestil {

class SqliteStore;
struct AttributeEquals;
struct StoredRow;

// What a fetch asks for: one entity, an optional equality test on one
// attribute, an optional sort key, and an optional limit.
struct FetchRequest {
    const EntityDescription *entity = nullptr;
    std::optional<std::pair<QString, QVariant>> equals;
    std::optional<QString> sortKey;
    bool ascending = true;
    int limit = 0;
};

// The one context of the notes: every row in memory, its pending changes, and
// the save that writes them to the store in one transaction. A fetch sees the
// pending changes (inserted rows match, deleted rows do not). Main thread only.
class ManagedObjectContext {
public:
    explicit ManagedObjectContext(SqliteStore &store);
    ~ManagedObjectContext();
    ManagedObjectContext(const ManagedObjectContext &) = delete;
    ManagedObjectContext &operator=(const ManagedObjectContext &) = delete;

    template <typename T> std::shared_ptr<T> insert()
    {
        return std::static_pointer_cast<T>(insertObject(T::entityDescription()));
    }
    ManagedObjectPtr insertObject(const EntityDescription &entity);

    // Deleting an inserted row forgets it at once; a stored row goes at the
    // next save. Links to it are cleared now: a deleted folder leaves its
    // notes unfiled, a deleted tag leaves its notes.
    void deleteObject(const ManagedObjectPtr &object);

    QList<ManagedObjectPtr> fetch(const FetchRequest &request);
    template <typename T> QList<std::shared_ptr<T>> fetch(FetchRequest request)
    {
        request.entity = &T::entityDescription();
        QList<std::shared_ptr<T>> typed;
        for (auto &o : fetch(request))
            typed.append(std::static_pointer_cast<T>(o));
        return typed;
    }

    bool hasChanges() const;
    // Writes every pending change in one transaction. On failure it throws
    // and neither the file nor any object in memory has changed.
    void save();
    // Forgets every pending change: inserted rows leave the context, changed
    // and deleted rows get their stored values back.
    void rollback();
    void obtainPermanentId(const ManagedObjectPtr &object);

    SqliteStore &store() const { return store_; }
    // The stored value of a deferred attribute: from the cache, or read from
    // the store (and then cached). Missing when the row or the value is.
    QVariant deferredValue(const ManagedObject &object, const QString &key) const;
    // A stored deferred value that is known without reading: kept in the
    // cache.
    void keepDeferredValue(const ManagedObject &object, const QString &key, const QVariant &value) const;
    // Every registered object whose notes link points at target (derived inverse).
    QList<ManagedObjectPtr> objectsLinkingTo(const ManagedObjectPtr &target,
                                             const QString &relationship) const;

private:
    ManagedObjectPtr materialise(const EntityDescription &entity, qint64 primaryKey);
    ManagedObjectPtr adopt(const EntityDescription &entity, const StoredRow &row);
    QString deferredKey(const ManagedObject &object, const QString &key) const;
    ManagedObjectPtr registered(const EntityDescription &entity, qint64 primaryKey) const;
    void forget(const ManagedObjectPtr &object);
    static bool matches(const ManagedObject &object, const std::pair<QString, QVariant> &equals);

    static QString indexKey(const EntityDescription &entity, qint64 primaryKey);

    SqliteStore &store_;
    QList<ManagedObjectPtr> objects_;
    QHash<QString, ManagedObjectPtr> byPrimaryKey_;
    // Deferred values read or saved lately, by object and attribute; the cost
    // is the bytes they take.
    mutable BoundedCache<QString, QVariant> deferredValues_{4096, 64 * 1024 * 1024};
};

// Makes the typed object (Note, Folder, ...) for an entity.
ManagedObjectPtr makeManagedObject(const EntityDescription &entity);

} // namespace kestil
