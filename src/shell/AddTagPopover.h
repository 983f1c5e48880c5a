#pragma once

#include "core/Note.h"

#include <QFrame>

#include <functional>

class QLineEdit;

namespace kestil {

// The small popup where a tag is typed by hand. Return commits: the text is
// cleaned, and the tag is added unless nothing is left, the note already has
// ten tags, or it has a tag of the same canonical name; then `saveContext`
// runs. In every case the field empties and the popup closes, without a word
// for a tag that was dropped.
class AddTagPopover : public QFrame {
    Q_OBJECT
public:
    using SaveContext = std::function<void()>;
    AddTagPopover(NotePtr note, SaveContext saveContext, QWidget *parent = nullptr);

    QLineEdit *field() const { return field_; }
    // Opens under the given widget with the field focused.
    void popUpBelow(QWidget *anchor);
    void commit();

signals:
    // The note's tags after a commit that added one.
    void tagsChanged(const QStringList &currentTags);

private:
    NotePtr note_;
    SaveContext saveContext_;
    QLineEdit *field_ = nullptr;
};

} // namespace kestil
