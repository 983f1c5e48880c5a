#include "core/NotesListViewModel.h"

#include "base/Error.h"
#include "capture/ProcessTapRecorder.h"
#include "capture/RecordingFolder.h"
#include "core/Folder.h"
#include "core/LocalAppModel.h"
#include "core/NoteTranscript.h"
#include "core/NotesListRoles.h"
#include "core/SharedPersistenceController.h"
#include "core/WhenFinished.h"
#include "generation/LlamaLanguageModel.h"
#include "generation/LocalNoteTags.h"
#include "generation/LocalSummary.h"
#include "prefs/KestilEngagement.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

#include <QPointer>

#include <atomic>
#include <exception>

namespace kestil {

namespace {

const QString deleteRefusedText =
    QStringLiteral("Cancel or finish the current operation before deleting notes.");
const QString notANoteText = QStringLiteral("Unable to create a local note.");
const QString noteUnavailableText = QStringLiteral("This note is unavailable.");
const QString storeUnavailableText = QStringLiteral("Local store is unavailable.");
const QString localNoteType = QStringLiteral("local");
const QString transcriptionNoteType = QStringLiteral("transcription");
// For a failure that carries no sentence of its own; the job writes nothing
// before its one save, so the note is as it was.
const QString summaryFailedText =
    QStringLiteral("The summary could not be generated. Your existing note is preserved.");
const QString titleFailedPrefix = QStringLiteral("Summary saved. ") + QStringLiteral("Title: ");

// The sentence after a failed title. The model's errors say that the notes are
// unchanged, which is no longer true once the summary is saved: that sentence
// gives way to what holds, that the title stayed as it was.
QString titleFailureText(QString description)
{
    static const QStringList unchangedClaims{
        QStringLiteral("Your notes are unchanged."), QStringLiteral("Your existing note is preserved."),
        QStringLiteral("Existing note content was preserved."), QStringLiteral("Your note was preserved.")};
    for (const QString &claim : unchangedClaims) {
        if (description.endsWith(claim)) {
            description.chop(claim.size());
            return titleFailedPrefix + description.trimmed() + QStringLiteral(" The note keeps its title.");
        }
    }
    return titleFailedPrefix + description;
}

QString quotedTitle(const Note &note)
{
    return QStringLiteral("“") + note.displayTitle() + QStringLiteral("”");
}

QString descriptionOf(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const std::exception &e) {
        return describe(e);
    } catch (...) {
        return summaryFailedText;
    }
}

bool isCancellation(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const CancellationError &) {
        return true;
    } catch (...) {
        return false;
    }
}

QString joinedWithBlank(const QString &first, const QString &second)
{
    if (first.isEmpty())
        return second;
    if (second.isEmpty())
        return first;
    return first + QLatin1Char(' ') + second;
}

QFuture<void> finishedFuture()
{
    return QtFuture::makeReadyFuture();
}

std::shared_ptr<QPromise<void>> startedPromise()
{
    auto promise = std::make_shared<QPromise<void>>();
    promise->start();
    return promise;
}

} // namespace

// A running summary: what it works on and what it has produced so far. The
// worker reads the fields set before it starts; the main thread writes the
// results between the steps, never while the worker runs.
struct NotesListViewModel::SummaryJob {
    NotePtr note;
    QString text;
    LocalSummaryTemplate summaryTemplate = LocalSummaryTemplate::autoSummary;
    LanguageModel *model = nullptr;
    CancellationToken cancel;
    // Where the run's checkpoints are kept, for the note and the model.
    std::optional<SummaryCheckpointStore> checkpoints;
    std::optional<QUuid> noteID;
    QString modelIdentity;
    std::optional<LocalSummaryCheckpoint> resuming;
    // Set when a checkpoint could not be written: the run goes on without.
    std::atomic<bool> checkpointsFailed{false};
    std::shared_ptr<QPromise<void>> promise;
    QString summary;
    QString title;
    // A failed title does not fail the summary; it is reported after the save.
    std::optional<QString> titleFailure;
};

NotesListViewModel::NotesListViewModel(LocalAppModel &appModel, ProcessTapRecorder &recorder,
                                       NotesListRoles &roles, PreferenceStore &preferences, QObject *parent)
    : QObject(parent), appModel_(appModel), recorder_(recorder), roles_(roles), preferences_(preferences)
{
    // The recorder values that views read, merged into one change of this
    // model, so that a view watching only the list redraws with the recorder.
    const auto forward = [this] { emit recorderChanged(); };
    connect(&recorder_, &ProcessTapRecorder::recordingChanged, this, forward);
    connect(&recorder_, &ProcessTapRecorder::pausedChanged, this, forward);
    connect(&recorder_, &ProcessTapRecorder::startingChanged, this, forward);
    connect(&recorder_, &ProcessTapRecorder::finishingChanged, this, forward);
    connect(&recorder_, &ProcessTapRecorder::errorMessageChanged, this, forward);
    connect(&recorder_, &ProcessTapRecorder::elapsedChanged, this, forward);
    connect(&recorder_, &ProcessTapRecorder::transcriptValueChanged, this, forward);
    // The streaming summary is part of this model's state for its views.
    connect(&streamingSummaryViewModel_, &StreamingSummaryViewModel::summaryChanged, this,
            &NotesListViewModel::streamingSummaryChanged);
    connect(&streamingSummaryViewModel_, &StreamingSummaryViewModel::progressChanged, this,
            &NotesListViewModel::streamingSummaryChanged);
    connect(&streamingSummaryViewModel_, &StreamingSummaryViewModel::waitingForModelChanged, this,
            &NotesListViewModel::streamingSummaryChanged);
    summaryWorker_.setMaxThreadCount(1);
}

NotesListViewModel::~NotesListViewModel()
{
    // The model stops promptly once cancelled; its worker must be gone before
    // the state it reports to.
    if (inference_)
        inference_->cancel.cancel();
    summaryWorker_.waitForDone();
}

SharedPersistenceController *NotesListViewModel::persistenceController() const
{
    return appModel_.store();
}

bool NotesListViewModel::isSelected(const ObjectId &id) const
{
    return selectedNoteIDs_.contains(id);
}

NotePtr NotesListViewModel::recordingNote() const
{
    return recorder_.recording() ? newNoteBeingRecorded_ : nullptr;
}

bool NotesListViewModel::canStart() const
{
    return !recorder_.recording() && !recorder_.starting() && !recorder_.finishing() &&
           !operationInProgress_ && !appModel_.busy();
}

QFuture<void> NotesListViewModel::startNewTranscription()
{
    if (!canStart())
        return finishedFuture();
    const NotePtr note = createRecordingNote(QString(), untitledNoteTitle());
    if (!note)
        return finishedFuture();
    return startTranscription(note);
}

NotePtr NotesListViewModel::createRecordingNote(const QString &transcription, const QString &title)
{
    if (recorder_.recording() || recorder_.starting() || appModel_.busy())
        return nullptr;
    try {
        SharedPersistenceController *store = persistenceController();
        if (!store)
            throw LocalError(storeUnavailableText);
        const NotePtr note = store->createNote(title, transcription, QUuid::createUuid(), localNoteType);
        if (!note)
            throw LocalError(notANoteText);
        if (const auto folderID = pendingFolderSelection_.selectedFolderID()) {
            FetchRequest request;
            request.equals = std::pair<QString, QVariant>(QStringLiteral("id"), *folderID);
            request.limit = 1;
            const auto folders = store->context().fetch<Folder>(request);
            if (!folders.isEmpty()) {
                note->setFolder(folders.first());
                store->save();
            }
        }
        appModel_.setSelected(note->id());
        appModel_.refreshNotes();
        selectOnly(note);
        setSelectedDetailTab(transcriptTab);
        return note;
    } catch (const std::exception &error) {
        reportFailure(describe(error));
        return nullptr;
    }
}

QFuture<void> NotesListViewModel::startTranscription(const NotePtr &note)
{
    if (recorder_.recording() || recorder_.starting() || recorder_.finishing() || operationInProgress_ ||
        appModel_.busy())
        return finishedFuture();
    const auto promise = startedPromise();
    const QFuture<void> future = promise->future();
    setOperationInProgress(true);
    try {
        SharedPersistenceController *store = persistenceController();
        if (!store || !noteIsUsable(note))
            throw LocalError(noteUnavailableText);
        recordingLease_ = store->beginRecording(note);

        const QUuid id = note->id().value_or(QUuid::createUuid());
        note->setValue(QStringLiteral("id"), id);
        note->setValue(QStringLiteral("sourceURL"),
                       QStringLiteral("Recordings/") + RecordingFolder::uuidText(id));
        note->setValue(QStringLiteral("noteType"), transcriptionNoteType);
        store->save();

        baseText_ = note->transcription().value_or(QString());
        baseUtterances_ = transcriptUtterances(*note);
        storedUtterances_.reset();

        const QPointer<NotesListViewModel> self(this);
        recorder_.setOnTranscript([self](const LocalTranscript &transcript) {
            if (self)
                self->receiveSnapshot(transcript);
        });
        recorder_.setStopAction([self, recorder = &recorder_] {
            if (self)
                self->stopTranscription();
            else
                recorder->stop();
        });
        recorder_.setExistingTranscript(baseText_);
        recorder_.setExistingUtterances(baseUtterances_);

        roles_.setRecordingNotesViewModel(this);
        appModel_.setSelected(id);
        setNewNoteBeingRecorded(note);
        selectOnly(note);
        setSelectedDetailTab(transcriptTab);

        recorder_.setSpeechLocale(settings::transcriptionLanguage(preferences_));
        const bool systemAudio = settings::recordSystemAudio(preferences_);

        whenFinished(recorder_.start(store->root(), id, systemAudio), this,
                     [this, promise](QFuture<void> started) {
                         try {
                             started.waitForFinished();
                             if (started.isCanceled())
                                 throw LocalError(QStringLiteral("The recording could not start."));
                         } catch (const std::exception &error) {
                             failStart(promise, describe(error));
                             return;
                         }
                         appModel_.setMessage(QString());
                         setIsTranscriptionPaused(false);
                         // A recording that runs with a warning says so.
                         if (!recorder_.errorMessage().isEmpty())
                             reportFailure(recorder_.errorMessage());
                         // A stop asked for while starting runs now and clears this itself.
                         if (!stopTask_)
                             setOperationInProgress(false);
                         promise->finish();
                     });
    } catch (const std::exception &error) {
        failStart(promise, describe(error));
    }
    return future;
}

void NotesListViewModel::failStart(const std::shared_ptr<QPromise<void>> &promise, const QString &message)
{
    // The note stays, with its sourceURL: a failed start deletes nothing.
    setNewNoteBeingRecorded(nullptr);
    if (recordingLease_) {
        if (SharedPersistenceController *store = persistenceController())
            store->endRecording(*recordingLease_);
        recordingLease_.reset();
    }
    if (roles_.recordingNotesViewModel() == this)
        roles_.setRecordingNotesViewModel(nullptr);
    reportFailure(message);
    setOperationInProgress(false);
    promise->finish();
}

void NotesListViewModel::receiveSnapshot(const LocalTranscript &transcript)
{
    const NotePtr note = newNoteBeingRecorded_;
    if (!noteIsUsable(note))
        return;
    const QString committed = transcript.finalizedText();
    setAccumulatedTranscription(joinedWithBlank(baseText_, transcript.fullText()));
    // A tentative result never reaches the store.
    if (committed.isEmpty())
        return;
    // Only the tentative tail changed: the note already holds these words.
    if (storedUtterances_ == transcript.utterances)
        return;
    note->setValue(QStringLiteral("transcription"), joinedWithBlank(baseText_, committed));
    setTranscriptUtterances(*note, combinedTranscriptUtterances(baseUtterances_, transcript.utterances,
                                                                recorder_.transcriptTimeOffset()));
    // After a failed save the next snapshot writes and tries again.
    if (saveQuietly())
        storedUtterances_ = transcript.utterances;
}

QFuture<void> NotesListViewModel::stopTranscription()
{
    if (stopTask_)
        return *stopTask_;
    NotesListViewModel *recordingModel = roles_.recordingNotesViewModel();
    if (recordingModel && recordingModel != this)
        return recordingModel->stopTranscription();
    if (!recorder_.recording() && !newNoteBeingRecorded_)
        return finishedFuture();
    const auto promise = startedPromise();
    stopTask_ = promise->future();
    performStop(promise);
    return *stopTask_;
}

void NotesListViewModel::performStop(const std::shared_ptr<QPromise<void>> &promise)
{
    setOperationInProgress(true);
    // The recorder drains speech and completes the audio; the last snapshots
    // arrive through receiveSnapshot before its text does.
    whenFinished(recorder_.stop(), this, [this, promise](const QFuture<QString> &) {
        saveQuietly();
        if (!recorder_.errorMessage().isEmpty() && !recorder_.errorIsSpeechWarning())
            reportFailure(recorder_.errorMessage());
        finishStopping();
        promise->finish();
    });
}

void NotesListViewModel::finishStopping()
{
    if (recordingLease_) {
        if (SharedPersistenceController *store = persistenceController())
            store->endRecording(*recordingLease_);
        recordingLease_.reset();
    }
    if (newNoteBeingRecorded_ && isSelected(newNoteBeingRecorded_->objectId()))
        setSelectedDetailTab(transcriptTab);
    setNewNoteBeingRecorded(nullptr);
    setIsTranscriptionPaused(false);
    setOperationInProgress(false);
    stopTask_.reset();
    if (roles_.recordingNotesViewModel() == this)
        roles_.setRecordingNotesViewModel(nullptr);
}

void NotesListViewModel::togglePause()
{
    if (!recorder_.recording())
        return;
    try {
        recorder_.togglePause();
    } catch (const std::exception &error) {
        reportFailure(describe(error));
    }
    setIsTranscriptionPaused(recorder_.paused());
}

void NotesListViewModel::selectNote(const NotePtr &chosen, bool additive)
{
    // A copy: the note may come from the application model's list, which the
    // refresh below replaces.
    const NotePtr note = chosen;
    appModel_.setSelected(note ? note->id() : std::nullopt);
    try {
        appModel_.refreshNotes();
    } catch (const std::exception &) {
        // The selection does not depend on the list being fresh.
    }
    emit kestilSaveCurrentNote();
    if (!note) {
        if (!additive)
            setSelectedNoteIDs({});
    } else if (additive) {
        QList<ObjectId> ids = selectedNoteIDs_;
        if (!ids.removeOne(note->objectId()))
            ids.append(note->objectId());
        setSelectedNoteIDs(ids);
    } else {
        selectOnly(note);
    }
    setSelectedDetailTab(note && note->hasSummaryContent() ? summaryTab : transcriptTab);
}

void NotesListViewModel::selectRecordingNote()
{
    const NotePtr note = recordingNote();
    if (!note)
        return;
    selectOnly(note);
    setSelectedDetailTab(transcriptTab);
}

void NotesListViewModel::listAppeared(const QList<NotePtr> &fetched, const FolderSelection &sidebarFolder)
{
    if (!summaryCheckpointsReviewed_) {
        summaryCheckpointsReviewed_ = true;
        reviewSummaryCheckpoints();
    }
    roles_.setActiveNotesViewModel(this);
    pendingFolderSelection_ = sidebarFolder;
    if (selectedNoteIDs_.isEmpty() && !fetched.isEmpty())
        selectNote(fetched.first(), false);
}

QFuture<void> NotesListViewModel::deleteNote(const NotePtr &note)
{
    if (appModel_.busy() || recorder_.starting() || recorder_.finishing()) {
        reportFailure(deleteRefusedText);
        return finishedFuture();
    }
    const auto promise = startedPromise();
    const QFuture<void> future = promise->future();
    const auto isNote = [&note](const NotePtr &other) {
        return note && other && (other == note || other->objectId() == note->objectId());
    };
    // A note being recorded stops first; its audio is then staged like any
    // other note's.
    NotesListViewModel *recordingModel = roles_.recordingNotesViewModel();
    QFuture<void> stopping;
    if (recordingModel && recordingModel != this && isNote(recordingModel->newNoteBeingRecorded()))
        stopping = recordingModel->stopTranscription();
    else if (isNote(newNoteBeingRecorded_))
        stopping = stopTranscription();
    if (stopping.isValid())
        whenFinished(stopping, this,
                     [this, note, promise](const QFuture<void> &) { deleteNow(note, promise); });
    else
        deleteNow(note, promise);
    return future;
}

void NotesListViewModel::deleteNow(const NotePtr &note, const std::shared_ptr<QPromise<void>> &promise)
{
    try {
        SharedPersistenceController *store = persistenceController();
        if (!store)
            throw LocalError(noteUnavailableText);
        const ObjectId id = note ? note->objectId() : ObjectId{};
        // The summary of a deleted note is stopped; the job's own checks then
        // leave the note alone.
        if (note && inference_ && generatingSummaryNoteID_ == id)
            inference_->cancel.cancel();
        const std::optional<QUuid> noteID = note ? note->id() : std::nullopt;
        store->deleteNote(note);
        // A deleted note's unfinished summary goes with it.
        if (noteID)
            summaryCheckpoints()->remove(*noteID);
        QList<ObjectId> ids = selectedNoteIDs_;
        ids.removeAll(id);
        setSelectedNoteIDs(ids);
        appModel_.refreshNotes();
    } catch (const std::exception &error) {
        reportFailure(describe(error));
    }
    promise->finish();
}

QFuture<void> NotesListViewModel::deleteSelectedNotes(const QList<NotePtr> &fetched)
{
    QList<NotePtr> notes;
    for (const NotePtr &note : fetched)
        if (note && isSelected(note->objectId()))
            notes.append(note);
    const auto promise = startedPromise();
    deleteInTurn(notes, promise);
    return promise->future();
}

QFuture<void> NotesListViewModel::deleteNotes(const QList<int> &offsets, const QList<NotePtr> &list)
{
    QList<NotePtr> notes;
    for (int offset : offsets)
        if (offset >= 0 && offset < list.size())
            notes.append(list.at(offset));
    const auto promise = startedPromise();
    deleteInTurn(notes, promise);
    return promise->future();
}

void NotesListViewModel::deleteInTurn(QList<NotePtr> notes, const std::shared_ptr<QPromise<void>> &promise)
{
    if (notes.isEmpty()) {
        promise->finish();
        return;
    }
    const NotePtr next = notes.takeFirst();
    whenFinished(deleteNote(next), this,
                 [this, notes, promise](const QFuture<void> &) { deleteInTurn(notes, promise); });
}

void NotesListViewModel::setTitle(const NotePtr &note, const QString &title)
{
    if (!noteIsUsable(note) || title.trimmed().isEmpty() || note->title() == title)
        return;
    note->setValue(QStringLiteral("title"), title);
    saveQuietly();
}

void NotesListViewModel::setSummary(const NotePtr &note, const QString &summary)
{
    if (!noteIsUsable(note) || note->summary() == summary)
        return;
    note->setValue(QStringLiteral("summary"), summary);
    saveQuietly();
}

void NotesListViewModel::setSummaryType(const NotePtr &note, const QString &summaryType)
{
    if (!noteIsUsable(note) || note->summaryType() == summaryType)
        return;
    const QVariant previous = note->value(QStringLiteral("summaryType"));
    note->setValue(QStringLiteral("summaryType"), summaryType);
    try {
        if (SharedPersistenceController *store = persistenceController())
            store->save();
    } catch (const std::exception &error) {
        note->setValue(QStringLiteral("summaryType"), previous);
        reportFailure(describe(error));
    }
}

LanguageModel &NotesListViewModel::languageModel() const
{
    return languageModel_ ? *languageModel_ : LlamaLanguageModel::shared();
}

QLocale NotesListViewModel::summaryLocale() const
{
    return QLocale(settings::transcriptionLanguage(preferences_));
}

template <typename T, typename Work, typename Done>
void NotesListViewModel::offMainThread(Work work, Done done)
{
    // The destructor waits for the worker, so `this` outlives every run; a
    // queued call still pending when this list goes is dropped with it.
    summaryWorker_.start([this, work, done]() {
        std::optional<T> value;
        std::exception_ptr error;
        try {
            value = work();
        } catch (...) {
            error = std::current_exception();
        }
        QMetaObject::invokeMethod(
            this, [done, value, error]() { done(value, error); }, Qt::QueuedConnection);
    });
}

QFuture<void> NotesListViewModel::generateSummary(const NotePtr &note, const QString &templateKey,
                                                  SummaryStart start)
{
    // A request while a recording starts or stops, while a summary runs or
    // while the application is busy is dropped, with no message; so is one
    // for a note that is already gone.
    if (operationInProgress_ || isGeneratingSummary_ || appModel_.busy() || !noteIsUsable(note))
        return finishedFuture();

    setSummaryFlags(true, note->objectId(), QDateTime::currentDateTimeUtc());
    streamingSummaryViewModel_.reset();

    const auto job = std::make_shared<SummaryJob>();
    job->note = note;
    job->summaryTemplate = LocalSummaryTemplates::fromStored(templateKey);
    job->text = transcriptForReading(*note);
    job->model = &languageModel();
    job->promise = startedPromise();
    job->noteID = note->id();
    job->checkpoints = summaryCheckpoints();
    if (job->noteID && job->checkpoints) {
        job->modelIdentity = job->model->identity();
        // A kept run of this template goes on where it stopped; one of
        // another template is replaced by this one.
        if (start == SummaryStart::startOver) {
            job->checkpoints->remove(*job->noteID);
        } else if (std::optional<StoredSummaryCheckpoint> kept = usableCheckpoint(note)) {
            if (kept->checkpoint.templateKey == LocalSummaryTemplates::id(job->summaryTemplate))
                job->resuming = std::move(kept->checkpoint);
            else
                job->checkpoints->remove(*job->noteID);
        }
    }
    // While a request of the job waits behind other work of the model (an
    // Ask AI answer), the view says so.
    const std::weak_ptr<SummaryJob> weakJob = job;
    job->cancel = CancellationToken().watchingWaits([this, weakJob](bool waiting) {
        QMetaObject::invokeMethod(
            this,
            [this, weakJob, waiting] {
                if (const SummaryJobPtr running = weakJob.lock(); summaryJobIsLive(running))
                    streamingSummaryViewModel_.setWaitingForModel(waiting);
            },
            Qt::QueuedConnection);
    });
    inference_ = job;
    KestilEngagement::shared().beginProcessing();
    const QFuture<void> future = job->promise->future();

    // Progress and partial text reach the streaming model on the main thread,
    // and only while the job is alive: after a cancel nothing more is shown.
    const auto progress = [this, job](const LocalSummaryProgress &value) {
        if (job->cancel.isCancelled())
            return;
        QMetaObject::invokeMethod(
            this,
            [this, job, value] {
                if (summaryJobIsLive(job))
                    streamingSummaryViewModel_.setProgress(value);
            },
            Qt::QueuedConnection);
    };
    const auto snapshot = [this, job](const QString &text) {
        if (job->cancel.isCancelled())
            return;
        QMetaObject::invokeMethod(
            this,
            [this, job, text] {
                if (!summaryJobIsLive(job))
                    return;
                streamingSummaryViewModel_.setSummary(text);
                if (!text.isEmpty())
                    streamingSummaryViewModel_.setProgress(LocalSummaryProgress::writing());
            },
            Qt::QueuedConnection);
    };
    // Each checkpoint replaces the kept one, on the worker, before the run
    // goes on. A write that fails does not stop the summary: it goes on
    // without a way back, and the user hears so once.
    const auto keep = [this, job](const LocalSummaryCheckpoint &checkpoint) {
        if (!job->checkpoints || !job->noteID || job->checkpointsFailed.load() || job->cancel.isCancelled())
            return;
        try {
            job->checkpoints->save({*job->noteID, job->modelIdentity, checkpoint});
        } catch (const std::exception &error) {
            job->checkpointsFailed.store(true);
            job->checkpoints->remove(*job->noteID);
            const QString message = QStringLiteral("Summary progress could not be saved: ") +
                                    describe(error) +
                                    QStringLiteral(" The summary goes on, but it cannot be continued after a "
                                                   "quit or a crash.");
            QMetaObject::invokeMethod(
                this,
                [this, job, message] {
                    if (summaryJobIsLive(job))
                        reportFailure(message);
                },
                Qt::QueuedConnection);
        }
    };
    const QLocale locale = summaryLocale();
    // The pipeline refuses first when the model or the language is not ready,
    // then measures the instructions against the model's context (at most
    // 4096 tokens, 512 of them kept for the answer).
    offMainThread<QString>(
        [job, locale, progress, snapshot, keep] {
            job->cancel.checkCancellation();
            return LocalSummary::generate(*job->model, job->text, job->summaryTemplate, locale, job->resuming,
                                          keep, progress, snapshot, job->cancel);
        },
        [this, job](const std::optional<QString> &summary, const std::exception_ptr &error) {
            if (error)
                failSummary(job, error);
            else
                summaryWritten(job, *summary);
        });
    return future;
}

void NotesListViewModel::summaryWritten(const SummaryJobPtr &job, QString summary)
{
    if (!summaryJobIsLive(job)) {
        endSummaryJob(job);
        return;
    }
    job->summary = std::move(summary);
    // Only a title the user did not choose is replaced.
    if (!noteIsUsable(job->note) || !job->note->needsGeneratedTitle(false)) {
        organizeTags(job);
        return;
    }
    streamingSummaryViewModel_.setProgress(LocalSummaryProgress::finishing());
    const QLocale locale = summaryLocale();
    offMainThread<QString>(
        [job, locale] { return LocalSummary::generateTitle(*job->model, job->summary, locale, job->cancel); },
        [this, job](const std::optional<QString> &title, const std::exception_ptr &error) {
            if (error && isCancellation(error)) {
                endSummaryJob(job);
                return;
            }
            // Any other failure leaves the title as it is; the summary goes on.
            if (error)
                job->titleFailure = titleFailureText(descriptionOf(error));
            else
                job->title = *title;
            organizeTags(job);
        });
}

void NotesListViewModel::organizeTags(const SummaryJobPtr &job)
{
    if (!summaryJobIsLive(job)) {
        endSummaryJob(job);
        return;
    }
    streamingSummaryViewModel_.setProgress(LocalSummaryProgress::organizingTags());
    QList<LocalTagCandidate> library;
    try {
        SharedPersistenceController *store = persistenceController();
        if (!store)
            throw LocalError(storeUnavailableText);
        library = store->fetchTagCandidates();
    } catch (...) {
        failSummary(job, std::current_exception());
        return;
    }
    const QLocale locale = summaryLocale();
    offMainThread<QStringList>(
        [job, library, locale] {
            try {
                return LocalNoteTags::generate(*job->model, job->summary, job->text, library, locale,
                                               job->cancel);
            } catch (const CancellationError &) {
                throw;
            } catch (...) {
                // A note's tags never depend on the model being well: without
                // its proposals, the library and the text decide.
                return LocalNoteTags::completedNames(std::nullopt, job->text, job->summary, library);
            }
        },
        [this, job](const std::optional<QStringList> &tags, const std::exception_ptr &error) {
            if (error)
                failSummary(job, error);
            else
                saveSummary(job, *tags);
        });
}

void NotesListViewModel::saveSummary(const SummaryJobPtr &job, const QStringList &tags)
{
    // A cancelled job, or one whose note was deleted meanwhile, ends without
    // a write: a deleted note stays deleted.
    if (!summaryJobIsLive(job) || !noteIsUsable(job->note)) {
        endSummaryJob(job);
        return;
    }
    // Summary, template, title and tags in one save, so that a note never
    // shows a new summary beside an old template.
    try {
        const QVariantMap fields = generatedNoteFields(
            job->summary, LocalSummaryTemplates::id(job->summaryTemplate), job->title, *job->note);
        persistenceController()->applyGeneratedFields(job->note, fields, tags);
    } catch (...) {
        failSummary(job, std::current_exception());
        return;
    }
    // The summary is in the note: nothing is left to continue.
    if (job->checkpoints && job->noteID)
        job->checkpoints->remove(*job->noteID);
    if (job->titleFailure)
        reportFailure(*job->titleFailure);
    emit summaryGenerationComplete(job->note->objectId(), job->summary);
    endSummaryJob(job);
}

void NotesListViewModel::failSummary(const SummaryJobPtr &job, const std::exception_ptr &error)
{
    // Whoever cancelled already knows; every other failure is told. Nothing
    // was written, so the note is exactly as it was.
    if (!job->cancel.isCancelled() && !isCancellation(error))
        reportFailure(descriptionOf(error));
    endSummaryJob(job);
}

void NotesListViewModel::endSummaryJob(const SummaryJobPtr &job)
{
    if (inference_ != job)
        return;
    // A run of a note deleted meanwhile leaves nothing behind; the worker is
    // done, so no later write can bring its checkpoint back.
    if (job->checkpoints && job->noteID && (!job->note || job->note->isDeleted()))
        job->checkpoints->remove(*job->noteID);
    clearSummaryState();
    inference_.reset();
    KestilEngagement::shared().endProcessing();
    job->promise->finish();
}

bool NotesListViewModel::summaryJobIsLive(const SummaryJobPtr &job) const
{
    return job && inference_ == job && !job->cancel.isCancelled();
}

std::optional<SummaryCheckpointStore> NotesListViewModel::summaryCheckpoints() const
{
    const SharedPersistenceController *store = persistenceController();
    if (!store || store->root().isEmpty())
        return std::nullopt;
    return SummaryCheckpointStore(store->root());
}

std::optional<QString> NotesListViewModel::checkpointProblem(const SummaryCheckpointStore::Read &read,
                                                             const NotePtr &note) const
{
    using State = SummaryCheckpointStore::State;
    if (read.state == State::unreadable)
        return QStringLiteral("The saved progress of an unfinished summary could not be read, so it was "
                              "discarded; your notes are unchanged.");
    if (read.state == State::newerVersion)
        return QStringLiteral("The saved progress of an unfinished summary was written by a newer version of "
                              "Kestil, so it was discarded; your notes are unchanged.");
    if (read.state != State::readable)
        return std::nullopt;
    if (!note || note->isDeleted())
        return QStringLiteral("The saved progress of an unfinished summary belonged to a note that no longer "
                              "exists, so it was discarded.");
    const LocalSummaryCheckpoint &checkpoint = read.stored->checkpoint;
    if (LocalSummaryTemplates::id(LocalSummaryTemplates::fromStored(checkpoint.templateKey)) !=
        checkpoint.templateKey)
        return QStringLiteral("The unfinished summary of %1 uses a template this version of Kestil does not "
                              "know, so it was discarded; the note is unchanged.")
            .arg(quotedTitle(*note));
    if (checkpoint.input != transcriptForReading(*note))
        return QStringLiteral("The unfinished summary of %1 was discarded because its transcript was edited "
                              "after the summary began; the note is unchanged.")
            .arg(quotedTitle(*note));
    // Without a model there is nothing to compare with yet; the run waits.
    const QString model = languageModel().identity();
    if (!model.isEmpty() && read.stored->model != model)
        return QStringLiteral("The unfinished summary of %1 was discarded because it was begun with another "
                              "on-device model; the note is unchanged.")
            .arg(quotedTitle(*note));
    return std::nullopt;
}

std::optional<StoredSummaryCheckpoint> NotesListViewModel::usableCheckpoint(const NotePtr &note)
{
    const std::optional<SummaryCheckpointStore> checkpoints = summaryCheckpoints();
    const std::optional<QUuid> noteID = note ? note->id() : std::nullopt;
    if (!checkpoints || !noteID)
        return std::nullopt;
    SummaryCheckpointStore::Read read = checkpoints->read(*noteID);
    if (const std::optional<QString> problem = checkpointProblem(read, note)) {
        checkpoints->remove(*noteID);
        reportFailure(*problem);
        return std::nullopt;
    }
    if (read.state != SummaryCheckpointStore::State::readable || languageModel().identity().isEmpty())
        return std::nullopt;
    return std::move(read.stored);
}

void NotesListViewModel::reviewSummaryCheckpoints()
{
    const std::optional<SummaryCheckpointStore> checkpoints = summaryCheckpoints();
    if (!checkpoints)
        return;
    checkpoints->removeLeftovers();
    QStringList problems;
    for (const QUuid &noteID : checkpoints->noteIDs()) {
        const std::optional<QString> problem =
            checkpointProblem(checkpoints->read(noteID), persistenceController()->noteWithId(noteID));
        if (!problem)
            continue;
        checkpoints->remove(noteID);
        if (!problems.contains(*problem))
            problems.append(*problem);
    }
    if (!problems.isEmpty())
        reportFailure(problems.join(QLatin1Char(' ')));
}

std::optional<NotesListViewModel::SummaryResumeOffer>
NotesListViewModel::summaryResumeOffer(const NotePtr &note)
{
    // A running job of the note is its own progress, not an offer.
    if (!noteIsUsable(note) || (inference_ && generatingSummaryNoteID_ == note->objectId()))
        return std::nullopt;
    const std::optional<StoredSummaryCheckpoint> kept = usableCheckpoint(note);
    if (!kept)
        return std::nullopt;
    const LocalSummaryCheckpoint &checkpoint = kept->checkpoint;
    SummaryResumeOffer offer;
    offer.templateKey = checkpoint.templateKey;
    offer.pass = checkpoint.pass;
    offer.completed = int(checkpoint.facts.size());
    offer.total = checkpoint.sections ? int(checkpoint.sections->size()) : 0;
    offer.written = checkpoint.result.has_value();
    return offer;
}

QFuture<void> NotesListViewModel::continueSummary(const NotePtr &note)
{
    const std::optional<SummaryResumeOffer> offer = summaryResumeOffer(note);
    if (!offer)
        return finishedFuture();
    return generateSummary(note, offer->templateKey, SummaryStart::continueSaved);
}

QFuture<void> NotesListViewModel::summarizeAgain(const NotePtr &note)
{
    const std::optional<SummaryResumeOffer> offer = summaryResumeOffer(note);
    if (!offer)
        return finishedFuture();
    return generateSummary(note, offer->templateKey, SummaryStart::startOver);
}

void NotesListViewModel::cancelSummary()
{
    if (inference_)
        inference_->cancel.cancel();
}

void NotesListViewModel::beginSummaryIndicator(const NotePtr &note)
{
    if (note)
        setSummaryFlags(true, note->objectId(), QDateTime::currentDateTimeUtc());
}

void NotesListViewModel::endSummaryIndicator(const NotePtr &note)
{
    if (note && generatingSummaryNoteID_ == note->objectId())
        setSummaryFlags(false, std::nullopt, std::nullopt);
}

std::optional<QDateTime> NotesListViewModel::summaryStartedAt(const NotePtr &note) const
{
    if (note && generatingSummaryNoteID_ == note->objectId())
        return generatingSummaryStartedAt_;
    return std::nullopt;
}

void NotesListViewModel::clearSummaryState()
{
    setSummaryFlags(false, std::nullopt, std::nullopt);
    streamingSummaryViewModel_.reset();
}

void NotesListViewModel::setSummaryFlags(bool generating, const std::optional<ObjectId> &noteID,
                                         const std::optional<QDateTime> &startedAt)
{
    if (isGeneratingSummary_ == generating && generatingSummaryNoteID_ == noteID &&
        generatingSummaryStartedAt_ == startedAt)
        return;
    isGeneratingSummary_ = generating;
    generatingSummaryNoteID_ = noteID;
    generatingSummaryStartedAt_ = startedAt;
    emit summaryStateChanged();
}

void NotesListViewModel::reportFailure(const QString &message)
{
    if (syncErrorMessage_ != message) {
        syncErrorMessage_ = message;
        emit syncErrorMessageChanged(message);
    }
    // A repeated failure shows its alert again.
    if (showSyncError_)
        setShowSyncError(false);
    setShowSyncError(true);
}

bool NotesListViewModel::noteIsUsable(const NotePtr &note) const
{
    const SharedPersistenceController *store = persistenceController();
    return store && note && !note->isDeleted() && note->managedObjectContext() == &store->context();
}

bool NotesListViewModel::saveQuietly()
{
    SharedPersistenceController *store = persistenceController();
    if (!store)
        return false;
    try {
        store->save();
        return true;
    } catch (const std::exception &error) {
        // The recording goes on.
        reportFailure(describe(error));
        return false;
    }
}

void NotesListViewModel::selectOnly(const NotePtr &note)
{
    setSelectedNoteIDs({note->objectId()});
}

void NotesListViewModel::setSelectedDetailTab(int tab)
{
    if (selectedDetailTab_ == tab)
        return;
    selectedDetailTab_ = tab;
    emit selectedDetailTabChanged(tab);
}

void NotesListViewModel::setShowSyncError(bool show)
{
    if (showSyncError_ == show)
        return;
    showSyncError_ = show;
    emit showSyncErrorChanged(show);
}

void NotesListViewModel::setNewNoteBeingRecorded(const NotePtr &note)
{
    if (newNoteBeingRecorded_ == note)
        return;
    newNoteBeingRecorded_ = note;
    emit newNoteBeingRecordedChanged();
}

void NotesListViewModel::setIsTranscriptionPaused(bool paused)
{
    if (isTranscriptionPaused_ == paused)
        return;
    isTranscriptionPaused_ = paused;
    emit isTranscriptionPausedChanged(paused);
}

void NotesListViewModel::setAccumulatedTranscription(const QString &text)
{
    if (accumulatedTranscription_ == text)
        return;
    accumulatedTranscription_ = text;
    emit accumulatedTranscriptionChanged(text);
}

void NotesListViewModel::setOperationInProgress(bool inProgress)
{
    if (operationInProgress_ == inProgress)
        return;
    operationInProgress_ = inProgress;
    emit operationInProgressChanged(inProgress);
}

void NotesListViewModel::setSelectedNoteIDs(const QList<ObjectId> &ids)
{
    if (selectedNoteIDs_ == ids)
        return;
    selectedNoteIDs_ = ids;
    emit selectedNoteIDsChanged();
}

} // namespace kestil
