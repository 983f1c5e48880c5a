#include "shell/SleepInhibitor.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDebug>
#include <QVariantMap>

namespace kestil {

namespace {

constexpr int answerTimeoutMilliseconds = 5000;

// The portal's flags: suspend (4) and idle (8).
constexpr uint portalSuspendAndIdle = 4 | 8;

} // namespace

SleepInhibitor::Buses SleepInhibitor::Buses::standard()
{
    return Buses{QDBusConnection::systemBus(), QDBusConnection::sessionBus()};
}

SleepInhibitor::SleepInhibitor(Buses buses, QString why, QObject *parent)
    : QObject(parent), buses_(std::move(buses)), why_(std::move(why))
{
}

SleepInhibitor::~SleepInhibitor()
{
    wanted_ = false;
    release();
}

void SleepInhibitor::setWanted(bool wanted)
{
    if (wanted == wanted_)
        return;
    wanted_ = wanted;
    if (!wanted) {
        release();
        return;
    }
    if (!asking_ && !held())
        requestFromLogin1();
}

void SleepInhibitor::setHolder(Holder holder)
{
    const bool wasHeld = held();
    holder_ = holder;
    if (wasHeld != held())
        emit heldChanged(held());
}

void SleepInhibitor::requestFromLogin1()
{
    if (!buses_.system.isConnected() ||
        !(buses_.system.connectionCapabilities() & QDBusConnection::UnixFileDescriptorPassing)) {
        requestFromPortal();
        return;
    }
    asking_ = true;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
        QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("Inhibit"));
    call << QStringLiteral("sleep:idle") << QStringLiteral("Kestil") << why_ << QStringLiteral("block");
    auto *watcher =
        new QDBusPendingCallWatcher(buses_.system.asyncCall(call, answerTimeoutMilliseconds), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *answered) {
        answered->deleteLater();
        asking_ = false;
        const QDBusPendingReply<QDBusUnixFileDescriptor> reply = *answered;
        if (reply.isError() || !reply.value().isValid()) {
            qInfo().noquote() << "Sleep inhibitor: logind refused (" + reply.error().name() +
                                     "); trying the desktop portal.";
            if (wanted_)
                requestFromPortal();
            return;
        }
        lock_ = reply.value();
        setHolder(Holder::login1);
        // Released while the answer was on its way.
        if (!wanted_)
            release();
    });
}

void SleepInhibitor::requestFromPortal()
{
    if (!buses_.session.isConnected()) {
        qInfo().noquote()
            << "Sleep inhibitor: neither logind nor a desktop portal is reachable; the computer "
               "may sleep while Kestil works.";
        return;
    }
    asking_ = true;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.portal.Desktop"), QStringLiteral("/org/freedesktop/portal/desktop"),
        QStringLiteral("org.freedesktop.portal.Inhibit"), QStringLiteral("Inhibit"));
    QVariantMap options;
    options.insert(QStringLiteral("reason"), why_);
    call << QString() << portalSuspendAndIdle << options;
    auto *watcher =
        new QDBusPendingCallWatcher(buses_.session.asyncCall(call, answerTimeoutMilliseconds), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *answered) {
        answered->deleteLater();
        asking_ = false;
        const QDBusPendingReply<QDBusObjectPath> reply = *answered;
        if (reply.isError()) {
            qInfo().noquote() << "Sleep inhibitor: neither logind nor the desktop portal holds off sleep (" +
                                     reply.error().name() + "); the computer may sleep while Kestil works.";
            return;
        }
        portalRequest_ = reply.value();
        setHolder(Holder::portal);
        if (!wanted_)
            release();
    });
}

void SleepInhibitor::release()
{
    if (asking_)
        return; // the answer's handler lets it go
    if (holder_ == Holder::login1) {
        // Closing the last copy of the descriptor ends logind's lock.
        lock_ = QDBusUnixFileDescriptor();
    } else if (holder_ == Holder::portal) {
        const QDBusMessage close = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.portal.Desktop"), portalRequest_.path(),
            QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Close"));
        buses_.session.asyncCall(close, answerTimeoutMilliseconds);
        portalRequest_ = QDBusObjectPath();
    }
    setHolder(Holder::none);
}

} // namespace kestil
