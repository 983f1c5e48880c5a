#pragma once

#include "library/SearchFold.h"

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

struct sqlite3;
struct sqlite3_stmt;

namespace kestil {

// The index of saved transcripts, kept in the store file beside the notes so
// that a search of a large library reads neither every transcript nor holds
// them in memory.
//
// Each transcript is indexed in its folded form (SearchFold). Searches of
// three characters or more ask FTS5's trigram tokenizer for the folded query
// as a phrase, which on folded text is exactly the substring test. Shorter
// searches ask a second table that holds, per note, the distinct one- and
// two-character pieces of its folded text. Both tables hold no text of their
// own; the store's transcripts stay the only copy.
//
// A note whose transcript changes leaves the index in the same save and is
// indexed again afterwards: in that save when its text is short, otherwise by
// indexSome() when the program is idle. Until then a search reads its text.
// The index records which folding rules made it; opened under other rules it
// starts again empty. Main thread, on the store's connection.
class TranscriptSearchIndex {
public:
    explicit TranscriptSearchIndex(sqlite3 *db);
    ~TranscriptSearchIndex();
    TranscriptSearchIndex(const TranscriptSearchIndex &) = delete;
    TranscriptSearchIndex &operator=(const TranscriptSearchIndex &) = delete;

    // The statements of the store's migration that create the index.
    static QStringList schema();

    // Makes the index usable under `fold`'s rules; a file without the index
    // tables (an older schema) leaves it unusable and every other call inert.
    void open(const SearchFold &fold);
    bool isOpen() const { return open_; }
    const SearchFold &fold() const { return fold_; }

    // Takes a note's saved transcript out of the index; call before the row's
    // transcript is replaced or the row deleted. Throws SystemError.
    void forget(qint64 note);
    // Indexes the given saved transcript of a note. Throws SystemError.
    void index(qint64 note, const QString &transcript);
    // Indexes notes that are not indexed yet, for up to `milliseconds` (at
    // least one note when there is any time at all), in one transaction of
    // its own. Returns how many are still left; 0 ms only counts them.
    qsizetype indexSome(int milliseconds);
    // The number of notes not indexed yet.
    qsizetype unindexedCount() const;

    // Keys of the stored notes whose saved transcript contains the query by
    // SearchFold, for a query that is already folded. Notes not indexed yet
    // are read and tested one by one.
    QSet<qint64> notesContaining(const QString &foldedQuery) const;

    // Longer folded queries are narrowed by their first characters and then
    // confirmed on the text.
    static constexpr int longestPhrase = 64;

private:
    sqlite3_stmt *statement(int slot, const char *sql) const;
    QString storedTranscript(qint64 note) const;
    void removeEntries(qint64 note, const QString &folded);
    QSet<qint64> matchIndex(const char *sql, int slot, const QString &match) const;

    sqlite3 *db_;
    bool open_ = false;
    SearchFold fold_;
    mutable QList<sqlite3_stmt *> statements_;
};

// The distinct one- and two-character pieces of a folded text, as the words
// the short-search table holds ("g61 g61x62 ...").
QString transcriptGrams(const QString &folded);
// The word of the short-search table for a folded query of one or two
// characters.
QString transcriptGramWord(const QString &foldedQuery);

} // namespace kestil
