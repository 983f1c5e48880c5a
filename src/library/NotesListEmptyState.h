#pragma once

namespace kestil {

// Why the notes list is empty, when it is: nothing at all yet, a search that
// found nothing, a folder with no notes, or filters that hide every note.
enum class NotesListEmptyState { none, noNotesYet, noSearchResults, noNotesInFolder, filtersHidingNotes };

} // namespace kestil
