#pragma once

#include "prefs/KestilSummaryNotifications.h"

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QVariantMap>

#include <functional>

namespace kestil {

// The desktop's notification service (org.freedesktop.Notifications on the
// session bus) as the centre of KestilSummaryNotifications. Every call is
// asynchronous, so a service that is slow or missing never holds up the
// window: a missing one is simply "denied". A click on a posted notification
// comes back as activated() with the user info it was posted with. Main
// thread.
class DesktopNotifications : public QObject {
    Q_OBJECT

public:
    static QString serviceName() { return QStringLiteral("org.freedesktop.Notifications"); }

    // `isActive` tells whether Kestil's window is the active one.
    DesktopNotifications(QDBusConnection bus, std::function<bool()> isActive, QObject *parent = nullptr);

    KestilSummaryNotifications::Center center();

    QFuture<NotificationAuthorization> authorization();
    QFuture<void> enqueue(const SummaryNotificationRequest &request);
    // Notifications posted and not yet closed or clicked.
    int outstanding() const { return int(posted_.size()); }

signals:
    // A notification was clicked with the action; the user info is the one it
    // was posted with.
    void activated(const QString &actionIdentifier, const QVariantMap &userInfo);

private slots:
    void onActionInvoked(uint id, const QString &action);
    void onNotificationClosed(uint id, uint reason);

private:
    QDBusConnection bus_;
    std::function<bool()> isActive_;
    // The service's notification ids of what Kestil posted, with their user info.
    QHash<uint, QVariantMap> posted_;
};

} // namespace kestil
