#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

namespace kestil {

class ProcessTapRecorder;
class RecordingIndicator;

// The strip under the library while a recording runs: its state, the session
// clock, a level meter, and the pause and stop buttons. It reads the recorder
// directly and hands the buttons to whoever owns the actions.
class RecordingBar : public QWidget {
    Q_OBJECT
public:
    explicit RecordingBar(ProcessTapRecorder &recorder, QWidget *parent = nullptr);

    // Shown while the recorder starts, records or finishes; the title is the
    // note's.
    void refresh();
    void setNoteTitle(const QString &title);

    QString stateText() const;
    QString elapsedText() const;
    RecordingIndicator *levelMeter() const { return meter_; }

signals:
    void pauseClicked();
    void stopClicked();
    void titleClicked();

protected:
    void paintEvent(QPaintEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    ProcessTapRecorder &recorder_;
    QLabel *dot_ = nullptr;
    QLabel *state_ = nullptr;
    QLabel *title_ = nullptr;
    QLabel *elapsed_ = nullptr;
    RecordingIndicator *meter_ = nullptr;
    QPushButton *pause_ = nullptr;
    QPushButton *stop_ = nullptr;
};

} // namespace kestil
