#include "shell/FlowLayout.h"

#include <QWidget>

#include <algorithm>

namespace kestil {

FlowLayout::FlowLayout(QWidget *parent, int spacing) : QLayout(parent), spacing_(spacing)
{
    setContentsMargins(0, 0, 0, 0);
}

FlowLayout::~FlowLayout()
{
    while (QLayoutItem *item = takeAt(0))
        delete item;
}

void FlowLayout::addItem(QLayoutItem *item)
{
    items_.append(item);
}

void FlowLayout::insertWidget(int index, QWidget *widget)
{
    addChildWidget(widget);
    items_.insert(index < 0 || index > items_.size() ? items_.size() : index, new QWidgetItem(widget));
    invalidate();
}

QLayoutItem *FlowLayout::takeAt(int index)
{
    if (index < 0 || index >= items_.size())
        return nullptr;
    return items_.takeAt(index);
}

int FlowLayout::heightForWidth(int width) const
{
    return arrange(QRect(0, 0, width, 0), false);
}

QSize FlowLayout::minimumSize() const
{
    QSize size;
    for (const QLayoutItem *item : items_)
        size = size.expandedTo(item->minimumSize());
    const QMargins m = contentsMargins();
    return size + QSize(m.left() + m.right(), m.top() + m.bottom());
}

QSize FlowLayout::sizeHint() const
{
    // One line when there is room for it; heightForWidth says how tall it
    // becomes when there is not.
    int width = 0;
    int height = 0;
    for (const QLayoutItem *item : items_) {
        if (item->isEmpty())
            continue;
        const QSize hint = item->sizeHint();
        width += (width > 0 ? spacing_ : 0) + hint.width();
        height = std::max(height, hint.height());
    }
    const QMargins m = contentsMargins();
    return {width + m.left() + m.right(), height + m.top() + m.bottom()};
}

void FlowLayout::setGeometry(const QRect &rect)
{
    QLayout::setGeometry(rect);
    arrange(rect, true);
}

int FlowLayout::arrange(const QRect &rect, bool apply) const
{
    const QRect area = rect.marginsRemoved(contentsMargins());
    int x = area.x();
    int y = area.y();
    int lineHeight = 0;
    for (QLayoutItem *item : items_) {
        if (item->isEmpty())
            continue;
        const QSize hint = item->sizeHint().boundedTo(QSize(std::max(area.width(), 1), QWIDGETSIZE_MAX));
        if (x > area.x() && x + hint.width() > area.right() + 1) {
            x = area.x();
            y += lineHeight + spacing_;
            lineHeight = 0;
        }
        if (apply)
            item->setGeometry(QRect(QPoint(x, y), hint));
        x += hint.width() + spacing_;
        lineHeight = std::max(lineHeight, hint.height());
    }
    const QMargins m = contentsMargins();
    return y + lineHeight - rect.y() + m.bottom();
}

} // namespace kestil
