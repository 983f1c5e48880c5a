#pragma once

#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <memory>

namespace kestil::test {

// A D-Bus daemon of the test's own, as dbus-run-session starts one: a socket
// in a private folder (a path, not an abstract socket, so that a process in
// another network namespace reaches it too), and no service activation, so
// that nothing installed on the machine (a notification daemon, say) answers
// in place of the test's own services.
class PrivateBus {
public:
    PrivateBus();
    ~PrivateBus();

    PrivateBus(const PrivateBus &) = delete;
    PrivateBus &operator=(const PrivateBus &) = delete;

    // Whether dbus-daemon is installed.
    static bool available();

    // Empty on success, else what went wrong.
    QString start();
    const QString &address() const { return address_; }

private:
    std::unique_ptr<QTemporaryDir> directory_;
    QProcess daemon_;
    QString address_;
};

// The fake desktop services (tests/support/FakeDesktopServices.cpp) on a bus:
// a notification service that records every Notify and can send a click, and
// a logind that hands out inhibitor locks and reports when they are closed.
// Each event is one line of JSON on the program's output.
class FakeDesktopServices {
public:
    struct Options {
        bool notifications = true;
        bool login1 = true;
        // Notify answers with an error.
        bool refuseNotify = false;
    };

    FakeDesktopServices();
    ~FakeDesktopServices();

    // Empty on success, else what went wrong.
    QString start(const QString &busAddress, Options options);
    void stop();

    // The events so far, one JSON object per line.
    QStringList events();
    // Waits (running the event loop) until an event of the kind has arrived
    // `count` times; returns the last one, or an empty object on timeout.
    QJsonObject waitFor(const QString &event, int count = 1, int timeoutMs = 10000);
    int count(const QString &event);
    // Sends ActionInvoked(id, action) as a click would.
    void invoke(uint id, const QString &action);

private:
    QProcess process_;
    QByteArray buffer_;
    QStringList events_;
    void read();
};

} // namespace kestil::test
