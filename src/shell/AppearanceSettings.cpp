#include "shell/AppearanceSettings.h"

#include "shell/ThemeManager.h"

#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QSignalBlocker>
#include <QToolButton>

namespace kestil {

AppearanceSettings::AppearanceSettings(ThemeManager &themes, QWidget *parent)
    : QGroupBox(QStringLiteral("Appearance"), parent), themes_(themes)
{
    setObjectName(QStringLiteral("settingsAppearanceSection"));
    setAccessibleName(objectName());
    auto *form = new QFormLayout(this);
    mode_ = new QComboBox;
    mode_->setObjectName(QStringLiteral("settingsAppearancePicker"));
    mode_->setAccessibleName(mode_->objectName());
    for (AppearanceMode mode : AppearanceModes::all())
        mode_->addItem(AppearanceModes::title(mode), AppearanceModes::rawValue(mode));
    form->addRow(QStringLiteral("Windows"), mode_);

    auto *swatches = new QHBoxLayout;
    swatches->setSpacing(8);
    for (ThemeColor color : ThemeColors::all()) {
        const QString raw = ThemeColors::rawValue(color);
        auto *swatch = new QToolButton;
        swatch->setObjectName(QStringLiteral("settingsThemeColor-") + raw);
        swatch->setAccessibleName(raw);
        swatch->setToolTip(raw);
        swatch->setCheckable(true);
        swatch->setFixedSize(24, 24);
        const QColor shade = ThemeColors::color(color, false);
        swatch->setStyleSheet(
            QStringLiteral("QToolButton { background: %1; border: 2px solid %1; border-radius: "
                           "12px; } QToolButton:checked { border: 2px solid palette(window-text); }")
                .arg(shade.name()));
        connect(swatch, &QToolButton::clicked, this, [this, color] { themes_.setThemeColor(color); });
        swatches->addWidget(swatch);
        swatches_.insert(int(color), swatch);
    }
    swatches->addStretch(1);
    form->addRow(QStringLiteral("Accent"), swatches);

    connect(mode_, &QComboBox::currentIndexChanged, this, [this](int index) {
        themes_.setAppearanceMode(AppearanceModes::fromRawValue(mode_->itemData(index).toString()));
    });
    connect(&themes_, &ThemeManager::applied, this, &AppearanceSettings::refresh);
    refresh();
}

void AppearanceSettings::refresh()
{
    {
        const QSignalBlocker block(mode_);
        mode_->setCurrentIndex(mode_->findData(AppearanceModes::rawValue(themes_.appearanceMode())));
    }
    const ThemeColor current = themes_.themeColor();
    for (auto it = swatches_.cbegin(); it != swatches_.cend(); ++it)
        it.value()->setChecked(it.key() == int(current));
}

} // namespace kestil
