#include "shell/TagFilterPopover.h"
#include "shell/WidgetNames.h"

#include "library/FilterAndSortState.h"
#include "shell/NoteListItemModel.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>

namespace kestil {

namespace {

QLabel *sectionTitle(const QString &text)
{
    auto *label = new QLabel(text);
    QFont font = label->font();
    font.setWeight(QFont::DemiBold);
    label->setFont(font);
    return label;
}

} // namespace

TagFilterPopover::TagFilterPopover(FilterAndSortState &state, NoteListItemModel &model, QWidget *parent)
    : QFrame(parent, Qt::Popup), state_(state), model_(model)
{
    named(this, QStringLiteral("notesListTagFilterPopover"));
    setFrameShape(QFrame::StyledPanel);
    setMinimumWidth(280);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 10, 12, 12);
    layout->setSpacing(8);

    auto *header = new QHBoxLayout;
    header->addWidget(sectionTitle(QStringLiteral("Filter & Sort")), 1);
    auto *reset = new QPushButton(QStringLiteral("Reset"));
    named(reset, QStringLiteral("tagFilterResetButton"));
    reset->setFlat(true);
    connect(reset, &QPushButton::clicked, &state_, &FilterAndSortState::clearFilters);
    header->addWidget(reset);
    layout->addLayout(header);

    auto *sortRow = new QHBoxLayout;
    auto *sortLabel = new QLabel(QStringLiteral("Sort by"));
    sortRow->addWidget(sortLabel);
    sortPicker_ = new QComboBox;
    named(sortPicker_, QStringLiteral("filterSortPicker"));
    sortPicker_->setToolTip(QStringLiteral("Sort by"));
    for (NotesSortOption option : allNotesSortOptions())
        sortPicker_->addItem(notesSortOptionLabel(option), int(option));
    sortLabel->setBuddy(sortPicker_);
    sortRow->addWidget(sortPicker_, 1);
    layout->addLayout(sortRow);
    connect(sortPicker_, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (!updating_ && index >= 0)
            state_.setSortOption(NotesSortOption(sortPicker_->itemData(index).toInt()));
    });

    auto *tagsHeader = new QHBoxLayout;
    tagsHeader->addWidget(sectionTitle(QStringLiteral("Tags")), 1);
    modes_ = new QButtonGroup(this);
    modes_->setExclusive(true);
    for (TagMatchMode mode : allTagMatchModes()) {
        auto *button = new QPushButton(tagMatchModeLabel(mode));
        named(button, mode == TagMatchMode::any ? QStringLiteral("tagMatchModeAny")
                                                : QStringLiteral("tagMatchModeAll"));
        button->setCheckable(true);
        button->setToolTip(tagMatchModeHelp(mode));
        button->setAutoDefault(false);
        modes_->addButton(button, int(mode));
        tagsHeader->addWidget(button);
    }
    connect(modes_, &QButtonGroup::idClicked, this, [this](int id) {
        if (!updating_)
            state_.setTagMatchMode(TagMatchMode(id));
    });
    auto *clear = new QPushButton(QStringLiteral("Clear"));
    named(clear, QStringLiteral("tagFilterClearButton"));
    clear->setFlat(true);
    connect(clear, &QPushButton::clicked, &state_, &FilterAndSortState::clearFilters);
    tagsHeader->addWidget(clear);
    layout->addLayout(tagsHeader);

    modeHelp_ = new QLabel;
    named(modeHelp_, QStringLiteral("tagMatchModeHelp"));
    modeHelp_->setWordWrap(true);
    QPalette muted = modeHelp_->palette();
    QColor text = muted.color(QPalette::WindowText);
    text.setAlphaF(0.65f);
    muted.setColor(QPalette::WindowText, text);
    modeHelp_->setPalette(muted);
    layout->addWidget(modeHelp_);

    tags_ = new QTreeWidget;
    named(tags_, QStringLiteral("tagFilterList"));
    tags_->setColumnCount(2);
    tags_->setHeaderHidden(true);
    tags_->setRootIsDecorated(false);
    tags_->setUniformRowHeights(true);
    tags_->header()->setStretchLastSection(false);
    tags_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    tags_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    tags_->setMinimumHeight(140);
    layout->addWidget(tags_, 1);
    connect(tags_, &QTreeWidget::itemChanged, this, [this](QTreeWidgetItem *item, int column) {
        if (updating_ || column != 0)
            return;
        const QString tag = item->data(0, Qt::UserRole).toString();
        const bool chosen = item->checkState(0) == Qt::Checked;
        if (chosen != state_.selectedTags().contains(tag))
            state_.toggleTag(tag);
    });
    // Return, like Space, checks the tag under the cursor.
    connect(tags_, &QTreeWidget::itemActivated, this, [](QTreeWidgetItem *item) {
        item->setCheckState(0, item->checkState(0) == Qt::Checked ? Qt::Unchecked : Qt::Checked);
    });

    noTags_ = new QLabel(QStringLiteral("No tags available"));
    named(noTags_, QStringLiteral("tagFilterNoTags"));
    noTags_->setAlignment(Qt::AlignCenter);
    noTags_->setPalette(muted);
    layout->addWidget(noTags_);

    connect(&state_, &FilterAndSortState::changed, this, &TagFilterPopover::showState);
    // Counting asks every note; only an open popup needs it.
    // The list changes while a tag's check box is being changed (choosing a
    // tag filters the list): the counts are redrawn once that is over.
    connect(
        &model_, &NoteListItemModel::shownNotesChanged, this,
        [this] {
            if (isVisible())
                refresh();
        },
        Qt::QueuedConnection);
    refresh();
}

void TagFilterPopover::refresh()
{
    updating_ = true;
    const QMap<QString, int> counts = model_.tagCounts();
    QSet<QString> names(counts.keyBegin(), counts.keyEnd());
    // A chosen tag stays listed so that it can be unchosen.
    for (const QString &tag : state_.selectedTags())
        names.insert(tag);
    QStringList sorted(names.begin(), names.end());
    std::sort(sorted.begin(), sorted.end(),
              [](const QString &a, const QString &b) { return a.localeAwareCompare(b) < 0; });
    QStringList listed;
    for (int i = 0; i < tags_->topLevelItemCount(); ++i)
        listed << tags_->topLevelItem(i)->data(0, Qt::UserRole).toString();
    if (listed == sorted) {
        // The same tags: only their counts change, and the cursor and the
        // scroll position stay where the user left them.
        for (int i = 0; i < tags_->topLevelItemCount(); ++i)
            tags_->topLevelItem(i)->setText(1, QString::number(counts.value(sorted.at(i))));
        updating_ = false;
        showState();
        return;
    }
    const QString current =
        tags_->currentItem() ? tags_->currentItem()->data(0, Qt::UserRole).toString() : QString();
    tags_->clear();
    for (const QString &tag : sorted) {
        auto *item = new QTreeWidgetItem(tags_);
        item->setText(0, tag);
        item->setData(0, Qt::UserRole, tag);
        item->setData(0, Qt::AccessibleTextRole, QStringLiteral("tagFilterTag-") + tag);
        item->setText(1, QString::number(counts.value(tag)));
        item->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        item->setCheckState(0, state_.selectedTags().contains(tag) ? Qt::Checked : Qt::Unchecked);
        if (tag == current)
            tags_->setCurrentItem(item);
    }
    tags_->setVisible(!sorted.isEmpty());
    noTags_->setVisible(sorted.isEmpty());
    updating_ = false;
    showState();
}

void TagFilterPopover::showState()
{
    updating_ = true;
    sortPicker_->setCurrentIndex(sortPicker_->findData(int(state_.sortOption())));
    if (auto *button = modes_->button(int(state_.tagMatchMode())))
        button->setChecked(true);
    modeHelp_->setText(tagMatchModeHelp(state_.tagMatchMode()));
    for (int i = 0; i < tags_->topLevelItemCount(); ++i) {
        QTreeWidgetItem *item = tags_->topLevelItem(i);
        item->setCheckState(0, state_.selectedTags().contains(item->data(0, Qt::UserRole).toString())
                                   ? Qt::Checked
                                   : Qt::Unchecked);
    }
    updating_ = false;
}

void TagFilterPopover::popUpBelow(QWidget *anchor)
{
    refresh();
    adjustSize();
    QPoint at = anchor->mapToGlobal(QPoint(anchor->width() - width(), anchor->height() + 2));
    if (const QScreen *screen = anchor->screen()) {
        const QRect available = screen->availableGeometry();
        at.setX(
            std::clamp(at.x(), available.left(), std::max(available.left(), available.right() - width())));
    }
    move(at);
    show();
    sortPicker_->setFocus();
}

} // namespace kestil
