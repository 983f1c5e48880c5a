#include "shell/DesktopNotifications.h"

#include "base/Error.h"
#include "shell/ApplicationIdentity.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QPromise>

namespace kestil {

namespace {

const QString objectPath = QStringLiteral("/org/freedesktop/Notifications");
const QString interfaceName = QStringLiteral("org.freedesktop.Notifications");
// A service that has not answered by then counts as none.
constexpr int answerTimeoutMilliseconds = 5000;

template <typename T> QFuture<T> readyFuture(const T &value)
{
    QPromise<T> promise;
    promise.start();
    promise.addResult(value);
    promise.finish();
    return promise.future();
}

} // namespace

DesktopNotifications::DesktopNotifications(QDBusConnection bus, std::function<bool()> isActive,
                                           QObject *parent)
    : QObject(parent), bus_(std::move(bus)), isActive_(std::move(isActive))
{
    if (!bus_.isConnected())
        return;
    bus_.connect(serviceName(), objectPath, interfaceName, QStringLiteral("ActionInvoked"), this,
                 SLOT(onActionInvoked(uint, QString)));
    bus_.connect(serviceName(), objectPath, interfaceName, QStringLiteral("NotificationClosed"), this,
                 SLOT(onNotificationClosed(uint, uint)));
}

KestilSummaryNotifications::Center DesktopNotifications::center()
{
    KestilSummaryNotifications::Center center;
    center.authorization = [this] { return authorization(); };
    // There is no prompt on this desktop: a service that answers allows.
    center.requestAuthorization = [this] {
        return authorization().then(
            [](NotificationAuthorization answer) { return answer == NotificationAuthorization::authorized; });
    };
    center.enqueue = [this](const SummaryNotificationRequest &request) { return enqueue(request); };
    center.isActive = [this] { return isActive_ && isActive_(); };
    return center;
}

QFuture<NotificationAuthorization> DesktopNotifications::authorization()
{
    if (!bus_.isConnected())
        return readyFuture(NotificationAuthorization::denied);
    const QDBusMessage call = QDBusMessage::createMethodCall(serviceName(), objectPath, interfaceName,
                                                             QStringLiteral("GetServerInformation"));
    auto promise = std::make_shared<QPromise<NotificationAuthorization>>();
    promise->start();
    auto *watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call, answerTimeoutMilliseconds), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [promise](QDBusPendingCallWatcher *answered) {
        answered->deleteLater();
        promise->addResult(answered->isError() ? NotificationAuthorization::denied
                                               : NotificationAuthorization::authorized);
        promise->finish();
    });
    return promise->future();
}

QFuture<void> DesktopNotifications::enqueue(const SummaryNotificationRequest &request)
{
    auto promise = std::make_shared<QPromise<void>>();
    promise->start();
    if (!bus_.isConnected()) {
        promise->setException(std::make_exception_ptr(
            SystemError(QStringLiteral("No session bus is available for notifications."))));
        promise->finish();
        return promise->future();
    }
    QDBusMessage call =
        QDBusMessage::createMethodCall(serviceName(), objectPath, interfaceName, QStringLiteral("Notify"));
    QVariantMap hints;
    hints.insert(QStringLiteral("desktop-entry"), applicationId());
    hints.insert(QStringLiteral("sound-name"), QStringLiteral("message-new-instant"));
    hints.insert(QStringLiteral("urgency"), QVariant::fromValue(uchar(1)));
    // The default action is what a click on the notification itself sends.
    const QStringList actions{KestilSummaryNotifications::defaultActionIdentifier(), QStringLiteral("Open")};
    call << QStringLiteral("Kestil") << uint(0) << applicationId() << request.title << request.body << actions
         << hints << int(-1);
    const QVariantMap userInfo = request.userInfo;
    auto *watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call, answerTimeoutMilliseconds), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, promise, userInfo](QDBusPendingCallWatcher *answered) {
                answered->deleteLater();
                const QDBusPendingReply<uint> reply = *answered;
                if (reply.isError()) {
                    promise->setException(std::make_exception_ptr(SystemError(reply.error().message())));
                } else {
                    posted_.insert(reply.value(), userInfo);
                }
                promise->finish();
            });
    return promise->future();
}

void DesktopNotifications::onActionInvoked(uint id, const QString &action)
{
    // Other programs' notifications come by on the same signal.
    const auto found = posted_.constFind(id);
    if (found == posted_.constEnd())
        return;
    const QVariantMap userInfo = found.value();
    posted_.remove(id);
    emit activated(action, userInfo);
}

void DesktopNotifications::onNotificationClosed(uint id, uint)
{
    posted_.remove(id);
}

} // namespace kestil
