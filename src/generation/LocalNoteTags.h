#pragma once

#include "generation/LocalTagCandidate.h"

#include <QList>
#include <QString>
#include <QStringList>

namespace kestil::LocalNoteTags {

inline constexpr int maximumTags = 5;
inline constexpr qsizetype summarySliceBytes = 3200;
inline constexpr qsizetype libraryPromptBytes = 2000;
inline constexpr qsizetype maximumLibraryNames = 60;
inline constexpr qsizetype longestOfferedNameBytes = 120;
inline constexpr qsizetype longestProposalCharacters = 48;
inline constexpr qsizetype mostProposalWords = 4;
inline constexpr int responseTokenCap = 180;
inline const QString fallbackTag = QStringLiteral("Notes");

// The canonical form of a tag name: case and diacritics folded, everything but
// letters and digits removed, and the spellings of AI brought into one bucket.
// Two names with the same key are one tag.
QString key(const QString &text);

// How many tags a text deserves, by its word count: 0, 1, 2, 3 or 5.
int tagLimit(const QString &text);

// The library names offered to the model for a text: the most related and most
// used first, one per key, each at most 120 bytes, within byteLimit bytes of
// prompt (a name costs its UTF-8 length plus 4), at most 60.
QStringList candidates(const QString &text, const QList<LocalTagCandidate> &library,
                       qsizetype byteLimit = libraryPromptBytes);

// Proposed names mapped on to the library where they mean the same thing, new
// ones hyphenated, duplicates and unusable names dropped; at most 5.
QStringList resolvedNames(const QStringList &proposals, const QList<LocalTagCandidate> &library);

} // namespace kestil::LocalNoteTags
