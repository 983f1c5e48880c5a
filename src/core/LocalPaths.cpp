#include "core/LocalPaths.h"

#include "base/Error.h"

#include <QDir>
#include <QStandardPaths>

namespace kestil::LocalPaths {

QString rootDirectory()
{
    QString root = qEnvironmentVariable("KESTIL_DATA_DIR");
    if (root.isEmpty()) {
        const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
        if (base.isEmpty())
            throw SystemError(QStringLiteral("This computer has no folder for application data."));
        root = base + QLatin1Char('/') + QLatin1String(directoryName);
    }
    root = QDir::cleanPath(QDir(root).absolutePath());
    if (!QDir().mkpath(root))
        throw SystemError(QStringLiteral("The folder %1 could not be created.").arg(root));
    return root;
}

std::optional<QString> validatedContainerIdentifier(const QVariantMap &info)
{
    const QVariant value = info.value(QLatin1String(containerInfoKey));
    if (value.typeId() != QMetaType::QString)
        return std::nullopt;
    const QString identifier = value.toString();
    if (!identifier.startsWith(QLatin1String("iCloud.")) || identifier.size() < 8)
        return std::nullopt;
    const QString allowed = QString::fromLatin1(allowedContainerCharacters);
    for (const QChar c : identifier) {
        if (!allowed.contains(c))
            return std::nullopt;
    }
    return identifier;
}

std::optional<QString> resolveContainerIdentifier(const QVariantMap &info, const QVariant &syncPreference)
{
    if (syncPreference.typeId() == QMetaType::Bool && !syncPreference.toBool())
        return std::nullopt;
    return validatedContainerIdentifier(info);
}

} // namespace kestil::LocalPaths
