#include "core/SqliteStore.h"

#include "core/TranscriptSearchIndex.h"

#include <QFile>
#include <QFileInfo>
#include <QTimeZone>
#include <QUuid>

#include <sqlite3.h>

#include <cmath>

namespace kestil {

namespace {

// Each step brings the file from version N to N + 1. Steps only ever add:
// a file written by any earlier Kestil opens in every later one.
const QList<QStringList> &migrations()
{
    static const QList<QStringList> steps{
        // 1: the notes model.
        {
            QStringLiteral("CREATE TABLE kestil_metadata (key TEXT PRIMARY KEY, value TEXT)"),
            QStringLiteral("CREATE TABLE folder (pk INTEGER PRIMARY KEY, createdAt REAL, id TEXT, name TEXT, "
                           "sortOrder INTEGER)"),
            QStringLiteral(
                "CREATE TABLE tag (pk INTEGER PRIMARY KEY, canonicalName TEXT, createdAt REAL, id TEXT, "
                "name TEXT)"),
            QStringLiteral(
                "CREATE TABLE note (pk INTEGER PRIMARY KEY, cleantranscription TEXT, id TEXT, notes TEXT, "
                "noteType TEXT, sourceDescription TEXT, sourceURL TEXT, summary TEXT, summaryType TEXT, "
                "timestamp REAL, title TEXT, transcription TEXT, transcriptUtterancesJSON TEXT, "
                "folder INTEGER REFERENCES folder(pk) ON DELETE SET NULL)"),
            // Deleting a note or a tag drops only the link between them.
            QStringLiteral(
                "CREATE TABLE note_tags (note INTEGER NOT NULL REFERENCES note(pk) ON DELETE CASCADE, "
                "tag INTEGER NOT NULL REFERENCES tag(pk) ON DELETE CASCADE, PRIMARY KEY (note, tag))"),
            QStringLiteral("CREATE TABLE note_chat_message (pk INTEGER PRIMARY KEY, content TEXT, id TEXT, "
                           "noteId TEXT, role TEXT, timestamp REAL)"),
            QStringLiteral("CREATE TABLE pending_transcription (pk INTEGER PRIMARY KEY, attempts INTEGER, "
                           "createdAt REAL, id TEXT, language TEXT, lastAttemptAt REAL, lastError TEXT, "
                           "recordingId TEXT, recordingURL TEXT)"),
            QStringLiteral(
                "CREATE TABLE recording_marker (pk INTEGER PRIMARY KEY, id TEXT, label TEXT, noteId TEXT, "
                "timestamp REAL)"),
        },
        // 2: look-ups by identity, chat by note, tags by canonical name.
        {
            QStringLiteral("CREATE INDEX note_id ON note(id)"),
            QStringLiteral("CREATE INDEX note_timestamp ON note(timestamp)"),
            QStringLiteral("CREATE INDEX note_tags_tag ON note_tags(tag)"),
            QStringLiteral("CREATE INDEX note_chat_message_note ON note_chat_message(noteId, timestamp)"),
            QStringLiteral("CREATE INDEX tag_canonical_name ON tag(canonicalName)"),
        },
        // 3: the index of saved transcripts, for searching large libraries.
        TranscriptSearchIndex::schema(),
        // 4: the names a note gives the speakers its transcript tells apart.
        {
            QStringLiteral("ALTER TABLE note ADD COLUMN speakerNamesJSON TEXT"),
        },
    };
    return steps;
}

QString sqliteText(sqlite3 *db)
{
    QString text = QString::fromUtf8(db ? sqlite3_errmsg(db) : "out of memory");
    if (!text.isEmpty())
        text[0] = text[0].toUpper();
    return text;
}

[[noreturn]] void throwWriteError(sqlite3 *db)
{
    throw SystemError(QStringLiteral("The notes database could not be written (%1).").arg(sqliteText(db)));
}

[[noreturn]] void throwReadError(sqlite3 *db)
{
    throw SystemError(QStringLiteral("The notes database could not be read (%1).").arg(sqliteText(db)));
}

class Statement {
public:
    Statement(sqlite3 *db, const QString &sql) : db_(db)
    {
        const QByteArray utf8 = sql.toUtf8();
        if (sqlite3_prepare_v2(db, utf8.constData(), int(utf8.size()), &stmt_, nullptr) != SQLITE_OK)
            stmt_ = nullptr;
    }
    ~Statement() { sqlite3_finalize(stmt_); }
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    bool ok() const { return stmt_ != nullptr; }
    sqlite3_stmt *get() const { return stmt_; }

    void bind(int index, const QVariant &value, AttributeType type)
    {
        if (!value.isValid() || value.isNull()) {
            sqlite3_bind_null(stmt_, index);
            return;
        }
        switch (type) {
        case AttributeType::String: {
            const QByteArray utf8 = value.toString().toUtf8();
            sqlite3_bind_text(stmt_, index, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
            break;
        }
        case AttributeType::Uuid: {
            const QByteArray text = value.toUuid().toString(QUuid::WithoutBraces).toUpper().toUtf8();
            sqlite3_bind_text(stmt_, index, text.constData(), int(text.size()), SQLITE_TRANSIENT);
            break;
        }
        case AttributeType::Date:
            sqlite3_bind_double(stmt_, index, double(value.toDateTime().toMSecsSinceEpoch()) / 1000.0);
            break;
        case AttributeType::Integer16:
        case AttributeType::Integer32:
            sqlite3_bind_int64(stmt_, index, value.toLongLong());
            break;
        case AttributeType::Double:
            sqlite3_bind_double(stmt_, index, value.toDouble());
            break;
        }
    }

    void bindKey(int index, qint64 key) { sqlite3_bind_int64(stmt_, index, key); }

private:
    sqlite3 *db_;
    sqlite3_stmt *stmt_ = nullptr;
};

QVariant columnValue(sqlite3_stmt *stmt, int column, AttributeType type)
{
    if (sqlite3_column_type(stmt, column) == SQLITE_NULL)
        return {};
    switch (type) {
    case AttributeType::String:
        return QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(stmt, column)),
                                 sqlite3_column_bytes(stmt, column));
    case AttributeType::Uuid: {
        const QUuid uuid(
            QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(stmt, column))));
        return uuid.isNull() ? QVariant() : QVariant(uuid);
    }
    case AttributeType::Date:
        return QDateTime::fromMSecsSinceEpoch(
            qint64(std::llround(sqlite3_column_double(stmt, column) * 1000.0)), Qt::UTC);
    case AttributeType::Integer16:
    case AttributeType::Integer32:
        return QVariant(int(sqlite3_column_int64(stmt, column)));
    case AttributeType::Double:
        return sqlite3_column_double(stmt, column);
    }
    return {};
}

int readUserVersion(sqlite3 *db)
{
    Statement st(db, QStringLiteral("PRAGMA user_version"));
    if (!st.ok() || sqlite3_step(st.get()) != SQLITE_ROW)
        throw StoreLoadError(sqliteText(db));
    return sqlite3_column_int(st.get(), 0);
}

// Reads the version of an existing file without writing a byte to it.
int inspectExistingFile(const QString &path)
{
    const QFileInfo info(path);
    if (!info.isFile())
        throw StoreLoadError(QStringLiteral("The notes file is not a regular file"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw StoreLoadError(file.errorString());
    const QByteArray header = file.read(16);
    file.close();
    if (header.isEmpty())
        return 0; // an empty file is a new store
    if (header != QByteArray("SQLite format 3\0", 16))
        throw StoreLoadError(QStringLiteral("The notes file is not a database"));

    sqlite3 *db = nullptr;
    const QByteArray p = path.toUtf8();
    if (sqlite3_open_v2(p.constData(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        const QString text = sqliteText(db);
        sqlite3_close(db);
        throw StoreLoadError(text);
    }
    try {
        const int version = readUserVersion(db);
        // Touch the schema so that a damaged file fails here, before anything writes to it.
        Statement st(db, QStringLiteral("SELECT count(*) FROM sqlite_master"));
        if (!st.ok() || sqlite3_step(st.get()) != SQLITE_ROW)
            throw StoreLoadError(sqliteText(db));
        sqlite3_close(db);
        return version;
    } catch (...) {
        sqlite3_close(db);
        throw;
    }
}

sqlite3 *openConnection(const QString &path, int flags)
{
    sqlite3 *db = nullptr;
    const QByteArray p = path.toUtf8();
    if (sqlite3_open_v2(p.constData(), &db, flags, nullptr) != SQLITE_OK) {
        const QString text = sqliteText(db);
        sqlite3_close(db);
        throw StoreLoadError(text);
    }
    sqlite3_extended_result_codes(db, 1);
    sqlite3_busy_timeout(db, 2000);
    return db;
}

const QString &modelRefusal()
{
    static const QString text =
        QStringLiteral("The bundled notes model could not be loaded. No data was changed.");
    return text;
}

} // namespace

int SqliteStore::latestSchemaVersion()
{
    return int(migrations().size());
}

SqliteStore::SqliteStore(sqlite3 *db)
    : db_(db), transcriptSearch_(std::make_unique<TranscriptSearchIndex>(db))
{
}

SqliteStore::~SqliteStore()
{
    transcriptSearch_.reset();
    sqlite3_close(db_);
}

std::unique_ptr<SqliteStore> SqliteStore::open(const QString &path)
{
    if (QFileInfo::exists(path)) {
        if (inspectExistingFile(path) > latestSchemaVersion())
            throw LocalError(modelRefusal());
    }
    std::unique_ptr<SqliteStore> store(
        new SqliteStore(openConnection(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)));
    try {
        // Full sync: a note the user saw saved survives a power cut.
        store->exec(QStringLiteral("PRAGMA journal_mode=WAL"));
        store->exec(QStringLiteral("PRAGMA synchronous=FULL"));
        store->exec(QStringLiteral("PRAGMA foreign_keys=ON"));
        store->migrate(latestSchemaVersion());
        store->loadStoreId();
        store->transcriptSearch_->open(SearchFold());
    } catch (const StoreLoadError &) {
        throw;
    } catch (const Error &e) {
        throw StoreLoadError(e.localizedDescription());
    }
    return store;
}

std::unique_ptr<SqliteStore> SqliteStore::openInMemory()
{
    std::unique_ptr<SqliteStore> store(new SqliteStore(
        openConnection(QStringLiteral(":memory:"), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)));
    store->exec(QStringLiteral("PRAGMA foreign_keys=ON"));
    store->migrate(latestSchemaVersion());
    store->loadStoreId();
    store->transcriptSearch_->open(SearchFold());
    return store;
}

std::unique_ptr<SqliteStore> SqliteStore::openAtVersionForTesting(const QString &path, int version)
{
    std::unique_ptr<SqliteStore> store(
        new SqliteStore(openConnection(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)));
    store->exec(QStringLiteral("PRAGMA foreign_keys=ON"));
    store->migrate(version);
    return store;
}

int SqliteStore::schemaVersion() const
{
    return readUserVersion(db_);
}

void SqliteStore::exec(const QString &sql) const
{
    char *error = nullptr;
    if (sqlite3_exec(db_, sql.toUtf8().constData(), nullptr, nullptr, &error) != SQLITE_OK) {
        QString text = QString::fromUtf8(error ? error : "unknown error");
        sqlite3_free(error);
        if (!text.isEmpty())
            text[0] = text[0].toUpper();
        throw SystemError(text);
    }
}

void SqliteStore::migrate(int targetVersion)
{
    int version = readUserVersion(db_);
    const auto &steps = migrations();
    while (version < targetVersion) {
        exec(QStringLiteral("BEGIN IMMEDIATE"));
        try {
            for (const auto &sql : steps[version])
                exec(sql);
            exec(QStringLiteral("PRAGMA user_version=%1").arg(version + 1));
            exec(QStringLiteral("COMMIT"));
        } catch (...) {
            sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
            throw;
        }
        ++version;
    }
}

void SqliteStore::loadStoreId()
{
    {
        Statement st(db_, QStringLiteral("SELECT value FROM kestil_metadata WHERE key = 'storeId'"));
        if (!st.ok())
            throwReadError(db_);
        if (sqlite3_step(st.get()) == SQLITE_ROW) {
            storeId_ = QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(st.get(), 0)));
            return;
        }
    }
    storeId_ = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    exec(QStringLiteral("INSERT INTO kestil_metadata (key, value) VALUES ('storeId', '%1')").arg(storeId_));
}

StoredRow SqliteStore::readRow(const EntityDescription &entity, void *statement, bool skipLinks) const
{
    auto *stmt = static_cast<sqlite3_stmt *>(statement);
    StoredRow row;
    row.primaryKey = sqlite3_column_int64(stmt, 0);
    int column = 1;
    for (const auto &a : entity.attributes) {
        if (a.deferred) {
            row.unloaded.insert(a.name);
            continue;
        }
        QVariant v = columnValue(stmt, column++, a.type);
        if (v.isValid())
            row.values.insert(a.name, v);
    }
    for (const auto &r : entity.relationships) {
        if (entity.name != QLatin1String("Note"))
            continue; // only notes hold links in the file
        if (!r.toMany) {
            if (sqlite3_column_type(stmt, column) != SQLITE_NULL)
                row.toOne.insert(r.name, sqlite3_column_int64(stmt, column));
            ++column;
        }
    }
    if (entity.name == QLatin1String("Note") && !skipLinks) {
        Statement links(db_, QStringLiteral("SELECT tag FROM note_tags WHERE note = ?1 ORDER BY tag"));
        if (!links.ok())
            throwReadError(db_);
        links.bindKey(1, row.primaryKey);
        QList<qint64> tags;
        int rc;
        while ((rc = sqlite3_step(links.get())) == SQLITE_ROW)
            tags.append(sqlite3_column_int64(links.get(), 0));
        if (rc != SQLITE_DONE)
            throwReadError(db_);
        row.toMany.insert(QStringLiteral("tags"), tags);
    }
    return row;
}

namespace {
QString selectColumns(const EntityDescription &entity)
{
    QStringList columns{QStringLiteral("pk")};
    for (const auto &a : entity.attributes) {
        if (!a.deferred)
            columns << QLatin1Char('"') + a.name + QLatin1Char('"');
    }
    if (entity.name == QLatin1String("Note"))
        columns << QStringLiteral("folder");
    return columns.join(QStringLiteral(", "));
}
// Adds the condition of `where` (when there is one) and the key order to a
// SELECT; returns the attribute whose value binds to ?1.
std::optional<AttributeDescription> appendWhere(QString &sql, const EntityDescription &entity,
                                                const std::optional<AttributeEquals> &where)
{
    std::optional<AttributeDescription> attribute;
    if (where) {
        attribute = entity.attribute(where->key);
        if (!attribute)
            throw SystemError(QStringLiteral("The notes database has no field named %1.").arg(where->key));
        sql += QStringLiteral(" WHERE \"%1\" = ?1").arg(where->key);
    }
    sql += QStringLiteral(" ORDER BY pk");
    return attribute;
}
} // namespace

QList<qint64> SqliteStore::selectPrimaryKeys(const EntityDescription &entity,
                                             const std::optional<AttributeEquals> &where, int limit) const
{
    QString sql = QStringLiteral("SELECT pk FROM %1").arg(entity.table);
    const std::optional<AttributeDescription> attribute = appendWhere(sql, entity, where);
    if (limit > 0)
        sql += QStringLiteral(" LIMIT %1").arg(limit);
    Statement st(db_, sql);
    if (!st.ok())
        throwReadError(db_);
    if (where)
        st.bind(1, where->value, attribute->type);
    QList<qint64> keys;
    int rc;
    while ((rc = sqlite3_step(st.get())) == SQLITE_ROW)
        keys.append(sqlite3_column_int64(st.get(), 0));
    if (rc != SQLITE_DONE)
        throwReadError(db_);
    return keys;
}

std::optional<StoredRow> SqliteStore::selectByPrimaryKey(const EntityDescription &entity,
                                                         qint64 primaryKey) const
{
    Statement st(db_,
                 QStringLiteral("SELECT %1 FROM %2 WHERE pk = ?1").arg(selectColumns(entity), entity.table));
    if (!st.ok())
        throwReadError(db_);
    st.bindKey(1, primaryKey);
    const int rc = sqlite3_step(st.get());
    if (rc == SQLITE_ROW)
        return readRow(entity, st.get());
    if (rc != SQLITE_DONE)
        throwReadError(db_);
    return std::nullopt;
}

QList<StoredRow> SqliteStore::selectRows(const EntityDescription &entity,
                                         const std::optional<AttributeEquals> &where) const
{
    QString sql = QStringLiteral("SELECT %1 FROM %2").arg(selectColumns(entity), entity.table);
    const std::optional<AttributeDescription> attribute = appendWhere(sql, entity, where);
    Statement st(db_, sql);
    if (!st.ok())
        throwReadError(db_);
    if (where)
        st.bind(1, where->value, attribute->type);
    QList<StoredRow> rows;
    int rc;
    while ((rc = sqlite3_step(st.get())) == SQLITE_ROW)
        rows.append(readRow(entity, st.get(), true));
    if (rc != SQLITE_DONE)
        throwReadError(db_);
    if (entity.name != QLatin1String("Note"))
        return rows;

    // The tags of all notes in one pass.
    QHash<qint64, QList<qint64>> tags;
    Statement links(db_, QStringLiteral("SELECT note, tag FROM note_tags ORDER BY note, tag"));
    if (!links.ok())
        throwReadError(db_);
    while ((rc = sqlite3_step(links.get())) == SQLITE_ROW)
        tags[sqlite3_column_int64(links.get(), 0)].append(sqlite3_column_int64(links.get(), 1));
    if (rc != SQLITE_DONE)
        throwReadError(db_);
    for (StoredRow &row : rows)
        row.toMany.insert(QStringLiteral("tags"), tags.value(row.primaryKey));
    return rows;
}

QVariant SqliteStore::selectAttribute(const EntityDescription &entity, qint64 primaryKey,
                                      const QString &key) const
{
    const std::optional<AttributeDescription> attribute = entity.attribute(key);
    if (!attribute)
        throw SystemError(QStringLiteral("The notes database has no field named %1.").arg(key));
    Statement st(db_, QStringLiteral("SELECT \"%1\" FROM %2 WHERE pk = ?1").arg(key, entity.table));
    if (!st.ok())
        throwReadError(db_);
    st.bindKey(1, primaryKey);
    const int rc = sqlite3_step(st.get());
    if (rc == SQLITE_ROW)
        return columnValue(st.get(), 0, attribute->type);
    if (rc != SQLITE_DONE)
        throwReadError(db_);
    return {};
}

qint64 SqliteStore::allocatePrimaryKey(const EntityDescription &entity)
{
    auto it = nextPrimaryKey_.find(entity.name);
    if (it == nextPrimaryKey_.end()) {
        Statement st(db_, QStringLiteral("SELECT coalesce(max(pk), 0) FROM %1").arg(entity.table));
        if (!st.ok() || sqlite3_step(st.get()) != SQLITE_ROW)
            throwReadError(db_);
        it = nextPrimaryKey_.insert(entity.name, sqlite3_column_int64(st.get(), 0) + 1);
    }
    // Never handed out twice in a process, even when the save that used it failed.
    return it.value()++;
}

void SqliteStore::begin()
{
    if (sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK)
        throwWriteError(db_);
    // Rows of one save may refer to each other in any order.
    sqlite3_exec(db_, "PRAGMA defer_foreign_keys=ON", nullptr, nullptr, nullptr);
}

void SqliteStore::insertRow(const EntityDescription &entity, const StoredRow &row)
{
    writeRow(entity, row, true);
}

void SqliteStore::updateRow(const EntityDescription &entity, const StoredRow &row)
{
    writeRow(entity, row, false);
}

// Parameter 1 is the primary key, then one per attribute in declared order,
// then (for notes) the folder link.
void SqliteStore::writeRow(const EntityDescription &entity, const StoredRow &row, bool insert)
{
    const bool isNote = entity.name == QLatin1String("Note");
    // A deferred value that was never read is left as it is; a new row has
    // every value in memory.
    QList<AttributeDescription> written;
    for (const auto &a : entity.attributes) {
        if (insert || !row.unloaded.contains(a.name))
            written << a;
    }
    QStringList columns;
    for (const auto &a : written)
        columns << QLatin1Char('"') + a.name + QLatin1Char('"');
    if (isNote)
        columns << QStringLiteral("folder");
    QStringList params;
    for (int index = 2; index < columns.size() + 2; ++index)
        params << QStringLiteral("?%1").arg(index);

    if (isNote)
        updateTranscriptSearch(row, insert);

    QString sql;
    if (insert) {
        sql = QStringLiteral("INSERT INTO %1 (pk, %2) VALUES (?1, %3)")
                  .arg(entity.table, columns.join(QStringLiteral(", ")), params.join(QStringLiteral(", ")));
    } else {
        QStringList sets;
        for (qsizetype c = 0; c < columns.size(); ++c)
            sets << columns[c] + QStringLiteral(" = ") + params[c];
        sql = QStringLiteral("UPDATE %1 SET %2 WHERE pk = ?1")
                  .arg(entity.table, sets.join(QStringLiteral(", ")));
    }
    Statement st(db_, sql);
    if (!st.ok())
        throwWriteError(db_);
    st.bindKey(1, row.primaryKey);
    int index = 2;
    for (const auto &a : written)
        st.bind(index++, row.values.value(a.name), a.type);
    if (isNote) {
        if (row.toOne.contains(QStringLiteral("folder")))
            st.bindKey(index, row.toOne.value(QStringLiteral("folder")));
        else
            sqlite3_bind_null(st.get(), index);
    }
    if (sqlite3_step(st.get()) != SQLITE_DONE)
        throwWriteError(db_);
    writeLinks(entity, row);

    // A short transcript is indexed in the same save; a long one when idle.
    constexpr qsizetype indexedAtOnce = 4096;
    const QString transcription = QStringLiteral("transcription");
    if (isNote && (insert || !row.unloaded.contains(transcription)) &&
        row.values.value(transcription).toString().size() <= indexedAtOnce)
        transcriptSearch_->index(row.primaryKey, row.values.value(transcription).toString());
}

void SqliteStore::updateTranscriptSearch(const StoredRow &row, bool insert)
{
    // The old transcript leaves the index before the row forgets it. A new
    // row may reuse the key of a row deleted in an earlier run.
    if (insert || !row.unloaded.contains(QStringLiteral("transcription")))
        transcriptSearch_->forget(row.primaryKey);
}

void SqliteStore::writeLinks(const EntityDescription &entity, const StoredRow &row)
{
    if (entity.name != QLatin1String("Note"))
        return;
    Statement clear(db_, QStringLiteral("DELETE FROM note_tags WHERE note = ?1"));
    if (!clear.ok())
        throwWriteError(db_);
    clear.bindKey(1, row.primaryKey);
    if (sqlite3_step(clear.get()) != SQLITE_DONE)
        throwWriteError(db_);
    for (qint64 tag : row.toMany.value(QStringLiteral("tags"))) {
        Statement link(db_, QStringLiteral("INSERT INTO note_tags (note, tag) VALUES (?1, ?2)"));
        if (!link.ok())
            throwWriteError(db_);
        link.bindKey(1, row.primaryKey);
        link.bindKey(2, tag);
        if (sqlite3_step(link.get()) != SQLITE_DONE)
            throwWriteError(db_);
    }
}

void SqliteStore::deleteRow(const EntityDescription &entity, qint64 primaryKey)
{
    if (entity.name == QLatin1String("Note"))
        transcriptSearch_->forget(primaryKey);
    Statement st(db_, QStringLiteral("DELETE FROM %1 WHERE pk = ?1").arg(entity.table));
    if (!st.ok())
        throwWriteError(db_);
    st.bindKey(1, primaryKey);
    if (sqlite3_step(st.get()) != SQLITE_DONE)
        throwWriteError(db_);
}

void SqliteStore::commit()
{
    if (sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK)
        throwWriteError(db_);
}

void SqliteStore::abort() noexcept
{
    if (!sqlite3_get_autocommit(db_))
        sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
}

} // namespace kestil
