#pragma once

#include "core/Folder.h"

#include <QDialog>
#include <QPointer>

class QLabel;
class QMessageBox;
class QLineEdit;
class QPushButton;
class QVBoxLayout;

namespace kestil {

class SharedPersistenceController;

// The sheet where the user makes, renames and deletes folders. Deleting asks
// first, with the number of notes that will become Unfiled; the notes stay.
//
// A failed save here is logged and not shown: the change stays in the
// store's context and goes out with the next save that succeeds.
class FolderManagementSheet : public QDialog {
    Q_OBJECT
public:
    explicit FolderManagementSheet(SharedPersistenceController &store, QWidget *parent = nullptr);

    // The typed name of a new folder; creating empties it.
    QLineEdit *newFolderField() const { return newFolderName_; }
    // Makes the folder of the typed name, or adopts the one of that name.
    void createFromField();
    // Starts renaming a folder in its row.
    void beginRename(const FolderPtr &folder);
    // Ends a rename: a name that is blank once trimmed changes nothing.
    void confirmRename(const QString &text);
    // Asks whether to delete the folder; deletes on "Delete".
    void requestDelete(const FolderPtr &folder);
    // The confirmation that requestDelete shows, while it is open.
    QMessageBox *deleteConfirmation() const { return confirmation_; }

signals:
    // A folder was made, renamed or deleted (saved or not).
    void foldersChanged();

private:
    void reload();
    void save();
    void deleteNow(const FolderPtr &folder);

    SharedPersistenceController &store_;
    QLineEdit *newFolderName_ = nullptr;
    QPushButton *create_ = nullptr;
    QWidget *rows_ = nullptr;
    QVBoxLayout *rowsLayout_ = nullptr;
    QLabel *empty_ = nullptr;
    FolderPtr renamingFolder_;
    QLineEdit *renameField_ = nullptr;
    QPointer<QMessageBox> confirmation_;
};

} // namespace kestil
