#pragma once

#include <QString>
#include <QVariant>

#include <ostream>

// Readable failure output for the Qt types the tests compare. gtest finds
// these by argument-dependent lookup, so they live beside the types.
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

inline void PrintTo(const QVariant &value, std::ostream *out)
{
    *out << (value.isValid() ? value.metaType().name() : "invalid") << '(' << value.toString().toStdString()
         << ')';
}
