#pragma once

#include <QWidget>

class QLineEdit;
class QToolButton;

namespace kestil {

class FilterAndSortState;
class NoteListItemModel;
class TagFilterPopover;

// The row above the notes list: the search field ("Search...") with its clear
// button, and the filter button that opens the sort and tag popup. The button
// shows a filled symbol while tags, match mode or order differ from their
// defaults. Escape in the field clears it.
class NotesListFilterBar : public QWidget {
    Q_OBJECT
public:
    NotesListFilterBar(FilterAndSortState &state, NoteListItemModel &model, QWidget *parent = nullptr);

    QLineEdit *searchField() const { return search_; }
    QToolButton *filterButton() const { return filter_; }
    TagFilterPopover *popover() const { return popover_; }
    // Ctrl+F: the search field takes the keyboard, its text selected.
    void focusSearch();
    void clearSearch();
    void showPopover();
    // Whether the button shows its filled symbol.
    bool showsActiveFilters() const { return filled_; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void showFilterState();

    FilterAndSortState &state_;
    NoteListItemModel &model_;
    QLineEdit *search_ = nullptr;
    QToolButton *clear_ = nullptr;
    QToolButton *filter_ = nullptr;
    TagFilterPopover *popover_ = nullptr;
    bool filled_ = false;
};

} // namespace kestil
