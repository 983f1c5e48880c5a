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

QVariant ManagedObject::value(const QString &key) const
{
    if (faulted_.contains(key))
        return context_ ? context_->deferredValue(*this, key) : QVariant();
    return values_.value(key);
}

bool ManagedObject::hasUnsavedValue(const QString &key) const
{
    if (inserted_ || objectId_.isTemporary())
        return true;
    if (faulted_.contains(key))
        return false;
    if (committedFaulted_.contains(key))
        return true;
    return values_.value(key) != committedValues_.value(key);
}

void ManagedObject::setValue(const QString &key, const QVariant &value)
{
    if (!entity_->hasAttribute(key))
        throw std::invalid_argument("not an attribute of " + entity_->name.toStdString() + ": " +
                                    key.toStdString());
    faulted_.remove(key);
    if (value.isValid())
        values_.insert(key, value);
    else
        values_.remove(key);
    markChanged();
}

std::optional<QString> ManagedObject::stringValue(const QString &key) const
{
    const QVariant v = value(key);
    if (v.typeId() != QMetaType::QString)
        return std::nullopt;
    return v.toString();
}

std::optional<QUuid> ManagedObject::uuidValue(const QString &key) const
{
    const QVariant v = value(key);
    if (v.typeId() != QMetaType::QUuid)
        return std::nullopt;
    return v.toUuid();
}

std::optional<QDateTime> ManagedObject::dateValue(const QString &key) const
{
    const QVariant v = value(key);
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

void ManagedObject::releaseDeferredValues()
{
    if (!context_)
        return;
    for (const auto &a : entity_->attributes) {
        if (!a.deferred || faulted_.contains(a.name))
            continue;
        context_->keepDeferredValue(*this, a.name, values_.take(a.name));
        faulted_.insert(a.name);
        committedValues_.remove(a.name);
        committedFaulted_.insert(a.name);
    }
}

void ManagedObject::markChanged()
{
    changed_ = true;
}

void ManagedObject::commit()
{
    committedValues_ = values_;
    committedFaulted_ = faulted_;
    committedToOne_ = toOne_;
    committedToMany_ = toMany_;
    inserted_ = false;
    changed_ = false;
}

void ManagedObject::revert()
{
    values_ = committedValues_;
    faulted_ = committedFaulted_;
    toOne_ = committedToOne_;
    toMany_ = committedToMany_;
    changed_ = false;
    deleted_ = false;
}

} // namespace kestil
