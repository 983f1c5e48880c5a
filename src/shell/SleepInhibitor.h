#pragma once

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QDBusUnixFileDescriptor>
#include <QObject>
#include <QString>

namespace kestil {

// Keeps the computer from suspending or going idle while it is wanted, for one
// reason the desktop can show ("Finish on-device note summary").
//
// It asks systemd-logind first (Manager.Inhibit "sleep:idle" in block mode on
// the system bus): the lock is a file descriptor, so it ends when Kestil
// closes it, and the kernel closes it when Kestil dies. Without logind it asks
// the desktop portal (Inhibit with suspend and idle), whose lock ends with
// Kestil's bus connection. With neither, nothing is held, nothing is shown,
// and the work goes on: staying awake is a courtesy, never a condition.
//
// Every call is asynchronous; a release asked for while the answer is on its
// way is carried out when it comes. Main thread.
class SleepInhibitor : public QObject {
    Q_OBJECT

public:
    struct Buses {
        QDBusConnection system;
        QDBusConnection session;
        // The desktop's own system and session buses.
        static Buses standard();
    };
    enum class Holder { none, login1, portal };

    SleepInhibitor(Buses buses, QString why, QObject *parent = nullptr);
    ~SleepInhibitor() override;

    const QString &why() const { return why_; }
    // Takes the lock when wanted, lets it go when not.
    void setWanted(bool wanted);
    bool wanted() const { return wanted_; }
    // Who holds the lock now; none while nothing is held.
    Holder holder() const { return holder_; }
    bool held() const { return holder_ != Holder::none; }

signals:
    void heldChanged(bool held);

private:
    void requestFromLogin1();
    void requestFromPortal();
    void release();
    void setHolder(Holder holder);

    Buses buses_;
    QString why_;
    bool wanted_ = false;
    bool asking_ = false;
    Holder holder_ = Holder::none;
    QDBusUnixFileDescriptor lock_;
    QDBusObjectPath portalRequest_;
};

} // namespace kestil
