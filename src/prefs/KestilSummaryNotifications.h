#pragma once

#include <QFuture>
#include <QObject>
#include <QPromise>
#include <QSet>
#include <QString>
#include <QUuid>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <optional>

namespace kestil {

class PreferenceStore;

// Whether the desktop shows Kestil's notifications. On a Linux desktop there is
// no prompt: a notification service that answers counts as authorized, none as
// denied. notDetermined holds until the first answer.
enum class NotificationAuthorization { notDetermined = 0, denied = 1, authorized = 2, provisional = 3 };

// One notification to post: no note text, only the note's id to open it.
struct SummaryNotificationRequest {
    QString identifier; // "kestil.summary." + the request's UUID
    QString title;
    QString body;
    QVariantMap userInfo; // "noteID": the note's id as an upper-case UUID
};

// The one notification of a finished summary: asked for when a summary starts,
// posted once the summary is saved and only while Kestil's window is not the
// active one, at most once per request, and a click on it names the note to
// open. A failure here never touches the summary, which is saved before any
// of this runs, and a missing notification service costs only the
// notification. The desktop's service is reached only through the four
// operations of Center, so that the logic can be tried without one. Main
// thread.
class KestilSummaryNotifications : public QObject {
    Q_OBJECT

public:
    // The notification service, as operations that finish later. A future
    // that finishes with an exception, or cancelled, is a failure.
    struct Center {
        std::function<QFuture<NotificationAuthorization>()> authorization;
        // Asks the desktop to allow notifications; true when allowed.
        std::function<QFuture<bool>()> requestAuthorization;
        std::function<QFuture<void>(const SummaryNotificationRequest &)> enqueue;
        // Whether Kestil's window is the one the user works in.
        std::function<bool()> isActive;
    };

    // `delivered` is emptied when it reaches this many ids.
    static constexpr int deliveredLimit = 128;
    // The action identifier of a click on the notification itself.
    static QString defaultActionIdentifier() { return QStringLiteral("default"); }

    KestilSummaryNotifications(PreferenceStore &defaults, Center center, QObject *parent = nullptr);

    // The preference kestilSummaryNotificationsEnabled: anything but a stored
    // false means on.
    bool isEnabled() const;
    NotificationAuthorization authorizationStatus() const { return authorizationStatus_; }
    // The one line shown in Settings, or nothing.
    const std::optional<QString> &deliveryError() const { return deliveryError_; }
    // The note a click asks to open, until whoever opens it clears it.
    const std::optional<QUuid> &noteToOpen() const { return noteToOpen_; }
    void clearNoteToOpen();

    // A summary starts: the permission flow runs, so that its answer is known
    // when the summary is saved.
    void prepareForSummary() { startPermissionFlow(); }
    // Asks the desktop, once at a time, unless notifications are off.
    void startPermissionFlow();
    bool permissionFlowRunning() const { return permissionTask_.has_value(); }
    // Reads the status again; the future finishes when it is stored.
    QFuture<void> refreshAuthorization();

    // The summary of the note is saved: posts its notification unless the
    // preference is off, the service does not answer, the window is active, or
    // this request was delivered already. The future finishes when done.
    QFuture<void> deliver(const std::optional<QUuid> &noteID, const QUuid &requestID);
    int deliveredCount() const { return int(delivered_.size()); }
    bool isPending(const QUuid &requestID) const { return pending_.contains(requestID); }

    // A click on a posted notification. Only the default action with a valid
    // note id sets noteToOpen; the answer says whether it did.
    bool didReceive(const QString &actionIdentifier, const QVariantMap &userInfo);

    static SummaryNotificationRequest request(const QUuid &noteID, const QUuid &requestID);

signals:
    void authorizationStatusChanged();
    void deliveryErrorChanged();
    // A click asks to open a note; read noteToOpen().
    void noteToOpenChanged();

private:
    void setAuthorizationStatus(NotificationAuthorization status);
    void setDeliveryError(const std::optional<QString> &error);
    void continueDelivery(const QUuid &requestID, const QUuid &noteID,
                          const std::shared_ptr<QPromise<void>> &done);
    void post(const QUuid &requestID, const QUuid &noteID, const std::shared_ptr<QPromise<void>> &done);
    void endPermissionFlow();

    PreferenceStore &defaults_;
    Center center_;
    NotificationAuthorization authorizationStatus_ = NotificationAuthorization::notDetermined;
    std::optional<QString> deliveryError_;
    std::optional<QUuid> noteToOpen_;
    std::optional<QFuture<void>> permissionTask_;
    std::shared_ptr<QPromise<void>> permissionPromise_;
    QSet<QUuid> pending_;
    QSet<QUuid> delivered_;
};

} // namespace kestil
