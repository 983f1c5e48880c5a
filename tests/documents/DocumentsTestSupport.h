#pragma once

#include "documents/RichText.h"
#include "support/FileBytes.h"
#include "support/QtPrinters.h"

#include <QDir>
#include <QFile>
#include <QString>

namespace kestil {

inline QString q(const char *text)
{
    return QString::fromUtf8(text);
}

// A folder's entries, hidden ones too, by name.
inline QStringList entries(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}

// Rich text written out with a tag around each formatted run, so that a test
// row states runs and characters in one string: "<b>Owner</b> <a u>x</a>".
inline QString describe(const RichText &text)
{
    QString out;
    for (const RichTextRun &run : text.runs) {
        const RichTextAttributes &a = run.attributes;
        QString open;
        QString close;
        const auto wrap = [&](bool on, const QString &tag, const QString &extra = {}) {
            if (on) {
                open += QLatin1Char('<') + tag + extra + QLatin1Char('>');
                close.prepend(QStringLiteral("</") + tag + QLatin1Char('>'));
            }
        };
        wrap(!a.link.isEmpty(), QStringLiteral("a"), QLatin1Char(' ') + a.link);
        wrap(a.strong, QStringLiteral("b"));
        wrap(a.emphasis, QStringLiteral("i"));
        wrap(a.strikethrough, QStringLiteral("s"));
        wrap(a.code, QStringLiteral("c"));
        out += open + text.text.mid(run.start, run.length) + close;
    }
    return out;
}

} // namespace kestil
