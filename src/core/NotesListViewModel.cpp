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
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

#include <QPointer>

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

void NotesListViewModel::selectNote(const NotePtr &note, bool additive)
{
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
        store->deleteNote(note);
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

QFuture<void> NotesListViewModel::generateSummary(const NotePtr &note, const QString &templateKey)
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
    job->text = note->transcription().value_or(QString());
    job->model = &languageModel();
    job->promise = startedPromise();
    inference_ = job;
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
    const QLocale locale = summaryLocale();
    // The pipeline refuses first when the model or the language is not ready,
    // then measures the instructions against the model's context (at most
    // 4096 tokens, 512 of them kept for the answer). No checkpoint is kept:
    // a job that does not finish leaves no trace.
    offMainThread<QString>(
        [job, locale, progress, snapshot] {
            job->cancel.checkCancellation();
            return LocalSummary::generate(
                *job->model, job->text, job->summaryTemplate, locale, std::nullopt,
                [](const LocalSummaryCheckpoint &) {}, progress, snapshot, job->cancel);
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
                job->titleFailure = descriptionOf(error);
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
    if (job->titleFailure)
        reportFailure(titleFailedPrefix + *job->titleFailure);
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
    clearSummaryState();
    inference_.reset();
    job->promise->finish();
}

bool NotesListViewModel::summaryJobIsLive(const SummaryJobPtr &job) const
{
    return job && inference_ == job && !job->cancel.isCancelled();
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
