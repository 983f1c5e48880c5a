#pragma once

#include "core/ManagedObject.h"

namespace kestil {

class Note;

// A library-wide tag. `canonicalName` is its identity for comparison; `name`
// is the spelling the user sees.
class Tag : public ManagedObject {
public:
    Tag() : ManagedObject(entityDescription()) {}
    static const EntityDescription &entityDescription() { return NotesModel::tag(); }

    std::optional<QString> canonicalName() const { return stringValue(QStringLiteral("canonicalName")); }
    std::optional<QDateTime> createdAt() const { return dateValue(QStringLiteral("createdAt")); }
    std::optional<QUuid> id() const { return uuidValue(QStringLiteral("id")); }
    std::optional<QString> name() const { return stringValue(QStringLiteral("name")); }
    QList<std::shared_ptr<Note>> notes() const;
};
using TagPtr = std::shared_ptr<Tag>;

} // namespace kestil
