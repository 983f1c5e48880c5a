#include "shell/NotesListEmptyStates.h"

#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace kestil {

QWidget *emptyStatePage(const QString &identifier, const QString &title, const QString &message)
{
    auto *page = new QWidget;
    page->setObjectName(identifier);
    page->setAccessibleName(identifier);
    auto *layout = new QVBoxLayout(page);
    layout->addStretch(1);
    auto *heading = new QLabel(title);
    heading->setObjectName(identifier + QStringLiteral("Title"));
    heading->setAlignment(Qt::AlignCenter);
    heading->setWordWrap(true);
    heading->setTextFormat(Qt::PlainText);
    QFont font = heading->font();
    font.setWeight(QFont::DemiBold);
    font.setPointSizeF(font.pointSizeF() * 1.15);
    heading->setFont(font);
    layout->addWidget(heading);
    auto *text = new QLabel(message);
    text->setObjectName(identifier + QStringLiteral("Message"));
    text->setAlignment(Qt::AlignCenter);
    text->setWordWrap(true);
    QPalette palette = text->palette();
    QColor ink = palette.color(QPalette::WindowText);
    ink.setAlphaF(0.6f);
    palette.setColor(QPalette::WindowText, ink);
    text->setPalette(palette);
    layout->addWidget(text);
    layout->addStretch(2);
    return page;
}

NotesListEmptyStates::NotesListEmptyStates(QWidget *parent) : QStackedWidget(parent)
{
    setObjectName(QStringLiteral("notesListEmptyStates"));
    noSearchResults_ = emptyStatePage(QStringLiteral("notesListNoSearchResults"), QString(),
                                      QStringLiteral("Try searching with different keywords"));
    noSearchResultsTitle_ =
        noSearchResults_->findChild<QLabel *>(QStringLiteral("notesListNoSearchResultsTitle"));
    noNotesInFolder_ =
        emptyStatePage(QStringLiteral("notesListNoNotesInFolder"), QStringLiteral("No notes in this folder"),
                       QStringLiteral("Create a note here, or pick another folder from the sidebar."));
    filtersHidingNotes_ = emptyStatePage(QStringLiteral("notesListFiltersHidingNotes"),
                                         QStringLiteral("Filters are hiding notes"),
                                         QStringLiteral("Your current filters match no notes in this view."));
    auto *clear = new QPushButton(QStringLiteral("Clear Filters"));
    clear->setObjectName(QStringLiteral("notesListClearFiltersButton"));
    clear->setAccessibleName(QStringLiteral("notesListClearFiltersButton"));
    connect(clear, &QPushButton::clicked, this, &NotesListEmptyStates::clearFiltersRequested);
    static_cast<QVBoxLayout *>(filtersHidingNotes_->layout())->insertWidget(3, clear, 0, Qt::AlignHCenter);
    addWidget(noSearchResults_);
    addWidget(noNotesInFolder_);
    addWidget(filtersHidingNotes_);
}

void NotesListEmptyStates::show(NotesListEmptyState state, const QString &searchText)
{
    switch (state) {
    case NotesListEmptyState::noSearchResults: {
        // A very long search is cut in the heading; the field holds it whole.
        const QString shown = searchText.size() > 80 ? searchText.left(80) + QStringLiteral("…") : searchText;
        noSearchResultsTitle_->setText(QStringLiteral("No Results for \"") + shown + QStringLiteral("\""));
        setCurrentWidget(noSearchResults_);
        break;
    }
    case NotesListEmptyState::noNotesInFolder:
        setCurrentWidget(noNotesInFolder_);
        break;
    case NotesListEmptyState::filtersHidingNotes:
        setCurrentWidget(filtersHidingNotes_);
        break;
    case NotesListEmptyState::none:
    case NotesListEmptyState::noNotesYet:
        break;
    }
}

} // namespace kestil
