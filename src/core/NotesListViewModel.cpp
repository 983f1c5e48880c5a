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
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

#include <QPointer>

namespace kestil {

namespace {

const QString deleteRefusedText =
    QStringLiteral("Cancel or finish the current operation before deleting notes.");
const QString notANoteText = QStringLiteral("Unable to create a local note.");
const QString noteUnavailableText = QStringLiteral("This note is unavailable.");
const QString storeUnavailableText = QStringLiteral("Local store is unavailable.");
const QString localNoteType = QStringLiteral("local");
const QString transcriptionNoteType = QStringLiteral("transcription");

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
}

NotesListViewModel::~NotesListViewModel() = default;

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
