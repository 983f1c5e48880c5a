#pragma once

#include "library/ListedNote.h"

#include <QDate>
#include <QList>

#include <optional>

namespace kestil {

// A run of the list under one heading. An order that is not by date gives a
// single group with no day, and the list shows no heading for it.
struct NotesDayGroup {
    std::optional<QDate> day;
    QList<ListedNote> notes;
};

} // namespace kestil
