#pragma once

#include <QList>
#include <QString>

namespace kestil {

// The orders of the notes list, in the order the picker offers them.
enum class NotesSortOption { dateNewest, dateOldest, titleAZ, titleZA, mostTags };

inline const QList<NotesSortOption> &allNotesSortOptions()
{
    static const QList<NotesSortOption> all{NotesSortOption::dateNewest, NotesSortOption::dateOldest,
                                            NotesSortOption::titleAZ, NotesSortOption::titleZA,
                                            NotesSortOption::mostTags};
    return all;
}

// What the "Sort by" picker shows for an option.
QString notesSortOptionLabel(NotesSortOption option);
// The stored form of an option: its name.
QString notesSortOptionRawValue(NotesSortOption option);

// Whether the list shows day groups under this order.
inline bool sortsByDate(NotesSortOption option)
{
    return option == NotesSortOption::dateNewest || option == NotesSortOption::dateOldest;
}

} // namespace kestil
