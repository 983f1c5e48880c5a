#pragma once

#include <QFrame>

class QButtonGroup;
class QComboBox;
class QLabel;
class QPushButton;
class QTreeWidget;

namespace kestil {

class FilterAndSortState;
class NoteListItemModel;

// The popup under the list's filter button: the "Sort by" picker, Any or All
// for the chosen tags (with a line that says what each does), every tag of
// the library with the number of notes that pass the search, and "Reset" and
// "Clear", which both put tags, match mode and order back to their defaults.
// The tags are checked with Space and the mouse alike.
class TagFilterPopover : public QFrame {
    Q_OBJECT
public:
    TagFilterPopover(FilterAndSortState &state, NoteListItemModel &model, QWidget *parent = nullptr);

    // Reads the tags and counts again.
    void refresh();
    void popUpBelow(QWidget *anchor);

    QComboBox *sortPicker() const { return sortPicker_; }
    QTreeWidget *tagList() const { return tags_; }

private:
    void showState();

    FilterAndSortState &state_;
    NoteListItemModel &model_;
    QComboBox *sortPicker_ = nullptr;
    QButtonGroup *modes_ = nullptr;
    QLabel *modeHelp_ = nullptr;
    QTreeWidget *tags_ = nullptr;
    QLabel *noTags_ = nullptr;
    bool updating_ = false;
};

} // namespace kestil
