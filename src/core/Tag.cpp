#include "core/Tag.h"

#include "core/ManagedObjectContext.h"
#include "core/Note.h"

namespace kestil {

QList<NotePtr> Tag::notes() const
{
    QList<NotePtr> result;
    if (auto *context = managedObjectContext()) {
        auto self = std::const_pointer_cast<ManagedObject>(shared_from_this());
        for (const auto &o : context->objectsLinkingTo(self, QStringLiteral("tags")))
            result.append(std::static_pointer_cast<Note>(o));
    }
    return result;
}

} // namespace kestil
