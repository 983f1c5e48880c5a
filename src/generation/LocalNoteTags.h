#pragma once

#include "generation/CancellationToken.h"
#include "generation/LanguageModel.h"
#include "generation/LocalTagCandidate.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

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

// The final names for a note: the proposals when any are usable; otherwise
// library tags that the text names; otherwise the nouns and names the text
// uses most; otherwise "Notes". Empty when the transcript is too short for
// tags. Never fails.
QStringList completedNames(const std::optional<QStringList> &proposals, const QString &transcript,
                           const QString &summary, const QList<LocalTagCandidate> &library);

// Tags for a summarised note, proposed by the model with the library in view
// and completed as above. The transcript, when given, decides how many tags
// the note deserves. Throws LocalError (model not ready, no summary), the
// model's own error, or CancellationError.
QStringList generate(LanguageModel &model, const QString &summary, const std::optional<QString> &transcript,
                     const QList<LocalTagCandidate> &library, const QLocale &locale,
                     const CancellationToken &cancel);

} // namespace kestil::LocalNoteTags
