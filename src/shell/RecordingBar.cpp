#include "shell/RecordingBar.h"

#include "capture/ProcessTapRecorder.h"
#include "library/ElapsedTimeText.h"
#include "shell/Icons.h"
#include "shell/RecordingIndicator.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>

namespace kestil {

namespace {

const QColor recordingRed(0xe5, 0x39, 0x35);
const QColor pausedAmber(0xf0, 0x9a, 0x1a);

QPixmap dot(const QColor &color)
{
    QPixmap pixmap(12, 12);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawEllipse(QRectF(1, 1, 10, 10));
    return pixmap;
}

QPushButton *button(const QIcon &icon, const QString &text, const QString &name)
{
    auto *b = new QPushButton(icon, text);
    b->setObjectName(name);
    b->setAccessibleName(name);
    b->setFocusPolicy(Qt::TabFocus);
    return b;
}

} // namespace

RecordingBar::RecordingBar(ProcessTapRecorder &recorder, QWidget *parent)
    : QWidget(parent), recorder_(recorder)
{
    setObjectName(QStringLiteral("recordingBar"));
    setAccessibleName(QStringLiteral("recordingBar"));
    setAutoFillBackground(false);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(16, 8, 12, 8);
    layout->setSpacing(10);

    dot_ = new QLabel;
    layout->addWidget(dot_);
    state_ = new QLabel;
    state_->setObjectName(QStringLiteral("recordingBarState"));
    QFont bold = state_->font();
    bold.setWeight(QFont::DemiBold);
    state_->setFont(bold);
    layout->addWidget(state_);

    elapsed_ = new QLabel(elapsedTimeText(0));
    elapsed_->setObjectName(QStringLiteral("recordingBarElapsed"));
    elapsed_->setAccessibleName(QStringLiteral("recordingBarElapsed"));
    QFont clock = QFont(QStringLiteral("monospace"));
    clock.setStyleHint(QFont::Monospace);
    clock.setPointSizeF(font().pointSizeF());
    elapsed_->setFont(clock);
    layout->addWidget(elapsed_);

    meter_ = new RecordingIndicator(true, std::vector<double>(14, 22.0));
    meter_->setObjectName(QStringLiteral("recordingBarLevelMeter"));
    meter_->setAccessibleName(QStringLiteral("recordingBarLevelMeter"));
    meter_->setColor(recordingRed);
    layout->addWidget(meter_);

    title_ = new QLabel;
    title_->setObjectName(QStringLiteral("recordingBarNoteTitle"));
    title_->setCursor(Qt::PointingHandCursor);
    title_->setToolTip(QStringLiteral("Show the note being recorded"));
    title_->installEventFilter(this);
    QPalette muted = title_->palette();
    QColor text = muted.color(QPalette::WindowText);
    text.setAlphaF(0.7f);
    muted.setColor(QPalette::WindowText, text);
    title_->setPalette(muted);
    layout->addWidget(title_, 1);

    const QColor ink = palette().color(QPalette::ButtonText);
    pause_ = button(icons::pause(ink), QStringLiteral("Pause"), QStringLiteral("recordingBarPauseButton"));
    stop_ =
        button(icons::stop(recordingRed), QStringLiteral("Stop"), QStringLiteral("recordingBarStopButton"));
    layout->addWidget(pause_);
    layout->addWidget(stop_);
    connect(pause_, &QPushButton::clicked, this, &RecordingBar::pauseClicked);
    connect(stop_, &QPushButton::clicked, this, &RecordingBar::stopClicked);

    for (auto signal : {&ProcessTapRecorder::recordingChanged, &ProcessTapRecorder::pausedChanged,
                        &ProcessTapRecorder::startingChanged, &ProcessTapRecorder::finishingChanged})
        connect(&recorder_, signal, this, &RecordingBar::refresh);
    connect(&recorder_, &ProcessTapRecorder::elapsedChanged, this,
            [this](double seconds) { elapsed_->setText(elapsedTimeText(seconds)); });
    connect(&recorder_, &ProcessTapRecorder::currentAudioLevelChanged, meter_,
            &RecordingIndicator::setAudioLevel);
    refresh();
}

void RecordingBar::setNoteTitle(const QString &title)
{
    title_->setText(title);
}

void RecordingBar::refresh()
{
    const bool recording = recorder_.recording();
    const bool paused = recording && recorder_.paused();
    const bool starting = recorder_.starting();
    const bool finishing = recorder_.finishing();
    setVisible(recording || starting || finishing);

    if (starting)
        state_->setText(QStringLiteral("Starting…"));
    else if (finishing)
        state_->setText(QStringLiteral("Finishing…"));
    else if (paused)
        state_->setText(QStringLiteral("Paused"));
    else
        state_->setText(QStringLiteral("Recording"));
    dot_->setPixmap(dot(paused ? pausedAmber : recordingRed));
    elapsed_->setText(elapsedTimeText(recorder_.elapsed()));

    const QColor ink = palette().color(QPalette::ButtonText);
    pause_->setText(paused ? QStringLiteral("Resume") : QStringLiteral("Pause"));
    pause_->setIcon(paused ? icons::resume(ink) : icons::pause(ink));
    pause_->setEnabled(recording && !starting && !finishing);
    stop_->setEnabled(recording && !finishing);
    meter_->setRunning(recording);
    meter_->setPaused(paused);
    update();
}

QString RecordingBar::stateText() const
{
    return state_->text();
}

QString RecordingBar::elapsedText() const
{
    return elapsed_->text();
}

bool RecordingBar::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == title_ && event->type() == QEvent::MouseButtonRelease &&
        static_cast<QMouseEvent *>(event)->button() == Qt::LeftButton)
        emit titleClicked();
    return QWidget::eventFilter(watched, event);
}

void RecordingBar::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    QColor tint = recorder_.paused() ? pausedAmber : recordingRed;
    tint.setAlphaF(0.09f);
    painter.fillRect(rect(), palette().color(QPalette::Window));
    painter.fillRect(rect(), tint);
    QColor line = palette().color(QPalette::WindowText);
    line.setAlphaF(0.12f);
    painter.setPen(line);
    painter.drawLine(rect().topLeft(), rect().topRight());
}

} // namespace kestil
