#pragma once

#include <QString>

namespace kestil {

// Why the on-device language model cannot be used. modelNotReady and
// languageModelDisabled can be cured by the user (install a model, switch
// on-device AI back on); deviceNotEligible cannot.
enum class LanguageModelUnavailableReason {
    deviceNotEligible,
    languageModelDisabled,
    modelNotReady,
};

// The case name, as the refusal texts print it.
QString reasonName(LanguageModelUnavailableReason reason);

struct LanguageModelAvailability {
    bool isAvailable = true;
    LanguageModelUnavailableReason reason = LanguageModelUnavailableReason::modelNotReady;

    static LanguageModelAvailability available() { return {}; }
    static LanguageModelAvailability unavailable(LanguageModelUnavailableReason why) { return {false, why}; }

    friend bool operator==(const LanguageModelAvailability &, const LanguageModelAvailability &) = default;
};

} // namespace kestil
