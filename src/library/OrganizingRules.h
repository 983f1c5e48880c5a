#pragma once

#include <QString>

namespace kestil {

// The rules of the user's own organising that need no store: how typed tag
// text is cleaned, how many tags a user may add by hand, and what deleting a
// folder says.

// The most tags a user adds to one note by hand. Generated tags are not held
// to it. Past it, a typed tag is dropped without a word.
inline constexpr int maximumManualTags = 10;

// Typed tag text: trimmed of white space and new lines, then every character
// other than a letter, "-" or a digit 0 to 9 removed. "q3 plan!" gives "q3plan".
QString cleanedTagText(const QString &typed);

// A folder name as it is stored: trimmed. Empty means no folder is made.
QString trimmedFolderName(const QString &typed);

// The confirmation of deleting a folder, in one sentence:
// “Work” will be removed. 3 notes in this folder will become Unfiled.
QString folderDeletionMessage(const QString &name, qsizetype noteCount);

} // namespace kestil
