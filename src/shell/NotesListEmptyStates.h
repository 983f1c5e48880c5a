#pragma once

#include "library/NotesListEmptyState.h"

#include <QStackedWidget>

class QLabel;

namespace kestil {

// What the list shows in place of rows when a search, a folder or the filters
// leave it empty: "No Results for "…"", "No notes in this folder", or
// "Filters are hiding notes" with its Clear Filters button. (An empty library
// has its own page with the button that makes the first note.)
class NotesListEmptyStates : public QStackedWidget {
    Q_OBJECT
public:
    explicit NotesListEmptyStates(QWidget *parent = nullptr);

    // Shows the page of a state other than none and noNotesYet.
    void show(NotesListEmptyState state, const QString &searchText);

signals:
    void clearFiltersRequested();

private:
    QWidget *noSearchResults_ = nullptr;
    QLabel *noSearchResultsTitle_ = nullptr;
    QWidget *noNotesInFolder_ = nullptr;
    QWidget *filtersHidingNotes_ = nullptr;
};

// A centred page of a title and a muted line, named `identifier`; its labels
// are named identifier + "Title" and identifier + "Message".
QWidget *emptyStatePage(const QString &identifier, const QString &title, const QString &message);

} // namespace kestil
