#include "shell/NoteTagsBar.h"

#include "shell/AddTagPopover.h"
#include "shell/FlowLayout.h"
#include "shell/Icons.h"
#include "shell/TagView.h"

#include <QHBoxLayout>
#include <QToolButton>

namespace kestil {

NoteTagsBar::NoteTagsBar(SaveContext saveContext, QWidget *parent)
    : QWidget(parent), saveContext_(std::move(saveContext))
{
    setObjectName(QStringLiteral("noteDetailTags"));
    setAccessibleName(QStringLiteral("noteDetailTags"));
    // Tags and the two buttons flow onto further lines in a narrow window.
    tags_ = new FlowLayout(this, 4);

    add_ = new QToolButton;
    add_->setObjectName(QStringLiteral("noteDetailAddTagButton"));
    add_->setAccessibleName(QStringLiteral("noteDetailAddTagButton"));
    add_->setText(QStringLiteral("Add Tag"));
    add_->setIcon(icons::plus(palette().color(QPalette::ButtonText)));
    add_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    add_->setAutoRaise(true);
    connect(add_, &QToolButton::clicked, this, &NoteTagsBar::showAddTag);
    tags_->addWidget(add_);

    edit_ = new QToolButton;
    edit_->setObjectName(QStringLiteral("noteDetailEditTagsButton"));
    edit_->setAccessibleName(QStringLiteral("noteDetailEditTagsButton"));
    edit_->setText(QStringLiteral("Edit Tags"));
    edit_->setCheckable(true);
    edit_->setAutoRaise(true);
    connect(edit_, &QToolButton::toggled, this, &NoteTagsBar::setEditingTags);
    tags_->addWidget(edit_);
}

void NoteTagsBar::setNote(const NotePtr &note)
{
    if (note != note_)
        setEditingTags(false);
    note_ = note;
    refresh();
}

void NoteTagsBar::refresh()
{
    const QStringList names = note_ ? note_->sortedTagNames() : QStringList();
    QStringList shown;
    for (const TagView *view : views_)
        shown << view->name();
    if (names != shown) {
        // A view may be the one whose remove control was just clicked: it
        // goes when the click is over.
        for (TagView *view : views_) {
            tags_->removeWidget(view);
            view->hide();
            // Gone by name at once, so that nothing finds the old view.
            for (QObject *child : view->findChildren<QObject *>())
                child->setObjectName(QString());
            view->setObjectName(QString());
            view->deleteLater();
        }
        views_.clear();
        for (const QString &name : names) {
            auto *view = new TagView(name);
            view->setEditing(editing_);
            connect(view, &TagView::removeRequested, this, &NoteTagsBar::removeTag);
            // Tags come before the two buttons.
            tags_->insertWidget(tags_->indexOf(add_), view);
            view->show(); // now, not when the event loop next runs
            views_.append(view);
        }
    }
    add_->setEnabled(note_ != nullptr);
    edit_->setVisible(!names.isEmpty());
    if (names.isEmpty() && editing_)
        setEditingTags(false);
}

void NoteTagsBar::setEditingTags(bool editing)
{
    editing_ = editing;
    for (TagView *view : views_)
        view->setEditing(editing);
    if (edit_->isChecked() != editing)
        edit_->setChecked(editing);
    edit_->setText(editing ? QStringLiteral("Done") : QStringLiteral("Edit Tags"));
}

void NoteTagsBar::showAddTag()
{
    if (!note_)
        return;
    setEditingTags(false);
    popover_ = new AddTagPopover(note_, saveContext_, this);
    connect(popover_, &AddTagPopover::tagsChanged, this, [this] { refresh(); });
    popover_->popUpBelow(add_);
}

void NoteTagsBar::removeTag(const QString &name)
{
    if (!note_)
        return;
    note_->removeTag(name);
    if (saveContext_)
        saveContext_();
    refresh();
}

} // namespace kestil
