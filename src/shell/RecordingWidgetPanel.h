#pragma once

#include <QPoint>
#include <QWidget>

class QLabel;

namespace kestil {

class RecordingIndicator;

// The floating recording indicator: a small frameless tool window, 220 x 48,
// above other windows and never taking the keyboard focus. It shows the
// session clock and waving level bars. It can be dragged anywhere; a click
// without a drag asks to bring Kestil forward on the note being recorded.
class RecordingWidgetPanel : public QWidget {
    Q_OBJECT
public:
    explicit RecordingWidgetPanel(QWidget *parent = nullptr);

    void setElapsed(double seconds);
    void setAudioLevel(float level);
    void setRecording(bool recording);
    QString elapsedText() const;
    RecordingIndicator *indicator() const { return bars_; }

signals:
    void tapped();
    // A drag ended with the window's top-left corner here.
    void moved(const QPoint &origin);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    QLabel *symbol_ = nullptr;
    QLabel *elapsed_ = nullptr;
    RecordingIndicator *bars_ = nullptr;
    QPoint pressGlobal_;
    QPoint pressOrigin_;
    bool pressed_ = false;
    bool dragging_ = false;
};

} // namespace kestil
