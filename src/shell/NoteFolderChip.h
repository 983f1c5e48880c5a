#pragma once

#include "core/Note.h"

#include <QToolButton>

#include <functional>

class QDialog;
class QLineEdit;
class QMenu;

namespace kestil {

class SharedPersistenceController;

// The chip on a note that shows its folder and files it: its menu offers the
// folders, "No Folder", and "New Folder…", which asks for a name in a small
// sheet, makes the folder (or adopts the one of that name) and files the note
// there. Each change runs `onChange`, which saves and says whether that
// worked; a change that could not be saved is taken back on the note.
class NoteFolderChip : public QToolButton {
    Q_OBJECT
public:
    using OnChange = std::function<bool()>;
    NoteFolderChip(SharedPersistenceController &store, OnChange onChange, QWidget *parent = nullptr);

    void setNote(const NotePtr &note);
    const NotePtr &note() const { return note_; }
    // Files the note in the folder, or in none.
    void fileNote(const FolderPtr &folder);
    // Opens the sheet that makes a folder for the note.
    void showCreate();
    // The sheet while it is open, and its field.
    QDialog *createSheet() const { return createSheet_; }
    // Makes the folder of the typed name and files the note there.
    void createFromSheet(const QString &typed);
    // Shows the note's folder again (a rename, a delete).
    void refresh();

private:
    void populate();

    SharedPersistenceController &store_;
    OnChange onChange_;
    NotePtr note_;
    QMenu *menu_ = nullptr;
    QDialog *createSheet_ = nullptr;
};

} // namespace kestil
