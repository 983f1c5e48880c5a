#pragma once

#include <QFont>
#include <QStyledItemDelegate>

namespace kestil {

// Paints a note row: the title in the body font with a mark when the note is
// being recorded or processed, the date below it, then a one-line preview,
// smaller and muted. The first note of a day has the day's heading above it.
class NoteRowDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;

private:
    mutable bool measured_ = false;
    mutable QFont measuredFont_;
    mutable int rowHeight_ = 0;
    mutable int headingBand_ = 0;
};

} // namespace kestil
