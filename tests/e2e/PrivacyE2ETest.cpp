// No note text or audio leaves the machine: the real kestil under strace in a
// network namespace with only loopback records, summarises with SmolLM2,
// answers and exports from the keyboard, using only local sockets; a private
// D-Bus shows the sleep locks and their release, also when kestil is killed.
// A model download the user asked for goes to its address and nowhere else.
#include "DesktopSession.h"
#include "RecordingE2ESupport.h"

#include "generation/LanguageModelCatalogue.h"
#include "support/LoopbackModelServer.h"
#include "support/PrivateBus.h"
#include "support/PulseAudioServer.h"

#include <QDir>
#include <QFile>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QUrl>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <iostream>

using namespace kestil;
using namespace Qt::StringLiterals;
using namespace kestil::testing;

namespace {

const QStringList tracedCalls{u"-e"_s, u"trace=socket,connect,sendto,sendmsg"_s};

// As root or through a user namespace; empty when neither is allowed.
QStringList networkNamespace()
{
    for (const QStringList &candidate :
         {QStringList{u"unshare"_s, u"-n"_s}, QStringList{u"unshare"_s, u"-rn"_s}}) {
        QProcess probe;
        probe.start(candidate.constFirst(), candidate.mid(1) << u"true"_s);
        if (probe.waitForFinished(10000) && probe.exitStatus() == QProcess::NormalExit &&
            probe.exitCode() == 0)
            return QStringList(candidate) << u"--"_s;
    }
    return {};
}

// The traced lines on a non-local address family not holding one of
// `allowed`; `local` counts the AF_UNIX ones.
QString foreignTraffic(const QString &trace, const QStringList &allowed = {}, int *local = nullptr)
{
    QFile file(trace);
    if (!file.open(QIODevice::ReadOnly))
        return u"no trace at "_s + trace;
    static const QRegularExpression family(u"(?:socket\\(|sa_family=)[AP]F_([A-Z0-9]+)"_s);
    QString report;
    for (const QByteArray &raw : file.readAll().split('\n')) {
        const QString line = QString::fromUtf8(raw);
        for (auto matches = family.globalMatch(line); matches.hasNext();) {
            const QString name = matches.next().captured(1);
            if (local && name == u"UNIX"_s)
                ++*local;
            if (name != u"UNIX"_s && name != u"LOCAL"_s && name != u"NETLINK"_s &&
                std::none_of(allowed.begin(), allowed.end(),
                             [&](const QString &a) { return line.contains(a); }))
                report += line + QLatin1Char('\n');
        }
    }
    return report;
}

class PrivacyE2ETest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(QStandardPaths::findExecutable(u"strace"_s).isEmpty())
            << "strace is needed to watch kestil's sockets";
        ASSERT_TRUE(desktop.started()) << "Xvfb did not start";
        ASSERT_TRUE(test::PrivateBus::available());
        ASSERT_EQ(bus.start(), QString());
        ASSERT_EQ(services.start(bus.address(), {true, true, false}), QString());
        desktop.setEnvironment(u"DBUS_SESSION_BUS_ADDRESS"_s, bus.address());
        desktop.setEnvironment(u"DBUS_SYSTEM_BUS_ADDRESS"_s, bus.address());
        trace = work.filePath(u"sockets.trace"_s);
        data = work.filePath(u"data"_s);
    }
    void TearDown() override
    {
        if (HasFailure())
            std::cerr << "kestil's output:\n" << desktop.kestilOutput().toStdString() << std::endl;
    }

    QStringList straced(const QStringList &then = {}) const
    {
        return QStringList{u"strace"_s, u"-f"_s, u"-qq"_s, u"-o"_s, trace} << tracedCalls << then;
    }

    DesktopSession desktop;
    test::PrivateBus bus;
    test::FakeDesktopServices services;
    QTemporaryDir work;
    QString trace;
    QString data;
};

TEST_F(PrivacyE2ETest, RecordingSummarisingAskingAndExportingStayOnThisComputer)
{
    const QStringList isolated = networkNamespace();
    if (isolated.isEmpty())
        GTEST_SKIP()
            << "SKIPPED, NOT PASSED: neither `unshare -n` nor `unshare -rn` may make a network namespace "
               "here, so kestil cannot be cut off from the network for the privacy proof.";
    const QString model =
        qEnvironmentVariable("KESTIL_TEST_MODELS_DIR") + u"/smollm2-135m-instruct-q4_1.gguf"_s;
    ASSERT_TRUE(QFile::exists(model)) << "run scripts/test-models.sh: " << model.toStdString();
    ASSERT_TRUE(QDir().mkpath(data + u"/Models/language"_s));
    ASSERT_TRUE(QFile::link(model, data + u"/Models/language/smollm2-135m-instruct-q4_1.gguf"_s));
    ASSERT_TRUE(test::PulseAudioServer::available());
    test::PulseAudioServer pulse;
    ASSERT_EQ(pulse.start(), QString());
    const QString speech = work.filePath(u"speech.wav"_s);
    ASSERT_TRUE(speak(firstPhrase, speech));

    desktop.setEnvironment(u"KESTIL_LANGUAGE_MODEL_SEED"_s, u"7"_s);
    desktop.setLaunchPrefix(straced(isolated));
    const QString window = desktop.launchKestil(data, 60000);
    ASSERT_FALSE(window.isEmpty()) << "no Kestil window appeared";

    // Record: speech through the sound server, the sleep lock while it runs.
    ASSERT_TRUE(desktop.pressKeys(window, u"ctrl+n"_s));
    ASSERT_TRUE(eventually([&] { return segmentFolders(data).size() == 1; }, 60000));
    const QJsonObject recordingLock = services.waitFor(u"Inhibit"_s, 1, 20000);
    EXPECT_EQ(recordingLock.value(u"why"_s).toString(), u"Record and transcribe a note"_s);
    EXPECT_EQ(recordingLock.value(u"what"_s).toString(), u"sleep:idle"_s);
    EXPECT_EQ(recordingLock.value(u"mode"_s).toString(), u"block"_s);
    EXPECT_EQ(recordingLock.value(u"who"_s).toString(), u"Kestil"_s);
    QString error;
    ASSERT_TRUE(pulse.play(speech, QLatin1String(test::PulseAudioServer::micFeed), &error))
        << error.toStdString();
    ASSERT_TRUE(eventually([&] { return wordsHeard(firstPhrase, storedTranscript(data)) >= 0.5; }, 30000));
    ASSERT_TRUE(desktop.pressKeys(window, u"ctrl+shift+s"_s));
    ASSERT_TRUE(eventually([&] { return manifestComplete(segmentFolders(data).value(0)); }, 30000));
    EXPECT_FALSE(services.waitFor(u"Released"_s, 1, 20000).isEmpty()) << "the recording's lock stayed";

    // Summarise with SmolLM2: the templates menu, then Return.
    ASSERT_TRUE(desktop.pressKeys(window, u"ctrl+t"_s));
    QThread::msleep(500);
    ASSERT_TRUE(desktop.pressKeys(window, u"Return"_s));
    const QJsonObject summaryLock = services.waitFor(u"Inhibit"_s, 2, 30000);
    EXPECT_EQ(summaryLock.value(u"why"_s).toString(), u"Finish on-device note summary"_s);
    ASSERT_TRUE(eventually(
        [&] { return !storedValue(data, u"SELECT summary FROM note WHERE length(summary) > 0"_s).isEmpty(); },
        300000))
        << "no summary was saved";
    EXPECT_FALSE(services.waitFor(u"Released"_s, 2, 30000).isEmpty()) << "the summary's lock stayed";
    desktop.screenshot(u"privacy-1-summary"_s);

    // Ask a question in the Ask AI window.
    ASSERT_TRUE(desktop.pressKeys(window, u"ctrl+shift+a"_s));
    QString ask;
    ASSERT_TRUE(eventually([&] { return !(ask = desktop.findWindow(u"^Ask AI"_s)).isEmpty(); }, 10000));
    ASSERT_TRUE(desktop.focus(ask));
    desktop.xdotool({u"type"_s, u"--delay"_s, u"30"_s, u"When is the next meeting?"_s});
    ASSERT_TRUE(desktop.pressKeys(ask, u"Return"_s));
    ASSERT_TRUE(eventually(
        [&] {
            return storedValue(data, QStringLiteral("SELECT count(*) FROM note_chat_message WHERE role = "
                                                    "'assistant' AND length(content) > 0"))
                       .toInt() >= 1;
        },
        180000))
        << "no answer was saved";
    desktop.screenshot(u"privacy-2-ask"_s);
    desktop.xdotool({u"windowclose"_s, ask});

    // Export the summary as a PDF through the note's menu and the save dialog.
    const QString pdf = work.filePath(u"exported.pdf"_s);
    ASSERT_TRUE(desktop.pressKeys(window, u"alt+o"_s));
    for (const char *key : {"Down", "Right", "Return"}) {
        QThread::msleep(400);
        ASSERT_TRUE(desktop.pressKeys(window, QLatin1String(key)));
    }
    QString dialog;
    ASSERT_TRUE(eventually([&] { return !(dialog = desktop.findWindow(u"^Export"_s)).isEmpty(); }, 10000));
    ASSERT_TRUE(desktop.focus(dialog));
    ASSERT_TRUE(desktop.pressKeys(dialog, u"ctrl+a"_s));
    desktop.xdotool({u"type"_s, u"--delay"_s, u"20"_s, pdf});
    ASSERT_TRUE(desktop.pressKeys(dialog, u"Return"_s));
    ASSERT_TRUE(eventually(
        [&] {
            QFile file(pdf);
            return file.open(QIODevice::ReadOnly) && file.read(5) == "%PDF-";
        },
        20000))
        << "no PDF was exported";

    // A recording cut off by a crash: the kernel ends the sleep lock.
    const int locks = services.count(u"Inhibit"_s);
    ASSERT_TRUE(eventually([&] { return services.count(u"Released"_s) == locks; }, 20000));
    ASSERT_TRUE(desktop.pressKeys(window, u"ctrl+n"_s));
    ASSERT_FALSE(services.waitFor(u"Inhibit"_s, locks + 1, 30000).isEmpty());
    const qint64 pid = desktop.windowPid(window);
    ASSERT_GT(pid, 0);
    ::kill(pid_t(pid), SIGKILL);
    EXPECT_FALSE(services.waitFor(u"Released"_s, locks + 1, 20000).isEmpty())
        << "the lock of a killed kestil stayed";
    ASSERT_TRUE(desktop.waitForKestilExit(20000));

    int local = 0;
    EXPECT_EQ(foreignTraffic(trace, {}, &local), QString())
        << "kestil used sockets that can leave this computer";
    EXPECT_GT(local, 0) << "strace saw no sockets at all in " << trace.toStdString();
}

TEST_F(PrivacyE2ETest, AModelDownloadTheUserAsksForGoesToItsAddressAndNowhereElse)
{
    test::LoopbackModelServer server;
    const DownloadableLanguageModel &model = languageModelCatalogue().constFirst();
    server.setFile(model.fileName, QByteArray(1024 * 1024, 'k'));
    const QString base = server.baseAddress(u"good"_s);
    desktop.setEnvironment(u"KESTIL_LANGUAGE_MODEL_BASE_URL"_s, base);
    desktop.setWelcomeCompleted(false); // a first launch: the welcome flow offers the download
    desktop.setLaunchPrefix(straced());
    const QString window = desktop.launchKestil(data, 60000);
    ASSERT_FALSE(window.isEmpty());
    QString welcome;
    ASSERT_TRUE(eventually(
        [&] { return !(welcome = desktop.findWindow(u"^Welcome to Kestil$"_s)).isEmpty(); }, 10000))
        << "a first launch shows the welcome flow";
    desktop.screenshot(u"first-launch-welcome"_s);
    ASSERT_TRUE(desktop.pressKeys(welcome, u"Return"_s)); // Get Started
    QThread::msleep(500);
    ASSERT_TRUE(desktop.pressKeys(welcome, u"alt+d"_s)); // Download
    ASSERT_TRUE(eventually([&] { return !server.requests().isEmpty(); }, 20000))
        << "no download was asked for";
    QThread::msleep(300);
    desktop.screenshot(u"first-launch-download"_s);
    const qint64 pid = desktop.windowPid(window);
    ASSERT_GT(pid, 0);
    ::kill(pid_t(pid), SIGTERM);
    ASSERT_TRUE(desktop.waitForKestilExit(20000));

    const QString port = QUrl(base).authority().section(QLatin1Char(':'), 1);
    const QString allowed = u"sin_port=htons(%1), sin_addr=inet_addr(\"127.0.0.1\")"_s.arg(port);
    EXPECT_NE(foreignTraffic(trace), QString()) << "the download was not seen";
    // Making the socket (socket(AF_INET...)) and connecting it to the server
    // the user's settings name are all that may leave the local machinery.
    EXPECT_EQ(foreignTraffic(trace, {allowed, u"socket(AF_INET, SOCK_STREAM"_s}), QString());

    // Left half-way, the welcome flow comes back at the next launch.
    desktop.setLaunchPrefix({});
    ASSERT_FALSE(desktop.launchKestil(data).isEmpty()) << desktop.kestilOutput().toStdString();
    EXPECT_TRUE(eventually([&] { return !desktop.findWindow(u"^Welcome to Kestil$"_s).isEmpty(); }, 10000));
    desktop.stopKestil();
}

} // namespace
