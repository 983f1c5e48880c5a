#include "shell/KestilSummaryNotificationSettings.h"
#include "shell/WidgetNames.h"

#include "prefs/KestilSummaryNotifications.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

#include <QCheckBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace kestil {

namespace {

QLabel *line(const QString &name, const QString &text = {})
{
    auto *label = named(new QLabel(text), name);
    label->setWordWrap(true);
    return label;
}

} // namespace

KestilSummaryNotificationSettings::KestilSummaryNotificationSettings(
    KestilSummaryNotifications &notifications, PreferenceStore &preferences, QWidget *parent)
    : QGroupBox(QStringLiteral("Notifications"), parent), notifications_(notifications),
      preferences_(preferences)
{
    named(this, QStringLiteral("settingsNotificationsSection"));
    auto *layout = new QVBoxLayout(this);
    toggle_ = named(new QCheckBox(QStringLiteral("Notify when a summary is ready")),
                    QStringLiteral("settingsSummaryNotificationsToggle"));
    layout->addWidget(toggle_);
    auto *footnote =
        line(QStringLiteral("settingsSummaryNotificationsFootnote"),
             QStringLiteral("Local alerts contain no note text and work offline. A notification is "
                            "sent only after a completed summary is saved."));
    footnote->setStyleSheet(QStringLiteral("color: palette(mid);"));
    layout->addWidget(footnote);
    auto *allowRow = new QHBoxLayout;
    allow_ = named(new QPushButton(QStringLiteral("Allow Notifications")),
                   QStringLiteral("settingsAllowSummaryNotifications"));
    allowRow->addWidget(allow_);
    allowLine_ = line(QStringLiteral("settingsAllowSummaryNotificationsLine"),
                      QStringLiteral("You can also allow notifications when you next generate a summary."));
    allowRow->addWidget(allowLine_, 1);
    layout->addLayout(allowRow);
    blocked_ =
        line(QStringLiteral("settingsSummaryNotificationsBlocked"),
             QStringLiteral("Notifications are blocked in your desktop's settings, or no notification "
                            "service is running. Allow Kestil notifications there to receive alerts."));
    layout->addWidget(blocked_);
    error_ = line(QStringLiteral("settingsSummaryNotificationsError"));
    layout->addWidget(error_);

    connect(toggle_, &QCheckBox::toggled, this, [this](bool on) {
        settings::setSummaryNotificationsEnabled(preferences_, on);
        if (on)
            notifications_.startPermissionFlow();
    });
    connect(allow_, &QPushButton::clicked, &notifications_, &KestilSummaryNotifications::startPermissionFlow);
    connect(&notifications_, &KestilSummaryNotifications::authorizationStatusChanged, this,
            &KestilSummaryNotificationSettings::refresh);
    connect(&notifications_, &KestilSummaryNotifications::deliveryErrorChanged, this,
            &KestilSummaryNotificationSettings::refresh);
    connect(&preferences_, &PreferenceStore::changed, this, [this](const QString &key) {
        if (key == settings::keys::kestilSummaryNotificationsEnabled)
            refresh();
    });
    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
        if (state == Qt::ApplicationActive && isVisible())
            notifications_.refreshAuthorization();
    });
    refresh();
}

void KestilSummaryNotificationSettings::showEvent(QShowEvent *event)
{
    QGroupBox::showEvent(event);
    notifications_.refreshAuthorization();
}

void KestilSummaryNotificationSettings::refresh()
{
    const bool on = notifications_.isEnabled();
    {
        const QSignalBlocker block(toggle_);
        toggle_->setChecked(on);
    }
    const NotificationAuthorization status = notifications_.authorizationStatus();
    const bool notAsked = on && status == NotificationAuthorization::notDetermined;
    allow_->setVisible(notAsked);
    allowLine_->setVisible(notAsked);
    blocked_->setVisible(on && status == NotificationAuthorization::denied);
    error_->setText(notifications_.deliveryError().value_or(QString()));
    error_->setVisible(notifications_.deliveryError().has_value());
}

} // namespace kestil
