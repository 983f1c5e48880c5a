#pragma once

#include "library/BarView.h"

#include <QColor>
#include <QRandomGenerator>
#include <QTimer>
#include <QWidget>

#include <vector>

namespace kestil {

// A row of level bars that shows audio is really arriving. It is given the
// raw peak of the latest buffer and shapes it itself, per bar, animating at
// 60 Hz while it is running. alwaysShowBars picks the standing meter of the
// window over the waving bars of the floating indicator.
class RecordingIndicator : public QWidget {
    Q_OBJECT
public:
    RecordingIndicator(bool alwaysShowBars, const std::vector<double> &barHeights, QWidget *parent = nullptr);

    void setAudioLevel(float level);
    float audioLevel() const { return level_; }
    // Running: the bars move. Paused: no audio flows, so they rest.
    void setRunning(bool running);
    void setPaused(bool paused);
    bool animating() const { return timer_.isActive(); }
    void setColor(const QColor &color);
    const std::vector<BarView> &bars() const { return bars_; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void tick();
    void updateTimer();

    std::vector<BarView> bars_;
    QTimer timer_;
    QRandomGenerator random_;
    QColor color_;
    float level_ = 0;
    bool running_ = false;
    bool paused_ = false;
    double spacing_ = 3;
};

} // namespace kestil
