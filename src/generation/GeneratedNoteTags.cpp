#include "generation/GeneratedNoteTags.h"

#include <QJsonArray>

namespace kestil {

GenerationSchema GeneratedNoteTags::schema()
{
    GenerationSchema::Property tags;
    tags.name = QStringLiteral("tags");
    tags.description = QStringLiteral("One to five broad topic tags, reusing matching library names.");
    tags.kind = GenerationSchema::Kind::stringArray;
    tags.minimumCount = 1;
    tags.maximumCount = 5;
    // Longer proposals are dropped when names are resolved; the grammar keeps
    // the model from spending its response on them.
    tags.maximumLength = 48;
    return {{tags}};
}

GeneratedNoteTags GeneratedNoteTags::fromJson(const QJsonObject &object)
{
    GeneratedNoteTags result;
    for (const QJsonValue &value : object.value(QStringLiteral("tags")).toArray())
        result.tags.append(value.toString());
    return result;
}

} // namespace kestil
