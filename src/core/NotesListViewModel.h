#pragma once

#include "core/ManagedObject.h"
#include "core/Note.h"
#include "core/StreamingSummaryViewModel.h"
#include "core/SummaryCheckpointStore.h"
#include "generation/CancellationToken.h"
#include "generation/LocalSummaryTemplate.h"
#include "library/FolderSelection.h"
#include "speech/LocalTranscript.h"
#include "speech/TranscriptUtterance.h"

#include <QDateTime>
#include <QFuture>
#include <QList>
#include <QLocale>
#include <QObject>
#include <QPromise>
#include <QString>
#include <QThreadPool>

#include <memory>
#include <optional>

namespace kestil {

class LanguageModel;
class LocalAppModel;
class NotesListRoles;
class PreferenceStore;
class ProcessTapRecorder;
class SharedPersistenceController;

// Every user action on notes goes through here: a new note and its
// recording, each transcript snapshot folded into the note and saved, pause,
// stop, delete, selection, the summary job and the small editors of a note.
// Every failure of
// an action ends the same way: syncErrorMessage takes the error's text
// and showSyncError becomes true, and the view shows an alert.
//
// One instance per notes list, created with the shared application model,
// recorder, roles and preferences. Main thread only. The operations that wait
// for the recorder return futures that finish on the main thread; while they
// wait, operationInProgress and the recorder's own flags keep other actions
// apart. Observe a future with a QFutureWatcher, never by blocking.
class NotesListViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isTranscriptionPaused READ isTranscriptionPaused NOTIFY isTranscriptionPausedChanged)
    Q_PROPERTY(
        QString accumulatedTranscription READ accumulatedTranscription NOTIFY accumulatedTranscriptionChanged)
    Q_PROPERTY(int selectedDetailTab READ selectedDetailTab NOTIFY selectedDetailTabChanged)
    Q_PROPERTY(bool showSyncError READ showSyncError WRITE setShowSyncError NOTIFY showSyncErrorChanged)
    Q_PROPERTY(QString syncErrorMessage READ syncErrorMessage NOTIFY syncErrorMessageChanged)
    Q_PROPERTY(bool operationInProgress READ operationInProgress NOTIFY operationInProgressChanged)
    Q_PROPERTY(bool isGeneratingSummary READ isGeneratingSummary NOTIFY summaryStateChanged)

public:
    // The detail tabs a selection opens.
    enum DetailTab { summaryTab = 0, transcriptTab = 2 };

    NotesListViewModel(LocalAppModel &appModel, ProcessTapRecorder &recorder, NotesListRoles &roles,
                       PreferenceStore &preferences, QObject *parent = nullptr);
    ~NotesListViewModel() override;

    LocalAppModel &appModel() const { return appModel_; }
    ProcessTapRecorder &recorder() const { return recorder_; }
    // The store of the application model; null when it did not open.
    SharedPersistenceController *persistenceController() const;

    // Observable state.
    // The note that receives the running recording.
    const NotePtr &newNoteBeingRecorded() const { return newNoteBeingRecorded_; }
    // Mirrors the recorder's `paused`.
    bool isTranscriptionPaused() const { return isTranscriptionPaused_; }
    // What the live view shows: the note's earlier text, the committed text
    // and the tentative text of this recording.
    const QString &accumulatedTranscription() const { return accumulatedTranscription_; }
    const QList<ObjectId> &selectedNoteIDs() const { return selectedNoteIDs_; }
    bool isSelected(const ObjectId &id) const;
    int selectedDetailTab() const { return selectedDetailTab_; }
    void setSelectedDetailTab(int tab);
    // An alert with syncErrorMessage is due; the view sets it back to false
    // when the alert is dismissed.
    bool showSyncError() const { return showSyncError_; }
    void setShowSyncError(bool show);
    // The text of the last failure of any action.
    const QString &syncErrorMessage() const { return syncErrorMessage_; }
    // A start or a stop of a recording is running.
    bool operationInProgress() const { return operationInProgress_; }
    // The sidebar's selection when a note is created: new notes go into its
    // folder.
    const FolderSelection &pendingFolderSelection() const { return pendingFolderSelection_; }
    void setPendingFolderSelection(const FolderSelection &selection) { pendingFolderSelection_ = selection; }

    // newNoteBeingRecorded while the recorder records, else nothing.
    NotePtr recordingNote() const;
    // Whether a new recording may start now: the recorder is idle, no start or
    // stop runs here, and the application is not busy.
    bool canStart() const;

    // A new note titled "Untitled Note", then a recording into it. Does
    // nothing when a recording cannot start now.
    QFuture<void> startNewTranscription();
    // A recording into an existing note, after its text. A second start while
    // one runs is ignored without a word.
    QFuture<void> startTranscription(const NotePtr &note);
    // Stops and finishes the recording; everyone who asks while a stop runs
    // waits for that same stop.
    QFuture<void> stopTranscription();
    // Pauses or continues a running recording.
    void togglePause();

    // Called by the recorder with each transcript of the running session:
    // the live text is shown at once; committed text is written to the note
    // and saved; a tentative-only result never reaches the store.
    void receiveSnapshot(const LocalTranscript &transcript);

    // A click on a note; `additive` toggles it in a multiple selection. A
    // null note clears the current note.
    void selectNote(const NotePtr &note, bool additive);
    // The recording indicator's click: the recording note and its transcript.
    void selectRecordingNote();
    // The list has appeared: it becomes the active list, new notes go into
    // the sidebar's folder, and the first note is selected when nothing is.
    void listAppeared(const QList<NotePtr> &fetched, const FolderSelection &sidebarFolder);

    // Deletes one note with its audio; a note being recorded is stopped
    // first. Refused while a recording starts or finishes.
    QFuture<void> deleteNote(const NotePtr &note);
    // Deletes the selected notes among `fetched`, one after the other; a
    // failure of one does not stop the others, and the alert shows the last.
    QFuture<void> deleteSelectedNotes(const QList<NotePtr> &fetched);
    // Deletes the notes at the given positions of `list`.
    QFuture<void> deleteNotes(const QList<int> &offsets, const QList<NotePtr> &list);

    // The detail view's editors. Each saves at once, does nothing when the
    // value is unchanged, and reports a failed save as every action does.
    // A title that is blank after trimming is not written.
    void setTitle(const NotePtr &note, const QString &title);
    void setSummary(const NotePtr &note, const QString &summary);
    // The old value comes back when the save fails.
    void setSummaryType(const NotePtr &note, const QString &summaryType);

    // The summary job. One job at a time in one list, beside a recording of
    // any note. The model work runs on a worker thread of this list; every
    // value it produces comes back to the main thread before it is shown or
    // written. Nothing reaches the note until the job saves summary,
    // template, title and tags together in one save.

    // The language model of every summary; the program's own model unless
    // one was set.
    LanguageModel &languageModel() const;
    void setLanguageModel(LanguageModel *model) { languageModel_ = model; }
    // The language that summaries are generated and judged in.
    QLocale summaryLocale() const;

    bool isGeneratingSummary() const { return isGeneratingSummary_; }
    const std::optional<ObjectId> &generatingSummaryNoteID() const { return generatingSummaryNoteID_; }
    const std::optional<QDateTime> &generatingSummaryStartedAt() const { return generatingSummaryStartedAt_; }
    StreamingSummaryViewModel &streamingSummaryViewModel() { return streamingSummaryViewModel_; }
    const StreamingSummaryViewModel &streamingSummaryViewModel() const { return streamingSummaryViewModel_; }
    // A job is running (not merely the generating flag of a detail view).
    bool isSummaryJobRunning() const { return inference_ != nullptr; }

    // Whether a job goes on from the note's unfinished summary.
    enum class SummaryStart {
        continueSaved, // from its first unfinished section, when it is of the same template
        startOver,     // from nothing: the unfinished summary is discarded
    };
    // Summarises the note's transcript with the template of `templateKey`
    // (any stored key or title; unknown ones mean the automatic template).
    // The future finishes when the job has ended in any way. A request while
    // a recording starts or stops, while a summary runs, or while the
    // application is busy is dropped without a word.
    //
    // The job keeps its latest checkpoint beside the store after each step
    // (SummaryCheckpoints/<note UUID>.json), so that a quit, a crash, a
    // failure or a cancel loses at most the step that was running. A job of
    // the template of the note's unfinished summary goes on from there
    // (unless told to start over); a job of another template replaces it. A
    // saved summary and a deleted note remove it.
    QFuture<void> generateSummary(const NotePtr &note, const QString &templateKey,
                                  SummaryStart start = SummaryStart::continueSaved);
    // An unfinished summary of a note that can be continued: its template and
    // how far it got.
    struct SummaryResumeOffer {
        QString templateKey;
        int pass = 0;         // condensing passes finished
        int completed = 0;    // sections read in this pass
        int total = 0;        // sections of this pass; 0 before they were made
        bool written = false; // the summary itself is written; title and tags are left
    };
    // The note's unfinished summary, when one is kept and still belongs to the
    // note's transcript and the installed model. One that no longer does is
    // discarded, and the user is told why in one sentence.
    std::optional<SummaryResumeOffer> summaryResumeOffer(const NotePtr &note);
    // Continues the note's unfinished summary with its template.
    QFuture<void> continueSummary(const NotePtr &note);
    // Summarises anew with the template of the note's unfinished summary,
    // discarding it.
    QFuture<void> summarizeAgain(const NotePtr &note);
    // The detail view's Cancel: the running job stops, writes nothing and
    // says nothing.
    void cancelSummary();
    // The generating flag of a detail view, without a job.
    void beginSummaryIndicator(const NotePtr &note);
    // Clears the flag, only when it belongs to this note.
    void endSummaryIndicator(const NotePtr &note);
    // When the summary of this note began, while it is being generated.
    std::optional<QDateTime> summaryStartedAt(const NotePtr &note) const;

    // Shows a failure the way every action does: the text goes to
    // syncErrorMessage and showSyncError becomes true.
    void reportFailure(const QString &message);

signals:
    void newNoteBeingRecordedChanged();
    void isTranscriptionPausedChanged(bool paused);
    void accumulatedTranscriptionChanged(const QString &text);
    void selectedNoteIDsChanged();
    void selectedDetailTabChanged(int tab);
    void showSyncErrorChanged(bool show);
    void syncErrorMessageChanged(const QString &message);
    void operationInProgressChanged(bool inProgress);
    // Any of the recorder's values that views read has changed, so a view
    // that watches only this model redraws with the recorder.
    void recorderChanged();
    // Open editors save what they hold before the selection changes.
    void kestilSaveCurrentNote();
    // isGeneratingSummary, generatingSummaryNoteID or
    // generatingSummaryStartedAt changed.
    void summaryStateChanged();
    // The streaming summary's text or stage changed.
    void streamingSummaryChanged();
    // A summary job saved its result on the note.
    void summaryGenerationComplete(const kestil::ObjectId &noteID, const QString &summary);

private:
    // The unfinished summaries beside the store; nothing without a store.
    std::optional<SummaryCheckpointStore> summaryCheckpoints() const;
    // Why a kept checkpoint cannot be continued for the note now, in one
    // sentence; nothing when it can. A null note is one that no longer exists.
    std::optional<QString> checkpointProblem(const SummaryCheckpointStore::Read &read,
                                             const NotePtr &note) const;
    // The note's kept checkpoint when it can be continued; one that cannot is
    // removed and the user told why.
    std::optional<StoredSummaryCheckpoint> usableCheckpoint(const NotePtr &note);
    // At the first appearance of the list: kept checkpoints that can no
    // longer be continued are removed, and the user told why.
    void reviewSummaryCheckpoints();

    struct SummaryJob;
    using SummaryJobPtr = std::shared_ptr<SummaryJob>;
    // The steps of a job after the pipeline, each on the main thread.
    void summaryWritten(const SummaryJobPtr &job, QString summary);
    void organizeTags(const SummaryJobPtr &job);
    void saveSummary(const SummaryJobPtr &job, const QStringList &tags);
    void failSummary(const SummaryJobPtr &job, const std::exception_ptr &error);
    void endSummaryJob(const SummaryJobPtr &job);
    // Whether the job is still the running one and has not been cancelled.
    bool summaryJobIsLive(const SummaryJobPtr &job) const;
    // Runs `work` on the summary worker, then `done` with its outcome on the
    // main thread (never when this list is gone).
    template <typename T, typename Work, typename Done> void offMainThread(Work work, Done done);
    void clearSummaryState();
    void setSummaryFlags(bool generating, const std::optional<ObjectId> &noteID,
                         const std::optional<QDateTime> &startedAt);

    NotePtr createRecordingNote(const QString &transcription, const QString &title);
    void failStart(const std::shared_ptr<QPromise<void>> &promise, const QString &message);
    void performStop(const std::shared_ptr<QPromise<void>> &promise);
    void finishStopping();
    void deleteNow(const NotePtr &note, const std::shared_ptr<QPromise<void>> &promise);
    void deleteInTurn(QList<NotePtr> notes, const std::shared_ptr<QPromise<void>> &promise);
    bool noteIsUsable(const NotePtr &note) const;
    bool saveQuietly();
    void selectOnly(const NotePtr &note);
    void setNewNoteBeingRecorded(const NotePtr &note);
    void setIsTranscriptionPaused(bool paused);
    void setAccumulatedTranscription(const QString &text);
    void setOperationInProgress(bool inProgress);
    void setSelectedNoteIDs(const QList<ObjectId> &ids);

    LocalAppModel &appModel_;
    ProcessTapRecorder &recorder_;
    NotesListRoles &roles_;
    PreferenceStore &preferences_;

    NotePtr newNoteBeingRecorded_;
    bool isTranscriptionPaused_ = false;
    QString accumulatedTranscription_;
    QList<ObjectId> selectedNoteIDs_;
    int selectedDetailTab_ = summaryTab;
    bool showSyncError_ = false;
    QString syncErrorMessage_;
    bool operationInProgress_ = false;
    FolderSelection pendingFolderSelection_ = FolderSelection::all();
    std::optional<QUuid> recordingLease_;
    // The running stop, shared by all who ask to stop.
    std::optional<QFuture<void>> stopTask_;
    QString baseText_;
    QList<TranscriptUtterance> baseUtterances_;
    // The final utterances of this recording as last saved: a snapshot that
    // changes only the tentative text has nothing new for the store.
    std::optional<QList<LocalUtterance>> storedUtterances_;

    LanguageModel *languageModel_ = nullptr;
    bool isGeneratingSummary_ = false;
    std::optional<ObjectId> generatingSummaryNoteID_;
    std::optional<QDateTime> generatingSummaryStartedAt_;
    StreamingSummaryViewModel streamingSummaryViewModel_;
    // The running summary job.
    SummaryJobPtr inference_;
    bool summaryCheckpointsReviewed_ = false;
    // One thread for the model work of summary jobs. Declared last, so that
    // it is gone (and the job with it) before anything it reports to.
    QThreadPool summaryWorker_;
};

} // namespace kestil
