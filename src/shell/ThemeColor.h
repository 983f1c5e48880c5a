#pragma once

#include <QColor>
#include <QList>
#include <QString>

namespace kestil {

// The accent tint of Kestil's windows: selections, focus, links and the
// default button. Stored under selectedThemeColor by its raw value, which is
// also its name in Settings.
enum class ThemeColor { purple, blue, teal, green, orange, red, pink, graphite };

namespace ThemeColors {

// In the order Settings offers them.
const QList<ThemeColor> &all();
// "Purple", "Blue", ...
QString rawValue(ThemeColor color);
// Unknown or empty text is the default, Purple.
ThemeColor fromRawValue(const QString &raw);
// The tint itself; on a dark background a lighter shade of it.
QColor color(ThemeColor color, bool dark);

} // namespace ThemeColors

} // namespace kestil
