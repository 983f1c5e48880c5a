#pragma once

#include "base/Error.h"
#include "support/FileBytes.h"

#include <QDir>
#include <QFile>
#include <QString>
#include <QTemporaryDir>
#include <QUuid>

#include <gtest/gtest.h>

#include "support/QtPrinters.h"

#include <functional>

namespace kestil::test {

inline bool writeBytes(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

// The description of the Error that `action` throws, or "(no error)".
inline QString thrownText(const std::function<void()> &action)
{
    try {
        action();
    } catch (const std::exception &error) {
        return describe(error);
    }
    return QStringLiteral("(no error)");
}

} // namespace kestil::test
