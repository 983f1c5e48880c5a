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

} // namespace kestil
