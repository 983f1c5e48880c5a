#include "shell/NoteRowDelegate.h"

#include "shell/Icons.h"
#include "shell/NoteListItemModel.h"

#include <QApplication>
#include <QPainter>

namespace kestil {

namespace {

constexpr int padding = 10;
constexpr int markSize = 14;

QFont smallFont(const QFont &base)
{
    QFont f = base;
    f.setPointSizeF(base.pointSizeF() * 0.88);
    return f;
}

QFont headingFont(const QFont &base)
{
    QFont f = smallFont(base);
    f.setWeight(QFont::DemiBold);
    return f;
}

// The band above the first note of a day that holds the day's heading.
int headingHeight(const QFont &base)
{
    return QFontMetrics(headingFont(base)).height() + 14;
}

} // namespace

void NoteRowDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                            const QModelIndex &index) const
{
    QStyleOptionViewItem opt(option);
    initStyleOption(&opt, index);
    opt.text.clear();
    const QWidget *widget = option.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();

    // A day's heading sits above its first note, outside the note's
    // selection.
    const QString heading = index.data(NoteListItemModel::DayHeadingRole).toString();
    QRect noteRect = option.rect;
    if (!heading.isEmpty()) {
        const int band = headingHeight(option.font);
        const QRect headingRect(option.rect.left(), option.rect.top(), option.rect.width(), band);
        noteRect.setTop(option.rect.top() + band);
        painter->save();
        painter->setFont(headingFont(option.font));
        QColor headingColor = option.palette.color(QPalette::Active, QPalette::Text);
        headingColor.setAlphaF(0.55f);
        painter->setPen(headingColor);
        painter->drawText(headingRect.adjusted(padding, 8, -padding, -2), Qt::AlignLeft | Qt::AlignBottom,
                          heading);
        painter->restore();
        opt.rect = noteRect;
    }
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);

    const bool selected = option.state & QStyle::State_Selected;
    const QPalette::ColorGroup group =
        option.state & QStyle::State_Active ? QPalette::Active : QPalette::Inactive;
    const QColor text = option.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text);
    QColor muted = text;
    muted.setAlphaF(0.65f);
    const QColor accent = selected ? text : option.palette.color(group, QPalette::Highlight);

    QRect area = noteRect.adjusted(padding, padding / 2, -padding, -padding / 2);
    QFont titleFont = option.font;
    titleFont.setWeight(QFont::DemiBold);
    const QFontMetrics titleMetrics(titleFont);
    const QFont small = smallFont(option.font);
    const QFontMetrics smallMetrics(small);

    painter->save();
    int titleRight = area.right();
    const bool recording = index.data(NoteListItemModel::RecordingRole).toBool();
    const bool processing = index.data(NoteListItemModel::ProcessingRole).toBool();
    const QRect mark(area.right() - markSize + 1, area.top() + (titleMetrics.height() - markSize) / 2,
                     markSize, markSize);
    if (recording) {
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(Qt::NoPen);
        painter->setBrush(QColor(0xe5, 0x39, 0x35));
        painter->drawEllipse(QRectF(mark).adjusted(3, 3, -3, -3));
        titleRight = mark.left() - 6;
    } else if (processing) {
        // "Processing note": a summary or transcript is still being made.
        painter->drawPixmap(mark, icons::processing(accent, markSize * 2));
        titleRight = mark.left() - 6;
    }

    painter->setFont(titleFont);
    painter->setPen(text);
    const int titleWidth = titleRight - area.left();
    const QString title = titleMetrics.elidedText(index.data(NoteListItemModel::TitleRole).toString(),
                                                  Qt::ElideRight, titleWidth);
    painter->drawText(QRect(area.left(), area.top(), titleWidth, titleMetrics.height()), Qt::AlignLeft,
                      title);
    int y = area.top() + titleMetrics.height() + 2;

    painter->setFont(small);
    painter->setPen(muted);
    painter->drawText(QRect(area.left(), y, area.width(), smallMetrics.height()), Qt::AlignLeft,
                      index.data(NoteListItemModel::DateTextRole).toString());
    y += smallMetrics.height() + 1;

    const QString preview = index.data(NoteListItemModel::PreviewRole).toString();
    if (!preview.isEmpty()) {
        painter->drawText(QRect(area.left(), y, area.width(), smallMetrics.height()), Qt::AlignLeft,
                          smallMetrics.elidedText(preview, Qt::ElideRight, area.width()));
    }
    painter->restore();
}

QSize NoteRowDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    // Every row of a list asks, so the heights are worked out once per font.
    if (!measured_ || option.font != measuredFont_) {
        measured_ = true;
        measuredFont_ = option.font;
        const QFontMetrics small(smallFont(option.font));
        rowHeight_ = QFontMetrics(option.font).height() + 2 * small.height() + padding + 7;
        headingBand_ = headingHeight(option.font);
    }
    const bool heading = !index.data(NoteListItemModel::DayHeadingRole).toString().isEmpty();
    return QSize(240, rowHeight_ + (heading ? headingBand_ : 0));
}

} // namespace kestil
