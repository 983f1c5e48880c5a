// Kestil as a user installs it: validated desktop files, and a Debian package
// that names what it needs and runs from wherever it is unpacked.
#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct ProcessOutcome {
    int code = -1;
    QString output;
};

ProcessOutcome run(const QString &program, const QStringList &arguments, int timeoutMs = 300000,
                   const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        return {-1, QString::fromUtf8(process.readAll()) + u"\n(timed out)"_s};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAll())};
}

const QString applicationId = u"app.kestil.Kestil"_s;

// Without LD_LIBRARY_PATH, every library `binary` needs resolves, and each
// of `libraries` from inside the tree under `prefix`.
void expectLibrariesFromTheTree(const QString &binary, std::initializer_list<const char *> libraries,
                                const QString &prefix)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(u"LD_LIBRARY_PATH"_s);
    const ProcessOutcome ldd = run(u"ldd"_s, {binary}, 60000, env);
    EXPECT_FALSE(ldd.output.contains(u"not found"_s)) << ldd.output.toStdString();
    for (const char *library : libraries) {
        const QRegularExpression resolved(
            u"%1\\S* => (\\S+)"_s.arg(QRegularExpression::escape(QLatin1String(library))));
        const QString where = resolved.match(ldd.output).captured(1);
        EXPECT_TRUE(QDir::cleanPath(where).startsWith(QDir::cleanPath(prefix)))
            << library << " comes from " << where.toStdString();
    }
}

// 0 once kestil, offscreen, logs "<speech status> | <summary status>".
ProcessOutcome startInstalled(const QString &binary, const QString &home)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(u"LD_LIBRARY_PATH"_s);
    env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    env.insert(u"KESTIL_DATA_DIR"_s, home + u"/data"_s);
    env.insert(u"KESTIL_CONFIG_DIR"_s, home + u"/config"_s);
    for (const char *bus : {"DBUS_SESSION_BUS_ADDRESS", "DBUS_SYSTEM_BUS_ADDRESS"})
        env.insert(QLatin1String(bus), u"unix:path="_s + home + u"/none"_s);
    QProcess kestil;
    kestil.setProcessEnvironment(env);
    kestil.setProcessChannelMode(QProcess::MergedChannels);
    kestil.start(binary, {});
    QString output;
    int started = -1;
    for (int waited = 0; waited < 60000 && started != 0 && kestil.state() != QProcess::NotRunning;
         waited += 200) {
        kestil.waitForReadyRead(200);
        output += QString::fromUtf8(kestil.readAll());
        started = output.contains(u" | "_s) ? 0 : -1;
    }
    kestil.terminate();
    if (!kestil.waitForFinished(5000)) {
        kestil.kill();
        kestil.waitForFinished();
    }
    return {started, output + QString::fromUtf8(kestil.readAll())};
}

TEST(PackagingTest, TheDesktopEntryAndTheMetainfoPassTheDistributionsValidators)
{
    const QString folder = QStringLiteral(KESTIL_SOURCE_DIR "/packaging/");
    for (const auto &[program, arguments] :
         {std::pair{u"desktop-file-validate"_s, QStringList{folder + applicationId + ".desktop"}},
          {u"appstreamcli"_s,
           QStringList{u"validate"_s, u"--no-net"_s, folder + applicationId + ".metainfo.xml"}}}) {
        ASSERT_FALSE(QStandardPaths::findExecutable(program).isEmpty())
            << program.toStdString() << " is needed (desktop-file-utils, appstream)";
        const ProcessOutcome result = run(program, arguments);
        EXPECT_EQ(result.code, 0) << result.output.toStdString();
    }
}

TEST(PackagingTest, TheDebianPackageNamesWhatItNeedsAndRunsFromWhereverItIsUnpacked)
{
    ASSERT_FALSE(QStandardPaths::findExecutable(u"dpkg-shlibdeps"_s).isEmpty()) << "dpkg-dev is needed";
    QTemporaryDir out;
    const ProcessOutcome pack =
        run(QStringLiteral(KESTIL_CPACK),
            {u"-G"_s, u"DEB"_s, u"--config"_s, QStringLiteral(KESTIL_BUILD_DIR "/CPackConfig.cmake"), u"-B"_s,
             out.path()},
            600000);
    ASSERT_EQ(pack.code, 0) << pack.output.toStdString();
    const QStringList debs = QDir(out.path()).entryList({u"*.deb"_s}, QDir::Files);
    ASSERT_EQ(debs.size(), 1) << pack.output.toStdString();
    const QString deb = out.filePath(debs.constFirst());

    const bool privateLibraries = !QStringLiteral(KESTIL_PRIVATE_LIBS).isEmpty();
    const ProcessOutcome contents = run(u"dpkg-deb"_s, {u"-c"_s, deb});
    QStringList expected{u"./usr/bin/kestil"_s,
                         u"./usr/share/applications/"_s + applicationId + u".desktop"_s,
                         u"./usr/share/metainfo/"_s + applicationId + u".metainfo.xml"_s,
                         u"./usr/libexec/kestil/kestil-diarisation-worker"_s};
    for (const char *size : {"16x16", "128x128", "256x256"})
        expected << u"./usr/share/icons/hicolor/%1/apps/"_s.arg(QLatin1String(size)) + applicationId +
                        u".png"_s;
    if (privateLibraries)
        expected << QStringLiteral("./usr/" KESTIL_PRIVATE_LIBS "/libllama.so");
    for (const QString &path : expected)
        EXPECT_TRUE(contents.output.contains(path)) << path.toStdString();

    // Every dependency can be met on this Debian 12: at least one package of
    // each alternative is known to dpkg here.
    const ProcessOutcome depends = run(u"dpkg-deb"_s, {u"--field"_s, deb, u"Depends"_s});
    ASSERT_EQ(depends.code, 0);
    for (const QString &needed :
         {u"libqt6widgets6"_s, u"libpulse0"_s, u"pocketsphinx-en-us"_s, u"qt6-qpa-plugins"_s})
        EXPECT_TRUE(depends.output.contains(needed)) << depends.output.toStdString();
    for (const QString &group : depends.output.trimmed().split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        bool met = false;
        for (const QString &alternative : group.split(QLatin1Char('|'))) {
            const QString name = alternative.trimmed().section(QLatin1Char(' '), 0, 0);
            met = met || run(u"dpkg-query"_s, {u"-W"_s, name}).code == 0;
        }
        EXPECT_TRUE(met) << "nothing here provides " << group.trimmed().toStdString();
    }

    // Unpacked away from /usr and from the build machine's native prefix.
    const QString prefix = out.filePath(u"somewhere/usr"_s);
    ASSERT_EQ(run(u"dpkg-deb"_s, {u"-x"_s, deb, out.filePath(u"somewhere"_s)}).code, 0);
    const QString binary = prefix + u"/bin/kestil"_s;
    if (privateLibraries) {
        const ProcessOutcome dynamic = run(u"readelf"_s, {u"-d"_s, binary});
        EXPECT_TRUE(dynamic.output.contains(QStringLiteral("$ORIGIN/../" KESTIL_PRIVATE_LIBS)))
            << dynamic.output.toStdString();
        EXPECT_FALSE(dynamic.output.contains(QStringLiteral(KESTIL_NATIVE_PREFIX_DIR)))
            << "the installed program must not point into the build machine's folders";
        expectLibrariesFromTheTree(binary, {"libllama.so", "libwhisper.so", "libggml.so", "libggml-base.so"},
                                   prefix);
    }
    // So do sherpa-onnx and ONNX Runtime for the speaker diarisation helper.
    expectLibrariesFromTheTree(prefix + u"/libexec/kestil/kestil-diarisation-worker"_s,
                               {"libsherpa-onnx-c-api.so", "libonnxruntime.so"}, prefix);
    const ProcessOutcome started = startInstalled(binary, out.filePath(u"home"_s));
    EXPECT_EQ(started.code, 0) << started.output.toStdString();
}

} // namespace
