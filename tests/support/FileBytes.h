#pragma once

#include <QFile>

namespace kestil::test {

// The whole content of a file; empty when it cannot be read.
inline QByteArray fileBytes(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace kestil::test
