#include "core/LocalAppModel.h"
#include "core/LocalPaths.h"
#include "prefs/ApplicationInfo.h"
#include "prefs/PreferenceStore.h"
#include "shell/MainWindow.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Kestil"));
    QApplication::setApplicationDisplayName(QStringLiteral("Kestil"));
    QApplication::setDesktopFileName(QStringLiteral("kestil"));

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

    kestil::MainWindow window(app);
    window.show();
    return QApplication::exec();
}
