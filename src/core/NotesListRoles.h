#pragma once

#include <QFuture>
#include <QObject>
#include <QPointer>

namespace kestil {

class NotesListViewModel;
class SharedPersistenceController;

// The two roles a notes list can hold for the whole application: the list
// that holds the running recording, and the list that appeared last (the
// target of New Transcription from the menu and the tray). The application
// object owns one and hands it to every list model; each list fills the
// roles itself. Main thread only.
//
// A list model must stay alive while it holds the recording role: the shell
// keeps it until recordingNotesViewModel() no longer names it.
class NotesListRoles : public QObject {
    Q_OBJECT
public:
    explicit NotesListRoles(QObject *parent = nullptr);
    ~NotesListRoles() override;

    NotesListViewModel *recordingNotesViewModel() const { return recording_; }
    void setRecordingNotesViewModel(NotesListViewModel *model);
    NotesListViewModel *activeNotesViewModel() const { return active_; }
    void setActiveNotesViewModel(NotesListViewModel *model);

    // What quitting runs: editors are asked to save, the recording list (or
    // else the active one) stops a running transcription, and the store is
    // saved. The future gives whether the program may end: true when the save
    // succeeded or there is no store; false when it failed, and the failure
    // is then on that list's syncErrorMessage, so the program stays open with
    // everything still in memory.
    QFuture<bool> prepareToQuit(SharedPersistenceController *store);

signals:
    void recordingNotesViewModelChanged();
    void activeNotesViewModelChanged();
    // Every open editor writes what it holds into its note now.
    void forceAllEditorsSave();

private:
    QPointer<NotesListViewModel> recording_;
    QPointer<NotesListViewModel> active_;
};

} // namespace kestil
