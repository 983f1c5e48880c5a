#include "core/TranscriptSearchIndex.h"

#include "base/Error.h"

#include <QElapsedTimer>

#include <sqlite3.h>

namespace kestil {

namespace {

enum Slot {
    readTranscript,
    isIndexed,
    markIndexed,
    unmarkIndexed,
    insertText,
    deleteText,
    insertGrams,
    deleteGrams,
    unindexed,
    unindexedTotal,
    unindexedTexts,
    matchGrams,
    matchText,
    slotCount
};

const char *const foldKey = "transcriptSearchFold";

[[noreturn]] void fail(sqlite3 *db)
{
    throw SystemError(QStringLiteral("The search index of the notes could not be updated (%1).")
                          .arg(QString::fromUtf8(sqlite3_errmsg(db))));
}

void bindText(sqlite3_stmt *st, int index, const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    sqlite3_bind_text(st, index, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
}

QString columnText(sqlite3_stmt *st, int column)
{
    return QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(st, column)),
                             sqlite3_column_bytes(st, column));
}

// Runs a statement to its end; false when it failed.
bool runToEnd(sqlite3_stmt *st)
{
    int rc;
    while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
    }
    sqlite3_reset(st);
    return rc == SQLITE_DONE;
}

bool exec(sqlite3 *db, const char *sql)
{
    return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

QString hex(char32_t c)
{
    return QString::number(uint(c), 16);
}

// A phrase of FTS5's query language that matches the text exactly.
QString phrase(const QString &text)
{
    QString quoted = text;
    quoted.replace(QLatin1Char('"'), QStringLiteral("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

} // namespace

QString transcriptGrams(const QString &folded)
{
    const QList<uint> points = folded.toUcs4();
    QSet<quint64> seen;
    QString words;
    const auto add = [&](quint64 key, const QString &word) {
        if (seen.contains(key))
            return;
        seen.insert(key);
        if (!words.isEmpty())
            words.append(QLatin1Char(' '));
        words.append(word);
    };
    for (qsizetype i = 0; i < points.size(); ++i) {
        const char32_t c = points[i];
        add(quint64(c) << 21, QLatin1Char('g') + hex(c));
        if (i + 1 < points.size()) {
            const char32_t next = points[i + 1];
            add((quint64(c) << 21) | quint64(next) | (quint64(1) << 63),
                QLatin1Char('g') + hex(c) + QLatin1Char('x') + hex(next));
        }
    }
    return words;
}

QString transcriptGramWord(const QString &foldedQuery)
{
    const QList<uint> points = foldedQuery.toUcs4();
    QString word = QStringLiteral("g");
    for (qsizetype i = 0; i < points.size(); ++i) {
        if (i > 0)
            word.append(QLatin1Char('x'));
        word.append(hex(points[i]));
    }
    return word;
}

TranscriptSearchIndex::TranscriptSearchIndex(sqlite3 *db) : db_(db), statements_(slotCount, nullptr) {}

TranscriptSearchIndex::~TranscriptSearchIndex()
{
    for (sqlite3_stmt *st : statements_)
        sqlite3_finalize(st);
}

QStringList TranscriptSearchIndex::schema()
{
    return {
        QStringLiteral(
            "CREATE VIRTUAL TABLE note_search_text USING fts5(body, tokenize='trigram case_sensitive 1', "
            "content='', detail=full)"),
        QStringLiteral(
            "CREATE VIRTUAL TABLE note_search_grams USING fts5(grams, tokenize='ascii', content='', "
            "detail=none)"),
        // The notes whose saved transcript is in both tables, and nothing else.
        QStringLiteral("CREATE TABLE note_search_state (note INTEGER PRIMARY KEY)"),
    };
}

sqlite3_stmt *TranscriptSearchIndex::statement(int slot, const char *sql) const
{
    sqlite3_stmt *&st = statements_[slot];
    if (!st && sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, &st, nullptr) != SQLITE_OK) {
        st = nullptr;
        fail(db_);
    }
    sqlite3_reset(st);
    sqlite3_clear_bindings(st);
    return st;
}

void TranscriptSearchIndex::open(const SearchFold &fold)
{
    open_ = false;
    fold_ = fold;
    sqlite3_stmt *probe = nullptr;
    const bool hasTables =
        sqlite3_prepare_v2(db_, "SELECT 1 FROM note_search_state LIMIT 1", -1, &probe, nullptr) == SQLITE_OK;
    sqlite3_finalize(probe);
    if (!hasTables)
        return;

    QString made;
    {
        sqlite3_stmt *st = nullptr;
        if (sqlite3_prepare_v2(db_, "SELECT value FROM kestil_metadata WHERE key = ?1", -1, &st, nullptr) !=
            SQLITE_OK)
            fail(db_);
        sqlite3_bind_text(st, 1, foldKey, -1, SQLITE_STATIC);
        if (sqlite3_step(st) == SQLITE_ROW)
            made = columnText(st, 0);
        sqlite3_finalize(st);
    }
    if (made != fold.identity()) {
        // Made under other folding rules: its entries would answer for
        // another comparison, so it starts again empty.
        if (!exec(db_, "BEGIN IMMEDIATE"))
            fail(db_);
        const QByteArray record = QStringLiteral("INSERT OR REPLACE INTO kestil_metadata (key, value) VALUES "
                                                 "('%1', '%2')")
                                      .arg(QLatin1String(foldKey), fold.identity())
                                      .toUtf8();
        if (!exec(db_, "INSERT INTO note_search_text(note_search_text) VALUES('delete-all')") ||
            !exec(db_, "INSERT INTO note_search_grams(note_search_grams) VALUES('delete-all')") ||
            !exec(db_, "DELETE FROM note_search_state") || !exec(db_, record.constData())) {
            exec(db_, "ROLLBACK");
            fail(db_);
        }
        if (!exec(db_, "COMMIT")) {
            exec(db_, "ROLLBACK");
            fail(db_);
        }
    }
    open_ = true;
}

QString TranscriptSearchIndex::storedTranscript(qint64 note) const
{
    sqlite3_stmt *st = statement(readTranscript, "SELECT transcription FROM note WHERE pk = ?1");
    sqlite3_bind_int64(st, 1, note);
    QString text;
    const int rc = sqlite3_step(st);
    if (rc == SQLITE_ROW && sqlite3_column_type(st, 0) != SQLITE_NULL)
        text = columnText(st, 0);
    sqlite3_reset(st);
    if (rc != SQLITE_ROW && rc != SQLITE_DONE)
        fail(db_);
    return text;
}

void TranscriptSearchIndex::removeEntries(qint64 note, const QString &folded)
{
    sqlite3_stmt *text = statement(
        deleteText, "INSERT INTO note_search_text(note_search_text, rowid, body) VALUES('delete', ?1, ?2)");
    sqlite3_bind_int64(text, 1, note);
    bindText(text, 2, folded);
    if (!runToEnd(text))
        fail(db_);
    sqlite3_stmt *grams =
        statement(deleteGrams,
                  "INSERT INTO note_search_grams(note_search_grams, rowid, grams) VALUES('delete', ?1, ?2)");
    sqlite3_bind_int64(grams, 1, note);
    bindText(grams, 2, transcriptGrams(folded));
    if (!runToEnd(grams))
        fail(db_);
}

void TranscriptSearchIndex::forget(qint64 note)
{
    if (!open_)
        return;
    sqlite3_stmt *st = statement(isIndexed, "SELECT 1 FROM note_search_state WHERE note = ?1");
    sqlite3_bind_int64(st, 1, note);
    const int rc = sqlite3_step(st);
    sqlite3_reset(st);
    if (rc == SQLITE_DONE)
        return;
    if (rc != SQLITE_ROW)
        fail(db_);
    // A contentless table forgets a row only when told the words it holds:
    // the stored transcript, folded as it was when indexed.
    removeEntries(note, fold_.fold(storedTranscript(note)));
    sqlite3_stmt *unmark = statement(unmarkIndexed, "DELETE FROM note_search_state WHERE note = ?1");
    sqlite3_bind_int64(unmark, 1, note);
    if (!runToEnd(unmark))
        fail(db_);
}

void TranscriptSearchIndex::index(qint64 note, const QString &transcript)
{
    if (!open_)
        return;
    const QString folded = fold_.fold(transcript);
    sqlite3_stmt *text = statement(insertText, "INSERT INTO note_search_text(rowid, body) VALUES(?1, ?2)");
    sqlite3_bind_int64(text, 1, note);
    bindText(text, 2, folded);
    if (!runToEnd(text))
        fail(db_);
    sqlite3_stmt *grams =
        statement(insertGrams, "INSERT INTO note_search_grams(rowid, grams) VALUES(?1, ?2)");
    sqlite3_bind_int64(grams, 1, note);
    bindText(grams, 2, transcriptGrams(folded));
    if (!runToEnd(grams))
        fail(db_);
    sqlite3_stmt *mark = statement(markIndexed, "INSERT INTO note_search_state (note) VALUES (?1)");
    sqlite3_bind_int64(mark, 1, note);
    if (!runToEnd(mark))
        fail(db_);
}

qsizetype TranscriptSearchIndex::unindexedCount() const
{
    if (!open_)
        return 0;
    sqlite3_stmt *st = statement(
        unindexedTotal, "SELECT count(*) FROM note WHERE pk NOT IN (SELECT note FROM note_search_state)");
    qsizetype count = 0;
    if (sqlite3_step(st) == SQLITE_ROW)
        count = sqlite3_column_int64(st, 0);
    sqlite3_reset(st);
    return count;
}

qsizetype TranscriptSearchIndex::indexSome(int milliseconds)
{
    if (!open_)
        return 0;
    if (milliseconds <= 0)
        return unindexedCount();
    QElapsedTimer timer;
    timer.start();
    if (!exec(db_, "BEGIN IMMEDIATE"))
        return unindexedCount();
    try {
        sqlite3_stmt *st = statement(unindexed, "SELECT pk FROM note WHERE pk NOT IN (SELECT note FROM "
                                                "note_search_state) ORDER BY pk LIMIT 64");
        QList<qint64> notes;
        while (sqlite3_step(st) == SQLITE_ROW)
            notes.append(sqlite3_column_int64(st, 0));
        sqlite3_reset(st);
        // At least one note per call, so that a short budget still makes
        // progress.
        for (qint64 note : notes) {
            index(note, storedTranscript(note));
            if (timer.elapsed() >= milliseconds)
                break;
        }
        if (!exec(db_, "COMMIT"))
            fail(db_);
    } catch (const std::exception &) {
        // Nothing is lost: the notes stay unindexed and are read by searches.
        exec(db_, "ROLLBACK");
    }
    return unindexedCount();
}

QSet<qint64> TranscriptSearchIndex::matchIndex(const char *sql, int slot, const QString &match) const
{
    sqlite3_stmt *st = statement(slot, sql);
    bindText(st, 1, match);
    QSet<qint64> notes;
    int rc;
    while ((rc = sqlite3_step(st)) == SQLITE_ROW)
        notes.insert(sqlite3_column_int64(st, 0));
    sqlite3_reset(st);
    if (rc != SQLITE_DONE)
        throw SystemError(QStringLiteral("The notes could not be searched (%1).")
                              .arg(QString::fromUtf8(sqlite3_errmsg(db_))));
    return notes;
}

QSet<qint64> TranscriptSearchIndex::notesContaining(const QString &foldedQuery) const
{
    QSet<qint64> found;
    if (foldedQuery.isEmpty() || !open_)
        return found;
    const QList<uint> points = foldedQuery.toUcs4();
    if (points.size() <= 2) {
        found = matchIndex("SELECT rowid FROM note_search_grams WHERE note_search_grams MATCH ?1", matchGrams,
                           phrase(transcriptGramWord(foldedQuery)));
    } else if (points.size() <= longestPhrase) {
        found = matchIndex("SELECT rowid FROM note_search_text WHERE note_search_text MATCH ?1", matchText,
                           phrase(foldedQuery));
    } else {
        const QString head =
            QString::fromUcs4(reinterpret_cast<const char32_t *>(points.constData()), longestPhrase);
        const QSet<qint64> candidates = matchIndex(
            "SELECT rowid FROM note_search_text WHERE note_search_text MATCH ?1", matchText, phrase(head));
        for (qint64 note : candidates) {
            if (SearchFold::foldedContains(fold_.fold(storedTranscript(note)), foldedQuery))
                found.insert(note);
        }
    }
    // Notes whose transcript changed since they were indexed are read.
    sqlite3_stmt *st = statement(unindexedTexts, "SELECT pk, transcription FROM note WHERE pk NOT IN (SELECT "
                                                 "note FROM note_search_state)");
    int rc;
    while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
        if (sqlite3_column_type(st, 1) != SQLITE_NULL &&
            SearchFold::foldedContains(fold_.fold(columnText(st, 1)), foldedQuery))
            found.insert(sqlite3_column_int64(st, 0));
    }
    sqlite3_reset(st);
    if (rc != SQLITE_DONE)
        throw SystemError(QStringLiteral("The notes could not be searched (%1).")
                              .arg(QString::fromUtf8(sqlite3_errmsg(db_))));
    return found;
}

} // namespace kestil
