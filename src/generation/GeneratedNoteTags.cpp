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
    // Proposals of more than 48 characters are dropped when names are
    // resolved. The grammar allows one character more, so that a longer
    // proposal arrives too long and is dropped rather than cut to a tag that
    // would be kept, and still keeps the model from spending its response on it.
    tags.maximumLength = 49;
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
