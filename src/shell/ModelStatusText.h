#pragma once

#include <QLocale>
#include <QString>

#include <optional>

namespace kestil {

class LanguageModel;

// What the user reads about the on-device language model: a sentence that says
// what to do, never the name of an internal reason. Nothing when summaries can
// be written in the language.
std::optional<QString> summaryRefusalSentence(const LanguageModel &model, const QLocale &locale);
// The one readiness line: the sentence above, or "On-device summaries ready.".
QString summaryStatusSentence(const LanguageModel &model, const QLocale &locale);
// For the log: the sentence, and the internal reason in brackets when there is one.
QString summaryStatusDiagnostics(const LanguageModel &model, const QLocale &locale);

} // namespace kestil
