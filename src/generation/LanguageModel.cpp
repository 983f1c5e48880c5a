#include "generation/LanguageModel.h"

namespace kestil {

QString LanguageModel::reasonName(UnavailableReason reason)
{
    switch (reason) {
    case UnavailableReason::deviceNotEligible:
        return QStringLiteral("deviceNotEligible");
    case UnavailableReason::languageModelDisabled:
        return QStringLiteral("languageModelDisabled");
    case UnavailableReason::modelNotReady:
        return QStringLiteral("modelNotReady");
    }
    return QStringLiteral("unknown");
}

void LanguageModel::respondAll(const QString &instructions, const QStringList &prompts,
                               const GenerationOptions &options, const CancellationToken &cancel,
                               const AnswerHandler &onAnswer)
{
    for (qsizetype index = 0; index < prompts.size(); ++index)
        onAnswer(index, respond(instructions, prompts.at(index), options, cancel));
}

} // namespace kestil
