#include "library/OrganizingRules.h"

namespace kestil {

QString cleanedTagText(const QString &typed)
{
    const QString trimmed = typed.trimmed();
    QString cleaned;
    cleaned.reserve(trimmed.size());
    for (qsizetype i = 0; i < trimmed.size(); ++i) {
        const QChar c = trimmed[i];
        // Letters outside the basic plane come as surrogate pairs.
        if (c.isHighSurrogate() && i + 1 < trimmed.size() && trimmed[i + 1].isLowSurrogate()) {
            const char32_t ucs4 = QChar::surrogateToUcs4(c, trimmed[i + 1]);
            if (QChar::isLetter(ucs4))
                cleaned.append(trimmed.mid(i, 2));
            ++i;
        } else if (c.isLetter() || c == QLatin1Char('-') ||
                   (c >= QLatin1Char('0') && c <= QLatin1Char('9'))) {
            cleaned.append(c);
        }
    }
    return cleaned;
}

QString trimmedFolderName(const QString &typed)
{
    return typed.trimmed();
}

QString folderDeletionMessage(const QString &name, qsizetype noteCount)
{
    return QStringLiteral("“") + name + QStringLiteral("” will be removed. ") + QString::number(noteCount) +
           QStringLiteral(" note") + (noteCount == 1 ? QString() : QStringLiteral("s")) +
           QStringLiteral(" in this folder will become Unfiled.");
}

} // namespace kestil
