#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

namespace kestil::testing {

// A private X server (Xvfb) for one test, and the real kestil program started
// in it with its own data and settings folders. The settings start with the
// welcome flow finished, as a returning user's do, and the program finds no
// D-Bus unless the test gives it one (setEnvironment): no notification
// service, no logind, no portal.
class DesktopSession {
public:
    DesktopSession();
    ~DesktopSession();

    bool started() const { return !display_.isEmpty(); }

    // Writes the settings file with kestilWelcomeCompleted.v1 as given;
    // false removes the file, as on a first launch.
    void setWelcomeCompleted(bool completed);
    // Set for every later launch (DBUS_SESSION_BUS_ADDRESS, say).
    void setEnvironment(const QString &name, const QString &value) { extra_.insert(name, value); }
    // Runs kestil through these programs (strace, unshare): the binary's
    // path is appended to them.
    void setLaunchPrefix(const QStringList &prefix) { prefix_ = prefix; }
    // The process id of the program that owns the window.
    qint64 windowPid(const QString &windowId) const;

    // Starts kestil with KESTIL_DATA_DIR = dataDir; waits until its window is
    // mapped and returns the X window id, or an empty string.
    QString launchKestil(const QString &dataDir, int timeoutMs = 30000);
    void stopKestil();
    bool kestilRunning() const { return kestil_ && kestil_->state() == QProcess::Running; }
    // Ends kestil at once, as a crash would (SIGKILL), and waits for it.
    void killKestil();
    // Waits for kestil to end by itself; false when it is still running.
    bool waitForKestilExit(int timeoutMs);
    int kestilExitCode() const;
    // What kestil wrote to its standard output and error since its launch.
    QString kestilOutput() const;
    // Gives the window the keyboard focus (no window manager runs), making
    // its application the one in front.
    bool focus(const QString &windowId) const;
    // Focuses the window and types the keys there through the X server's
    // test extension, as xdotool names them ("ctrl+n", "ctrl+shift+p").
    bool pressKeys(const QString &windowId, const QString &keys) const;
    // The first visible window whose title matches, or an empty string.
    QString findWindow(const QString &title) const;
    // Starts another X program in the session's display.
    std::unique_ptr<QProcess> startProgram(const QString &program, const QStringList &arguments) const;
    // Runs a command in the session's display; returns its standard output.
    QString run(const QString &program, const QStringList &arguments, int *exitCode = nullptr) const;
    // Saves a screenshot of the whole screen; returns the file path.
    QString screenshot(const QString &name) const;
    // The standard deviation of the screenshot's pixels: 0 for a blank screen.
    double contrast(const QString &png) const;

private:
    QProcessEnvironment environment() const;

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
