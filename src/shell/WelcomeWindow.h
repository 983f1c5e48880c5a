#pragma once

#include "shell/WelcomeSteps.h"

#include <QDialog>
#include <QList>

class QLabel;
class QPushButton;
class QStackedWidget;

namespace kestil {

class PreferenceStore;

// The first-run welcome flow, a sheet over the main window: welcome,
// on-device intelligence, language, microphone, system audio, and a readiness
// card. Finishing it ("Start First Recording" or "Done") stores
// kestilWelcomeCompleted.v1; closing it half-way stores nothing, so it comes
// back at the next launch. Settings can replay it.
class WelcomeWindow : public QDialog {
    Q_OBJECT

public:
    enum class Step { welcome, intelligence, language, microphone, systemAudio, ready };

    WelcomeWindow(PreferenceStore &preferences, WelcomeEnvironment environment, QWidget *parent = nullptr);
    ~WelcomeWindow() override;

    Step step() const { return step_; }
    void goTo(Step step);
    WelcomeStep *page(Step step) const;

signals:
    // Finished with "Start First Recording": a recording in the chosen
    // language is wanted now.
    void firstRecordingRequested();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void next();
    void back();
    void complete(bool record);
    void refreshFooter();
    void refreshReadiness();

    PreferenceStore &preferences_;
    WelcomeEnvironment environment_;
    Step step_ = Step::welcome;
    QStackedWidget *pages_ = nullptr;
    QList<WelcomeStep *> steps_;
    QLabel *indicator_ = nullptr;
    QPushButton *back_ = nullptr;
    QPushButton *continue_ = nullptr;
    QPushButton *done_ = nullptr;
    QPushButton *record_ = nullptr;
};

} // namespace kestil
