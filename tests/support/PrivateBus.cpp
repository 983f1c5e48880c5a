#include "support/PrivateBus.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QThread>

namespace kestil::test {

PrivateBus::PrivateBus() = default;

PrivateBus::~PrivateBus()
{
    if (daemon_.state() != QProcess::NotRunning) {
        daemon_.terminate();
        if (!daemon_.waitForFinished(5000)) {
            daemon_.kill();
            daemon_.waitForFinished(5000);
        }
    }
}

bool PrivateBus::available()
{
    return !QStandardPaths::findExecutable(QStringLiteral("dbus-daemon")).isEmpty();
}

QString PrivateBus::start()
{
    // A socket path must stay under 108 bytes.
    directory_ = std::make_unique<QTemporaryDir>(QStringLiteral("/tmp/kestil-bus-XXXXXX"));
    if (!directory_->isValid())
        return QStringLiteral("could not make the bus's folder");
    const QString config = directory_->filePath(QStringLiteral("bus.conf"));
    QFile file(config);
    if (!file.open(QIODevice::WriteOnly))
        return QStringLiteral("could not write the bus configuration");
    file.write(
        QStringLiteral(R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=%1</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
    <allow user="*"/>
  </policy>
</busconfig>
)")
            .arg(directory_->filePath(QStringLiteral("bus")))
            .toUtf8());
    file.close();
    daemon_.setProgram(QStringLiteral("dbus-daemon"));
    daemon_.setArguments({QStringLiteral("--config-file=") + config, QStringLiteral("--nofork"),
                          QStringLiteral("--print-address=1")});
    daemon_.setProcessChannelMode(QProcess::SeparateChannels);
    daemon_.start();
    if (!daemon_.waitForStarted(10000))
        return QStringLiteral("dbus-daemon did not start");
    QDeadlineTimer deadline(10000);
    while (!daemon_.canReadLine() && !deadline.hasExpired()) {
        if (!daemon_.waitForReadyRead(200) && daemon_.state() != QProcess::Running)
            return QStringLiteral("dbus-daemon ended: ") + QString::fromUtf8(daemon_.readAllStandardError());
    }
    address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
    return address_.isEmpty() ? QStringLiteral("dbus-daemon printed no address") : QString();
}

FakeDesktopServices::FakeDesktopServices() = default;

FakeDesktopServices::~FakeDesktopServices()
{
    stop();
}

QString FakeDesktopServices::start(const QString &busAddress, Options options)
{
    QStringList arguments{QStringLiteral("--address"), busAddress};
    if (options.notifications)
        arguments << QStringLiteral("--notifications");
    if (options.login1)
        arguments << QStringLiteral("--login1");
    if (options.refuseNotify)
        arguments << QStringLiteral("--refuse-notify");
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process_.start(QStringLiteral(KESTIL_FAKE_DESKTOP_SERVICES), arguments);
    if (!process_.waitForStarted(10000))
        return QStringLiteral("the fake desktop services did not start");
    if (waitFor(QStringLiteral("ready")).isEmpty())
        return QStringLiteral("the fake desktop services did not register on the bus");
    return {};
}

void FakeDesktopServices::stop()
{
    if (process_.state() == QProcess::NotRunning)
        return;
    process_.closeWriteChannel();
    if (!process_.waitForFinished(3000)) {
        process_.kill();
        process_.waitForFinished(3000);
    }
}

void FakeDesktopServices::read()
{
    buffer_ += process_.readAllStandardOutput();
    int newline;
    while ((newline = buffer_.indexOf('\n')) >= 0) {
        events_.append(QString::fromUtf8(buffer_.left(newline)));
        buffer_.remove(0, newline + 1);
    }
}

QStringList FakeDesktopServices::events()
{
    read();
    return events_;
}

int FakeDesktopServices::count(const QString &event)
{
    int found = 0;
    for (const QString &line : events()) {
        if (QJsonDocument::fromJson(line.toUtf8()).object().value(QStringLiteral("event")).toString() ==
            event)
            ++found;
    }
    return found;
}

QJsonObject FakeDesktopServices::waitFor(const QString &event, int wanted, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (true) {
        QJsonObject last;
        int found = 0;
        for (const QString &line : events()) {
            const QJsonObject object = QJsonDocument::fromJson(line.toUtf8()).object();
            if (object.value(QStringLiteral("event")).toString() == event) {
                ++found;
                last = object;
            }
        }
        if (found >= wanted)
            return last;
        if (deadline.hasExpired() || process_.state() != QProcess::Running)
            return {};
        // The program under test may live in this process: its event loop
        // must run while the test waits.
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        process_.waitForReadyRead(20);
    }
}

void FakeDesktopServices::invoke(uint id, const QString &action)
{
    process_.write(QStringLiteral("invoke %1 %2\n").arg(id).arg(action).toUtf8());
    process_.waitForBytesWritten(2000);
}

} // namespace kestil::test
