#include "shell/TagView.h"

#include "shell/Icons.h"

#include <QFontMetrics>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QToolButton>

namespace kestil {

TagView::TagView(const QString &name, QWidget *parent) : QFrame(parent), name_(name)
{
    setObjectName(QStringLiteral("tagView-") + name);
    setAccessibleName(name);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(9, 2, 5, 2);
    layout->setSpacing(2);
    label_ = new QLabel(QFontMetrics(font()).elidedText(name, Qt::ElideRight, 180));
    label_->setTextFormat(Qt::PlainText);
    label_->setToolTip(name);
    layout->addWidget(label_);
    remove_ = new QToolButton;
    remove_->setObjectName(QStringLiteral("tagViewRemove-") + name);
    remove_->setAccessibleName(QStringLiteral("Remove ") + name);
    remove_->setToolTip(QStringLiteral("Remove tag"));
    remove_->setAutoRaise(true);
    remove_->setIcon(icons::clear(palette().color(QPalette::WindowText)));
    remove_->setIconSize(QSize(12, 12));
    remove_->hide();
    connect(remove_, &QToolButton::clicked, this, [this] { emit removeRequested(name_); });
    layout->addWidget(remove_);
}

void TagView::setEditing(bool editing)
{
    editing_ = editing;
    remove_->setVisible(editing);
}

void TagView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor fill = palette().color(QPalette::Highlight);
    fill.setAlphaF(0.16f);
    painter.setPen(Qt::NoPen);
    painter.setBrush(fill);
    const QRectF area = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    painter.drawRoundedRect(area, area.height() / 2, area.height() / 2);
}

} // namespace kestil
