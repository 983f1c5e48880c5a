#pragma once

#include <QGroupBox>
#include <QHash>

class QComboBox;
class QToolButton;

namespace kestil {

class ThemeManager;

// The appearance row of Settings: system, light or dark, and the accent tint
// as a row of swatches. A choice applies at once to every window.
class AppearanceSettings : public QGroupBox {
    Q_OBJECT

public:
    explicit AppearanceSettings(ThemeManager &themes, QWidget *parent = nullptr);

private:
    void refresh();

    ThemeManager &themes_;
    QComboBox *mode_ = nullptr;
    QHash<int, QToolButton *> swatches_;
};

} // namespace kestil
