#pragma once

#include <QDir>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// A data folder of its own for one test, with models linked in from the test
// models cache.
class ModelFolder {
public:
    ModelFolder() { QDir().mkpath(directory()); }

    QString directory() const { return root_.path() + QStringLiteral("/Models/language"); }

    static QString cached(const QString &name)
    {
        return QString::fromLocal8Bit(qgetenv("KESTIL_TEST_MODELS_DIR")) + QLatin1Char('/') + name;
    }

    static bool available(const QString &name) { return QFile::exists(cached(name)); }

    // Links a cached model into the folder; returns its path there.
    QString install(const QString &name, const QString &as = QString()) const
    {
        const QString target = directory() + QLatin1Char('/') + (as.isEmpty() ? name : as);
        QFile::link(cached(name), target);
        return target;
    }

private:
    QTemporaryDir root_;
};

#define KESTIL_REQUIRE_MODEL(name)                                                                           \
    do {                                                                                                     \
        if (!ModelFolder::available(QStringLiteral(name)))                                                   \
            GTEST_FAIL() << "test model " name " is missing: run scripts/test-models.sh";                    \
    } while (false)
