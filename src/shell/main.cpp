#include "core/LocalAppModel.h"
#include "core/LocalPaths.h"
#include "prefs/PreferenceStore.h"
#include "shell/MainWindow.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Kestil"));
    QApplication::setApplicationDisplayName(QStringLiteral("Kestil"));
    QApplication::setDesktopFileName(QStringLiteral("kestil"));

    kestil::LaunchEnvironment environment;
    environment.syncPreference =
        kestil::PreferenceStore::standard().object(QLatin1String(kestil::LocalPaths::syncPreferenceKey));
    // Opens the store, loads the notes and repairs interrupted recordings
    // before the first window exists.
    kestil::LocalAppModel app(environment);

    kestil::MainWindow window(app);
    window.show();
    return QApplication::exec();
}
