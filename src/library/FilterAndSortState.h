#pragma once

#include "library/FolderSelection.h"
#include "library/ListedNote.h"
#include "library/NotesDayGroup.h"
#include "library/NotesListEmptyState.h"
#include "library/NotesSortOption.h"
#include "library/SearchFold.h"
#include "library/TagMatchMode.h"

#include <QDateTime>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QString>

#include <functional>
#include <optional>

namespace kestil {

// What the notes list shows: the search text, the sidebar's folder, the tags
// chosen in the filter and the order, with the pure rules over them. The
// state lives as long as the list and starts from its defaults at each
// launch; the defaults are also its reset state.
//
// A note's transcript is not part of ListedNote: a search asks `transcript`
// whether the note's transcript contains the trimmed search text. The exact
// answer is SearchFold::contains on the text; a store answers the same from
// its index.
class FilterAndSortState : public QObject {
    Q_OBJECT
public:
    using TranscriptMatch = std::function<bool(const ListedNote &note, const QString &trimmedQuery)>;

    explicit FilterAndSortState(QObject *parent = nullptr);

    const QSet<QString> &selectedTags() const { return selectedTags_; }
    void setSelectedTags(const QSet<QString> &tags);
    TagMatchMode tagMatchMode() const { return tagMatchMode_; }
    void setTagMatchMode(TagMatchMode mode);
    NotesSortOption sortOption() const { return sortOption_; }
    void setSortOption(NotesSortOption option);
    const FolderSelection &selectedFolder() const { return selectedFolder_; }
    void setSelectedFolder(const FolderSelection &folder);

    // The search text trimmed of white space and new lines.
    static QString trimmedSearch(const QString &searchText);
    // An empty search matches every note; otherwise the transcript, the title
    // or the tag names joined by ", " must contain it. The summary is not
    // searched, and an absent field matches nothing.
    static bool matchesSearch(const ListedNote &note, const QString &searchText,
                              const TranscriptMatch &transcript, const SearchFold &fold = SearchFold());
    bool matchesFolder(const ListedNote &note) const;
    bool matchesTags(const ListedNote &note) const;

    // The notes to show, from notes fetched newest first, in the chosen order.
    // `now` stands in for a missing timestamp.
    QList<ListedNote> filteredNotes(const QList<ListedNote> &allNotes, const QString &searchText,
                                    const TranscriptMatch &transcript,
                                    const QDateTime &now = QDateTime::currentDateTimeUtc(),
                                    const SearchFold &fold = SearchFold()) const;
    // The shown notes under their day headings.
    QList<NotesDayGroup> groupedNotes(const QList<ListedNote> &filtered,
                                      const QDateTime &now = QDateTime::currentDateTimeUtc()) const;

    // Tags, match mode or order differ from their defaults. The folder and
    // the search do not count.
    bool hasActiveFilters() const;
    // Tags, match mode and order back to their defaults; the folder stays.
    void clearFilters();
    void toggleTag(const QString &name);

    // For each tag name, the number of notes that pass the search alone.
    QMap<QString, int> tagCounts(const QList<ListedNote> &allNotes, const QString &searchText,
                                 const TranscriptMatch &transcript,
                                 const SearchFold &fold = SearchFold()) const;
    // Why the list is empty, given what it shows.
    NotesListEmptyState emptyState(const QList<ListedNote> &allNotes, qsizetype shownCount,
                                   const QString &searchText) const;
    NotesListEmptyState emptyState(const QList<ListedNote> &allNotes, const QString &searchText,
                                   const TranscriptMatch &transcript) const;

    // "Today", "Yesterday", or the day as "E, MMM d"; nothing for the group
    // of an order that is not by date.
    static std::optional<QString> dayGroupTitle(const std::optional<QDate> &day,
                                                const QDate &today = QDate::currentDate());

signals:
    void selectedTagsChanged();
    void tagMatchModeChanged();
    void sortOptionChanged();
    void selectedFolderChanged();
    // Any of the four changed.
    void changed();

private:
    QSet<QString> selectedTags_;
    TagMatchMode tagMatchMode_ = TagMatchMode::any;
    NotesSortOption sortOption_ = NotesSortOption::dateNewest;
    FolderSelection selectedFolder_ = FolderSelection::all();
};

} // namespace kestil
