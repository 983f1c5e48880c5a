#pragma once

#include <QStyledItemDelegate>

namespace kestil {

// Paints a note row: the title in the body font with a mark when the note is
// being recorded or processed, the date below it, then a one-line preview,
// smaller and muted.
class NoteRowDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
};

} // namespace kestil
