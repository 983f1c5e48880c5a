#pragma once

#include "generation/CancellationToken.h"
#include "generation/LanguageModel.h"
#include "generation/LocalChatMessage.h"

#include <QList>
#include <QLocale>
#include <QString>

#include <functional>
#include <optional>

namespace kestil::LocalNoteChat {

inline constexpr qsizetype longestQuestionBytes = 800;
inline constexpr qsizetype passageBytes = 1200;
inline constexpr qsizetype passagesSent = 2;
inline constexpr qsizetype previousQuestionCharacters = 200;
inline constexpr qsizetype shortestSearchTerm = 3;
inline constexpr qsizetype recentMessages = 4;
inline constexpr qsizetype recentMessageBytes = 150;

// Instructions of every chat request.
QString instructions();

// The refusal of Ask AI for a language: the summary refusal with "Ask AI" in
// the place of "summaries"; nothing when questions can be asked.
std::optional<QString> readiness(const LanguageModel &model, const QLocale &locale);

// The prompt for a question about a note: the two passages that best match
// the question (and the question before it), the last few messages, and the
// question. Throws LocalError for an empty or too long question and for a
// note without text.
QString prompt(const QString &source, const QString &question, const QList<LocalChatMessage> &history);

// Streams the answer to a question, calling snapshot with the whole answer so
// far. Throws LocalError, the model's error, or CancellationError.
QString answer(LanguageModel &model, const QString &source, const QString &question,
               const QList<LocalChatMessage> &history, const QLocale &locale,
               const std::function<void(const QString &)> &snapshot, const CancellationToken &cancel);

// The conversation as a Markdown document.
QString conversationMarkdown(const std::optional<QString> &title, const QList<LocalChatMessage> &messages);

} // namespace kestil::LocalNoteChat
