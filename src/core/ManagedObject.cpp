#include "core/ManagedObject.h"

#include "core/ManagedObjectContext.h"

#include <stdexcept>

namespace kestil {

QString ObjectId::uriString() const
{
    const QString entityName = entity ? entity->name : QString();
    if (isTemporary())
        return QStringLiteral("x-kestil:///%1/t%2")
            .arg(entityName, temporaryId.toString(QUuid::WithoutBraces).toUpper());
    return QStringLiteral("x-kestil://%1/%2/p%3").arg(storeId, entityName).arg(primaryKey);
}

ManagedObject::ManagedObject(const EntityDescription &entity) : entity_(&entity)
{
    objectId_.entity = entity_;
    objectId_.temporaryId = QUuid::createUuid();
}

bool ManagedObject::hasChanges() const
{
    return inserted_ || deleted_ || changed_;
}

void ManagedObject::setValue(const QString &key, const QVariant &value)
{
    if (!entity_->hasAttribute(key))
        throw std::invalid_argument("not an attribute of " + entity_->name.toStdString() + ": " +
                                    key.toStdString());
    if (value.isValid())
        values_.insert(key, value);
    else
        values_.remove(key);
    markChanged();
}

std::optional<QString> ManagedObject::stringValue(const QString &key) const
{
    const QVariant v = values_.value(key);
    if (v.typeId() != QMetaType::QString)
        return std::nullopt;
    return v.toString();
}

std::optional<QUuid> ManagedObject::uuidValue(const QString &key) const
{
    const QVariant v = values_.value(key);
    if (v.typeId() != QMetaType::QUuid)
        return std::nullopt;
    return v.toUuid();
}

std::optional<QDateTime> ManagedObject::dateValue(const QString &key) const
{
    const QVariant v = values_.value(key);
    if (v.typeId() != QMetaType::QDateTime)
        return std::nullopt;
    return v.toDateTime();
}

void ManagedObject::setToOne(const QString &name, ManagedObjectPtr target)
{
    if (target)
        toOne_.insert(name, std::move(target));
    else
        toOne_.remove(name);
    markChanged();
}

void ManagedObject::setToMany(const QString &name, QList<ManagedObjectPtr> targets)
{
    // A to-many link is a set: each object once.
    QList<ManagedObjectPtr> unique;
    for (auto &t : targets) {
        if (t && !unique.contains(t))
            unique.append(std::move(t));
    }
    toMany_.insert(name, std::move(unique));
    markChanged();
}

void ManagedObject::markChanged()
{
    changed_ = true;
}

void ManagedObject::commit()
{
    committedValues_ = values_;
    committedToOne_ = toOne_;
    committedToMany_ = toMany_;
    inserted_ = false;
    changed_ = false;
}

void ManagedObject::revert()
{
    values_ = committedValues_;
    toOne_ = committedToOne_;
    toMany_ = committedToMany_;
    changed_ = false;
    deleted_ = false;
}

} // namespace kestil
