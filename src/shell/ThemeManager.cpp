#include "shell/ThemeManager.h"

#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

#include <QApplication>
#include <QStyle>
#include <QStyleFactory>
#include <QWidget>

namespace kestil {

namespace {

bool paletteIsDark(const QPalette &palette)
{
    return palette.color(QPalette::Window).lightness() < 128;
}

void setBoth(QPalette &palette, QPalette::ColorRole role, const QColor &color)
{
    palette.setColor(QPalette::Active, role, color);
    palette.setColor(QPalette::Inactive, role, color);
}

QPalette basePalette(bool dark)
{
    QPalette p;
    const QColor window = dark ? QColor(0x2a, 0x2a, 0x2e) : QColor(0xf6, 0xf6, 0xf8);
    const QColor text = dark ? QColor(0xec, 0xec, 0xee) : QColor(0x1d, 0x1d, 0x1f);
    const QColor base = dark ? QColor(0x1f, 0x1f, 0x22) : QColor(0xff, 0xff, 0xff);
    const QColor button = dark ? QColor(0x3a, 0x3a, 0x40) : QColor(0xec, 0xec, 0xf0);
    const QColor disabled = dark ? QColor(0x80, 0x80, 0x86) : QColor(0xa0, 0xa0, 0xa6);
    for (QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
        p.setColor(group, QPalette::Window, window);
        p.setColor(group, QPalette::WindowText, text);
        p.setColor(group, QPalette::Base, base);
        p.setColor(group, QPalette::AlternateBase,
                   dark ? QColor(0x28, 0x28, 0x2c) : QColor(0xf2, 0xf2, 0xf5));
        p.setColor(group, QPalette::ToolTipBase, dark ? QColor(0x3a, 0x3a, 0x40) : QColor(0xff, 0xff, 0xf0));
        p.setColor(group, QPalette::ToolTipText, text);
        p.setColor(group, QPalette::PlaceholderText, disabled);
        p.setColor(group, QPalette::Text, text);
        p.setColor(group, QPalette::Button, button);
        p.setColor(group, QPalette::ButtonText, text);
        p.setColor(group, QPalette::BrightText, QColor(0xff, 0x55, 0x55));
        p.setColor(group, QPalette::Light, dark ? QColor(0x4a, 0x4a, 0x50) : QColor(0xff, 0xff, 0xff));
        p.setColor(group, QPalette::Midlight, dark ? QColor(0x40, 0x40, 0x46) : QColor(0xe0, 0xe0, 0xe6));
        p.setColor(group, QPalette::Mid, dark ? QColor(0x8a, 0x8a, 0x90) : QColor(0x8a, 0x8a, 0x90));
        p.setColor(group, QPalette::Dark, dark ? QColor(0x18, 0x18, 0x1a) : QColor(0xa0, 0xa0, 0xa6));
        p.setColor(group, QPalette::Shadow, QColor(0, 0, 0));
    }
    for (QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, disabled);
    return p;
}

} // namespace

ThemeManager::ThemeManager(PreferenceStore &preferences, QObject *parent)
    : QObject(parent), preferences_(preferences), systemPalette_(QApplication::palette()),
      systemStyle_(QApplication::style() ? QApplication::style()->name() : QString())
{
    connect(&preferences_, &PreferenceStore::changed, this, [this](const QString &key) {
        if (key == settings::keys::selectedAppearanceMode || key == settings::keys::selectedThemeColor)
            apply();
    });
}

AppearanceMode ThemeManager::appearanceMode() const
{
    return AppearanceModes::fromRawValue(settings::selectedAppearanceMode(preferences_));
}

ThemeColor ThemeManager::themeColor() const
{
    return ThemeColors::fromRawValue(settings::selectedThemeColor(preferences_));
}

void ThemeManager::setAppearanceMode(AppearanceMode mode)
{
    settings::setSelectedAppearanceMode(preferences_, AppearanceModes::rawValue(mode));
}

void ThemeManager::setThemeColor(ThemeColor color)
{
    settings::setSelectedThemeColor(preferences_, ThemeColors::rawValue(color));
}

bool ThemeManager::isDark() const
{
    switch (appearanceMode()) {
    case AppearanceMode::light:
        return false;
    case AppearanceMode::dark:
        return true;
    case AppearanceMode::system:
        break;
    }
    return paletteIsDark(systemPalette_);
}

QPalette ThemeManager::palette(AppearanceMode mode, ThemeColor color, const QPalette &system)
{
    const bool dark =
        mode == AppearanceMode::dark || (mode == AppearanceMode::system && paletteIsDark(system));
    QPalette p = mode == AppearanceMode::system ? system : basePalette(dark);
    const QColor accent = ThemeColors::color(color, dark);
    setBoth(p, QPalette::Highlight, accent);
    setBoth(p, QPalette::HighlightedText, Qt::white);
    setBoth(p, QPalette::Link, dark ? accent.lighter(125) : accent.darker(110));
    setBoth(p, QPalette::LinkVisited, dark ? accent.lighter(110) : accent.darker(130));
    p.setColor(QPalette::Disabled, QPalette::Highlight,
               dark ? QColor(0x50, 0x50, 0x56) : QColor(0xc8, 0xc8, 0xce));
    return p;
}

void ThemeManager::apply()
{
    const AppearanceMode mode = appearanceMode();
    const QString wantedStyle = mode == AppearanceMode::system ? systemStyle_ : QStringLiteral("Fusion");
    if (!wantedStyle.isEmpty() && QApplication::style() &&
        QApplication::style()->name().compare(wantedStyle, Qt::CaseInsensitive) != 0) {
        if (QStyle *style = QStyleFactory::create(wantedStyle))
            QApplication::setStyle(style);
    }
    const QPalette next = palette(mode, themeColor(), systemPalette_);
    QApplication::setPalette(next);
    // Texts drawn muted (a translucent shade of the window's text) keep their
    // muting in the new look rather than the old look's colour.
    const QColor text = next.color(QPalette::WindowText);
    for (QWidget *widget : QApplication::allWidgets()) {
        QPalette own = widget->palette();
        if (!(own.resolveMask() & (QPalette::ResolveMask(1) << QPalette::WindowText)))
            continue;
        const QColor muted = own.color(QPalette::WindowText);
        if (muted.alpha() == 255)
            continue;
        QColor shade = text;
        shade.setAlpha(muted.alpha());
        own.setColor(QPalette::WindowText, shade);
        widget->setPalette(own);
    }
    emit applied();
}

} // namespace kestil
