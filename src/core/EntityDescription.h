#pragma once

#include <QList>
#include <QString>

#include <optional>

namespace kestil {

enum class AttributeType { String, Uuid, Date, Integer16, Integer32, Double };

struct AttributeDescription {
    QString name;
    AttributeType type;
    // A long text that a fetch leaves in the store: it is read when first
    // asked for and kept in a bounded cache, so that a library of long
    // transcripts does not live in memory.
    bool deferred = false;
};

// A to-one or to-many link between entities. Only Note holds links in the
// store; the inverse sides (Folder.notes, Tag.notes) are derived.
struct RelationshipDescription {
    QString name;
    QString destination;
    bool toMany;
};

// The shape of one entity of the notes model: its table and its attributes in
// their declared order. The attribute list is also the whitelist for values
// that arrive from generation or recovery.
struct EntityDescription {
    QString name;
    QString table;
    QList<AttributeDescription> attributes;
    QList<RelationshipDescription> relationships;

    std::optional<AttributeDescription> attribute(const QString &key) const;
    bool hasAttribute(const QString &key) const { return attribute(key).has_value(); }
};

// The notes model: Note, Folder, Tag, NoteChatMessage, PendingTranscription
// and RecordingMarker.
namespace NotesModel {
const EntityDescription &note();
const EntityDescription &folder();
const EntityDescription &tag();
const EntityDescription &noteChatMessage();
const EntityDescription &pendingTranscription();
const EntityDescription &recordingMarker();
const QList<const EntityDescription *> &entities();
const EntityDescription *entity(const QString &name);
} // namespace NotesModel

} // namespace kestil
