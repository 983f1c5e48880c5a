#pragma once

#include "core/Note.h"
#include "generation/LocalSummary.h"

#include <QWidget>

class QComboBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QStackedWidget;

namespace kestil {

class NotesListViewModel;
class StructuredSummaryView;

// The Summary tab of a note. Without a summary it offers the templates and a
// Summarize button; while the note's summary is being written it shows the
// stage in words, the Markdown as it grows and a Cancel button; afterwards the
// rendered summary, with the templates and a Summarize Again button above it.
// A new summary replaces the old one only once it is saved: until then the old
// one stays in the note and comes back on a cancel or a failure.
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

signals:
    // The user wants to cure a refusal of the model in Settings.
    void settingsRequested();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void summarize();
    void refreshGate();
    void refreshStreaming();
    bool isGeneratingThisNote() const;

    NotesListViewModel &list_;
    NotePtr note_;
    LocalSummary::ModelStatus gate_;

    QWidget *actions_ = nullptr;
    QComboBox *templatePicker_ = nullptr;
    QPushButton *summarizeButton_ = nullptr;
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
