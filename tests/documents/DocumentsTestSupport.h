#pragma once

#include "documents/RichText.h"

#include <QString>

#include <ostream>

// Readable QStrings in GoogleTest's failure messages.
QT_BEGIN_NAMESPACE
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}
QT_END_NAMESPACE

namespace kestil {

// A table row's text as the suffix of a test's name: letters, digits and
// inner blanks as they are, any other character as "_" and its hexadecimal code,
// so that any runner can carry the name and rows keep names of their own.
inline void printRowName(const char *text, std::ostream *out)
{
    const QString row = QString::fromUtf8(text).left(48);
    QString name;
    for (qsizetype i = 0; i < row.size(); ++i) {
        const QChar c = row.at(i);
        const bool inner = c == QLatin1Char(' ') && i > 0 && i + 1 < row.size();
        name +=
            c.isLetterOrNumber() || inner ? QString(c) : QLatin1Char('_') + QString::number(c.unicode(), 16);
    }
    *out << name.toStdString();
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
        const auto wrap = [&](bool on, const QString &tag, const QString &head) {
            if (!on)
                return;
            open += QLatin1Char('<') + head + QLatin1Char('>');
            close.prepend(QStringLiteral("</") + tag + QLatin1Char('>'));
        };
        wrap(!a.link.isEmpty(), QStringLiteral("a"), QStringLiteral("a ") + a.link);
        wrap(a.strong, QStringLiteral("b"), QStringLiteral("b"));
        wrap(a.emphasis, QStringLiteral("i"), QStringLiteral("i"));
        wrap(a.strikethrough, QStringLiteral("s"), QStringLiteral("s"));
        wrap(a.code, QStringLiteral("c"), QStringLiteral("c"));
        out += open + text.text.mid(run.start, run.length) + close;
    }
    return out;
}

} // namespace kestil
