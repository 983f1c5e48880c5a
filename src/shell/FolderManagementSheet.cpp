#include "shell/FolderManagementSheet.h"
#include "shell/WidgetNames.h"

#include "core/NoteOrganizing.h"
#include "core/SharedPersistenceController.h"
#include "library/OrganizingRules.h"
#include "shell/Icons.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollArea>
#include <QToolButton>
#include <QVBoxLayout>

#include <cstdio>

namespace kestil {

namespace {

QString idText(const FolderPtr &folder)
{
    return folder->id().value_or(QUuid()).toString(QUuid::WithoutBraces).toUpper();
}

} // namespace

FolderManagementSheet::FolderManagementSheet(SharedPersistenceController &store, QWidget *parent)
    : QDialog(parent), store_(store)
{
    named(this, QStringLiteral("folderManagementSheet"));
    setWindowTitle(QStringLiteral("Folders"));
    resize(420, 440);
    auto *layout = new QVBoxLayout(this);
    layout->setSpacing(10);

    auto *heading = new QLabel(QStringLiteral(
        "Name your folder, then choose Create Folder. Find it in the Folders menu to organize your notes."));
    named(heading, QStringLiteral("folderManagementHeading"));
    heading->setWordWrap(true);
    layout->addWidget(heading);

    auto *createRow = new QHBoxLayout;
    newFolderName_ = new QLineEdit;
    named(newFolderName_, QStringLiteral("folderManagementNewFolderField"));
    newFolderName_->setPlaceholderText(QStringLiteral("New folder name"));
    createRow->addWidget(newFolderName_, 1);
    create_ = new QPushButton(QStringLiteral("Create Folder"));
    named(create_, QStringLiteral("folderManagementCreateButton"));
    createRow->addWidget(create_);
    layout->addLayout(createRow);
    connect(create_, &QPushButton::clicked, this, &FolderManagementSheet::createFromField);
    connect(newFolderName_, &QLineEdit::returnPressed, this, &FolderManagementSheet::createFromField);

    auto *scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::StyledPanel);
    rows_ = new QWidget;
    named(rows_, QStringLiteral("folderManagementList"));
    rowsLayout_ = new QVBoxLayout(rows_);
    rowsLayout_->setContentsMargins(8, 8, 8, 8);
    rowsLayout_->setSpacing(4);
    scroll->setWidget(rows_);
    layout->addWidget(scroll, 1);

    auto *buttons = new QDialogButtonBox;
    QPushButton *done = buttons->addButton(QStringLiteral("Done"), QDialogButtonBox::AcceptRole);
    named(done, QStringLiteral("folderManagementDoneButton"));
    // Return in a field creates or renames; it never closes the sheet.
    done->setAutoDefault(false);
    create_->setAutoDefault(false);
    connect(done, &QPushButton::clicked, this, &QDialog::accept);
    layout->addWidget(buttons);

    reload();
}

void FolderManagementSheet::reload()
{
    // A reload may run inside a row's own event (Return in the rename field,
    // a click on its buttons): the old rows go once that event is over.
    QLayoutItem *item;
    while ((item = rowsLayout_->takeAt(0)) != nullptr) {
        if (QWidget *old = item->widget()) {
            old->hide();
            for (QObject *child : old->findChildren<QObject *>())
                child->setObjectName(QString());
            old->setObjectName(QString());
            old->deleteLater();
        }
        delete item;
    }
    renameField_ = nullptr;
    QList<FolderPtr> folders;
    try {
        folders = sortedFolders(store_.context());
    } catch (const std::exception &) {
        // An unreadable store shows no folders; the list reports it.
    }
    if (folders.isEmpty()) {
        empty_ = new QLabel(QStringLiteral("Create a folder above to start organizing notes."));
        named(empty_, QStringLiteral("folderManagementEmpty"));
        empty_->setWordWrap(true);
        empty_->setAlignment(Qt::AlignCenter);
        rowsLayout_->addWidget(empty_);
        rowsLayout_->addStretch(1);
        return;
    }
    const QColor ink = palette().color(QPalette::ButtonText);
    for (const FolderPtr &folder : folders) {
        auto *row = new QWidget;
        named(row, QStringLiteral("folderManagementRow-") + idText(folder));
        auto *rowLayout = new QHBoxLayout(row);
        rowLayout->setContentsMargins(2, 0, 2, 0);
        auto *icon = new QLabel;
        icon->setPixmap(icons::folder(ink).pixmap(16, 16));
        rowLayout->addWidget(icon);
        if (folder == renamingFolder_) {
            renameField_ = new QLineEdit(folder->name().value_or(QString()));
            named(renameField_, QStringLiteral("folderManagementRenameField"));
            rowLayout->addWidget(renameField_, 1);
            connect(renameField_, &QLineEdit::returnPressed, this,
                    [this] { confirmRename(renameField_->text()); });
        } else {
            auto *label = new QLabel(folder->name().value_or(QString()));
            label->setTextFormat(Qt::PlainText);
            label->setToolTip(folder->name().value_or(QString()));
            label->setMinimumWidth(40);
            label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
            rowLayout->addWidget(label, 1);
            auto *count = new QLabel(QString::number(folderNoteCount(*folder)));
            rowLayout->addWidget(count);
        }
        auto *rename = new QToolButton;
        named(rename, QStringLiteral("folderManagementRename-") + idText(folder));
        rename->setIcon(icons::edit(ink));
        rename->setToolTip(QStringLiteral("Rename"));
        connect(rename, &QToolButton::clicked, this, [this, folder] {
            if (renamingFolder_ == folder && renameField_)
                confirmRename(renameField_->text());
            else
                beginRename(folder);
        });
        rowLayout->addWidget(rename);
        auto *remove = new QToolButton;
        named(remove, QStringLiteral("folderManagementDelete-") + idText(folder));
        remove->setIcon(icons::clear(ink));
        remove->setToolTip(QStringLiteral("Delete"));
        connect(remove, &QToolButton::clicked, this, [this, folder] { requestDelete(folder); });
        rowLayout->addWidget(remove);
        rowsLayout_->addWidget(row);
    }
    rowsLayout_->addStretch(1);
    if (renameField_) {
        renameField_->setFocus();
        renameField_->selectAll();
    }
}

void FolderManagementSheet::save()
{
    try {
        store_.save();
    } catch (const std::exception &error) {
        // The one save that is not reported: the change stays in the
        // context, and the next save that succeeds writes it.
        std::printf("FolderManagementSheet save failed: %s\n", error.what());
        std::fflush(stdout);
    }
    emit foldersChanged();
}

void FolderManagementSheet::createFromField()
{
    const QString typed = trimmedFolderName(newFolderName_->text());
    if (typed.isEmpty())
        return;
    if (createFolder(typed, store_.context()))
        save();
    newFolderName_->clear();
    reload();
}

void FolderManagementSheet::beginRename(const FolderPtr &folder)
{
    renamingFolder_ = folder;
    reload();
}

void FolderManagementSheet::confirmRename(const QString &text)
{
    const FolderPtr folder = renamingFolder_;
    renamingFolder_.reset();
    const QString trimmed = trimmedFolderName(text);
    // No check for a name in use: two folders may share a name after a
    // rename.
    if (folder && !trimmed.isEmpty() && folder->name() != trimmed) {
        folder->setValue(QStringLiteral("name"), trimmed);
        save();
    }
    reload();
}

void FolderManagementSheet::requestDelete(const FolderPtr &folder)
{
    if (!folder)
        return;
    confirmation_ =
        new QMessageBox(QMessageBox::Warning, QStringLiteral("Delete Folder"),
                        folderDeletionMessage(folder->name().value_or(QString()), folderNoteCount(*folder)),
                        QMessageBox::NoButton, this);
    confirmation_->setObjectName(QStringLiteral("folderManagementDeleteConfirmation"));
    QPushButton *cancel = confirmation_->addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    QPushButton *remove = confirmation_->addButton(QStringLiteral("Delete"), QMessageBox::DestructiveRole);
    named(cancel, QStringLiteral("folderManagementDeleteCancelButton"));
    named(remove, QStringLiteral("folderManagementDeleteConfirmButton"));
    confirmation_->setDefaultButton(cancel);
    confirmation_->setAttribute(Qt::WA_DeleteOnClose);
    connect(confirmation_, &QMessageBox::finished, this, [this, folder, remove] {
        const bool confirmed = confirmation_ && confirmation_->clickedButton() == remove;
        confirmation_ = nullptr;
        if (confirmed)
            deleteNow(folder);
    });
    confirmation_->open();
}

void FolderManagementSheet::deleteNow(const FolderPtr &folder)
{
    if (renamingFolder_ == folder)
        renamingFolder_.reset();
    // Its notes stay and become unfiled.
    store_.context().deleteObject(folder);
    save();
    reload();
}

} // namespace kestil
