#include "core/EntityDescription.h"

namespace kestil {

std::optional<AttributeDescription> EntityDescription::attribute(const QString &key) const
{
    for (const auto &a : attributes) {
        if (a.name == key)
            return a;
    }
    return std::nullopt;
}

namespace NotesModel {

using T = AttributeType;

const EntityDescription &note()
{
    static const EntityDescription d{
        QStringLiteral("Note"),
        QStringLiteral("note"),
        {
            {QStringLiteral("cleantranscription"), T::String, true},
            {QStringLiteral("id"), T::Uuid},
            {QStringLiteral("notes"), T::String, true},
            {QStringLiteral("noteType"), T::String},
            {QStringLiteral("sourceDescription"), T::String},
            {QStringLiteral("sourceURL"), T::String},
            {QStringLiteral("speakerNamesJSON"), T::String},
            {QStringLiteral("summary"), T::String, true},
            {QStringLiteral("summaryType"), T::String},
            {QStringLiteral("timestamp"), T::Date},
            {QStringLiteral("title"), T::String},
            {QStringLiteral("transcription"), T::String, true},
            {QStringLiteral("transcriptUtterancesJSON"), T::String, true},
        },
        {
            {QStringLiteral("folder"), QStringLiteral("Folder"), false},
            {QStringLiteral("tags"), QStringLiteral("Tag"), true},
        },
    };
    return d;
}

const EntityDescription &folder()
{
    static const EntityDescription d{
        QStringLiteral("Folder"),
        QStringLiteral("folder"),
        {
            {QStringLiteral("createdAt"), T::Date},
            {QStringLiteral("id"), T::Uuid},
            {QStringLiteral("name"), T::String},
            {QStringLiteral("sortOrder"), T::Integer32},
        },
        {{QStringLiteral("notes"), QStringLiteral("Note"), true}},
    };
    return d;
}

const EntityDescription &tag()
{
    static const EntityDescription d{
        QStringLiteral("Tag"),
        QStringLiteral("tag"),
        {
            {QStringLiteral("canonicalName"), T::String},
            {QStringLiteral("createdAt"), T::Date},
            {QStringLiteral("id"), T::Uuid},
            {QStringLiteral("name"), T::String},
        },
        {{QStringLiteral("notes"), QStringLiteral("Note"), true}},
    };
    return d;
}

const EntityDescription &noteChatMessage()
{
    static const EntityDescription d{
        QStringLiteral("NoteChatMessage"),
        QStringLiteral("note_chat_message"),
        {
            {QStringLiteral("content"), T::String},
            {QStringLiteral("id"), T::Uuid},
            {QStringLiteral("noteId"), T::Uuid},
            {QStringLiteral("role"), T::String},
            {QStringLiteral("timestamp"), T::Date},
        },
        {},
    };
    return d;
}

const EntityDescription &pendingTranscription()
{
    static const EntityDescription d{
        QStringLiteral("PendingTranscription"),
        QStringLiteral("pending_transcription"),
        {
            {QStringLiteral("attempts"), T::Integer16},
            {QStringLiteral("createdAt"), T::Date},
            {QStringLiteral("id"), T::Uuid},
            {QStringLiteral("language"), T::String},
            {QStringLiteral("lastAttemptAt"), T::Date},
            {QStringLiteral("lastError"), T::String},
            {QStringLiteral("recordingId"), T::Uuid},
            {QStringLiteral("recordingURL"), T::String},
        },
        {},
    };
    return d;
}

const EntityDescription &recordingMarker()
{
    static const EntityDescription d{
        QStringLiteral("RecordingMarker"),
        QStringLiteral("recording_marker"),
        {
            {QStringLiteral("id"), T::Uuid},
            {QStringLiteral("label"), T::String},
            {QStringLiteral("noteId"), T::Uuid},
            {QStringLiteral("timestamp"), T::Double},
        },
        {},
    };
    return d;
}

const QList<const EntityDescription *> &entities()
{
    static const QList<const EntityDescription *> all{
        &note(), &folder(), &tag(), &noteChatMessage(), &pendingTranscription(), &recordingMarker()};
    return all;
}

const EntityDescription *entity(const QString &name)
{
    for (auto e : entities()) {
        if (e->name == name)
            return e;
    }
    return nullptr;
}

} // namespace NotesModel
} // namespace kestil
