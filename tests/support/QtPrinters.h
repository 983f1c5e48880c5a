#pragma once

#include <QSet>
#include <QString>
#include <QStringList>

#include <ostream>

// Readable values in GoogleTest's failure messages.
QT_BEGIN_NAMESPACE
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}
inline void PrintTo(const QStringList &list, std::ostream *out)
{
    *out << '[';
    for (qsizetype i = 0; i < list.size(); ++i)
        *out << (i ? ", " : "") << '"' << list.at(i).toStdString() << '"';
    *out << ']';
}
QT_END_NAMESPACE
