#include "capture/ProcessTapRecorder.h"
#include "core/LocalAppModel.h"
#include "core/LocalPaths.h"
#include "prefs/ApplicationInfo.h"
#include "prefs/PreferenceStore.h"
#include "shell/KestilAppDelegate.h"
#include "shell/MainWindow.h"

#include <QApplication>
#include <QDebug>

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Kestil"));
    QApplication::setApplicationDisplayName(QStringLiteral("Kestil"));
    QApplication::setDesktopFileName(QStringLiteral("kestil"));
    // The window's close goes through quitting (a recording is stopped and
    // saved first); the floating indicator must not keep the program alive.
    QApplication::setQuitOnLastWindowClosed(false);

    auto &preferences = kestil::PreferenceStore::standard();
    kestil::LaunchEnvironment environment;
    environment.applicationInfo = kestil::ApplicationInfo::dictionary();
    // Read once, at launch: a change takes effect at the next start.
    environment.syncPreference = preferences.object(QLatin1String(kestil::LocalPaths::syncPreferenceKey));
    // Opens the store, loads the notes and repairs interrupted recordings
    // before the first window exists.
    kestil::LocalAppModel app(environment);
    if (app.storeReady() && app.message().isEmpty() && !preferences.loadWarning().isEmpty())
        app.setMessage(preferences.loadWarning());

    // The one recording session of the process: the sound server's default
    // source (the PulseAudio client honours PULSE_SERVER and
    // PULSE_RUNTIME_PATH) and on-device speech.
    // The launch message (a failure to open the store, recovered recordings)
    // also goes to the log: it holds no note text.
    if (!app.message().isEmpty())
        qInfo().noquote() << app.message();

    kestil::ProcessTapRecorder recorder(kestil::ProcessTapRecorder::Environment::system());
    kestil::KestilAppDelegate delegate(app, recorder, preferences);
    kestil::MainWindow window(app, delegate);
    delegate.applicationDidFinishLaunching(&window);
    window.show();
    return QApplication::exec();
}
