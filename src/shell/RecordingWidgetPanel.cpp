#include "shell/RecordingWidgetPanel.h"

#include "library/ElapsedTimeText.h"
#include "library/RecordingWidgetRule.h"
#include "shell/Icons.h"
#include "shell/RecordingIndicator.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>

namespace kestil {

namespace {
const QColor panelColor(0x22, 0x22, 0x26);
const QColor recordingRed(0xff, 0x45, 0x3a);
} // namespace

RecordingWidgetPanel::RecordingWidgetPanel(QWidget *parent)
    : QWidget(parent,
              Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus)
{
    setObjectName(QStringLiteral("recordingWidgetPanel"));
    setAccessibleName(QStringLiteral("recordingWidgetPanel"));
    setWindowTitle(QStringLiteral("Transcribing"));
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_DeleteOnClose);
    setFixedSize(recordingWidgetSize);
    setCursor(Qt::PointingHandCursor);
    setToolTip(QStringLiteral("Transcribing: click to open the note, drag to move"));

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(14, 0, 14, 0);
    layout->setSpacing(8);
    symbol_ = new QLabel;
    symbol_->setPixmap(icons::microphone(recordingRed).pixmap(20, 20));
    symbol_->setAccessibleName(QStringLiteral("Transcribing"));
    layout->addWidget(symbol_);

    elapsed_ = new QLabel(elapsedTimeText(0));
    elapsed_->setObjectName(QStringLiteral("recordingWidgetElapsed"));
    QFont clock = elapsed_->font();
    clock.setWeight(QFont::DemiBold);
    clock.setPointSizeF(clock.pointSizeF() * 1.1);
    elapsed_->setFont(clock);
    QPalette light = elapsed_->palette();
    light.setColor(QPalette::WindowText, QColor(0xf2, 0xf2, 0xf2));
    elapsed_->setPalette(light);
    layout->addWidget(elapsed_);
    layout->addStretch(1);

    bars_ = new RecordingIndicator(false, {16, 22, 28, 22, 16}, this);
    bars_->setObjectName(QStringLiteral("recordingWidgetLevel"));
    bars_->setColor(recordingRed);
    layout->addWidget(bars_);
}

void RecordingWidgetPanel::setElapsed(double seconds)
{
    const QString text = elapsedTimeText(seconds);
    if (elapsed_->text() != text)
        elapsed_->setText(text);
}

QString RecordingWidgetPanel::elapsedText() const
{
    return elapsed_->text();
}

void RecordingWidgetPanel::setAudioLevel(float level)
{
    bars_->setAudioLevel(level);
}

void RecordingWidgetPanel::setRecording(bool recording)
{
    bars_->setRunning(recording);
}

void RecordingWidgetPanel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), panelColor);
    painter.setPen(QPen(QColor(255, 255, 255, 40), 1));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 6, 6);
}

void RecordingWidgetPanel::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return QWidget::mousePressEvent(event);
    pressed_ = true;
    dragging_ = false;
    pressGlobal_ = event->globalPosition().toPoint();
    pressOrigin_ = pos();
}

void RecordingWidgetPanel::mouseMoveEvent(QMouseEvent *event)
{
    if (!pressed_)
        return QWidget::mouseMoveEvent(event);
    const QPoint delta = event->globalPosition().toPoint() - pressGlobal_;
    if (!dragging_ && delta.manhattanLength() < QApplication::startDragDistance())
        return;
    dragging_ = true;
    move(pressOrigin_ + delta);
}

void RecordingWidgetPanel::mouseReleaseEvent(QMouseEvent *event)
{
    if (!pressed_ || event->button() != Qt::LeftButton)
        return QWidget::mouseReleaseEvent(event);
    pressed_ = false;
    // Only the end of a drag is saved: a preference write on every motion
    // event would make the drag stutter.
    if (dragging_)
        emit moved(pos());
    else
        emit tapped();
    dragging_ = false;
}

} // namespace kestil
