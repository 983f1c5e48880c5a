#include "DesktopSession.h"

#include <QDir>
#include <QFile>
#include <QThread>

#include <unistd.h>

namespace kestil::testing {

DesktopSession::DesktopSession()
{
    int fds[2];
    if (pipe(fds) != 0)
        return;
    // Xvfb picks a free display and writes its number to the descriptor.
    // Without -noreset it resets whenever its last client leaves (a kestil
    // that ended, each xdotool call), and a client that connects just then
    // is refused.
    xvfb_.setProgram(QStringLiteral("Xvfb"));
    xvfb_.setArguments({QStringLiteral("-displayfd"), QString::number(fds[1]), QStringLiteral("-noreset"),
                        QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1280x800x24"),
                        QStringLiteral("-nolisten"), QStringLiteral("tcp")});
    xvfb_.setChildProcessModifier([fd = fds[0]] { ::close(fd); });
    xvfb_.start();
    ::close(fds[1]);
    QByteArray number;
    char c;
    while (::read(fds[0], &c, 1) == 1 && c != '\n')
        number.append(c);
    ::close(fds[0]);
    if (!number.isEmpty())
        display_ = QLatin1Char(':') + QString::fromLatin1(number);
    setWelcomeCompleted(true);
}

DesktopSession::~DesktopSession()
{
    stopKestil();
    xvfb_.terminate();
    xvfb_.waitForFinished(5000);
}

void DesktopSession::setWelcomeCompleted(bool completed)
{
    QFile file(config_.filePath(QStringLiteral("preferences.json")));
    if (!completed)
        file.remove();
    else if (file.open(QIODevice::WriteOnly))
        file.write(R"({"format":1,"values":{"kestilWelcomeCompleted.v1":{"type":"bool","value":true}}})");
}

QProcessEnvironment DesktopSession::environment() const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DISPLAY"), display_);
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    env.insert(QStringLiteral("KESTIL_CONFIG_DIR"), config_.path());
    env.remove(QStringLiteral("WAYLAND_DISPLAY"));
    // No bus of the desktop the tests run on: sockets that do not exist.
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
               QStringLiteral("unix:path=") + config_.filePath(QStringLiteral("no-session-bus")));
    env.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"),
               QStringLiteral("unix:path=") + config_.filePath(QStringLiteral("no-system-bus")));
    for (const QString &name : extra_.keys())
        env.insert(name, extra_.value(name));
    return env;
}

QString DesktopSession::run(const QString &program, const QStringList &arguments, int *exitCode) const
{
    QProcess p;
    p.setProcessEnvironment(environment());
    p.start(program, arguments);
    const bool finished = p.waitForFinished(15000);
    if (!finished) {
        p.kill();
        p.waitForFinished();
    }
    if (exitCode)
        *exitCode = finished && p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    return finished ? QString::fromUtf8(p.readAllStandardOutput()).trimmed() : QString();
}

qint64 DesktopSession::windowPid(const QString &windowId) const
{
    return run(QStringLiteral("xdotool"), {QStringLiteral("getwindowpid"), windowId}).toLongLong();
}

QString DesktopSession::findWindow(const QString &title) const
{
    return run(QStringLiteral("xdotool"),
               {QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--name"), title})
        .section(QLatin1Char('\n'), 0, 0);
}

QString DesktopSession::launchKestil(const QString &dataDir, int timeoutMs)
{
    stopKestil();
    kestil_ = std::make_unique<QProcess>();
    QProcessEnvironment env = environment();
    env.insert(QStringLiteral("KESTIL_DATA_DIR"), dataDir);
    kestil_->setProcessEnvironment(env);
    // Each launch writes its output to a file of its own, which the test
    // reads (kestilOutput) and prints when something fails.
    logFile_ = logs_.filePath(QStringLiteral("kestil-%1.log").arg(++launches_));
    kestil_->setProcessChannelMode(QProcess::MergedChannels);
    kestil_->setStandardOutputFile(logFile_);
    if (prefix_.isEmpty())
        kestil_->start(QStringLiteral(KESTIL_BINARY), {});
    else
        kestil_->start(prefix_.constFirst(), prefix_.mid(1) << QStringLiteral(KESTIL_BINARY));
    if (!kestil_->waitForStarted(10000))
        return {};
    QString id;
    const bool shown = [&] {
        for (int waited = 0; waited < timeoutMs && kestilRunning(); waited += 250) {
            if (!(id = findWindow(QStringLiteral("Kestil"))).isEmpty())
                return true;
            QThread::msleep(250);
        }
        return false;
    }();
    if (!shown)
        return {};
    QThread::msleep(700); // let the first frame paint
    return id;
}

void DesktopSession::killKestil()
{
    if (!kestilRunning())
        return;
    kestil_->kill();
    kestil_->waitForFinished(10000);
}

bool DesktopSession::waitForKestilExit(int timeoutMs)
{
    return !kestilRunning() || kestil_->waitForFinished(timeoutMs);
}

int DesktopSession::kestilExitCode() const
{
    return kestil_ && kestil_->exitStatus() == QProcess::NormalExit ? kestil_->exitCode() : -1;
}

QString DesktopSession::kestilOutput() const
{
    QFile file(logFile_);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

bool DesktopSession::focus(const QString &windowId) const
{
    int code = -1;
    run(QStringLiteral("xdotool"), {QStringLiteral("windowfocus"), QStringLiteral("--sync"), windowId},
        &code);
    return code == 0;
}

bool DesktopSession::pressKeys(const QString &windowId, const QString &keys) const
{
    int code = -1;
    if (focus(windowId))
        run(QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("--clearmodifiers"), keys},
            &code);
    return code == 0;
}

std::unique_ptr<QProcess> DesktopSession::startProgram(const QString &program,
                                                       const QStringList &arguments) const
{
    auto process = std::make_unique<QProcess>();
    process->setProcessEnvironment(environment());
    process->start(program, arguments);
    process->waitForStarted(10000);
    return process;
}

void DesktopSession::stopKestil()
{
    if (kestilRunning()) {
        kestil_->terminate();
        if (!kestil_->waitForFinished(5000)) {
            kestil_->kill();
            kestil_->waitForFinished(5000);
        }
    }
    kestil_.reset();
}

QString DesktopSession::screenshot(const QString &name) const
{
    QDir().mkpath(QStringLiteral(KESTIL_SCREENSHOT_DIR));
    const QString path =
        QStringLiteral(KESTIL_SCREENSHOT_DIR) + QLatin1Char('/') + name + QStringLiteral(".png");
    run(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"), path});
    return path;
}

double DesktopSession::contrast(const QString &png) const
{
    return run(QStringLiteral("identify"),
               {QStringLiteral("-format"), QStringLiteral("%[fx:standard_deviation]"), png})
        .toDouble();
}

} // namespace kestil::testing
