#include "shell/WelcomeWindow.h"
#include "shell/WidgetNames.h"

#include "generation/LanguageModel.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "shell/ModelStatusText.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace kestil {

namespace {

QLocale localeOf(const QString &identifier)
{
    return QLocale(QString(identifier).replace(QLatin1Char('-'), QLatin1Char('_')));
}

WelcomeStep *welcomePage()
{
    auto *page = new WelcomeStep(
        QStringLiteral("welcomeStepWelcome"), QStringLiteral("Welcome to Kestil"),
        QStringLiteral(
            "Private voice notes and meeting notes. Speak, or let a meeting play: Kestil writes down "
            "what is said as it is said, and afterwards a summary, a title and tags."));
    for (const QString &point :
         {QStringLiteral("Everything happens on this computer. No note text or audio ever leaves it."),
          QStringLiteral("Your audio is written to disk as it arrives, so a crash never takes a recording."),
          QStringLiteral("A few steps set up the language model, your language and your microphone.")}) {
        auto *line = new QLabel(QStringLiteral("•  ") + point);
        line->setWordWrap(true);
        page->body()->addWidget(line);
    }
    return page;
}

} // namespace

WelcomeWindow::WelcomeWindow(PreferenceStore &preferences, WelcomeEnvironment environment, QWidget *parent)
    : QDialog(parent), preferences_(preferences), environment_(std::move(environment))
{
    named(this, QStringLiteral("welcomeWindow"));
    setWindowTitle(QStringLiteral("Welcome to Kestil"));
    setWindowModality(Qt::WindowModal);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(36, 28, 36, 22);
    layout->setSpacing(14);

    indicator_ = named(new QLabel, QStringLiteral("welcomeStepIndicator"));
    indicator_->setStyleSheet(QStringLiteral("color: palette(highlight); font-weight: 600;"));
    layout->addWidget(indicator_);

    pages_ = new QStackedWidget;
    steps_ = {welcomePage(),
              new WelcomeIntelligenceStep(preferences_, environment_),
              new WelcomeLanguageStep(preferences_, environment_),
              new WelcomeMicrophoneStep,
              new WelcomeSystemAudioStep(preferences_),
              new WelcomeReadinessStep};
    for (WelcomeStep *step : steps_) {
        pages_->addWidget(step);
        connect(step, &WelcomeStep::changed, this, &WelcomeWindow::refreshFooter);
    }
    layout->addWidget(pages_, 1);

    auto *footer = new QHBoxLayout;
    back_ = named(new QPushButton(QStringLiteral("Back")), QStringLiteral("welcomeBackButton"));
    footer->addWidget(back_);
    footer->addStretch(1);
    done_ = named(new QPushButton(QStringLiteral("Done")), QStringLiteral("welcomeDoneButton"));
    footer->addWidget(done_);
    record_ = named(new QPushButton(QStringLiteral("Start First Recording")),
                    QStringLiteral("welcomeStartRecordingButton"));
    footer->addWidget(record_);
    continue_ = named(new QPushButton(QStringLiteral("Continue")), QStringLiteral("welcomeContinueButton"));
    footer->addWidget(continue_);
    layout->addLayout(footer);

    connect(back_, &QPushButton::clicked, this, &WelcomeWindow::back);
    connect(continue_, &QPushButton::clicked, this, &WelcomeWindow::next);
    connect(done_, &QPushButton::clicked, this, [this] { complete(false); });
    connect(record_, &QPushButton::clicked, this, [this] { complete(true); });

    resize(680, 600);
    goTo(Step::welcome);
}

WelcomeWindow::~WelcomeWindow()
{
    // The microphone is let go before the pages go.
    page(Step::microphone)->setShown(false);
}

WelcomeStep *WelcomeWindow::page(Step step) const
{
    return steps_.value(int(step));
}

void WelcomeWindow::goTo(Step step)
{
    page(step_)->setShown(false);
    step_ = step;
    if (step == Step::ready)
        refreshReadiness();
    pages_->setCurrentWidget(page(step));
    page(step)->setShown(true);
    indicator_->setText(QStringLiteral("Step %1 of %2").arg(int(step) + 1).arg(steps_.size()));
    refreshFooter();
}

void WelcomeWindow::next()
{
    if (step_ != Step::ready)
        goTo(Step(int(step_) + 1));
}

void WelcomeWindow::back()
{
    if (step_ != Step::welcome)
        goTo(Step(int(step_) - 1));
}

void WelcomeWindow::refreshFooter()
{
    const bool last = step_ == Step::ready;
    back_->setVisible(step_ != Step::welcome);
    continue_->setVisible(!last);
    done_->setVisible(last);
    record_->setVisible(last);
    QString label = QStringLiteral("Continue");
    if (step_ == Step::welcome)
        label = QStringLiteral("Get Started");
    else if (step_ == Step::intelligence &&
             !static_cast<WelcomeIntelligenceStep *>(page(Step::intelligence))->modelInstalled())
        label = page(step_)->busy() ? QStringLiteral("Continue While It Downloads")
                                    : QStringLiteral("Skip for Now");
    continue_->setText(label);
    // Leaving the language step while its set-up runs would leave the chosen
    // language half set up: the step finishes first (or is cancelled).
    continue_->setEnabled(!(step_ == Step::language && page(step_)->busy()));
    back_->setEnabled(continue_->isEnabled());
    (last ? record_ : continue_)->setDefault(true);
}

void WelcomeWindow::refreshReadiness()
{
    WelcomeReadinessInputs inputs;
    inputs.language = settings::transcriptionLanguage(preferences_);
    inputs.speech = LocalSpeech::readiness(inputs.language, preferences_);
    if (environment_.languageModel)
        inputs.summaryRefusal =
            summaryRefusalSentence(*environment_.languageModel, localeOf(inputs.language));
    inputs.microphoneName = static_cast<WelcomeMicrophoneStep *>(page(Step::microphone))->sourceName();
    inputs.recordSystemAudio = settings::recordSystemAudio(preferences_);
    static_cast<WelcomeReadinessStep *>(page(Step::ready))->showItems(welcomeReadiness(inputs));
}

void WelcomeWindow::complete(bool record)
{
    settings::setWelcomeCompleted(preferences_, true);
    accept();
    if (record)
        emit firstRecordingRequested();
}

void WelcomeWindow::closeEvent(QCloseEvent *event)
{
    // Closed before the end: nothing is stored, and the flow shows again at
    // the next launch.
    page(step_)->setShown(false);
    QDialog::closeEvent(event);
}

} // namespace kestil
