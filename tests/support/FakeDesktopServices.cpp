// Stand-ins for the desktop's services on a test's private bus:
//   --notifications  org.freedesktop.Notifications, recording every Notify
//   --login1         org.freedesktop.login1, handing out inhibitor locks
//   --refuse-notify  Notify answers with an error
// Every call and every released lock is printed as one line of JSON. A line
// "invoke <id> <action>" on standard input sends ActionInvoked as a click
// does; the end of standard input ends the program.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSocketNotifier>
#include <QStringList>
#include <QVariantMap>

#include <cstdio>
#include <unistd.h>

namespace {

void print(const QJsonObject &event)
{
    std::fputs(QJsonDocument(event).toJson(QJsonDocument::Compact).constData(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

class Notifications : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    bool refuse = false;

public slots:
    QStringList GetCapabilities() { return {QStringLiteral("actions"), QStringLiteral("body")}; }

    QString GetServerInformation(QString &vendor, QString &version, QString &specVersion)
    {
        vendor = QStringLiteral("Kestil tests");
        version = QStringLiteral("1");
        specVersion = QStringLiteral("1.2");
        print({{QStringLiteral("event"), QStringLiteral("GetServerInformation")}});
        return QStringLiteral("kestil-fake-notifications");
    }

    uint Notify(const QString &app, uint replaces, const QString &icon, const QString &summary,
                const QString &body, const QStringList &actions, const QVariantMap &hints, int timeout)
    {
        Q_UNUSED(replaces)
        if (refuse) {
            sendErrorReply(QDBusError::Failed, QStringLiteral("The notification was refused."));
            print({{QStringLiteral("event"), QStringLiteral("NotifyRefused")}});
            return 0;
        }
        const uint id = ++lastId_;
        QJsonObject hintsJson;
        for (auto it = hints.cbegin(); it != hints.cend(); ++it)
            hintsJson.insert(it.key(), it.value().toString());
        print({{QStringLiteral("event"), QStringLiteral("Notify")},
               {QStringLiteral("id"), int(id)},
               {QStringLiteral("app"), app},
               {QStringLiteral("icon"), icon},
               {QStringLiteral("summary"), summary},
               {QStringLiteral("body"), body},
               {QStringLiteral("actions"), QJsonArray::fromStringList(actions)},
               {QStringLiteral("hints"), hintsJson},
               {QStringLiteral("timeout"), timeout}});
        return id;
    }

    void CloseNotification(uint id) { emit NotificationClosed(id, 3); }

signals:
    void ActionInvoked(uint id, const QString &action);
    void NotificationClosed(uint id, uint reason);

public:
    void invoke(uint id, const QString &action)
    {
        emit ActionInvoked(id, action);
        emit NotificationClosed(id, 2);
    }

private:
    uint lastId_ = 0;
};

// logind's Manager.Inhibit: the lock is the write end of a pipe; when every
// copy of it is closed the read end sees the end of the file, and the lock is
// reported released.
class Login1 : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.login1.Manager")

public slots:
    QDBusUnixFileDescriptor Inhibit(const QString &what, const QString &who, const QString &why,
                                    const QString &mode)
    {
        int fds[2];
        if (pipe(fds) != 0)
            return {};
        const int lock = ++lastLock_;
        print({{QStringLiteral("event"), QStringLiteral("Inhibit")},
               {QStringLiteral("lock"), lock},
               {QStringLiteral("what"), what},
               {QStringLiteral("who"), who},
               {QStringLiteral("why"), why},
               {QStringLiteral("mode"), mode}});
        auto *watch = new QSocketNotifier(fds[0], QSocketNotifier::Read, this);
        connect(watch, &QSocketNotifier::activated, this, [watch, fd = fds[0], lock] {
            char byte;
            if (::read(fd, &byte, 1) > 0)
                return;
            watch->setEnabled(false);
            ::close(fd);
            print({{QStringLiteral("event"), QStringLiteral("Released")}, {QStringLiteral("lock"), lock}});
            watch->deleteLater();
        });
        QDBusUnixFileDescriptor descriptor(fds[1]); // keeps a copy of its own
        ::close(fds[1]);
        return descriptor;
    }

private:
    int lastLock_ = 0;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    const int at = int(arguments.indexOf(QStringLiteral("--address")));
    if (at < 0 || at + 1 >= arguments.size()) {
        std::fputs("usage: kestil_fake_desktop_services --address <bus> [--notifications] [--login1]\n",
                   stderr);
        return 2;
    }
    QDBusConnection bus = QDBusConnection::connectToBus(arguments.at(at + 1), QStringLiteral("fake"));
    if (!bus.isConnected()) {
        std::fputs("cannot connect to the bus\n", stderr);
        return 1;
    }
    Notifications notifications;
    notifications.refuse = arguments.contains(QStringLiteral("--refuse-notify"));
    Login1 login1;
    if (arguments.contains(QStringLiteral("--notifications"))) {
        bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &notifications,
                           QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals);
        bus.registerService(QStringLiteral("org.freedesktop.Notifications"));
    }
    if (arguments.contains(QStringLiteral("--login1"))) {
        bus.registerObject(QStringLiteral("/org/freedesktop/login1"), &login1,
                           QDBusConnection::ExportAllSlots);
        bus.registerService(QStringLiteral("org.freedesktop.login1"));
    }

    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QByteArray pending;
    QObject::connect(&input, &QSocketNotifier::activated, &application, [&] {
        char chunk[256];
        const ssize_t got = ::read(STDIN_FILENO, chunk, sizeof chunk);
        if (got <= 0) {
            input.setEnabled(false);
            application.quit();
            return;
        }
        pending.append(chunk, int(got));
        int newline;
        while ((newline = pending.indexOf('\n')) >= 0) {
            const QStringList words = QString::fromUtf8(pending.left(newline)).split(QLatin1Char(' '));
            pending.remove(0, newline + 1);
            if (words.size() == 3 && words[0] == QStringLiteral("invoke"))
                notifications.invoke(words[1].toUInt(), words[2]);
        }
    });
    print({{QStringLiteral("event"), QStringLiteral("ready")}});
    return application.exec();
}

#include "FakeDesktopServices.moc"
