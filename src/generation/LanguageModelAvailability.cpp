#include "generation/LanguageModelAvailability.h"

namespace kestil {

QString reasonName(LanguageModelUnavailableReason reason)
{
    switch (reason) {
    case LanguageModelUnavailableReason::deviceNotEligible:
        return QStringLiteral("deviceNotEligible");
    case LanguageModelUnavailableReason::languageModelDisabled:
        return QStringLiteral("languageModelDisabled");
    case LanguageModelUnavailableReason::modelNotReady:
        return QStringLiteral("modelNotReady");
    }
    return QStringLiteral("unknown");
}

} // namespace kestil
