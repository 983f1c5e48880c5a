#include "library/TagMatchMode.h"

namespace kestil {

QString tagMatchModeLabel(TagMatchMode mode)
{
    return mode == TagMatchMode::any ? QStringLiteral("Any") : QStringLiteral("All");
}

QString tagMatchModeHelp(TagMatchMode mode)
{
    return mode == TagMatchMode::any ? QStringLiteral("Match notes that have at least one selected tag")
                                     : QStringLiteral("Match notes that have every selected tag");
}

QString tagMatchModeRawValue(TagMatchMode mode)
{
    return mode == TagMatchMode::any ? QStringLiteral("any") : QStringLiteral("all");
}

} // namespace kestil
