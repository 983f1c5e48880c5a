#pragma once

#include "generation/CancellationToken.h"
#include "generation/LanguageModel.h"
#include "generation/LocalSummaryCheckpoint.h"
#include "generation/LocalSummaryProgress.h"
#include "generation/LocalSummaryTemplate.h"

#include <QLocale>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <optional>

namespace kestil::LocalSummary {

// Instructions of every summary request.
QString instructions();
// The head of a key-point request.
QString keyPointHead();

inline constexpr qint64 contextCeiling = 4096;
inline constexpr qint64 answerReserve = 512;
inline constexpr qint64 safetyMargin = 256;
inline constexpr qsizetype unitBytes = 2400;
inline constexpr int passLimit = 8;
inline constexpr std::chrono::seconds requestTimeLimit{120};
inline constexpr std::chrono::seconds titleTimeLimit{30};
inline constexpr std::chrono::milliseconds snapshotSpacing{200};

// ---- The gate ------------------------------------------------------------

// The refusal text for generating in a language, or nothing when the model is
// ready for it.
std::optional<QString> readiness(const LanguageModel &model, const QLocale &locale);

// What the launch needs to know of the on-device model.
struct ModelStatus {
    enum class State { available, unavailableForGood, unavailableButCurable };
    State state = State::available;
    // The refusal text for the locale (nothing when summaries can go ahead).
    std::optional<QString> refusal;
    // The status line: the refusal, or "On-device summaries ready.".
    QString statusLine;
};
ModelStatus modelStatus(const LanguageModel &model, const QLocale &locale);

// The welcome flow's gentler words for the same states; nothing when ready.
std::optional<QString> onboardingText(const LanguageModel &model, const QLocale &locale);

// Runs operation with a token that expires `limit` after the model takes the
// request up (a request queued behind another one waits without losing time);
// when the operation stops because the limit passed, fails with
// LocalError(message).
QString withTimeLimit(std::chrono::milliseconds limit, const QString &message,
                      const CancellationToken &cancel,
                      const std::function<QString(const CancellationToken &)> &operation);

// ---- Sectioning ----------------------------------------------------------

// The text cut into pieces of at most byteLimit bytes of UTF-8, at scalar
// boundaries only; the pieces rebuild the text exactly. byteLimit >= 4.
QStringList chunks(const QString &text, qsizetype byteLimit);

QString finalPrompt(const QString &text, LocalSummaryTemplate summaryTemplate);
QString keyPointPrompt(const QString &text);

// The smaller of the model's context and 4096 tokens.
qint64 budget(const LanguageModel &model);

// Whether a text, carried by either prompt, fits the budget with room for the answer.
bool fitsModel(LanguageModel &model, const QString &text, LocalSummaryTemplate summaryTemplate,
               qint64 overhead, qint64 budget);

// Consecutive sections that each fit and that together are exactly the source.
QStringList makeSections(LanguageModel &model, const QString &source, LocalSummaryTemplate summaryTemplate,
                         qint64 overhead, qint64 budget, const CancellationToken &cancel);

// A text cut in halves, recursively, until every piece fits.
QStringList splitToFit(const QString &text, const std::function<bool(const QString &)> &fits,
                       const CancellationToken &cancel);

// ---- The pipeline --------------------------------------------------------

// A text that repeats a block of words three times at its end, cut back to
// the first copy; nothing when there is no such repeat.
std::optional<QString> repeatCut(const QString &text);

using CheckpointHandler = std::function<void(const LocalSummaryCheckpoint &)>;
using ProgressHandler = std::function<void(const LocalSummaryProgress &)>;
using SnapshotHandler = std::function<void(const QString &)>;

// The summary of a text: in one streamed request when it fits, otherwise by
// passes of key points until it does. Calls checkpoint after every step worth
// keeping, progress at each stage and snapshot with the growing summary (at
// most every 0.2 s, the last always). Never touches a note. Throws LocalError
// with the user's message, the model's own error, or CancellationError.
// Each model request may run for requestLimit.
QString generate(LanguageModel &model, const QString &text, LocalSummaryTemplate summaryTemplate,
                 const QLocale &locale, const std::optional<LocalSummaryCheckpoint> &resuming,
                 const CheckpointHandler &checkpoint, const ProgressHandler &progress,
                 const SnapshotHandler &snapshot, const CancellationToken &cancel,
                 std::chrono::milliseconds requestLimit = requestTimeLimit);

// ---- Titles --------------------------------------------------------------

// A title of at most 100 characters from the start of a summary, asked for
// under a time limit.
QString generateTitle(LanguageModel &model, const QString &summary, const QLocale &locale,
                      const CancellationToken &cancel, std::chrono::milliseconds limit = titleTimeLimit);

} // namespace kestil::LocalSummary
