#include "shell/NotesListFilterBar.h"
#include "shell/WidgetNames.h"

#include "library/FilterAndSortState.h"
#include "shell/Icons.h"
#include "shell/NoteListItemModel.h"
#include "shell/TagFilterPopover.h"

#include <QAction>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLineEdit>
#include <QToolButton>

namespace kestil {

namespace {
} // namespace

NotesListFilterBar::NotesListFilterBar(FilterAndSortState &state, NoteListItemModel &model, QWidget *parent)
    : QWidget(parent), state_(state), model_(model)
{
    setObjectName(QStringLiteral("notesListFilterBar"));
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(10, 0, 8, 6);
    layout->setSpacing(4);
    const QColor ink = palette().color(QPalette::ButtonText);

    search_ = new QLineEdit;
    named(search_, QStringLiteral("notesListSearchField"));
    search_->setPlaceholderText(QStringLiteral("Search..."));
    search_->setToolTip(QStringLiteral("Search titles, transcripts and tags (Ctrl+F)"));
    search_->addAction(icons::magnifier(ink), QLineEdit::LeadingPosition);
    search_->installEventFilter(this);
    layout->addWidget(search_, 1);

    clear_ = new QToolButton(search_);
    named(clear_, QStringLiteral("clearSearchButton"));
    clear_->setIcon(icons::clear(ink));
    clear_->setToolTip(QStringLiteral("Clear search"));
    clear_->setAutoRaise(true);
    clear_->setCursor(Qt::ArrowCursor);
    clear_->setFocusPolicy(Qt::NoFocus); // Escape clears from the keyboard
    clear_->hide();
    connect(clear_, &QToolButton::clicked, this, &NotesListFilterBar::clearSearch);
    // The clear button sits inside the field, at its end.
    auto *clearLayout = new QHBoxLayout(search_);
    clearLayout->setContentsMargins(0, 0, 3, 0);
    clearLayout->addStretch(1);
    clearLayout->addWidget(clear_);
    search_->setTextMargins(0, 0, 22, 0);

    connect(search_, &QLineEdit::textChanged, this, [this](const QString &text) {
        clear_->setVisible(!text.isEmpty());
        model_.setSearchText(text);
    });

    filter_ = new QToolButton;
    named(filter_, QStringLiteral("notesListTagFilterButton"));
    filter_->setToolTip(QStringLiteral("Filter by tags and sort"));
    filter_->setAutoRaise(true);
    filter_->setIconSize(QSize(20, 20));
    connect(filter_, &QToolButton::clicked, this, &NotesListFilterBar::showPopover);
    layout->addWidget(filter_);

    popover_ = new TagFilterPopover(state_, model_, this);
    connect(&state_, &FilterAndSortState::changed, this, &NotesListFilterBar::showFilterState);
    showFilterState();
}

void NotesListFilterBar::showFilterState()
{
    filled_ = state_.hasActiveFilters();
    const QColor ink = filled_ ? palette().color(QPalette::Highlight) : palette().color(QPalette::ButtonText);
    filter_->setIcon(icons::filter(ink, filled_));
    filter_->setAccessibleDescription(filled_ ? QStringLiteral("Filters on") : QStringLiteral("No filters"));
}

void NotesListFilterBar::focusSearch()
{
    search_->setFocus(Qt::ShortcutFocusReason);
    search_->selectAll();
}

void NotesListFilterBar::clearSearch()
{
    search_->clear();
}

void NotesListFilterBar::showPopover()
{
    popover_->popUpBelow(filter_);
}

bool NotesListFilterBar::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == search_ && event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent *>(event)->key() == Qt::Key_Escape && !search_->text().isEmpty()) {
        clearSearch();
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace kestil
