#include "library/FilterAndSortState.h"

#include <QLocale>

#include <algorithm>

namespace kestil {

FilterAndSortState::FilterAndSortState(QObject *parent) : QObject(parent) {}

void FilterAndSortState::setSelectedTags(const QSet<QString> &tags)
{
    if (selectedTags_ == tags)
        return;
    selectedTags_ = tags;
    emit selectedTagsChanged();
    emit changed();
}

void FilterAndSortState::setTagMatchMode(TagMatchMode mode)
{
    if (tagMatchMode_ == mode)
        return;
    tagMatchMode_ = mode;
    emit tagMatchModeChanged();
    emit changed();
}

void FilterAndSortState::setSortOption(NotesSortOption option)
{
    if (sortOption_ == option)
        return;
    sortOption_ = option;
    emit sortOptionChanged();
    emit changed();
}

void FilterAndSortState::setSelectedFolder(const FolderSelection &folder)
{
    if (selectedFolder_ == folder)
        return;
    selectedFolder_ = folder;
    emit selectedFolderChanged();
    emit changed();
}

QString FilterAndSortState::trimmedSearch(const QString &searchText)
{
    return searchText.trimmed();
}

namespace {

// The search part of a note's test, with the query already trimmed and
// folded.
bool matchesFoldedSearch(const ListedNote &note, const QString &trimmed, const QString &folded,
                         const FilterAndSortState::TranscriptMatch &transcript, const SearchFold &fold)
{
    if (trimmed.isEmpty())
        return true;
    if (note.title) {
        const QString title = note.foldedTitle ? *note.foldedTitle : fold.fold(*note.title);
        if (SearchFold::foldedContains(title, folded))
            return true;
    }
    if (!note.tagNames.isEmpty()) {
        const QString line =
            note.foldedTagLine ? *note.foldedTagLine : fold.fold(note.tagNames.join(QStringLiteral(", ")));
        if (SearchFold::foldedContains(line, folded))
            return true;
    }
    return transcript && transcript(note, trimmed);
}

QDateTime effectiveTime(const ListedNote &note, const QDateTime &now)
{
    return note.timestamp ? *note.timestamp : now;
}

} // namespace

bool FilterAndSortState::matchesSearch(const ListedNote &note, const QString &searchText,
                                       const TranscriptMatch &transcript, const SearchFold &fold)
{
    const QString trimmed = trimmedSearch(searchText);
    return matchesFoldedSearch(note, trimmed, trimmed.isEmpty() ? QString() : fold.fold(trimmed), transcript,
                               fold);
}

bool FilterAndSortState::matchesFolder(const ListedNote &note) const
{
    switch (selectedFolder_.kind) {
    case FolderSelection::Kind::all:
        return true;
    case FolderSelection::Kind::unfiled:
        return !note.hasFolder;
    case FolderSelection::Kind::folder:
        return note.hasFolder && note.folderID && *note.folderID == selectedFolder_.folderID;
    }
    return false;
}

bool FilterAndSortState::matchesTags(const ListedNote &note) const
{
    if (selectedTags_.isEmpty())
        return true;
    const QSet<QString> names(note.tagNames.begin(), note.tagNames.end());
    if (tagMatchMode_ == TagMatchMode::any)
        return names.intersects(selectedTags_);
    return names.contains(selectedTags_);
}

QList<ListedNote> FilterAndSortState::filteredNotes(const QList<ListedNote> &allNotes,
                                                    const QString &searchText,
                                                    const TranscriptMatch &transcript, const QDateTime &now,
                                                    const SearchFold &fold) const
{
    const QString trimmed = trimmedSearch(searchText);
    const QString folded = trimmed.isEmpty() ? QString() : fold.fold(trimmed);
    QList<ListedNote> shown;
    for (const ListedNote &note : allNotes) {
        // The folder and the tags are cheap; the search is asked last.
        if (matchesFolder(note) && matchesTags(note) &&
            matchesFoldedSearch(note, trimmed, folded, transcript, fold))
            shown.append(note);
    }
    switch (sortOption_) {
    case NotesSortOption::dateNewest:
        std::stable_sort(shown.begin(), shown.end(), [&now](const ListedNote &a, const ListedNote &b) {
            return effectiveTime(a, now) > effectiveTime(b, now);
        });
        break;
    case NotesSortOption::dateOldest:
        std::stable_sort(shown.begin(), shown.end(), [&now](const ListedNote &a, const ListedNote &b) {
            return effectiveTime(a, now) < effectiveTime(b, now);
        });
        break;
    case NotesSortOption::titleAZ:
        std::stable_sort(shown.begin(), shown.end(), [](const ListedNote &a, const ListedNote &b) {
            return a.titleSortKey < b.titleSortKey;
        });
        break;
    case NotesSortOption::titleZA:
        std::stable_sort(shown.begin(), shown.end(), [](const ListedNote &a, const ListedNote &b) {
            return b.titleSortKey < a.titleSortKey;
        });
        break;
    case NotesSortOption::mostTags:
        std::stable_sort(shown.begin(), shown.end(), [&now](const ListedNote &a, const ListedNote &b) {
            if (a.tagCount != b.tagCount)
                return a.tagCount > b.tagCount;
            return effectiveTime(a, now) > effectiveTime(b, now);
        });
        break;
    }
    return shown;
}

QList<NotesDayGroup> FilterAndSortState::groupedNotes(const QList<ListedNote> &filtered,
                                                      const QDateTime &now) const
{
    if (!sortsByDate(sortOption_))
        return {NotesDayGroup{std::nullopt, filtered}};
    QList<NotesDayGroup> groups;
    QHash<QDate, qsizetype> positions;
    const QDate today = now.toLocalTime().date();
    for (const ListedNote &note : filtered) {
        const QDate day = note.timestamp ? note.timestamp->toLocalTime().date() : today;
        auto it = positions.find(day);
        if (it == positions.end()) {
            it = positions.insert(day, groups.size());
            groups.append(NotesDayGroup{day, {}});
        }
        groups[*it].notes.append(note);
    }
    const bool ascending = sortOption_ == NotesSortOption::dateOldest;
    std::stable_sort(groups.begin(), groups.end(),
                     [ascending](const NotesDayGroup &a, const NotesDayGroup &b) {
                         return ascending ? *a.day < *b.day : *a.day > *b.day;
                     });
    return groups;
}

bool FilterAndSortState::hasActiveFilters() const
{
    return !selectedTags_.isEmpty() || tagMatchMode_ != TagMatchMode::any ||
           sortOption_ != NotesSortOption::dateNewest;
}

void FilterAndSortState::clearFilters()
{
    setSelectedTags({});
    setTagMatchMode(TagMatchMode::any);
    setSortOption(NotesSortOption::dateNewest);
}

void FilterAndSortState::toggleTag(const QString &name)
{
    QSet<QString> tags = selectedTags_;
    if (!tags.remove(name))
        tags.insert(name);
    setSelectedTags(tags);
}

QMap<QString, int> FilterAndSortState::tagCounts(const QList<ListedNote> &allNotes, const QString &searchText,
                                                 const TranscriptMatch &transcript,
                                                 const SearchFold &fold) const
{
    const QString trimmed = trimmedSearch(searchText);
    const QString folded = trimmed.isEmpty() ? QString() : fold.fold(trimmed);
    QMap<QString, int> counts;
    for (const ListedNote &note : allNotes) {
        if (note.tagNames.isEmpty() || !matchesFoldedSearch(note, trimmed, folded, transcript, fold))
            continue;
        const QSet<QString> distinct(note.tagNames.begin(), note.tagNames.end());
        for (const QString &name : distinct)
            ++counts[name];
    }
    return counts;
}

NotesListEmptyState FilterAndSortState::emptyState(const QList<ListedNote> &allNotes, qsizetype shownCount,
                                                   const QString &searchText) const
{
    const qsizetype total = allNotes.size();
    const bool folderChosen = selectedFolder_.kind != FolderSelection::Kind::all;
    if (shownCount == 0 && !trimmedSearch(searchText).isEmpty() && total > 0)
        return NotesListEmptyState::noSearchResults;
    if (total == 0)
        return NotesListEmptyState::noNotesYet;
    if (shownCount > 0)
        return NotesListEmptyState::none;
    if (folderChosen && std::none_of(allNotes.begin(), allNotes.end(),
                                     [this](const ListedNote &n) { return matchesFolder(n); }))
        return NotesListEmptyState::noNotesInFolder;
    if (folderChosen || !selectedTags_.isEmpty())
        return NotesListEmptyState::filtersHidingNotes;
    return NotesListEmptyState::none;
}

NotesListEmptyState FilterAndSortState::emptyState(const QList<ListedNote> &allNotes,
                                                   const QString &searchText,
                                                   const TranscriptMatch &transcript) const
{
    return emptyState(allNotes, filteredNotes(allNotes, searchText, transcript).size(), searchText);
}

std::optional<QString> FilterAndSortState::dayGroupTitle(const std::optional<QDate> &day, const QDate &today)
{
    if (!day)
        return std::nullopt;
    if (*day == today)
        return QStringLiteral("Today");
    if (*day == today.addDays(-1))
        return QStringLiteral("Yesterday");
    return QLocale().toString(*day, QStringLiteral("ddd, MMM d"));
}

} // namespace kestil
