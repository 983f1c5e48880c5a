#pragma once

#include <QMetaObject>

namespace kestil {

class LlamaLanguageModel;
class PreferenceStore;

// Applies the user's switch for on-device AI ("kestilOnDeviceLanguageModelEnabled.v1",
// on unless a boolean false is stored) to the model now and whenever the key
// changes, so that switching it off makes every request fail with
// languageModelDisabled at once. The returned connection ends with the store.
QMetaObject::Connection followLanguageModelSwitch(PreferenceStore &preferences, LlamaLanguageModel &model);

} // namespace kestil
