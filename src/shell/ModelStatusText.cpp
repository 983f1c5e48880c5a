#include "shell/ModelStatusText.h"

#include "generation/LanguageModel.h"
#include "generation/LocalSummary.h"

namespace kestil {

std::optional<QString> summaryRefusalSentence(const LanguageModel &model, const QLocale &locale)
{
    const LanguageModel::Availability availability = model.availability();
    if (availability.isAvailable)
        return LocalSummary::readiness(model, locale);
    switch (availability.reason) {
    case LanguageModel::UnavailableReason::modelNotReady:
        return QStringLiteral("No on-device language model is installed yet. Download or import one in "
                              "Settings to write summaries; your notes and transcripts remain available.");
    case LanguageModel::UnavailableReason::languageModelDisabled:
        return QStringLiteral(
            "On-device AI is switched off in Settings. Switch it on to write summaries; your "
            "notes and transcripts remain available.");
    case LanguageModel::UnavailableReason::deviceNotEligible:
        break;
    }
    return QStringLiteral(
        "This computer cannot run the on-device language model, so summaries are unavailable; "
        "your notes and transcripts remain available.");
}

QString summaryStatusSentence(const LanguageModel &model, const QLocale &locale)
{
    return summaryRefusalSentence(model, locale).value_or(QStringLiteral("On-device summaries ready."));
}

QString summaryStatusDiagnostics(const LanguageModel &model, const QLocale &locale)
{
    const LanguageModel::Availability availability = model.availability();
    QString line = summaryStatusSentence(model, locale);
    if (!availability.isAvailable)
        line += QStringLiteral(" [language model: ") + LanguageModel::reasonName(availability.reason) +
                QLatin1Char(']');
    return line;
}

} // namespace kestil
