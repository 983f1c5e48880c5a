#pragma once

#include "base/Error.h"
#include "core/EntityDescription.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QVariant>

#include <memory>
#include <optional>

struct sqlite3;

namespace kestil {

class TranscriptSearchIndex;

// The store file could not be opened or read. The file is left as it was.
class StoreLoadError : public SystemError {
public:
    using SystemError::SystemError;
};

// An equality test on one attribute, the only kind of predicate the notes
// model needs ("id == %@", "noteId == %@", "canonicalName == %@").
struct AttributeEquals {
    QString key;
    QVariant value;
};

// One row as read from the file: attribute values (missing ones absent) and
// the primary keys of its links. Deferred attributes are not read with the row:
// `unloaded` names them, and a write leaves the stored values of those it
// names untouched.
struct StoredRow {
    qint64 primaryKey = 0;
    QHash<QString, QVariant> values;
    QSet<QString> unloaded;
    QHash<QString, qint64> toOne;
    QHash<QString, QList<qint64>> toMany;
};

// The SQLite file behind the notes: schema, versioned forward migrations,
// reads, and writes inside one transaction. Everything runs on the main
// thread; the connection is not shared.
class SqliteStore {
public:
    // The newest schema this build knows. A file marked with a newer one was
    // written by a later Kestil and is refused untouched.
    static int latestSchemaVersion();

    // Opens (creating if absent) the file at path and migrates it forward.
    // Throws StoreLoadError when the file cannot be read as a notes store and
    // LocalError when its schema is newer than this build's; in both cases the
    // file is not modified.
    static std::unique_ptr<SqliteStore> open(const QString &path);
    static std::unique_ptr<SqliteStore> openInMemory();
    // Opens and migrates only up to the given version; for migration tests.
    static std::unique_ptr<SqliteStore> openAtVersionForTesting(const QString &path, int version);

    ~SqliteStore();
    SqliteStore(const SqliteStore &) = delete;
    SqliteStore &operator=(const SqliteStore &) = delete;

    const QString &storeId() const { return storeId_; }
    int schemaVersion() const;
    sqlite3 *handle() const { return db_; }

    // Only the keys of the matching rows, in key order: what a fetch needs to
    // find rows it does not hold in memory yet.
    QList<qint64> selectPrimaryKeys(const EntityDescription &entity,
                                    const std::optional<AttributeEquals> &where, int limit = 0) const;
    std::optional<StoredRow> selectByPrimaryKey(const EntityDescription &entity, qint64 primaryKey) const;
    // The matching rows in key order, read in one pass.
    QList<StoredRow> selectRows(const EntityDescription &entity,
                                const std::optional<AttributeEquals> &where) const;
    // One attribute of one row; missing when the value or the row is.
    QVariant selectAttribute(const EntityDescription &entity, qint64 primaryKey, const QString &key) const;
    qint64 allocatePrimaryKey(const EntityDescription &entity);

    // Writes are grouped: begin, any number of row operations, then commit.
    // A failing operation or commit throws SystemError; abort() then leaves
    // the file exactly as it was before begin().
    void begin();
    void insertRow(const EntityDescription &entity, const StoredRow &row);
    void updateRow(const EntityDescription &entity, const StoredRow &row);
    void deleteRow(const EntityDescription &entity, qint64 primaryKey);
    void commit();
    void abort() noexcept;

    // The index of saved transcripts; always present, inert on a file of an
    // older schema.
    TranscriptSearchIndex &transcriptSearch() const { return *transcriptSearch_; }

private:
    explicit SqliteStore(sqlite3 *db);
    void migrate(int targetVersion);
    void exec(const QString &sql) const;
    void loadStoreId();
    StoredRow readRow(const EntityDescription &entity, void *statement, bool skipLinks = false) const;
    void writeRow(const EntityDescription &entity, const StoredRow &row, bool insert);
    void writeLinks(const EntityDescription &entity, const StoredRow &row);

    void updateTranscriptSearch(const StoredRow &row, bool insert);

    sqlite3 *db_ = nullptr;
    std::unique_ptr<TranscriptSearchIndex> transcriptSearch_;
    QString storeId_;
    QHash<QString, qint64> nextPrimaryKey_;
};

} // namespace kestil
