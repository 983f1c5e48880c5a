#include "generation/LanguageModelPreference.h"

#include "generation/LlamaLanguageModel.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

namespace kestil {

QMetaObject::Connection followLanguageModelSwitch(PreferenceStore &preferences, LlamaLanguageModel &model)
{
    model.setEnabled(settings::onDeviceLanguageModelEnabled(preferences));
    return QObject::connect(&preferences, &PreferenceStore::changed, &preferences,
                            [&preferences, &model](const QString &key) {
                                if (key == settings::keys::kestilOnDeviceLanguageModelEnabled)
                                    model.setEnabled(settings::onDeviceLanguageModelEnabled(preferences));
                            });
}

} // namespace kestil
