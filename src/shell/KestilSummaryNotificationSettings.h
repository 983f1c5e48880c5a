#pragma once

#include <QGroupBox>

class QCheckBox;
class QLabel;
class QPushButton;

namespace kestil {

class KestilSummaryNotifications;
class PreferenceStore;

// The notifications row of Settings: the switch, what a notification holds,
// and what stands in the way of one (not asked yet, blocked, or the last
// failure). It reads the desktop's answer again when it appears and whenever
// Kestil comes back to the front.
class KestilSummaryNotificationSettings : public QGroupBox {
    Q_OBJECT

public:
    KestilSummaryNotificationSettings(KestilSummaryNotifications &notifications, PreferenceStore &preferences,
                                      QWidget *parent = nullptr);

protected:
    void showEvent(QShowEvent *event) override;

private:
    void refresh();

    KestilSummaryNotifications &notifications_;
    PreferenceStore &preferences_;
    QCheckBox *toggle_ = nullptr;
    QPushButton *allow_ = nullptr;
    QLabel *allowLine_ = nullptr;
    QLabel *blocked_ = nullptr;
    QLabel *error_ = nullptr;
};

} // namespace kestil
