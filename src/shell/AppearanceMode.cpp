#include "shell/AppearanceMode.h"

namespace kestil::AppearanceModes {

const QList<AppearanceMode> &all()
{
    static const QList<AppearanceMode> modes{AppearanceMode::system, AppearanceMode::light,
                                             AppearanceMode::dark};
    return modes;
}

QString rawValue(AppearanceMode mode)
{
    switch (mode) {
    case AppearanceMode::system:
        break;
    case AppearanceMode::light:
        return QStringLiteral("Light");
    case AppearanceMode::dark:
        return QStringLiteral("Dark");
    }
    return QStringLiteral("System");
}

AppearanceMode fromRawValue(const QString &raw)
{
    for (AppearanceMode mode : all()) {
        if (rawValue(mode) == raw)
            return mode;
    }
    return AppearanceMode::system;
}

QString title(AppearanceMode mode)
{
    switch (mode) {
    case AppearanceMode::system:
        break;
    case AppearanceMode::light:
        return QStringLiteral("Light");
    case AppearanceMode::dark:
        return QStringLiteral("Dark");
    }
    return QStringLiteral("Match the desktop");
}

} // namespace kestil::AppearanceModes
