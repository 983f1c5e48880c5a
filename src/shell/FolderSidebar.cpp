#include "shell/FolderSidebar.h"

#include "core/LocalAppModel.h"
#include "core/NoteOrganizing.h"
#include "prefs/SettingsKeys.h"
#include "shell/Icons.h"

#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace kestil {

namespace {

enum Column { nameColumn = 0, countColumn = 1 };
constexpr int selectionRole = Qt::UserRole + 1;
constexpr int folderIdRole = Qt::UserRole + 2;

enum EntryKind { allEntry = 1, unfiledEntry, folderEntry, headingEntry };

QString folderIdentifier(const QUuid &id)
{
    return QStringLiteral("folderSidebarFolder-") + id.toString(QUuid::WithoutBraces).toUpper();
}

QTreeWidgetItem *entry(const QString &text, const QString &identifier, int kind, const QIcon &icon)
{
    auto *item = new QTreeWidgetItem;
    item->setText(nameColumn, text);
    item->setIcon(nameColumn, icon);
    item->setData(nameColumn, Qt::AccessibleTextRole, identifier);
    item->setData(nameColumn, selectionRole, kind);
    item->setTextAlignment(countColumn, Qt::AlignRight | Qt::AlignVCenter);
    return item;
}

} // namespace

FolderSidebar::FolderSidebar(LocalAppModel &app, PreferenceStore &preferences, QWidget *parent)
    : QWidget(parent), app_(app), preferences_(preferences)
{
    setObjectName(QStringLiteral("folderSidebar"));
    setAccessibleName(QStringLiteral("folderSidebar"));
    setMinimumWidth(170);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 10, 0, 8);
    layout->setSpacing(6);

    tree_ = new QTreeWidget;
    tree_->setObjectName(QStringLiteral("folderSidebarList"));
    tree_->setAccessibleName(QStringLiteral("folderSidebarList"));
    tree_->setColumnCount(2);
    tree_->setHeaderHidden(true);
    tree_->setRootIsDecorated(true);
    tree_->setFrameShape(QFrame::NoFrame);
    tree_->setIndentation(14);
    tree_->header()->setStretchLastSection(false);
    tree_->header()->setSectionResizeMode(nameColumn, QHeaderView::Stretch);
    tree_->header()->setSectionResizeMode(countColumn, QHeaderView::ResizeToContents);
    layout->addWidget(tree_, 1);

    const QColor ink = palette().color(QPalette::WindowText);
    allNotes_ = entry(QStringLiteral("All Notes"), QStringLiteral("folderSidebarAllNotes"), allEntry,
                      icons::folder(ink));
    unfiled_ = entry(QStringLiteral("Unfiled"), QStringLiteral("folderSidebarUnfiled"), unfiledEntry,
                     icons::folder(ink));
    folders_ =
        entry(QStringLiteral("Folders"), QStringLiteral("folderSidebarFolders"), headingEntry, QIcon());
    // The heading opens and closes; it is not a place to show.
    folders_->setFlags(Qt::ItemIsEnabled);
    QFont headingFont = folders_->font(nameColumn);
    headingFont.setWeight(QFont::DemiBold);
    folders_->setFont(nameColumn, headingFont);
    tree_->addTopLevelItems({allNotes_, unfiled_, folders_});

    manage_ = new QPushButton(QStringLiteral("Manage Folders…"));
    manage_->setObjectName(QStringLiteral("folderSidebarManageButton"));
    manage_->setAccessibleName(QStringLiteral("folderSidebarManageButton"));
    manage_->setFlat(true);
    connect(manage_, &QPushButton::clicked, this, &FolderSidebar::manageFoldersRequested);
    layout->addWidget(manage_, 0, Qt::AlignLeft);

    connect(tree_, &QTreeWidget::currentItemChanged, this, [this] {
        if (!reloading_)
            adoptCurrentItem();
    });
    connect(tree_, &QTreeWidget::itemExpanded, this, [this](QTreeWidgetItem *item) {
        if (item == folders_ && !reloading_)
            settings::setFoldersExpanded(preferences_, true);
    });
    connect(tree_, &QTreeWidget::itemCollapsed, this, [this](QTreeWidgetItem *item) {
        if (item == folders_ && !reloading_)
            settings::setFoldersExpanded(preferences_, false);
    });
    connect(&app_, &LocalAppModel::notesChanged, this, &FolderSidebar::reload);
    if (app_.store())
        connect(app_.store(), &SharedPersistenceController::didSave, this, &FolderSidebar::reload);

    reload();
    tree_->setCurrentItem(allNotes_);
}

QTreeWidgetItem *FolderSidebar::itemFor(const FolderSelection &selection) const
{
    switch (selection.kind) {
    case FolderSelection::Kind::all:
        return allNotes_;
    case FolderSelection::Kind::unfiled:
        return unfiled_;
    case FolderSelection::Kind::folder:
        for (int i = 0; i < folders_->childCount(); ++i) {
            if (folders_->child(i)->data(nameColumn, folderIdRole).toUuid() == selection.folderID)
                return folders_->child(i);
        }
        return nullptr;
    }
    return nullptr;
}

void FolderSidebar::reload()
{
    reloading_ = true;
    // One pass over the notes counts every entry.
    QHash<const Folder *, qsizetype> counts;
    qsizetype unfiled = 0;
    for (const NotePtr &note : app_.notes()) {
        if (const FolderPtr folder = note->folder())
            ++counts[folder.get()];
        else
            ++unfiled;
    }
    QList<FolderPtr> folders;
    if (app_.storeReady()) {
        try {
            folders = sortedFolders(app_.store()->context());
        } catch (const std::exception &) {
            // The folders stay as they were listed; the list itself reports a
            // store that cannot be read.
        }
    }
    allNotes_->setText(countColumn, QString::number(app_.notes().size()));
    unfiled_->setText(countColumn, QString::number(unfiled));

    QList<std::pair<QUuid, QString>> wanted;
    for (const FolderPtr &folder : folders) {
        if (const std::optional<QUuid> id = folder->id())
            wanted.append({*id, folder->name().value_or(QString())});
    }
    QList<std::pair<QUuid, QString>> listed;
    for (int i = 0; i < folders_->childCount(); ++i)
        listed.append({folders_->child(i)->data(nameColumn, folderIdRole).toUuid(),
                       folders_->child(i)->text(nameColumn)});
    if (wanted != listed) {
        // A folder without id cannot be chosen and is not listed.
        qDeleteAll(folders_->takeChildren());
        const QColor ink = palette().color(QPalette::WindowText);
        for (const auto &[id, name] : wanted) {
            auto *item = entry(name, folderIdentifier(id), folderEntry, icons::folder(ink));
            item->setData(nameColumn, folderIdRole, id);
            item->setToolTip(nameColumn, name);
            folders_->addChild(item);
        }
    }
    int row = 0;
    for (const FolderPtr &folder : folders) {
        if (folder->id())
            folders_->child(row++)->setText(countColumn, QString::number(counts.value(folder.get())));
    }
    folders_->setText(countColumn, wanted.isEmpty() ? QString() : QString::number(wanted.size()));
    folders_->setExpanded(settings::foldersExpanded(preferences_));

    QTreeWidgetItem *current = itemFor(selection_);
    if (current && tree_->currentItem() != current)
        tree_->setCurrentItem(current);
    reloading_ = false;
    // The folder being shown was deleted: the list shows every note.
    if (!current)
        select(FolderSelection::all());
}

void FolderSidebar::select(const FolderSelection &selection)
{
    QTreeWidgetItem *item = itemFor(selection);
    if (!item)
        item = allNotes_;
    if (item->parent() == folders_ && !folders_->isExpanded())
        folders_->setExpanded(true);
    if (tree_->currentItem() != item)
        tree_->setCurrentItem(item);
    else
        adoptCurrentItem();
}

void FolderSidebar::adoptCurrentItem()
{
    QTreeWidgetItem *item = tree_->currentItem();
    if (!item)
        return;
    FolderSelection next;
    switch (item->data(nameColumn, selectionRole).toInt()) {
    case allEntry:
        next = FolderSelection::all();
        break;
    case unfiledEntry:
        next = FolderSelection::unfiled();
        break;
    case folderEntry:
        next = FolderSelection::folder(item->data(nameColumn, folderIdRole).toUuid());
        break;
    default:
        return; // the heading keeps the selection as it was
    }
    if (next == selection_)
        return;
    selection_ = next;
    emit selectionChanged(selection_);
}

} // namespace kestil
