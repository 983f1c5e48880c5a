// Writes Kestil's application icon as PNG files for the hicolor theme:
//   kestil_icon_renderer <output folder> <size>...
// makes <output folder>/<size>x<size>/apps/app.kestil.Kestil.png for each size.
#include "shell/ApplicationIcon.h"
#include "shell/ApplicationIdentity.h"

#include <QDir>
#include <QGuiApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() < 3) {
        std::fputs("usage: kestil_icon_renderer <output folder> <size>...\n", stderr);
        return 2;
    }
    for (qsizetype i = 2; i < arguments.size(); ++i) {
        const int size = arguments[i].toInt();
        const QString folder = QStringLiteral("%1/%2x%2/apps").arg(arguments[1]).arg(size);
        if (size <= 0 || !QDir().mkpath(folder))
            return 1;
        if (!kestil::applicationIconImage(size).save(folder + QLatin1Char('/') + kestil::applicationId() +
                                                     QStringLiteral(".png")))
            return 1;
    }
    return 0;
}
