#pragma once

#include "core/Note.h"
#include "core/NotesListViewModel.h"
#include "generation/LocalSummary.h"

#include <QPointer>
#include <QWidget>

class QLabel;
class QMenu;
class QProgressBar;
class QPushButton;
class QShortcut;
class QStackedWidget;
class QToolButton;

namespace kestil {

class StructuredSummaryView;

// The Summary tab of a note. Above it, the Templates menu: one row per
// template, the note's own checked; choosing a row starts the summary (Ctrl+T
// opens the menu at the note's template). While the note's summary is being
// written the tab shows the stage in words (or that the job waits for the
// on-device model), the Markdown as it grows and a Cancel button; afterwards
// the rendered summary. A new summary replaces the old one only once it is
// saved: until then the old one stays in the note and comes back on a cancel
// or a failure.
//
// A note whose summary stopped before it was saved (a cancel, a failure, a
// quit or a crash) offers to go on: Continue Summary picks it up at its first
// unfinished section, Summarize Again starts anew with its template.
//
// When the on-device model refuses, its sentence stands beside a disabled
// button, and a refusal the user can cure (no model installed, on-device AI
// switched off) comes with a button that asks for Settings. Failures of a job
// reach the user through the list model's alert, like every action's.
class SummaryTab : public QWidget {
    Q_OBJECT
public:
    explicit SummaryTab(NotesListViewModel &list, QWidget *parent = nullptr);

    // The note to show; null shows nothing. Another note resets the template
    // choice to the one its summary was made with.
    void setNote(const NotePtr &note);
    const NotePtr &note() const { return note_; }
    // Redraws from the note, the running job and the model gate.
    void refresh();

    // The line of a running job's stage, in words.
    static QString progressText(const LocalSummaryProgress &progress);
    // The line of the job while a request waits for the model.
    static QString waitingText();
    // The sentence that offers an unfinished summary.
    static QString resumeText(const NotesListViewModel::SummaryResumeOffer &offer);

signals:
    // The user wants to cure a refusal of the model in Settings.
    void settingsRequested();

protected:
    void showEvent(QShowEvent *event) override;
    bool event(QEvent *event) override;

private:
    void summarize(const QString &templateKey);
    void openTemplatesMenu();
    void refreshTemplates();
    void refreshGate();
    void refreshStreaming();
    bool isGeneratingThisNote() const;

    NotesListViewModel &list_;
    NotePtr note_;
    LocalSummary::ModelStatus gate_;

    QWidget *actions_ = nullptr;
    QToolButton *templatesButton_ = nullptr;
    QPointer<QShortcut> templatesShortcut_;
    QMenu *templatesMenu_ = nullptr;
    QWidget *resumeOffer_ = nullptr;
    QLabel *resumeText_ = nullptr;
    QPushButton *continueButton_ = nullptr;
    QPushButton *summarizeAgainButton_ = nullptr;
    QLabel *gateMessage_ = nullptr;
    QPushButton *openSettingsButton_ = nullptr;
    QLabel *busyMessage_ = nullptr;
    QStackedWidget *pages_ = nullptr;
    QWidget *emptyPage_ = nullptr;
    QWidget *generatingPage_ = nullptr;
    QLabel *progressLine_ = nullptr;
    QProgressBar *progressBar_ = nullptr;
    StructuredSummaryView *streamingText_ = nullptr;
    QPushButton *cancelButton_ = nullptr;
    StructuredSummaryView *summaryText_ = nullptr;
};

} // namespace kestil
