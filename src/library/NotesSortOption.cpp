#include "library/NotesSortOption.h"

namespace kestil {

QString notesSortOptionLabel(NotesSortOption option)
{
    switch (option) {
    case NotesSortOption::dateNewest:
        return QStringLiteral("Date (newest)");
    case NotesSortOption::dateOldest:
        return QStringLiteral("Date (oldest)");
    case NotesSortOption::titleAZ:
        return QStringLiteral("Title A→Z");
    case NotesSortOption::titleZA:
        return QStringLiteral("Title Z→A");
    case NotesSortOption::mostTags:
        return QStringLiteral("Most tags");
    }
    return {};
}

QString notesSortOptionRawValue(NotesSortOption option)
{
    switch (option) {
    case NotesSortOption::dateNewest:
        return QStringLiteral("dateNewest");
    case NotesSortOption::dateOldest:
        return QStringLiteral("dateOldest");
    case NotesSortOption::titleAZ:
        return QStringLiteral("titleAZ");
    case NotesSortOption::titleZA:
        return QStringLiteral("titleZA");
    case NotesSortOption::mostTags:
        return QStringLiteral("mostTags");
    }
    return {};
}

} // namespace kestil
