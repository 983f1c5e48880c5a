#pragma once

#include <QFrame>

class QLabel;
class QToolButton;

namespace kestil {

// One tag of a note as a small rounded chip: its name and, while the tags are
// being edited, a control that removes it from the note (the tag stays in
// the library). Identifiers "tagView-<name>" and "tagViewRemove-<name>".
class TagView : public QFrame {
    Q_OBJECT
public:
    explicit TagView(const QString &name, QWidget *parent = nullptr);

    const QString &name() const { return name_; }
    void setEditing(bool editing);
    bool isEditing() const { return editing_; }
    QToolButton *removeButton() const { return remove_; }

signals:
    void removeRequested(const QString &name);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QString name_;
    bool editing_ = false;
    QLabel *label_ = nullptr;
    QToolButton *remove_ = nullptr;
};

} // namespace kestil
