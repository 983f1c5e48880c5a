#pragma once

#include "core/ManagedObject.h"

namespace kestil {

class Note;

// A user folder in the sidebar. Its notes are those whose folder link points
// here; deleting it leaves them unfiled.
class Folder : public ManagedObject {
public:
    Folder() : ManagedObject(entityDescription()) {}
    static const EntityDescription &entityDescription() { return NotesModel::folder(); }

    std::optional<QDateTime> createdAt() const { return dateValue(QStringLiteral("createdAt")); }
    std::optional<QUuid> id() const { return uuidValue(QStringLiteral("id")); }
    std::optional<QString> name() const { return stringValue(QStringLiteral("name")); }
    int sortOrder() const { return value(QStringLiteral("sortOrder")).toInt(); }
    QList<std::shared_ptr<Note>> notes() const;
};
using FolderPtr = std::shared_ptr<Folder>;

} // namespace kestil
