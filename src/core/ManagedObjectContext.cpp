#include "core/ManagedObjectContext.h"

#include "core/Folder.h"
#include "core/Note.h"
#include "core/NoteChatMessage.h"
#include "core/SqliteStore.h"
#include "core/Tag.h"

#include <algorithm>
#include <vector>

namespace kestil {

ManagedObjectPtr makeManagedObject(const EntityDescription &entity)
{
    if (&entity == &NotesModel::note())
        return std::make_shared<Note>();
    if (&entity == &NotesModel::folder())
        return std::make_shared<Folder>();
    if (&entity == &NotesModel::tag())
        return std::make_shared<Tag>();
    if (&entity == &NotesModel::noteChatMessage())
        return std::make_shared<NoteChatMessage>();
    return std::make_shared<ManagedObject>(entity);
}

ManagedObjectContext::ManagedObjectContext(SqliteStore &store) : store_(store) {}

ManagedObjectContext::~ManagedObjectContext()
{
    for (auto &o : objects_)
        o->context_ = nullptr;
}

ManagedObjectPtr ManagedObjectContext::insertObject(const EntityDescription &entity)
{
    auto object = makeManagedObject(entity);
    object->context_ = this;
    object->inserted_ = true;
    objects_.append(object);
    return object;
}

void ManagedObjectContext::deleteObject(const ManagedObjectPtr &object)
{
    if (!object || object->context_ != this || object->deleted_)
        return;
    if (&object->entity() == &NotesModel::folder()) {
        for (auto &note : objectsLinkingTo(object, QStringLiteral("folder")))
            note->setToOne(QStringLiteral("folder"), nullptr);
    } else if (&object->entity() == &NotesModel::tag()) {
        for (auto &note : objectsLinkingTo(object, QStringLiteral("tags"))) {
            auto tags = note->toMany(QStringLiteral("tags"));
            tags.removeAll(object);
            note->setToMany(QStringLiteral("tags"), tags);
        }
    }
    if (object->inserted_) {
        forget(object);
        object->deleted_ = true;
        return;
    }
    object->deleted_ = true;
}

QString ManagedObjectContext::indexKey(const EntityDescription &entity, qint64 primaryKey)
{
    return entity.name + QLatin1Char('/') + QString::number(primaryKey);
}

void ManagedObjectContext::forget(const ManagedObjectPtr &object)
{
    objects_.removeAll(object);
    if (!object->objectId_.isTemporary()) {
        byPrimaryKey_.remove(indexKey(object->entity(), object->objectId_.primaryKey));
        for (const auto &a : object->entity().attributes) {
            if (a.deferred)
                deferredValues_.removeObject(deferredKey(*object, a.name));
        }
    }
    object->context_ = nullptr;
}

ManagedObjectPtr ManagedObjectContext::registered(const EntityDescription &entity, qint64 primaryKey) const
{
    return byPrimaryKey_.value(indexKey(entity, primaryKey));
}

ManagedObjectPtr ManagedObjectContext::materialise(const EntityDescription &entity, qint64 primaryKey)
{
    if (auto existing = registered(entity, primaryKey))
        return existing;
    auto row = store_.selectByPrimaryKey(entity, primaryKey);
    if (!row)
        return nullptr;
    return adopt(entity, *row);
}

ManagedObjectPtr ManagedObjectContext::adopt(const EntityDescription &entity, const StoredRow &row)
{
    if (auto existing = registered(entity, row.primaryKey))
        return existing;
    auto object = makeManagedObject(entity);
    object->context_ = this;
    object->objectId_.primaryKey = row.primaryKey;
    object->objectId_.storeId = store_.storeId();
    object->values_ = row.values;
    object->faulted_ = row.unloaded;
    objects_.append(object);
    byPrimaryKey_.insert(indexKey(entity, row.primaryKey), object);
    for (const auto &r : entity.relationships) {
        const EntityDescription *destination = NotesModel::entity(r.destination);
        if (!r.toMany && row.toOne.contains(r.name)) {
            if (auto target = materialise(*destination, row.toOne.value(r.name)))
                object->toOne_.insert(r.name, target);
        } else if (r.toMany && row.toMany.contains(r.name)) {
            QList<ManagedObjectPtr> targets;
            for (qint64 key : row.toMany.value(r.name)) {
                if (auto target = materialise(*destination, key))
                    targets.append(target);
            }
            object->toMany_.insert(r.name, targets);
        }
    }
    object->commit();
    return object;
}

QString ManagedObjectContext::deferredKey(const ManagedObject &object, const QString &key) const
{
    return indexKey(object.entity(), object.objectId().primaryKey) + QLatin1Char('/') + key;
}

namespace {
qint64 costOf(const QVariant &value)
{
    return value.typeId() == QMetaType::QString ? qint64(value.toString().size()) * 2 + 64 : 64;
}
} // namespace

QVariant ManagedObjectContext::deferredValue(const ManagedObject &object, const QString &key) const
{
    if (object.objectId().isTemporary())
        return {};
    const QString cacheKey = deferredKey(object, key);
    if (auto cached = deferredValues_.object(cacheKey))
        return *cached;
    QVariant value;
    try {
        value = store_.selectAttribute(object.entity(), object.objectId().primaryKey, key);
    } catch (const std::exception &error) {
        // A getter cannot refuse; the value reads as missing this once and is
        // asked of the store again next time.
        qWarning("A stored note field could not be read: %s", error.what());
        return {};
    }
    deferredValues_.setObject(cacheKey, std::make_shared<const QVariant>(value), costOf(value));
    return value;
}

void ManagedObjectContext::keepDeferredValue(const ManagedObject &object, const QString &key,
                                             const QVariant &value) const
{
    deferredValues_.setObject(deferredKey(object, key), std::make_shared<const QVariant>(value),
                              costOf(value));
}

bool ManagedObjectContext::matches(const ManagedObject &object, const std::pair<QString, QVariant> &equals)
{
    const QVariant v = object.value(equals.first);
    if (!v.isValid() || !equals.second.isValid())
        return !v.isValid() && !equals.second.isValid();
    return v == equals.second;
}

namespace {
// Missing values sort first, as the store does for NULL.
int compareValues(const QVariant &a, const QVariant &b)
{
    if (!a.isValid() || !b.isValid())
        return int(a.isValid()) - int(b.isValid());
    const auto order = QVariant::compare(a, b);
    if (order == QPartialOrdering::Less)
        return -1;
    if (order == QPartialOrdering::Greater)
        return 1;
    return 0;
}
} // namespace

QList<ManagedObjectPtr> ManagedObjectContext::fetch(const FetchRequest &request)
{
    const EntityDescription &entity = *request.entity;
    std::optional<AttributeEquals> where;
    if (request.equals)
        where = AttributeEquals{request.equals->first, request.equals->second};
    // Bring every matching stored row into memory; rows already here keep
    // their in-memory values, which are what the answer is judged on. Many
    // new rows are read in one pass rather than one query each.
    const QList<qint64> keys = store_.selectPrimaryKeys(entity, where);
    qsizetype unknown = 0;
    for (qint64 key : keys)
        unknown += registered(entity, key) ? 0 : 1;
    if (unknown > 32) {
        for (const StoredRow &row : store_.selectRows(entity, where))
            adopt(entity, row);
    } else if (unknown > 0) {
        for (qint64 key : keys)
            materialise(entity, key);
    }

    QList<ManagedObjectPtr> result;
    for (const auto &o : objects_) {
        if (&o->entity() != &entity || o->deleted_)
            continue;
        if (request.equals && !matches(*o, *request.equals))
            continue;
        result.append(o);
    }
    if (request.sortKey) {
        const QString key = *request.sortKey;
        // Each value is read once, not at every comparison.
        std::vector<std::pair<QVariant, ManagedObjectPtr>> keyed;
        keyed.reserve(size_t(result.size()));
        for (const auto &o : result)
            keyed.emplace_back(o->value(key), o);
        std::stable_sort(keyed.begin(), keyed.end(), [&](const auto &a, const auto &b) {
            const int c = compareValues(a.first, b.first);
            return request.ascending ? c < 0 : c > 0;
        });
        for (size_t i = 0; i < keyed.size(); ++i)
            result[qsizetype(i)] = keyed[i].second;
    }
    if (request.limit > 0 && result.size() > request.limit)
        result.resize(request.limit);
    return result;
}

QList<ManagedObjectPtr> ManagedObjectContext::objectsLinkingTo(const ManagedObjectPtr &target,
                                                               const QString &relationship) const
{
    QList<ManagedObjectPtr> result;
    for (const auto &o : objects_) {
        if (o->deleted_)
            continue;
        if (o->toOne_.value(relationship) == target || o->toMany_.value(relationship).contains(target))
            result.append(o);
    }
    return result;
}

bool ManagedObjectContext::hasChanges() const
{
    return std::any_of(objects_.begin(), objects_.end(),
                       [](const ManagedObjectPtr &o) { return o->hasChanges(); });
}

void ManagedObjectContext::obtainPermanentId(const ManagedObjectPtr &object)
{
    if (!object->objectId_.isTemporary())
        return;
    object->objectId_.primaryKey = store_.allocatePrimaryKey(object->entity());
    object->objectId_.storeId = store_.storeId();
    byPrimaryKey_.insert(indexKey(object->entity(), object->objectId_.primaryKey), object);
}

namespace {
StoredRow rowOf(const ManagedObject &object)
{
    StoredRow row;
    row.primaryKey = object.objectId().primaryKey;
    for (const auto &a : object.entity().attributes) {
        // A deferred value never read is left as the store has it.
        if (object.isUnread(a.name)) {
            row.unloaded.insert(a.name);
            continue;
        }
        const QVariant v = object.value(a.name);
        if (v.isValid())
            row.values.insert(a.name, v);
    }
    for (const auto &r : object.entity().relationships) {
        if (!r.toMany) {
            if (auto target = object.toOne(r.name))
                row.toOne.insert(r.name, target->objectId().primaryKey);
        } else {
            QList<qint64> keys;
            for (const auto &target : object.toMany(r.name))
                keys.append(target->objectId().primaryKey);
            row.toMany.insert(r.name, keys);
        }
    }
    return row;
}
} // namespace

void ManagedObjectContext::save()
{
    if (!hasChanges())
        return;
    QList<ManagedObjectPtr> inserted, updated, deleted;
    for (const auto &o : objects_) {
        if (o->deleted_)
            deleted.append(o);
        else if (o->inserted_)
            inserted.append(o);
        else if (o->changed_)
            updated.append(o);
    }
    // Identities are made permanent before any row is written, so that links
    // between new rows can name each other. A failed save keeps them: they are
    // never handed out again.
    for (const auto &o : inserted)
        obtainPermanentId(o);

    store_.begin();
    try {
        for (const auto &o : deleted)
            store_.deleteRow(o->entity(), o->objectId_.primaryKey);
        for (const auto &o : inserted)
            store_.insertRow(o->entity(), rowOf(*o));
        for (const auto &o : updated)
            store_.updateRow(o->entity(), rowOf(*o));
        store_.commit();
    } catch (...) {
        store_.abort();
        throw;
    }
    for (const auto &o : inserted)
        o->commit();
    for (const auto &o : updated)
        o->commit();
    for (const auto &o : deleted)
        forget(o);
    // What was just written of the long texts is in the store now: memory
    // keeps it only while the cache has room.
    for (const auto &o : inserted)
        o->releaseDeferredValues();
    for (const auto &o : updated)
        o->releaseDeferredValues();
}

void ManagedObjectContext::rollback()
{
    const auto snapshot = objects_;
    for (const auto &o : snapshot) {
        if (o->inserted_) {
            forget(o);
            o->inserted_ = false;
            o->deleted_ = true;
        } else if (o->changed_ || o->deleted_) {
            o->revert();
        }
    }
}

} // namespace kestil
