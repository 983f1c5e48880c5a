#include "SpeechPaths.h"

#include <QDir>
#include <QStandardPaths>

namespace kestil {

QString speechDataRoot()
{
    const QString overridden = qEnvironmentVariable("KESTIL_DATA_DIR");
    if (!overridden.isEmpty())
        return QDir::cleanPath(overridden);
    QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (base.isEmpty())
        base = QDir::homePath() + QStringLiteral("/.local/share");
    return QDir::cleanPath(base + QStringLiteral("/Kestil"));
}

QString speechModelsDirectory()
{
    return speechDataRoot() + QStringLiteral("/Models/speech");
}

} // namespace kestil
