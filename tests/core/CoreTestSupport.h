#pragma once

#include "core/LocalAppModel.h"
#include "core/SharedPersistenceController.h"
#include "core/SqliteStore.h"
#include "support/FileBytes.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <sqlite3.h>

// What every core test stands on: a data root in a temporary folder, the
// application model launched on it as the program launches it, and the files
// and rows of the real store read and written directly.
namespace kestil::test {

// A data root in a fresh temporary folder with a real store file in it.
struct TempRoot {
    QTemporaryDir dir;
    QString path() const { return dir.path(); }
    QString file(const QString &relative) const { return dir.path() + QLatin1Char('/') + relative; }
    std::unique_ptr<SharedPersistenceController> open() const
    {
        return std::make_unique<SharedPersistenceController>(path());
    }
};

inline QByteArray fileDigest(const QString &path)
{
    return QCryptographicHash::hash(fileBytes(path), QCryptographicHash::Sha256);
}

inline void writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(content);
}

inline void execSql(SharedPersistenceController &controller, const char *sql)
{
    char *error = nullptr;
    ASSERT_EQ(sqlite3_exec(controller.store()->handle(), sql, nullptr, nullptr, &error), SQLITE_OK)
        << (error ? error : "");
}

// A real SQLite failure on the next writes of a table: a trigger that aborts,
// as a full disk or a constraint would.
inline void failWrites(SharedPersistenceController &controller, const QString &table,
                       const QString &operation)
{
    execSql(controller, QStringLiteral("CREATE TRIGGER fail_%1_%2 BEFORE %2 ON %1 BEGIN SELECT RAISE(ABORT, "
                                       "'database or disk is full'); END;")
                            .arg(table, operation)
                            .toUtf8()
                            .constData());
}

inline void allowWrites(SharedPersistenceController &controller, const QString &table,
                        const QString &operation)
{
    execSql(controller, QStringLiteral("DROP TRIGGER fail_%1_%2").arg(table, operation).toUtf8().constData());
}

inline qint64 countRows(SharedPersistenceController &controller, const QString &table)
{
    sqlite3_stmt *st = nullptr;
    const QByteArray sql = QStringLiteral("SELECT count(*) FROM %1").arg(table).toUtf8();
    sqlite3_prepare_v2(controller.store()->handle(), sql.constData(), -1, &st, nullptr);
    const qint64 n = sqlite3_step(st) == SQLITE_ROW ? sqlite3_column_int64(st, 0) : -1;
    sqlite3_finalize(st);
    return n;
}

// The message of the LocalError that `action` throws; a failure when it throws none.
template <typename Action> QString errorOf(Action &&action)
{
    try {
        action();
    } catch (const LocalError &e) {
        return e.message();
    }
    ADD_FAILURE() << "no LocalError was thrown";
    return QStringLiteral("<nothing thrown>");
}

inline QString idText(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

// The application model on a data root as the program starts it: notes
// loaded, interrupted recordings repaired, the language model taken as there.
inline std::unique_ptr<LocalAppModel> launchApp(const QString &root)
{
    LaunchEnvironment environment;
    environment.root = root;
    environment.languageModelAvailability = [] { return LanguageModelAvailability::available; };
    return std::make_unique<LocalAppModel>(environment);
}

} // namespace kestil::test
