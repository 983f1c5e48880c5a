#include "shell/NoteRowDelegate.h"

#include "shell/NoteListItemModel.h"

#include <QApplication>
#include <QPainter>

namespace kestil {

namespace {
constexpr int padding = 10;
}

void NoteRowDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                            const QModelIndex &index) const
{
    QStyleOptionViewItem opt(option);
    initStyleOption(&opt, index);
    opt.text.clear();
    const QWidget *widget = option.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);

    const bool selected = option.state & QStyle::State_Selected;
    const QPalette::ColorGroup group =
        option.state & QStyle::State_Active ? QPalette::Active : QPalette::Inactive;
    const QColor text = option.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text);
    QColor muted = text;
    muted.setAlphaF(0.65f);

    const QRect area = option.rect.adjusted(padding, padding / 2, -padding, -padding / 2);
    QFont titleFont = option.font;
    titleFont.setWeight(QFont::DemiBold);
    const QFontMetrics titleMetrics(titleFont);
    QFont dateFont = option.font;
    dateFont.setPointSizeF(option.font.pointSizeF() * 0.88);

    painter->save();
    painter->setFont(titleFont);
    painter->setPen(text);
    const QString title = titleMetrics.elidedText(index.data(NoteListItemModel::TitleRole).toString(),
                                                  Qt::ElideRight, area.width());
    painter->drawText(QRect(area.left(), area.top(), area.width(), titleMetrics.height()), Qt::AlignLeft,
                      title);
    painter->setFont(dateFont);
    painter->setPen(muted);
    painter->drawText(QRect(area.left(), area.top() + titleMetrics.height() + 2, area.width(),
                            QFontMetrics(dateFont).height()),
                      Qt::AlignLeft, index.data(NoteListItemModel::DateTextRole).toString());
    painter->restore();
}

QSize NoteRowDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &) const
{
    QFont dateFont = option.font;
    dateFont.setPointSizeF(option.font.pointSizeF() * 0.88);
    return QSize(240, QFontMetrics(option.font).height() + QFontMetrics(dateFont).height() + padding + 4);
}

} // namespace kestil
