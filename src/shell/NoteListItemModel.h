#pragma once

#include "core/Note.h"
#include "library/FilterAndSortState.h"

#include <QAbstractListModel>
#include <QHash>
#include <QMap>

#include <functional>
#include <optional>

namespace kestil {

class IdleTranscriptIndexer;
class LocalAppModel;

// The notes of the library as rows for the list: those that pass the search,
// the sidebar's folder and the chosen tags, in the chosen order, each with its
// title, date, a one-line preview and whether work is running on it. The first
// note of each day carries the day's heading ("Today", "Yesterday",
// "Tue, Mar 4") when the order is by date. Each row carries its identifier
// "notesListNoteRow-<note id>" as its accessible name, since rows of a list
// view are not objects of their own.
//
// A search of the transcripts is answered by the store's index once per
// change of the search text or of the notes, not once per row.
class NoteListItemModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role {
        TitleRole = Qt::UserRole + 1,
        DateTextRole,
        NoteIdRole,
        PreviewRole,
        ProcessingRole,
        RecordingRole,
        RowIdentifierRole,
        // The heading of the day group that starts at this row; empty inside
        // a group and under orders that are not by date.
        DayHeadingRole,
    };

    NoteListItemModel(LocalAppModel &app, FilterAndSortState &state, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;
    NotePtr noteAt(int row) const;
    int rowOf(const NotePtr &note) const;
    // The row whose identifier is "notesListNoteRow-<id>", or -1.
    int rowWithIdentifier(const QString &identifier) const;

    // The note being recorded gets a recording mark.
    void setRecordingNote(const NotePtr &note);
    // The notes' fields changed (a save): the rows are filtered, ordered and
    // redrawn again, and a transcript search asked again.
    void refreshRows();

    // The text of the search field.
    const QString &searchText() const { return searchText_; }
    void setSearchText(const QString &text);
    // The notes shown, in list order.
    const QList<NotePtr> &shownNotes() const { return shown_; }
    // The library's notes as filtering reads them, in fetched order.
    const QList<ListedNote> &listedNotes() const { return listed_; }
    // Why the list is empty, if it is.
    NotesListEmptyState emptyState() const;
    // Every tag of the library with the number of notes that pass the search
    // and carry it.
    QMap<QString, int> tagCounts() const;
    // Whether the note's transcript contains the current search.
    bool transcriptMatches(const ListedNote &note, const QString &trimmedQuery) const;
    // Who answers a search of the transcripts: the store's index unless set.
    // A benchmark sets a plain scan to compare with.
    using TranscriptSearch = std::function<std::function<bool(const Note &)>(const QString &trimmedQuery)>;
    void setTranscriptSearch(TranscriptSearch search);

    // The date as a row shows it.
    static QString dateText(const Note &note);
    // "notesListNoteRow-" and the note's id in upper case.
    static QString rowIdentifier(const Note &note);
    // The row's text under the title: the summary if it has one, else the
    // transcript, Markdown marks and line breaks removed, one line.
    static QString previewText(const Note &note);
    // A placeholder status text stands in the summary or the transcript.
    static bool isProcessingNote(const Note &note);

signals:
    // The shown rows changed (a search, a filter, an order or the notes).
    void shownNotesChanged();
    // The store could not answer a search; the text says what was kept.
    void searchFailed(const QString &message);

private:
    void reload();
    void relist();
    void refilter();
    void askTranscripts();

    LocalAppModel &app_;
    FilterAndSortState &state_;
    QList<NotePtr> notes_;
    QList<ListedNote> listed_;
    // The notes that listed_ was made from.
    QList<NotePtr> listedFrom_;
    QList<NotePtr> shown_;
    QHash<qsizetype, QString> headings_;
    QString searchText_;
    // The store's answer for the transcripts and the search it answers.
    QString askedSearch_;
    std::function<bool(const Note &)> transcriptSearch_;
    TranscriptSearch searchOverride_;
    NotePtr recordingNote_;
    IdleTranscriptIndexer *indexer_ = nullptr;
};

} // namespace kestil
