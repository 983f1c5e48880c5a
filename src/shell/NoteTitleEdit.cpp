#include "shell/NoteTitleEdit.h"

#include <QEvent>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionFrame>

namespace kestil {

namespace {

const QString renameTip = QStringLiteral("Rename this note");

} // namespace

NoteTitleEdit::NoteTitleEdit(QWidget *parent) : QLineEdit(parent)
{
    setToolTip(renameTip);
}

QRect NoteTitleEdit::textArea() const
{
    QStyleOptionFrame option;
    initStyleOption(&option);
    const QMargins margins = textMargins();
    // QLineEdit keeps a small horizontal margin inside its contents.
    return style()
        ->subElementRect(QStyle::SE_LineEditContents, &option, this)
        .marginsRemoved(margins)
        .adjusted(2, 0, -2, 0);
}

bool NoteTitleEdit::isElided() const
{
    return !hasFocus() && fontMetrics().horizontalAdvance(text()) > textArea().width();
}

void NoteTitleEdit::paintEvent(QPaintEvent *event)
{
    if (!isElided()) {
        QLineEdit::paintEvent(event);
        return;
    }
    QPainter painter(this);
    QStyleOptionFrame option;
    initStyleOption(&option);
    style()->drawPrimitive(QStyle::PE_PanelLineEdit, &option, &painter, this);
    const QRect area = textArea();
    painter.setPen(palette().color(isEnabled() ? QPalette::Active : QPalette::Disabled, QPalette::Text));
    painter.drawText(area, int(Qt::AlignLeft | Qt::AlignVCenter),
                     fontMetrics().elidedText(text(), Qt::ElideRight, area.width()));
}

// The tooltip is made when it is asked for, from what is shown then.
bool NoteTitleEdit::event(QEvent *event)
{
    if (event->type() == QEvent::ToolTip)
        setToolTip(isElided() ? text() + QStringLiteral("\n") + renameTip : renameTip);
    return QLineEdit::event(event);
}

} // namespace kestil
