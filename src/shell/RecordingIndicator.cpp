#include "shell/RecordingIndicator.h"

#include <QPainter>
#include <QPainterPath>

#include <cmath>

namespace kestil {

RecordingIndicator::RecordingIndicator(bool alwaysShowBars, const std::vector<double> &barHeights,
                                       QWidget *parent)
    : QWidget(parent), random_(QRandomGenerator::global()->generate()),
      color_(palette().color(QPalette::Highlight))
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    const int count = int(barHeights.size());
    for (int i = 0; i < count; ++i) {
        BarView bar;
        bar.height = barHeights[size_t(i)];
        bar.alwaysShowBars = alwaysShowBars;
        bar.delay = count > 1 ? double(i) / (count - 1) : 0;
        bar.growFromCenter = true;
        if (alwaysShowBars) {
            // A gentle arch at rest, so the meter reads as a meter when quiet.
            const double middle = 1 - std::abs(2.0 * i / std::max(1, count - 1) - 1);
            bar.baseHeightFactor = 0.12 + 0.1 * middle;
            bar.maxHeightFactor = 0.75 + 0.25 * middle;
            bar.recordingResponseBoost = 0.85 + 0.3 * middle;
            bar.smoothedHeightFactor = bar.baseHeightFactor;
        } else {
            bar.motionPhase = bar.delay * 2.1;
            bar.randomFactor = 0.9 + 0.2 * random_.generateDouble();
        }
        bars_.push_back(bar);
    }
    timer_.setInterval(std::chrono::milliseconds(16));
    timer_.setTimerType(Qt::PreciseTimer);
    connect(&timer_, &QTimer::timeout, this, &RecordingIndicator::tick);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void RecordingIndicator::setAudioLevel(float level)
{
    level_ = level;
}

void RecordingIndicator::setRunning(bool running)
{
    running_ = running;
    updateTimer();
    update();
}

void RecordingIndicator::setPaused(bool paused)
{
    paused_ = paused;
    update();
}

void RecordingIndicator::setColor(const QColor &color)
{
    color_ = color;
    update();
}

void RecordingIndicator::updateTimer()
{
    if (running_ && isVisible())
        timer_.start();
    else
        timer_.stop();
}

void RecordingIndicator::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    updateTimer();
}

void RecordingIndicator::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    updateTimer();
}

void RecordingIndicator::tick()
{
    // While paused nothing is captured; the last peak must not keep the bars up.
    const float level = paused_ ? 0.0f : level_;
    for (auto &bar : bars_) {
        bar.audioLevel = level;
        advanceBar(bar, drawBarDraws(random_));
    }
    update();
}

QSize RecordingIndicator::sizeHint() const
{
    double width = 0;
    double height = 0;
    for (const auto &bar : bars_) {
        width += barWidth(bar) + spacing_;
        height = std::max(height, clampedBarHeight(bar.height));
    }
    return QSize(int(std::ceil(std::max(0.0, width - spacing_))) + 2, int(std::ceil(height)) + 2);
}

void RecordingIndicator::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    const double total = sizeHint().width() - 2;
    double x = (width() - total) / 2;
    const double middle = height() / 2.0;
    for (const auto &bar : bars_) {
        const double w = barWidth(bar);
        QColor color = color_;
        if (!running_ || barDrawsAsDot(bar)) {
            color.setAlphaF(0.85f);
            painter.setBrush(color);
            painter.drawEllipse(QRectF(x, middle - w / 2, w, w));
        } else {
            const double h = drawnBarHeight(bar);
            const double top =
                bar.growFromCenter ? middle - h / 2 : middle + clampedBarHeight(bar.height) / 2 - h;
            if (paused_)
                color.setAlphaF(0.45f);
            painter.setBrush(color);
            painter.drawRoundedRect(QRectF(x, top, w, h), barCornerRadius(bar), barCornerRadius(bar));
        }
        x += w + spacing_;
    }
}

} // namespace kestil
