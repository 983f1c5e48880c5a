#pragma once

#include "shell/AppearanceMode.h"
#include "shell/ThemeColor.h"

#include <QObject>
#include <QPalette>
#include <QString>

namespace kestil {

class PreferenceStore;

// Applies the appearance mode and the accent tint of the preferences to the
// whole application, and again whenever either preference changes, so that
// every open window follows at once. "System" keeps the desktop's own style
// and palette and tints them; "Light" and "Dark" use Qt's Fusion style, which
// draws exactly the palette it is given. Main thread.
class ThemeManager : public QObject {
    Q_OBJECT

public:
    explicit ThemeManager(PreferenceStore &preferences, QObject *parent = nullptr);

    AppearanceMode appearanceMode() const;
    ThemeColor themeColor() const;
    void setAppearanceMode(AppearanceMode mode);
    void setThemeColor(ThemeColor color);
    // Whether the windows are dark now (for "System", as the desktop is).
    bool isDark() const;

    // The palette of a mode and tint; `system` is the desktop's palette.
    static QPalette palette(AppearanceMode mode, ThemeColor color, const QPalette &system);

public slots:
    void apply();

signals:
    // After the application took the new look.
    void applied();

private:
    PreferenceStore &preferences_;
    QPalette systemPalette_;
    QString systemStyle_;
};

} // namespace kestil
