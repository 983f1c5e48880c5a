// Kestil as a user installs it: `cmake --install` into a folder and
// `cpack -G DEB`, each checked with the tools a distribution uses, then the
// program started from wherever it was unpacked (offscreen).
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

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
        return {-1, QString::fromUtf8(process.readAll()) + QStringLiteral("\n(timed out)")};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAll())};
}

const QString applicationId = QStringLiteral("app.kestil.Kestil");

bool hasPrivateLibraries()
{
    return !QStringLiteral(KESTIL_PRIVATE_LIBS).isEmpty();
}

// Without LD_LIBRARY_PATH, every library `binary` needs resolves, and each
// of `libraries` from inside the installed tree under `prefix`.
void expectLibrariesFromTheTree(const QString &binary, std::initializer_list<const char *> libraries,
                                const QString &prefix)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(QStringLiteral("LD_LIBRARY_PATH"));
    const ProcessOutcome ldd = run(QStringLiteral("ldd"), {binary}, 60000, env);
    EXPECT_FALSE(ldd.output.contains(QStringLiteral("not found"))) << ldd.output.toStdString();
    for (const char *library : libraries) {
        const QRegularExpression resolved(
            QStringLiteral("%1\\S* => (\\S+)").arg(QRegularExpression::escape(QLatin1String(library))));
        const QString where = resolved.match(ldd.output).captured(1);
        EXPECT_TRUE(QDir::cleanPath(where).startsWith(QDir::cleanPath(prefix)))
            << library << " comes from " << where.toStdString();
    }
}

// Starts an installed kestil offscreen with folders of its own and waits for
// the line it logs once its window is up and the launch checks are done.
// Returns what it wrote; empty `started` means it never got there.
ProcessOutcome startInstalled(const QString &binary, const QString &home)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(QStringLiteral("LD_LIBRARY_PATH"));
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("KESTIL_DATA_DIR"), home + QStringLiteral("/data"));
    env.insert(QStringLiteral("KESTIL_CONFIG_DIR"), home + QStringLiteral("/config"));
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
               QStringLiteral("unix:path=") + home + QStringLiteral("/none"));
    env.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"),
               QStringLiteral("unix:path=") + home + QStringLiteral("/none"));
    QProcess kestil;
    kestil.setProcessEnvironment(env);
    kestil.setProcessChannelMode(QProcess::MergedChannels);
    kestil.start(binary, {});
    QString output;
    int started = -1;
    for (int waited = 0; waited < 60000 && kestil.state() != QProcess::NotRunning; waited += 200) {
        kestil.waitForReadyRead(200);
        output += QString::fromUtf8(kestil.readAll());
        // The launch status line: "<speech status> | <summary status>".
        if (output.contains(QStringLiteral(" | "))) {
            started = 0;
            break;
        }
    }
    kestil.terminate();
    if (!kestil.waitForFinished(5000)) {
        kestil.kill();
        kestil.waitForFinished();
    }
    return {started, output + QString::fromUtf8(kestil.readAll())};
}

struct Validator {
    const char *name;
    QString program;
    QStringList arguments;
    QString file;
};

void PrintTo(const Validator &v, std::ostream *out)
{
    *out << v.name;
}

class Metadata : public ::testing::TestWithParam<Validator> {};

TEST_P(Metadata, PassesTheDistributionsValidator)
{
    const Validator &v = GetParam();
    ASSERT_FALSE(QStandardPaths::findExecutable(v.program).isEmpty())
        << v.program.toStdString() << " is needed (desktop-file-utils, appstream)";
    const ProcessOutcome result =
        run(v.program, QStringList(v.arguments) << QStringLiteral(KESTIL_SOURCE_DIR "/packaging/") + v.file);
    EXPECT_EQ(result.code, 0) << result.output.toStdString();
}

INSTANTIATE_TEST_SUITE_P(Packaging, Metadata,
                         ::testing::Values(Validator{"desktopEntry",
                                                     QStringLiteral("desktop-file-validate"),
                                                     {},
                                                     applicationId + QStringLiteral(".desktop")},
                                           Validator{"metainfo",
                                                     QStringLiteral("appstreamcli"),
                                                     {QStringLiteral("validate"), QStringLiteral("--no-net")},
                                                     applicationId + QStringLiteral(".metainfo.xml")}),
                         [](const auto &param) { return std::string(param.param.name); });

TEST(PackagingTest, TheInstalledTreeRunsFromWhereverItLies)
{
    QTemporaryDir root;
    const QString prefix = root.filePath(QStringLiteral("somewhere/usr"));
    const ProcessOutcome install =
        run(QStringLiteral(KESTIL_CMAKE), {QStringLiteral("--install"), QStringLiteral(KESTIL_BUILD_DIR),
                                           QStringLiteral("--prefix"), prefix});
    ASSERT_EQ(install.code, 0) << install.output.toStdString();
    for (const QString &path :
         {QStringLiteral("bin/kestil"),
          QStringLiteral("share/applications/") + applicationId + QStringLiteral(".desktop"),
          QStringLiteral("share/metainfo/") + applicationId + QStringLiteral(".metainfo.xml"),
          QStringLiteral("share/icons/hicolor/256x256/apps/") + applicationId + QStringLiteral(".png"),
          QStringLiteral("share/icons/hicolor/16x16/apps/") + applicationId + QStringLiteral(".png")})
        EXPECT_TRUE(QFile::exists(prefix + QLatin1Char('/') + path)) << path.toStdString();

    const QString binary = prefix + QStringLiteral("/bin/kestil");
    if (hasPrivateLibraries()) {
        const ProcessOutcome dynamic = run(QStringLiteral("readelf"), {QStringLiteral("-d"), binary});
        EXPECT_TRUE(dynamic.output.contains(QStringLiteral("$ORIGIN/../" KESTIL_PRIVATE_LIBS)))
            << dynamic.output.toStdString();
        EXPECT_FALSE(dynamic.output.contains(QStringLiteral(KESTIL_NATIVE_PREFIX_DIR)))
            << "the installed program must not point into the build machine's folders";
        // Moved away from the build's native prefix, the libraries still
        // resolve, into the installed tree.
        expectLibrariesFromTheTree(binary, {"libllama.so", "libwhisper.so", "libggml.so", "libggml-base.so"},
                                   prefix);
    }
    // So do sherpa-onnx and ONNX Runtime for the speaker diarisation helper.
    const QString helper = prefix + QStringLiteral("/libexec/kestil/kestil-diarisation-worker");
    ASSERT_TRUE(QFile::exists(helper));
    expectLibrariesFromTheTree(helper, {"libsherpa-onnx-c-api.so", "libonnxruntime.so"}, prefix);

    const ProcessOutcome started = startInstalled(binary, root.filePath(QStringLiteral("home")));
    EXPECT_EQ(started.code, 0) << started.output.toStdString();
}

TEST(PackagingTest, TheDebianPackageNamesWhatItNeedsAndItsProgramStarts)
{
    ASSERT_FALSE(QStandardPaths::findExecutable(QStringLiteral("dpkg-shlibdeps")).isEmpty())
        << "dpkg-dev is needed";
    QTemporaryDir out;
    const ProcessOutcome pack =
        run(QStringLiteral(KESTIL_CPACK),
            {QStringLiteral("-G"), QStringLiteral("DEB"), QStringLiteral("--config"),
             QStringLiteral(KESTIL_BUILD_DIR "/CPackConfig.cmake"), QStringLiteral("-B"), out.path()},
            600000);
    ASSERT_EQ(pack.code, 0) << pack.output.toStdString();
    const QStringList debs = QDir(out.path()).entryList({QStringLiteral("*.deb")}, QDir::Files);
    ASSERT_EQ(debs.size(), 1) << pack.output.toStdString();
    const QString deb = out.filePath(debs.constFirst());

    const ProcessOutcome contents = run(QStringLiteral("dpkg-deb"), {QStringLiteral("-c"), deb});
    for (const QString &path :
         {QStringLiteral("./usr/bin/kestil"),
          QStringLiteral("./usr/share/applications/") + applicationId + QStringLiteral(".desktop"),
          QStringLiteral("./usr/share/metainfo/") + applicationId + QStringLiteral(".metainfo.xml"),
          QStringLiteral("./usr/share/icons/hicolor/128x128/apps/") + applicationId + QStringLiteral(".png"),
          QStringLiteral("./usr/libexec/kestil/kestil-diarisation-worker")})
        EXPECT_TRUE(contents.output.contains(path)) << path.toStdString();
    if (hasPrivateLibraries()) {
        EXPECT_TRUE(contents.output.contains(QStringLiteral("./usr/" KESTIL_PRIVATE_LIBS "/libllama.so")));
    }

    // Every dependency can be met on this Debian 12: at least one package of
    // each alternative is known to dpkg here.
    const ProcessOutcome depends =
        run(QStringLiteral("dpkg-deb"), {QStringLiteral("--field"), deb, QStringLiteral("Depends")});
    ASSERT_EQ(depends.code, 0);
    for (const QString &needed : {QStringLiteral("libqt6widgets6"), QStringLiteral("libpulse0"),
                                  QStringLiteral("pocketsphinx-en-us"), QStringLiteral("qt6-qpa-plugins")})
        EXPECT_TRUE(depends.output.contains(needed)) << depends.output.toStdString();
    for (const QString &group : depends.output.trimmed().split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        bool met = false;
        for (const QString &alternative : group.split(QLatin1Char('|'))) {
            const QString name = alternative.trimmed().section(QLatin1Char(' '), 0, 0);
            met = met || run(QStringLiteral("dpkg-query"), {QStringLiteral("-W"), name}).code == 0;
        }
        EXPECT_TRUE(met) << "nothing here provides " << group.trimmed().toStdString();
    }

    const QString unpacked = out.filePath(QStringLiteral("root"));
    ASSERT_EQ(run(QStringLiteral("dpkg-deb"), {QStringLiteral("-x"), deb, unpacked}).code, 0);
    const ProcessOutcome started =
        startInstalled(unpacked + QStringLiteral("/usr/bin/kestil"), out.filePath(QStringLiteral("home")));
    EXPECT_EQ(started.code, 0) << started.output.toStdString();
}

} // namespace
