#include "ApplicationInfo.h"

#include "SettingsKeys.h"

namespace kestil::ApplicationInfo {

QVariantMap dictionary()
{
    return {
        {settings::keys::KestilEnableSparkle, false},
    };
}

bool enableSparkle(const QVariantMap &info)
{
    const QVariant value = info.value(settings::keys::KestilEnableSparkle);
    return value.metaType().id() == QMetaType::Bool && value.toBool();
}

} // namespace kestil::ApplicationInfo
