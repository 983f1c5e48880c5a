#pragma once

#include <QList>
#include <QString>

namespace kestil {

// How light or dark Kestil's windows are: as the desktop is, or always light,
// or always dark. Stored under selectedAppearanceMode by its raw value.
enum class AppearanceMode { system, light, dark };

namespace AppearanceModes {

// In the order Settings offers them.
const QList<AppearanceMode> &all();
// "System", "Light", "Dark".
QString rawValue(AppearanceMode mode);
// Unknown or empty text is the default, System.
AppearanceMode fromRawValue(const QString &raw);
// What Settings shows.
QString title(AppearanceMode mode);

} // namespace AppearanceModes

} // namespace kestil
