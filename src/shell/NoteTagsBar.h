#pragma once

#include "core/Note.h"
#include "shell/AddTagPopover.h"

#include <QPointer>
#include <QWidget>

#include <functional>

class QToolButton;

namespace kestil {

class FlowLayout;
class TagView;

// The tags of the shown note as TagViews, with "Add Tag" (a popup with a
// field) and "Edit Tags", which shows each tag's remove control. Every change
// runs `saveContext`.
class NoteTagsBar : public QWidget {
    Q_OBJECT
public:
    using SaveContext = std::function<void()>;
    explicit NoteTagsBar(SaveContext saveContext, QWidget *parent = nullptr);

    void setNote(const NotePtr &note);
    // Shows the note's tags again.
    void refresh();
    bool isEditingTags() const { return editing_; }
    void setEditingTags(bool editing);
    QList<TagView *> tagViews() const { return views_; }
    // Opens the popup that adds a tag.
    void showAddTag();
    AddTagPopover *addTagPopover() const { return popover_; }

private:
    void removeTag(const QString &name);

    SaveContext saveContext_;
    NotePtr note_;
    bool editing_ = false;
    FlowLayout *tags_ = nullptr;
    QList<TagView *> views_;
    QToolButton *add_ = nullptr;
    QToolButton *edit_ = nullptr;
    QPointer<AddTagPopover> popover_;
};

} // namespace kestil
