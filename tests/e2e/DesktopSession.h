#pragma once

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QThread>

#include <memory>

#include <unistd.h>

namespace kestil::testing {

using namespace Qt::StringLiterals;

// A private X server (Xvfb) for one test, and the real kestil program started
// in it with its own data and settings folders. The settings start with the
// welcome flow finished, as a returning user's do, and the program finds no
// D-Bus unless the test gives it one (setEnvironment): no notification
// service, no logind, no portal.
class DesktopSession {
public:
    DesktopSession()
    {
        int fds[2];
        if (pipe(fds) != 0)
            return;
        // Xvfb picks a free display and writes its number to the descriptor.
        // Without -noreset it resets whenever its last client leaves (a
        // kestil that ended, each xdotool call), and a client that connects
        // just then is refused.
        xvfb_.setProgram(u"Xvfb"_s);
        xvfb_.setArguments({u"-displayfd"_s, QString::number(fds[1]), u"-noreset"_s, u"-screen"_s, u"0"_s,
                            u"1280x800x24"_s, u"-nolisten"_s, u"tcp"_s});
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
    ~DesktopSession()
    {
        stopKestil();
        xvfb_.terminate();
        xvfb_.waitForFinished(5000);
    }

    bool started() const { return !display_.isEmpty(); }

    // false removes the settings file, as on a first launch.
    void setWelcomeCompleted(bool completed)
    {
        QFile file(config_.filePath(u"preferences.json"_s));
        if (!completed)
            file.remove();
        else if (file.open(QIODevice::WriteOnly))
            file.write(R"({"format":1,"values":{"kestilWelcomeCompleted.v1":{"type":"bool","value":true}}})");
    }
    void setEnvironment(const QString &name, const QString &value) { extra_.insert(name, value); }
    // Runs kestil through these programs (strace, unshare).
    void setLaunchPrefix(const QStringList &prefix) { prefix_ = prefix; }

    // Returns kestil's X window id once mapped, or an empty string.
    QString launchKestil(const QString &dataDir, int timeoutMs = 30000)
    {
        stopKestil();
        kestil_ = std::make_unique<QProcess>();
        QProcessEnvironment env = environment();
        env.insert(u"KESTIL_DATA_DIR"_s, dataDir);
        kestil_->setProcessEnvironment(env);
        logFile_ = logs_.filePath(u"kestil-%1.log"_s.arg(++launches_));
        kestil_->setProcessChannelMode(QProcess::MergedChannels);
        kestil_->setStandardOutputFile(logFile_);
        const QStringList command = QStringList(prefix_) << QStringLiteral(KESTIL_BINARY);
        kestil_->start(command.constFirst(), command.mid(1));
        if (!kestil_->waitForStarted(10000))
            return {};
        for (int waited = 0; waited < timeoutMs && kestilRunning(); waited += 100) {
            if (const QString id = findWindow(u"Kestil"_s); !id.isEmpty()) {
                QThread::msleep(700); // let the first frame paint
                return id;
            }
            QThread::msleep(100);
        }
        return {};
    }
    void stopKestil()
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
    bool kestilRunning() const { return kestil_ && kestil_->state() == QProcess::Running; }
    // SIGKILL, as a crash.
    void killKestil()
    {
        if (kestilRunning()) {
            kestil_->kill();
            kestil_->waitForFinished(10000);
        }
    }
    bool waitForKestilExit(int timeoutMs) { return !kestilRunning() || kestil_->waitForFinished(timeoutMs); }
    int kestilExitCode() const
    {
        return kestil_ && kestil_->exitStatus() == QProcess::NormalExit ? kestil_->exitCode() : -1;
    }
    QString kestilOutput() const
    {
        QFile file(logFile_);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }

    QString run(const QString &program, const QStringList &arguments, int *exitCode = nullptr) const
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
    QString findWindow(const QString &title) const
    {
        return xdotool({u"search"_s, u"--onlyvisible"_s, u"--name"_s, title})
            .section(QLatin1Char('\n'), 0, 0);
    }
    qint64 windowPid(const QString &windowId) const
    {
        return xdotool({u"getwindowpid"_s, windowId}).toLongLong();
    }
    // Gives the window the keyboard focus (no window manager runs), making
    // its application the one in front.
    bool focus(const QString &windowId) const
    {
        int code = -1;
        xdotool({u"windowfocus"_s, u"--sync"_s, windowId}, &code);
        return code == 0;
    }
    // Keys as xdotool names them ("ctrl+shift+p").
    bool pressKeys(const QString &windowId, const QString &keys) const
    {
        int code = -1;
        if (focus(windowId))
            xdotool({u"key"_s, u"--clearmodifiers"_s, keys}, &code);
        return code == 0;
    }
    QString xdotool(const QStringList &arguments, int *exitCode = nullptr) const
    {
        return run(u"xdotool"_s, arguments, exitCode);
    }
    QString screenshot(const QString &name) const
    {
        QDir().mkpath(QStringLiteral(KESTIL_SCREENSHOT_DIR));
        const QString path = QStringLiteral(KESTIL_SCREENSHOT_DIR "/") + name + u".png"_s;
        run(u"import"_s, {u"-window"_s, u"root"_s, path});
        return path;
    }
    // The standard deviation of the screenshot's pixels: 0 for a blank screen.
    double contrast(const QString &png) const
    {
        return run(u"identify"_s, {u"-format"_s, u"%[fx:standard_deviation]"_s, png}).toDouble();
    }

private:
    QProcessEnvironment environment() const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"DISPLAY"_s, display_);
        env.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
        env.insert(u"KESTIL_CONFIG_DIR"_s, config_.path());
        env.remove(u"WAYLAND_DISPLAY"_s);
        // No bus of the desktop the tests run on: sockets that do not exist.
        for (const char *bus : {"DBUS_SESSION_BUS_ADDRESS", "DBUS_SYSTEM_BUS_ADDRESS"})
            env.insert(QLatin1String(bus), u"unix:path="_s + config_.filePath(u"no-bus"_s));
        for (const QString &name : extra_.keys())
            env.insert(name, extra_.value(name));
        return env;
    }

    QProcess xvfb_;
    std::unique_ptr<QProcess> kestil_;
    QString display_;
    QTemporaryDir config_;
    QTemporaryDir logs_;
    QString logFile_;
    int launches_ = 0;
    QProcessEnvironment extra_;
    QStringList prefix_;
};

} // namespace kestil::testing
