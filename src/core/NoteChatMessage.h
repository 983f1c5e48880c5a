#pragma once

#include "core/ManagedObject.h"

namespace kestil {

// One stored chat message. It belongs to a note through the plain attribute
// noteId, not a link, and is fetched and deleted by that value.
class NoteChatMessage : public ManagedObject {
public:
    NoteChatMessage() : ManagedObject(entityDescription()) {}
    static const EntityDescription &entityDescription() { return NotesModel::noteChatMessage(); }

    std::optional<QString> content() const { return stringValue(QStringLiteral("content")); }
    std::optional<QUuid> id() const { return uuidValue(QStringLiteral("id")); }
    std::optional<QUuid> noteId() const { return uuidValue(QStringLiteral("noteId")); }
    std::optional<QString> role() const { return stringValue(QStringLiteral("role")); }
    std::optional<QDateTime> timestamp() const { return dateValue(QStringLiteral("timestamp")); }
};
using NoteChatMessagePtr = std::shared_ptr<NoteChatMessage>;

} // namespace kestil
