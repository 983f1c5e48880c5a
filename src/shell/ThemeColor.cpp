#include "shell/ThemeColor.h"

namespace kestil::ThemeColors {

namespace {

struct Entry {
    ThemeColor color;
    const char *raw;
    QRgb light;
    QRgb dark;
};

// Each shade keeps white text on it readable, on a light and a dark window.
const Entry entries[] = {
    {ThemeColor::purple, "Purple", 0x7e57c2, 0x9575cd},
    {ThemeColor::blue, "Blue", 0x1e6fd0, 0x4a90e2},
    {ThemeColor::teal, "Teal", 0x00796b, 0x26a69a},
    {ThemeColor::green, "Green", 0x2e7d32, 0x43a047},
    {ThemeColor::orange, "Orange", 0xd35400, 0xe67e22},
    {ThemeColor::red, "Red", 0xc62828, 0xe53935},
    {ThemeColor::pink, "Pink", 0xc2185b, 0xd81b60},
    {ThemeColor::graphite, "Graphite", 0x5f6368, 0x80868b},
};

const Entry &entry(ThemeColor color)
{
    for (const Entry &each : entries) {
        if (each.color == color)
            return each;
    }
    return entries[0];
}

} // namespace

const QList<ThemeColor> &all()
{
    static const QList<ThemeColor> colors = [] {
        QList<ThemeColor> list;
        for (const Entry &each : entries)
            list.append(each.color);
        return list;
    }();
    return colors;
}

QString rawValue(ThemeColor color)
{
    return QString::fromLatin1(entry(color).raw);
}

ThemeColor fromRawValue(const QString &raw)
{
    for (const Entry &each : entries) {
        if (raw == QLatin1String(each.raw))
            return each.color;
    }
    return ThemeColor::purple;
}

QColor color(ThemeColor color, bool dark)
{
    return QColor::fromRgb(dark ? entry(color).dark : entry(color).light);
}

} // namespace kestil::ThemeColors
