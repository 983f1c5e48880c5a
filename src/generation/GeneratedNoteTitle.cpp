#include "generation/GeneratedNoteTitle.h"

namespace kestil {

GenerationSchema GeneratedNoteTitle::schema()
{
    GenerationSchema::Property title;
    title.name = QStringLiteral("title");
    title.description = QStringLiteral("A concise descriptive note title, at most eight words, in the source "
                                       "language. No Markdown, quotes, or title prefix.");
    // A little over the longest title that is kept, so that a title is cut by
    // us, not by the grammar, while a rambling one still closes its JSON well
    // inside the response cap of 64 tokens.
    title.maximumLength = 120;
    return {{title}};
}

GeneratedNoteTitle GeneratedNoteTitle::fromJson(const QJsonObject &object)
{
    return {object.value(QStringLiteral("title")).toString()};
}

} // namespace kestil
