#include "shell/NoteFolderChip.h"

#include "core/NoteOrganizing.h"
#include "core/SharedPersistenceController.h"
#include "library/OrganizingRules.h"
#include "shell/Icons.h"

#include <QActionGroup>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFontMetrics>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QVBoxLayout>

namespace kestil {

namespace {
const QString noFolderText = QStringLiteral("No Folder");
}

NoteFolderChip::NoteFolderChip(SharedPersistenceController &store, OnChange onChange, QWidget *parent)
    : QToolButton(parent), store_(store), onChange_(std::move(onChange))
{
    setObjectName(QStringLiteral("noteDetailFolderChip"));
    setAccessibleName(QStringLiteral("noteDetailFolderChip"));
    setToolTip(QStringLiteral("Move this note to a folder"));
    setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    setPopupMode(QToolButton::InstantPopup);
    setAutoRaise(true);
    setIcon(icons::folder(palette().color(QPalette::ButtonText)));
    menu_ = new QMenu(this);
    menu_->setObjectName(QStringLiteral("noteDetailFolderMenu"));
    connect(menu_, &QMenu::aboutToShow, this, &NoteFolderChip::populate);
    setMenu(menu_);
    populate();
    refresh();
}

void NoteFolderChip::setNote(const NotePtr &note)
{
    note_ = note;
    refresh();
}

void NoteFolderChip::refresh()
{
    const FolderPtr folder = note_ ? note_->folder() : nullptr;
    const QString full = folder ? folder->name().value_or(QString()) : noFolderText;
    // A long name is cut with an ellipsis; the tooltip holds it whole.
    setText(QFontMetrics(font()).elidedText(full, Qt::ElideRight, 220));
    setToolTip(folder ? QStringLiteral("Folder: ") + full : QStringLiteral("Move this note to a folder"));
    setEnabled(note_ != nullptr);
}

void NoteFolderChip::populate()
{
    menu_->clear();
    auto *group = new QActionGroup(menu_);
    const FolderPtr current = note_ ? note_->folder() : nullptr;
    QAction *none = menu_->addAction(noFolderText);
    none->setObjectName(QStringLiteral("noteDetailFolderNone"));
    none->setCheckable(true);
    none->setChecked(!current);
    group->addAction(none);
    connect(none, &QAction::triggered, this, [this] { fileNote(nullptr); });
    QList<FolderPtr> folders;
    try {
        folders = sortedFolders(store_.context());
    } catch (const std::exception &) {
        // Only "No Folder" and "New Folder…" are offered.
    }
    if (!folders.isEmpty())
        menu_->addSeparator();
    for (const FolderPtr &folder : folders) {
        QString text = folder->name().value_or(QString());
        text.replace(QLatin1Char('&'), QStringLiteral("&&"));
        QAction *action = menu_->addAction(QFontMetrics(menu_->font()).elidedText(text, Qt::ElideRight, 320));
        action->setObjectName(QStringLiteral("noteDetailFolder-") +
                              folder->id().value_or(QUuid()).toString(QUuid::WithoutBraces).toUpper());
        action->setCheckable(true);
        action->setChecked(folder == current);
        group->addAction(action);
        connect(action, &QAction::triggered, this, [this, folder] { fileNote(folder); });
    }
    menu_->addSeparator();
    QAction *create = menu_->addAction(QStringLiteral("New Folder…"));
    create->setObjectName(QStringLiteral("noteDetailFolderNew"));
    connect(create, &QAction::triggered, this, &NoteFolderChip::showCreate);
}

void NoteFolderChip::fileNote(const FolderPtr &folder)
{
    if (!note_ || note_->folder() == folder)
        return;
    const FolderPtr previous = note_->folder();
    note_->setFolder(folder);
    if (onChange_ && !onChange_())
        note_->setFolder(previous);
    refresh();
}

void NoteFolderChip::showCreate()
{
    if (!note_)
        return;
    auto *sheet = new QDialog(this);
    createSheet_ = sheet;
    sheet->setObjectName(QStringLiteral("noteFolderChipCreateSheet"));
    sheet->setWindowTitle(QStringLiteral("New Folder"));
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    auto *layout = new QVBoxLayout(sheet);
    auto *field = new QLineEdit;
    field->setObjectName(QStringLiteral("noteFolderChipNewFolderField"));
    field->setAccessibleName(QStringLiteral("noteFolderChipNewFolderField"));
    field->setPlaceholderText(QStringLiteral("New folder name"));
    field->setMinimumWidth(260);
    layout->addWidget(field);
    auto *buttons = new QDialogButtonBox;
    QPushButton *create = buttons->addButton(QStringLiteral("Create"), QDialogButtonBox::AcceptRole);
    create->setObjectName(QStringLiteral("noteFolderChipCreateButton"));
    QPushButton *cancel = buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    cancel->setObjectName(QStringLiteral("noteFolderChipCancelButton"));
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::rejected, sheet, &QDialog::reject);
    connect(buttons, &QDialogButtonBox::accepted, sheet, [this, sheet, field] {
        createFromSheet(field->text());
        sheet->accept();
    });
    connect(sheet, &QObject::destroyed, this, [this, sheet] {
        if (createSheet_ == sheet)
            createSheet_ = nullptr;
    });
    sheet->setWindowModality(Qt::WindowModal);
    sheet->open();
    field->setFocus();
}

void NoteFolderChip::createFromSheet(const QString &typed)
{
    if (!note_ || trimmedFolderName(typed).isEmpty())
        return;
    if (const FolderPtr folder = createFolder(typed, store_.context()))
        fileNote(folder);
}

} // namespace kestil
