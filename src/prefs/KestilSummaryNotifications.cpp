#include "prefs/KestilSummaryNotifications.h"

#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

#include <QFutureWatcher>

namespace kestil {

namespace {

const QString permissionFailedText =
    QStringLiteral("Notifications could not be enabled. Your summaries still work normally.");
const QString postingFailedText =
    QStringLiteral("The summary was saved, but its notification could not be shown.");

// Calls `done(future)` on `context`'s thread once the future has finished,
// always from the event loop; nothing is called once `context` is gone.
template <typename T, typename Done> void afterFinished(const QFuture<T> &future, QObject *context, Done done)
{
    auto *watcher = new QFutureWatcher<T>(context);
    QObject::connect(watcher, &QFutureWatcherBase::finished, context,
                     [watcher, future, done = std::move(done)]() mutable {
                         watcher->deleteLater();
                         done(future);
                     });
    watcher->setFuture(future);
}

template <typename T> std::optional<T> valueOf(QFuture<T> future)
{
    try {
        if (future.isCanceled() || future.resultCount() == 0)
            return std::nullopt;
        return future.result();
    } catch (...) {
        return std::nullopt;
    }
}

bool succeeded(QFuture<void> future)
{
    try {
        future.waitForFinished();
        return !future.isCanceled();
    } catch (...) {
        return false;
    }
}

std::shared_ptr<QPromise<void>> startedPromise()
{
    auto promise = std::make_shared<QPromise<void>>();
    promise->start();
    return promise;
}

QFuture<void> finished(const std::shared_ptr<QPromise<void>> &promise)
{
    QFuture<void> future = promise->future();
    promise->finish();
    return future;
}

QString upperUuid(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

} // namespace

KestilSummaryNotifications::KestilSummaryNotifications(PreferenceStore &defaults, Center center,
                                                       QObject *parent)
    : QObject(parent), defaults_(defaults), center_(std::move(center))
{
}

bool KestilSummaryNotifications::isEnabled() const
{
    return settings::summaryNotificationsEnabled(defaults_);
}

void KestilSummaryNotifications::clearNoteToOpen()
{
    if (!noteToOpen_)
        return;
    noteToOpen_.reset();
    emit noteToOpenChanged();
}

void KestilSummaryNotifications::setAuthorizationStatus(NotificationAuthorization status)
{
    if (status == authorizationStatus_)
        return;
    authorizationStatus_ = status;
    emit authorizationStatusChanged();
}

void KestilSummaryNotifications::setDeliveryError(const std::optional<QString> &error)
{
    if (error == deliveryError_)
        return;
    deliveryError_ = error;
    emit deliveryErrorChanged();
}

QFuture<void> KestilSummaryNotifications::refreshAuthorization()
{
    const std::shared_ptr<QPromise<void>> done = startedPromise();
    if (!center_.authorization)
        return finished(done);
    afterFinished(center_.authorization(), this,
                  [this, done](const QFuture<NotificationAuthorization> &answer) {
                      // A service that could not be asked leaves the last known status.
                      if (const std::optional<NotificationAuthorization> status = valueOf(answer))
                          setAuthorizationStatus(*status);
                      done->finish();
                  });
    return done->future();
}

void KestilSummaryNotifications::startPermissionFlow()
{
    if (!isEnabled() || permissionTask_)
        return;
    permissionPromise_ = startedPromise();
    permissionTask_ = permissionPromise_->future();
    afterFinished(refreshAuthorization(), this, [this](const QFuture<void> &) {
        // Asking only while the user is in Kestil: a summary finishing in the
        // background raises no question that nobody sees.
        const bool ask = authorizationStatus_ == NotificationAuthorization::notDetermined &&
                         center_.isActive && center_.isActive() && isEnabled() &&
                         center_.requestAuthorization;
        if (!ask) {
            endPermissionFlow();
            return;
        }
        afterFinished(center_.requestAuthorization(), this, [this](const QFuture<bool> &granted) {
            if (!valueOf(granted).has_value()) {
                setDeliveryError(permissionFailedText);
                endPermissionFlow();
                return;
            }
            afterFinished(refreshAuthorization(), this,
                          [this](const QFuture<void> &) { endPermissionFlow(); });
        });
    });
}

void KestilSummaryNotifications::endPermissionFlow()
{
    const std::shared_ptr<QPromise<void>> promise = std::move(permissionPromise_);
    permissionTask_.reset();
    if (promise)
        promise->finish();
}

QFuture<void> KestilSummaryNotifications::deliver(const std::optional<QUuid> &noteID, const QUuid &requestID)
{
    const std::shared_ptr<QPromise<void>> done = startedPromise();
    if (!noteID || !isEnabled())
        return finished(done);
    if (pending_.contains(requestID) || delivered_.contains(requestID))
        return finished(done);
    pending_.insert(requestID);
    const QUuid note = *noteID;
    // A summary that ends while the desktop is being asked uses its answer.
    if (permissionTask_) {
        afterFinished(*permissionTask_, this, [this, requestID, note, done](const QFuture<void> &) {
            continueDelivery(requestID, note, done);
        });
    } else {
        continueDelivery(requestID, note, done);
    }
    return done->future();
}

void KestilSummaryNotifications::continueDelivery(const QUuid &requestID, const QUuid &noteID,
                                                  const std::shared_ptr<QPromise<void>> &done)
{
    afterFinished(refreshAuthorization(), this, [this, requestID, noteID, done](const QFuture<void> &) {
        const bool allowed = authorizationStatus_ == NotificationAuthorization::authorized ||
                             authorizationStatus_ == NotificationAuthorization::provisional;
        // Not allowed, or switched off meanwhile: nothing is shown, and no
        // error either. While the user works in Kestil's window the summary
        // appears before their eyes, and a notification would only repeat it.
        const bool active = center_.isActive && center_.isActive();
        if (!isEnabled() || !allowed || active || !center_.enqueue) {
            pending_.remove(requestID);
            done->finish();
            return;
        }
        post(requestID, noteID, done);
    });
}

void KestilSummaryNotifications::post(const QUuid &requestID, const QUuid &noteID,
                                      const std::shared_ptr<QPromise<void>> &done)
{
    afterFinished(center_.enqueue(request(noteID, requestID)), this,
                  [this, requestID, done](const QFuture<void> &posted) {
                      if (succeeded(posted)) {
                          if (delivered_.size() >= deliveredLimit)
                              delivered_.clear();
                          delivered_.insert(requestID);
                          setDeliveryError(std::nullopt);
                      } else {
                          setDeliveryError(postingFailedText);
                      }
                      pending_.remove(requestID);
                      done->finish();
                  });
}

bool KestilSummaryNotifications::didReceive(const QString &actionIdentifier, const QVariantMap &userInfo)
{
    if (actionIdentifier != defaultActionIdentifier())
        return false;
    const QVariant value = userInfo.value(QStringLiteral("noteID"));
    if (value.metaType().id() != QMetaType::QString)
        return false;
    const QUuid id(value.toString());
    if (id.isNull())
        return false;
    noteToOpen_ = id;
    emit noteToOpenChanged();
    return true;
}

SummaryNotificationRequest KestilSummaryNotifications::request(const QUuid &noteID, const QUuid &requestID)
{
    SummaryNotificationRequest request;
    request.identifier = QStringLiteral("kestil.summary.") + upperUuid(requestID);
    request.title = QStringLiteral("Summary ready");
    request.body = QStringLiteral("Your summary is saved. Open Kestil to read it.");
    request.userInfo.insert(QStringLiteral("noteID"), upperUuid(noteID));
    return request;
}

} // namespace kestil
