#pragma once

#include <QLineEdit>

namespace kestil {

// The note's title in the detail header, renamed in place. A title wider
// than the field ends in "…" while the field is not being edited, so that
// the reader sees that there is more rather than a word cut in the middle;
// the whole title is then its tooltip. Editing shows the text as typed.
class NoteTitleEdit : public QLineEdit {
    Q_OBJECT
public:
    explicit NoteTitleEdit(QWidget *parent = nullptr);

    // Whether the shown title is cut short with "…".
    bool isElided() const;

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    QRect textArea() const;
};

} // namespace kestil
