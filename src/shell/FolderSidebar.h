#pragma once

#include "core/Folder.h"
#include "library/FolderSelection.h"

#include <QWidget>

class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace kestil {

class LocalAppModel;
class PreferenceStore;

// The first column of the library: All Notes, Unfiled, and the user's folders
// under a Folders heading that opens and closes (remembered as
// foldersExpanded), each with its number of notes, and the button that opens
// the folder management sheet. Arrow keys move between the entries.
//
// Rows carry identifiers as accessible text: "folderSidebarAllNotes",
// "folderSidebarUnfiled", "folderSidebarFolders" and
// "folderSidebarFolder-<folder id>".
class FolderSidebar : public QWidget {
    Q_OBJECT
public:
    FolderSidebar(LocalAppModel &app, PreferenceStore &preferences, QWidget *parent = nullptr);

    const FolderSelection &selection() const { return selection_; }
    // Selects an entry; a folder that is not listed selects All Notes.
    void select(const FolderSelection &selection);
    // Reads the folders and counts again. A selected folder that is gone
    // gives way to All Notes.
    void reload();
    // The row of a selection, for tests and keyboard focus.
    QTreeWidgetItem *itemFor(const FolderSelection &selection) const;

signals:
    void selectionChanged(const kestil::FolderSelection &selection);
    void manageFoldersRequested();

private:
    void adoptCurrentItem();

    LocalAppModel &app_;
    PreferenceStore &preferences_;
    QTreeWidget *tree_ = nullptr;
    QTreeWidgetItem *allNotes_ = nullptr;
    QTreeWidgetItem *unfiled_ = nullptr;
    QTreeWidgetItem *folders_ = nullptr;
    QPushButton *manage_ = nullptr;
    FolderSelection selection_ = FolderSelection::all();
    bool reloading_ = false;
};

} // namespace kestil
