#pragma once

#include "core/Folder.h"
#include "core/ManagedObjectContext.h"
#include "core/Note.h"

#include <QList>
#include <QString>

namespace kestil {

// The user's own organising on the store's context: folders made, found and
// counted, and tags added to a note by hand. Nothing here saves; the caller
// saves (and decides what a failed save means).

// The first folder whose name equals `name` trimmed, ignoring case; nothing
// for a blank name or a failed fetch.
FolderPtr findFolder(const QString &name, ManagedObjectContext &context);
// The folder of that name if one exists, in any case; else a new folder with
// the trimmed name, a new id, now as its creation and position 0. Nothing for
// a blank name. Two folders never differ only by case through here.
FolderPtr createFolder(const QString &name, ManagedObjectContext &context);
// The number of notes filed in the folder.
qsizetype folderNoteCount(const Folder &folder);
// Every folder in sidebar order: by position, then by name.
QList<FolderPtr> sortedFolders(ManagedObjectContext &context);

// A tag typed by hand: cleaned (cleanedTagText), then added unless nothing is
// left, the note holds maximumManualTags already, or it holds a tag of the
// same canonical name. Returns whether the note gained a tag.
bool addManualTag(Note &note, const QString &typed);

} // namespace kestil
