#include "support/PulseAudioServer.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>

#include <csignal>
#include <cstdlib>

#include <sys/types.h>

namespace kestil::test {

namespace {

// The state letter of a process in /proc, or 0 when it is gone. A daemon
// whose parent never reaps it stays a zombie ('Z'), which counts as gone.
char processState(qint64 pid)
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray text = stat.readAll();
    const int close = text.lastIndexOf(')');
    return close >= 0 && close + 2 < text.size() ? text.at(close + 2) : 0;
}

bool processGone(qint64 pid)
{
    const char state = processState(pid);
    return state == 0 || state == 'Z' || state == 'X';
}

} // namespace

PulseAudioServer::PulseAudioServer() : PulseAudioServer(Options{}) {}

PulseAudioServer::PulseAudioServer(Options options) : options_(options) {}

PulseAudioServer::~PulseAudioServer()
{
    stop();
}

bool PulseAudioServer::available()
{
    return !QStandardPaths::findExecutable(QStringLiteral("pulseaudio")).isEmpty() &&
           !QStandardPaths::findExecutable(QStringLiteral("paplay")).isEmpty() &&
           !QStandardPaths::findExecutable(QStringLiteral("pactl")).isEmpty();
}

QString PulseAudioServer::serverAddress() const
{
    return directory_ ? QStringLiteral("unix:") + directory_->filePath(QStringLiteral("native")) : QString();
}

QString PulseAudioServer::start()
{
    if (running())
        return {};
    // A socket path must stay under 108 bytes, so the folder lives in /tmp
    // rather than under a long TMPDIR.
    directory_ = std::make_unique<QTemporaryDir>(QStringLiteral("/tmp/kestil-pulse-XXXXXX"));
    if (!directory_->isValid())
        return QStringLiteral("could not make the server's folder: ") + directory_->errorString();
    const QString dir = directory_->path();
    for (const char *sub : {"runtime", "state", "config"})
        QDir(dir).mkpath(QLatin1String(sub));

    const QString script =
        QStringLiteral("load-module module-native-protocol-unix auth-anonymous=1 socket=%1/native\n"
                       "load-module module-null-sink sink_name=%2 rate=%4 channels=%5 "
                       "sink_properties=device.description=Speakers\n"
                       "load-module module-null-sink sink_name=%3 rate=%4 channels=%6 "
                       "sink_properties=device.description=MicrophoneFeed\n"
                       "set-default-sink %2\n"
                       "set-default-source %7\n")
            .arg(dir, QLatin1String(speakers), QLatin1String(micFeed))
            .arg(options_.sampleRate)
            .arg(options_.speakerChannels)
            .arg(options_.microphoneChannels)
            .arg(QLatin1String(microphone));
    QFile scriptFile(dir + QStringLiteral("/default.pa"));
    if (!scriptFile.open(QIODevice::WriteOnly) || scriptFile.write(script.toUtf8()) < 0)
        return QStringLiteral("could not write the server's startup script");
    scriptFile.close();

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), dir);
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), dir);
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), dir + QStringLiteral("/config"));
    environment.insert(QStringLiteral("PULSE_RUNTIME_PATH"), dir + QStringLiteral("/runtime"));
    environment.insert(QStringLiteral("PULSE_STATE_PATH"), dir + QStringLiteral("/state"));
    // The server must not find the desktop's session bus or display.
    environment.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
    environment.remove(QStringLiteral("DISPLAY"));
    environment.remove(QStringLiteral("PULSE_SERVER"));

    QProcess daemon;
    daemon.setProcessEnvironment(environment);
    daemon.setProcessChannelMode(QProcess::MergedChannels);
    // --system=false: test machines run as root, where pulseaudio warns but
    // runs as a per-user server when told so.
    daemon.start(QStringLiteral("pulseaudio"),
                 {QStringLiteral("-D"), QStringLiteral("-n"), QStringLiteral("--exit-idle-time=-1"),
                  QStringLiteral("--system=false"), QStringLiteral("--high-priority=no"),
                  QStringLiteral("--realtime=no"), QStringLiteral("--use-pid-file=yes"),
                  QStringLiteral("--log-target=file:") + dir + QStringLiteral("/pulse.log"),
                  QStringLiteral("-F"), dir + QStringLiteral("/default.pa")});
    auto log = [&] {
        QFile file(dir + QStringLiteral("/pulse.log"));
        file.open(QIODevice::ReadOnly);
        return QString::fromUtf8(daemon.readAll() + file.readAll());
    };
    if (!daemon.waitForFinished(20000) || daemon.exitStatus() != QProcess::NormalExit ||
        daemon.exitCode() != 0)
        return QStringLiteral("pulseaudio did not start:\n") + log();

    QFile pidFile(dir + QStringLiteral("/runtime/pid"));
    if (!pidFile.open(QIODevice::ReadOnly))
        return QStringLiteral("pulseaudio wrote no pid file:\n") + log();
    pid_ = pidFile.readAll().trimmed().toLongLong();
    if (pid_ <= 0)
        return QStringLiteral("pulseaudio wrote an unreadable pid file:\n") + log();

    auto set = [this](const char *name, const QString &value) {
        const char *old = std::getenv(name);
        savedEnvironment_.append({name, old ? std::optional<QByteArray>(old) : std::nullopt});
        qputenv(name, value.toUtf8());
    };
    set("PULSE_SERVER", serverAddress());
    set("PULSE_COOKIE", dir + QStringLiteral("/cookie"));
    set("PULSE_CLIENTCONFIG", dir + QStringLiteral("/client.conf"));

    QElapsedTimer waited;
    waited.start();
    while (pactl({QStringLiteral("info")}) != 0) {
        if (waited.elapsed() > 10000) {
            const QString text = log();
            stop();
            return QStringLiteral("pulseaudio does not answer:\n") + text;
        }
        QThread::msleep(50);
    }
    const QString warm = keepWarm({QLatin1String(speakers) + QStringLiteral(".monitor"),
                                   QLatin1String(micFeed) + QStringLiteral(".monitor")});
    if (!warm.isEmpty()) {
        const QString text = log();
        stop();
        return warm + QLatin1Char('\n') + text;
    }
    return {};
}

// A null sink renders in blocks of up to two seconds until some stream asks
// for less, and a monitor delivers nothing in between: a test would lose its
// first seconds. A recorder that asks for 10 ms on each monitor, kept for the
// server's life, makes the sinks behave like sound cards.
QString PulseAudioServer::keepWarm(const QStringList &sources)
{
    for (const QString &source : sources) {
        auto warmer = std::make_unique<QProcess>();
        warmer->start(
            QStringLiteral("sh"),
            {QStringLiteral("-c"),
             QStringLiteral("parec --device=\"$1\" --latency-msec=10 --format=u8 --rate=8000 "
                            "--channels=1 --raw | { head -c 1 >/dev/null; echo warm >&2; cat >/dev/null; }"),
             QStringLiteral("sh"), source});
        warmers_.push_back(std::move(warmer));
    }
    QElapsedTimer waited;
    waited.start();
    for (const auto &warmer : warmers_) {
        while (!warmer->readAllStandardError().contains("warm")) {
            if (waited.elapsed() > 10000 || warmer->state() == QProcess::NotRunning)
                return QStringLiteral("the sinks' monitors deliver nothing");
            warmer->waitForReadyRead(100);
        }
    }
    return {};
}

void PulseAudioServer::stop()
{
    if (pid_ > 0) {
        ::kill(pid_t(pid_), SIGCONT);
        ::kill(pid_t(pid_), SIGTERM);
        QElapsedTimer waited;
        waited.start();
        while (!processGone(pid_) && waited.elapsed() < 5000)
            QThread::msleep(20);
        if (!processGone(pid_))
            ::kill(pid_t(pid_), SIGKILL);
        pid_ = 0;
    }
    // The recorders end with the server's connection.
    for (const auto &warmer : warmers_) {
        if (!warmer->waitForFinished(2000)) {
            warmer->kill();
            warmer->waitForFinished(1000);
        }
    }
    warmers_.clear();
    restoreEnvironment();
    directory_.reset();
}

void PulseAudioServer::restoreEnvironment()
{
    for (auto it = savedEnvironment_.crbegin(); it != savedEnvironment_.crend(); ++it) {
        if (it->value)
            qputenv(it->name.constData(), *it->value);
        else
            qunsetenv(it->name.constData());
    }
    savedEnvironment_.clear();
}

bool PulseAudioServer::play(const QString &file, const QString &sink, QString *error) const
{
    QProcess player;
    player.setProcessChannelMode(QProcess::MergedChannels);
    player.start(QStringLiteral("paplay"), {QStringLiteral("--device=") + sink, file});
    const bool finished = player.waitForFinished(60000);
    const bool ok = finished && player.exitStatus() == QProcess::NormalExit && player.exitCode() == 0;
    if (!ok && error)
        *error = QString::fromUtf8(player.readAll());
    return ok;
}

std::unique_ptr<QProcess> PulseAudioServer::startPlaying(const QString &file, const QString &sink) const
{
    auto player = std::make_unique<QProcess>();
    player->setProcessChannelMode(QProcess::MergedChannels);
    player->start(QStringLiteral("paplay"), {QStringLiteral("--device=") + sink, file});
    return player;
}

int PulseAudioServer::pactl(const QStringList &arguments, QString *out) const
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral("pactl"), arguments);
    if (!process.waitForFinished(10000)) {
        process.kill();
        process.waitForFinished();
        return -1;
    }
    if (out)
        *out = QString::fromUtf8(process.readAll());
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

void PulseAudioServer::freeze(bool frozen) const
{
    if (pid_ > 0)
        ::kill(pid_t(pid_), frozen ? SIGSTOP : SIGCONT);
}

bool PulseAudioServer::suspendSpeakers(bool suspended) const
{
    return pactl({QStringLiteral("suspend-sink"), QLatin1String(speakers),
                  suspended ? QStringLiteral("1") : QStringLiteral("0")}) == 0;
}

} // namespace kestil::test
