#include "shell/AddTagPopover.h"

#include "core/NoteOrganizing.h"

#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>

namespace kestil {

AddTagPopover::AddTagPopover(NotePtr note, SaveContext saveContext, QWidget *parent)
    : QFrame(parent, Qt::Popup), note_(std::move(note)), saveContext_(std::move(saveContext))
{
    setObjectName(QStringLiteral("addTagPopover"));
    setAccessibleName(QStringLiteral("addTagPopover"));
    setFrameShape(QFrame::StyledPanel);
    setAttribute(Qt::WA_DeleteOnClose);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(10, 10, 10, 10);
    field_ = new QLineEdit;
    field_->setObjectName(QStringLiteral("addTagField"));
    field_->setAccessibleName(QStringLiteral("addTagField"));
    field_->setPlaceholderText(QStringLiteral("Enter tag name (letters, numbers, dashes)"));
    field_->setMinimumWidth(280);
    layout->addWidget(field_);
    connect(field_, &QLineEdit::returnPressed, this, &AddTagPopover::commit);
}

void AddTagPopover::popUpBelow(QWidget *anchor)
{
    adjustSize();
    move(anchor->mapToGlobal(QPoint(0, anchor->height() + 2)));
    show();
    field_->setFocus();
}

void AddTagPopover::commit()
{
    bool added = false;
    try {
        added = note_ && addManualTag(*note_, field_->text());
    } catch (const std::exception &) {
        // A tag that cannot be added is dropped without a word.
        added = false;
    }
    field_->clear();
    if (added) {
        if (saveContext_)
            saveContext_();
        emit tagsChanged(note_->sortedTagNames());
    }
    close();
}

} // namespace kestil
