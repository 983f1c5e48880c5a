// The notes list model against the real store and the real recording
// session: real SQLite, real segments on disk, the file source, and a
// speech engine that hears one word per second of audio.
#include "core/CoreTestRig.h"

#include "core/NoteOrganizing.h"
#include "core/NoteTranscript.h"
#include "prefs/SettingsKeys.h"

#include <QSignalSpy>

using namespace kestil;
using namespace kestil::test;
using namespace std::chrono_literals;

namespace {

const QString deleteRefused = QStringLiteral("Cancel or finish the current operation before deleting notes.");
const QString unavailable = QStringLiteral("This note is unavailable.");

class NotesListViewModelTest : public CoreRigTest {
protected:
    NotePtr record(NotesListViewModel &model)
    {
        EXPECT_TRUE(waitFor(model.startNewTranscription()));
        EXPECT_TRUE(recorder->recording());
        return model.newNoteBeingRecorded();
    }

    void stop(NotesListViewModel &model) { EXPECT_TRUE(waitFor(model.stopTranscription())); }

    bool allComplete(const QUuid &id)
    {
        const QStringList segments = segmentsOf(root.path(), id);
        return !segments.isEmpty() && std::all_of(segments.begin(), segments.end(), [](const QString &s) {
            return LocalRecordingManifest::read(s).complete;
        });
    }

    QString storedTranscript(const NotePtr &note)
    {
        return storedNote(*note->id())->transcription().value_or(QString());
    }
};

} // namespace

TEST_F(NotesListViewModelTest, ANewRecordingGoesIntoANewNoteInTheShownFolderAndEverySnapshotIsSaved)
{
    const FolderPtr folder = createFolder(QStringLiteral("Meetings"), store().context());
    store().save();
    NotesListViewModel &model = list();
    model.setPendingFolderSelection(FolderSelection::folder(*folder->id()));
    const QFuture<void> started = model.startNewTranscription();

    // At once: the note, its lease, its folder name and the transcript tab.
    const NotePtr note = model.newNoteBeingRecorded();
    ASSERT_TRUE(note);
    const QUuid id = *note->id();
    EXPECT_EQ(note->title(), QStringLiteral("Untitled Note"));
    EXPECT_EQ(note->noteType(), QStringLiteral("transcription"));
    EXPECT_EQ(note->sourceURL(), QStringLiteral("Recordings/") + idText(id));
    EXPECT_TRUE(model.operationInProgress());
    EXPECT_FALSE(model.canStart());
    EXPECT_TRUE(store().activeRecording().has_value());
    EXPECT_EQ(app->selected(), id);
    EXPECT_EQ(model.selectedDetailTab(), NotesListViewModel::transcriptTab);
    EXPECT_EQ(roles.recordingNotesViewModel(), &model);
    ASSERT_TRUE(waitFor(started));
    EXPECT_FALSE(model.operationInProgress());
    EXPECT_FALSE(model.showSyncError()) << model.syncErrorMessage().toStdString();

    // Each committed snapshot is in the file while the recording runs.
    ASSERT_TRUE(rig.waitForFileDelivered());
    ASSERT_TRUE(waitUntil([&] { return note->transcription() == QStringLiteral("word1 word2"); }));
    EXPECT_EQ(model.accumulatedTranscription(), QStringLiteral("word1 word2 partial"));
    EXPECT_FALSE(store().context().hasChanges());
    EXPECT_EQ(storedTranscript(note), QStringLiteral("word1 word2"));

    stop(model);
    EXPECT_FALSE(model.newNoteBeingRecorded());
    EXPECT_FALSE(store().activeRecording().has_value());
    EXPECT_EQ(roles.recordingNotesViewModel(), nullptr);
    const NotePtr stored = storedNote(id);
    EXPECT_EQ(stored->transcription(), QStringLiteral("word1 word2 tail"));
    const auto utterances = transcriptUtterances(*stored);
    ASSERT_FALSE(utterances.isEmpty());
    EXPECT_EQ(utterances.first().start, 0.0);
    EXPECT_EQ(utterances.last().end, 2.5);
    EXPECT_EQ(segmentsOf(root.path(), id).size(), 1);
    EXPECT_TRUE(allComplete(id));
    ASSERT_TRUE(stored->folder());
    EXPECT_EQ(stored->folder()->id(), folder->id());

    // With all notes shown a new note lands in no folder.
    model.setPendingFolderSelection(FolderSelection::all());
    EXPECT_FALSE(record(model)->folder());
    stop(model);
}

TEST_F(NotesListViewModelTest, ATentativeResultIsShownButNeverStoredAndAFailedSaveIsRetried)
{
    rig.useScript(ScriptedSource::Script{AudioFormat{AudioSampleFormat::float32, 16000, 1}},
                  std::make_shared<SourceProbe>());
    NotesListViewModel &model = list();
    const NotePtr note = record(model);
    ASSERT_TRUE(note);
    QSignalSpy saves(&store(), &SharedPersistenceController::didSave);

    LocalTranscript snapshot;
    snapshot.tentative = QStringLiteral("hello there");
    model.receiveSnapshot(snapshot);
    EXPECT_EQ(model.accumulatedTranscription(), QStringLiteral("hello there"));
    EXPECT_EQ(note->transcription(), QString());
    EXPECT_EQ(saves.count(), 0);

    snapshot.utterances = {LocalUtterance{QStringLiteral(" hello there "), 0.5, 1.5}};
    snapshot.tentative = QStringLiteral("and");
    model.receiveSnapshot(snapshot);
    EXPECT_EQ(model.accumulatedTranscription(), QStringLiteral(" hello there  and"));
    EXPECT_EQ(note->transcription(), QStringLiteral(" hello there "));
    EXPECT_EQ(saves.count(), 1);
    const auto utterances = transcriptUtterances(*note);
    ASSERT_EQ(utterances.size(), 1);
    EXPECT_EQ(utterances[0].text, QStringLiteral("hello there"));

    // A new tentative tail after the same finals is shown, and the store,
    // which holds those finals already, is not written again.
    snapshot.tentative = QStringLiteral("and then");
    model.receiveSnapshot(snapshot);
    EXPECT_EQ(model.accumulatedTranscription(), QStringLiteral(" hello there  and then"));
    EXPECT_EQ(saves.count(), 1);

    // A snapshot that cannot be saved is reported, the recording goes on, and
    // the next snapshot writes and tries again.
    failWrites(store(), QStringLiteral("note"), QStringLiteral("UPDATE"));
    snapshot.tentative.clear();
    snapshot.utterances.append(LocalUtterance{QStringLiteral("first words"), 2.5, 3.5});
    model.receiveSnapshot(snapshot);
    EXPECT_TRUE(model.showSyncError());
    EXPECT_TRUE(recorder->recording());
    EXPECT_TRUE(model.newNoteBeingRecorded());
    allowWrites(store(), QStringLiteral("note"), QStringLiteral("UPDATE"));
    snapshot.utterances.append(LocalUtterance{QStringLiteral("more words"), 3.5, 4.5});
    model.receiveSnapshot(snapshot);
    EXPECT_EQ(storedTranscript(note), QStringLiteral(" hello there  first words more words"));
    stop(model);
}

TEST_F(NotesListViewModelTest, RecordingIntoANoteWithTextKeepsItInFrontAndTimesTheNewWordsAfterIt)
{
    NotesListViewModel &model = list();
    const NotePtr note = makeNote(QStringLiteral("Standup"), QStringLiteral("Earlier text."));
    // Four seconds of earlier audio in the note's folder.
    writeSegment(root.path(), *note->id(), 4);

    ASSERT_TRUE(waitFor(model.startTranscription(note)));
    ASSERT_TRUE(rig.waitForFileDelivered());
    ASSERT_TRUE(
        waitUntil([&] { return model.accumulatedTranscription().contains(QStringLiteral("word2")); }));
    EXPECT_TRUE(model.accumulatedTranscription().startsWith(QStringLiteral("Earlier text. word1")));
    stop(model);

    EXPECT_EQ(note->title(), QStringLiteral("Standup"));
    // The untimed earlier paragraph and the new words read as one short
    // paragraph, timed after the four seconds of earlier audio.
    const auto utterances = transcriptUtterances(*storedNote(*note->id()));
    ASSERT_EQ(utterances.size(), 1);
    EXPECT_EQ(utterances[0].text, QStringLiteral("Earlier text. word1 word2 tail"));
    EXPECT_EQ(utterances[0].start, 4.0);
    EXPECT_EQ(utterances[0].end, 6.5);
    EXPECT_EQ(segmentsOf(root.path(), *note->id()).size(), 2);
}

TEST_F(NotesListViewModelTest,
       WhileARecordingStartsOrFinishesStartsChangeNothingAndDeletesAreRefusedWithWords)
{
    rig.speechStartGate = std::make_shared<Latch>();
    auto gate = std::make_shared<Latch>();
    rig.engine->finishGate = gate;
    NotesListViewModel &model = list();
    const NotePtr kept = makeNote(QStringLiteral("Keep"));
    const NotePtr other = makeNote({});
    const QFuture<void> first = model.startNewTranscription();
    const NotePtr note = model.newNoteBeingRecorded();
    const qsizetype notes = store().fetchNotes().size();
    // Neither a second new note nor a start into another note.
    EXPECT_TRUE(model.startNewTranscription().isFinished());
    EXPECT_TRUE(model.startTranscription(other).isFinished());
    EXPECT_EQ(store().fetchNotes().size(), notes);
    EXPECT_EQ(model.newNoteBeingRecorded(), note);
    EXPECT_FALSE(model.showSyncError());

    const auto refusesDelete = [&] {
        model.setShowSyncError(false);
        EXPECT_TRUE(model.deleteNote(kept).isFinished());
        EXPECT_TRUE(model.showSyncError());
        EXPECT_EQ(model.syncErrorMessage(), deleteRefused);
        EXPECT_TRUE(store().noteWithId(*kept->id()));
    };
    refusesDelete();
    rig.speechStartGate->open();
    ASSERT_TRUE(waitFor(first));
    EXPECT_EQ(*rig.speechStarts, 1);
    const QFuture<void> stopping = model.stopTranscription();
    ASSERT_TRUE(recorder->finishing());
    refusesDelete();
    gate->open();
    ASSERT_TRUE(waitFor(stopping));

    ASSERT_TRUE(waitFor(model.deleteNote(kept)));
    EXPECT_FALSE(store().noteWithId(*kept->id()));
}

TEST_F(NotesListViewModelTest, TwoStopsRunOneAndBothReturnAfterIt)
{
    auto gate = std::make_shared<Latch>();
    rig.engine->finishGate = gate;
    NotesListViewModel &model = list();
    NotesListViewModel &other = anotherList();
    const NotePtr note = record(model);
    ASSERT_TRUE(rig.waitForFileDelivered());
    int stops = 0;
    QObject::connect(recorder.get(), &ProcessTapRecorder::finishingChanged,
                     [&](bool finishing) { stops += finishing ? 1 : 0; });

    // A list that does not record hands the stop to the one that does.
    const QList<QFuture<void>> futures{model.stopTranscription(), model.stopTranscription(),
                                       other.stopTranscription()};
    settle();
    for (const auto &future : futures)
        EXPECT_FALSE(future.isFinished());
    EXPECT_TRUE(model.operationInProgress());
    gate->open();
    for (const auto &future : futures)
        ASSERT_TRUE(waitFor(future));
    EXPECT_EQ(stops, 1);
    EXPECT_EQ(rig.engine->finishes.load(), 1);
    EXPECT_FALSE(store().activeRecording().has_value());
    EXPECT_EQ(note->transcription(), QStringLiteral("word1 word2 tail"));
}

TEST_F(NotesListViewModelTest, DeletingTheNoteBeingRecordedStopsItThenStagesItsAudio)
{
    NotesListViewModel &model = list();
    const NotePtr note = record(model);
    const QUuid id = *note->id();
    ASSERT_TRUE(rig.waitForFileDelivered());
    QStringList moves;
    bool stoppedAndCompleteBeforeMove = false;
    store().setMoverForTesting([&](const QString &from, const QString &to) {
        moves << QDir(root.path()).relativeFilePath(from) + QStringLiteral(" -> ") +
                     QDir(root.path()).relativeFilePath(to);
        stoppedAndCompleteBeforeMove = !recorder->recording() && !recorder->finishing() && allComplete(id);
        moveItemAtomically(from, to);
    });

    ASSERT_TRUE(waitFor(model.deleteNote(note)));
    EXPECT_FALSE(model.showSyncError()) << model.syncErrorMessage().toStdString();
    EXPECT_EQ(moves, QStringList{QStringLiteral("Recordings/%1 -> DeletedRecordings/%1").arg(idText(id))});
    EXPECT_TRUE(stoppedAndCompleteBeforeMove);
    EXPECT_FALSE(store().noteWithId(id));
    EXPECT_FALSE(QDir(root.file(QStringLiteral("Recordings/") + idText(id))).exists());
    EXPECT_FALSE(QDir(root.file(QStringLiteral("DeletedRecordings/") + idText(id))).exists());
    EXPECT_TRUE(model.selectedNoteIDs().isEmpty());
    EXPECT_FALSE(store().activeRecording().has_value());

    // Deleting from another list stops the recording list first.
    NotesListViewModel &other = anotherList();
    const NotePtr second = record(model);
    ASSERT_TRUE(waitFor(other.deleteNote(second)));
    EXPECT_FALSE(other.showSyncError()) << other.syncErrorMessage().toStdString();
    EXPECT_FALSE(recorder->recording());
    EXPECT_FALSE(model.newNoteBeingRecorded());
    EXPECT_FALSE(store().noteWithId(*second->id()));
}

TEST_F(NotesListViewModelTest, AfterAFailedStartTheLeaseIsFreeAndTheNextStartWorks)
{
    auto attempts = std::make_shared<int>(0);
    auto systemAudioFlags = std::make_shared<QList<bool>>();
    rig.makeSource = [attempts, wav = tone,
                      systemAudioFlags](bool systemAudio) -> std::unique_ptr<AudioSource> {
        systemAudioFlags->append(systemAudio);
        if ((*attempts)++ == 0)
            return std::make_unique<ScriptedSource>(
                ScriptedSource::Script{{}, QStringLiteral("No microphone input is available.")},
                std::make_shared<SourceProbe>());
        return std::make_unique<AudioFileSource>(wav, AudioFileSource::Pace::asFastAsConsumed);
    };
    settings::setRecordSystemAudio(*preferences, false);
    NotesListViewModel &model = list();

    ASSERT_TRUE(waitFor(model.startNewTranscription()));
    EXPECT_EQ(model.syncErrorMessage(), QStringLiteral("No microphone input is available."));
    EXPECT_FALSE(model.newNoteBeingRecorded());
    EXPECT_FALSE(model.operationInProgress());
    EXPECT_FALSE(store().activeRecording().has_value());
    EXPECT_EQ(roles.recordingNotesViewModel(), nullptr);
    // The empty note stays, with its folder name; nothing is deleted.
    const auto notes = store().fetchNotes();
    ASSERT_EQ(notes.size(), 1);
    EXPECT_TRUE(notes[0]->sourceURL().has_value());

    settings::setRecordSystemAudio(*preferences, true);
    const NotePtr note = record(model);
    ASSERT_TRUE(note);
    EXPECT_NE(note, notes[0]);
    EXPECT_EQ(*systemAudioFlags, (QList<bool>{false, true}));
    stop(model);

    // A note gone before the start: nothing starts at all.
    const NotePtr gone = makeNote({});
    store().deleteNote(gone);
    const int speechStarts = *rig.speechStarts;
    ASSERT_TRUE(waitFor(model.startTranscription(gone)));
    EXPECT_EQ(model.syncErrorMessage(), unavailable);
    EXPECT_EQ(*rig.speechStarts, speechStarts);
    EXPECT_FALSE(store().activeRecording().has_value());
}

TEST_F(NotesListViewModelTest, TheSpeechWarningIsShownAtStartAndNotAgainAtStop)
{
    rig.speechFailure = QStringLiteral("No compatible on-device speech audio format.");
    NotesListViewModel &model = list();
    ASSERT_TRUE(record(model));
    EXPECT_TRUE(model.syncErrorMessage().startsWith(QStringLiteral("Live transcription unavailable: ")));
    model.setShowSyncError(false);
    ASSERT_TRUE(rig.waitForFileDelivered());
    stop(model);
    EXPECT_FALSE(model.showSyncError());
}

TEST_F(NotesListViewModelTest, ACaptureFailureEndsTheRecordingThroughTheListAndSavesTheNote)
{
    ScriptedSource::Script script;
    script.format = AudioFormat{AudioSampleFormat::float32, 16000, 1};
    script.buffers.assign(16, std::vector<unsigned char>(1600 * 4, 0));
    script.failureAt = 15;
    script.failure = QStringLiteral("The sound server ended the microphone recording: gone");
    rig.useScript(script, std::make_shared<SourceProbe>());
    NotesListViewModel &model = list();
    const QFuture<void> started = model.startNewTranscription();
    const NotePtr note = model.newNoteBeingRecorded();
    ASSERT_TRUE(note);
    ASSERT_TRUE(waitFor(started));

    ASSERT_TRUE(waitUntil([&] { return !model.newNoteBeingRecorded() && !recorder->finishing(); }));
    EXPECT_EQ(model.syncErrorMessage(),
              QStringLiteral("Capture stopped: The sound server ended the microphone "
                             "recording: gone. Captured audio was preserved."));
    EXPECT_FALSE(store().activeRecording().has_value());
    EXPECT_EQ(storedTranscript(note), QStringLiteral("word1 tail"));
}

TEST_F(NotesListViewModelTest, SelectingOpensTheSummaryOnlyWhenThereIsOneAndDeletesGoPastFailures)
{
    NotesListViewModel &model = list();
    const NotePtr plain = makeNote(QStringLiteral("A"));
    const NotePtr summarised = makeNote(QStringLiteral("B"));
    summarised->setValue(QStringLiteral("summary"), QStringLiteral("## Points\n- one"));
    const NotePtr generating = makeNote(QStringLiteral("C"));
    generating->setValue(QStringLiteral("summary"), QStringLiteral("Generating summary..."));
    store().save();
    QSignalSpy editorsSave(&model, &NotesListViewModel::kestilSaveCurrentNote);

    model.selectNote(summarised, false);
    EXPECT_EQ(model.selectedDetailTab(), NotesListViewModel::summaryTab);
    EXPECT_EQ(app->selected(), summarised->id());
    model.selectNote(generating, false);
    EXPECT_EQ(model.selectedDetailTab(), NotesListViewModel::transcriptTab);
    model.selectNote(plain, true);
    EXPECT_EQ(model.selectedNoteIDs(), (QList<ObjectId>{generating->objectId(), plain->objectId()}));
    model.selectNote(generating, true);
    EXPECT_EQ(model.selectedNoteIDs(), QList<ObjectId>{plain->objectId()});
    EXPECT_EQ(editorsSave.count(), 4);

    // The list appearing selects its first note only when nothing is selected.
    NotesListViewModel &other = anotherList();
    other.listAppeared({summarised, plain}, FolderSelection::unfiled());
    EXPECT_EQ(roles.activeNotesViewModel(), &other);
    EXPECT_EQ(other.selectedNoteIDs(), QList<ObjectId>{summarised->objectId()});
    EXPECT_EQ(other.pendingFolderSelection(), FolderSelection::unfiled());
    other.listAppeared({plain}, FolderSelection::all());
    EXPECT_EQ(other.selectedNoteIDs(), QList<ObjectId>{summarised->objectId()});

    // Deleting the selected notes; then by position, going on past a note
    // whose delete fails and showing its error.
    model.selectNote(summarised, false);
    model.selectNote(generating, true);
    ASSERT_TRUE(waitFor(model.deleteSelectedNotes({summarised, plain, generating})));
    EXPECT_FALSE(store().noteWithId(*summarised->id()));
    EXPECT_TRUE(store().noteWithId(*plain->id()));
    EXPECT_FALSE(store().noteWithId(*generating->id()));
    EXPECT_TRUE(model.selectedNoteIDs().isEmpty());
    const QList<NotePtr> more = {plain, makeNote(QStringLiteral("more")), makeNote(QStringLiteral("more"))};
    store().deleteNote(more[1]);
    ASSERT_TRUE(waitFor(model.deleteNotes({0, 1, 2, 7}, more)));
    EXPECT_EQ(model.syncErrorMessage(), unavailable);
    EXPECT_FALSE(store().noteWithId(*more[0]->id()));
    EXPECT_FALSE(store().noteWithId(*more[2]->id()));
}

TEST_F(NotesListViewModelTest, EditsAndQuitsThatCannotBeSavedArePutBackOrKeptAndSayWhy)
{
    NotesListViewModel &model = list();
    roles.setActiveNotesViewModel(&model);
    const NotePtr note = makeNote(QStringLiteral("Title"));
    QSignalSpy saves(&store(), &SharedPersistenceController::didSave);
    model.setTitle(note, QStringLiteral("Title"));
    model.setTitle(note, QStringLiteral("   "));
    EXPECT_EQ(saves.count(), 0);
    EXPECT_EQ(note->title(), QStringLiteral("Title"));
    model.setTitle(note, QStringLiteral("Weekly review"));
    model.setSummary(note, QStringLiteral("Short."));
    model.setSummaryType(note, QStringLiteral("meeting"));
    EXPECT_EQ(saves.count(), 3);
    EXPECT_EQ(storedNote(*note->id())->title(), QStringLiteral("Weekly review"));

    failWrites(store(), QStringLiteral("note"), QStringLiteral("UPDATE"));
    model.setSummaryType(note, QStringLiteral("lecture"));
    EXPECT_EQ(note->summaryType(), QStringLiteral("meeting"));
    EXPECT_TRUE(model.syncErrorMessage().contains(QStringLiteral("disk is full"), Qt::CaseInsensitive));
    allowWrites(store(), QStringLiteral("note"), QStringLiteral("UPDATE"));

    // A quit while recording stops the recording and saves every editor; one
    // whose save fails stays running and says why, with the words kept in
    // memory for the next try.
    const NotePtr recorded = record(model);
    ASSERT_TRUE(rig.waitForFileDelivered());
    failWrites(store(), QStringLiteral("note"), QStringLiteral("UPDATE"));
    model.setShowSyncError(false);
    note->setValue(QStringLiteral("notes"), QStringLiteral("unsaved words"));
    QSignalSpy editorsSave(&roles, &NotesListRoles::forceAllEditorsSave);
    QFuture<bool> quit = roles.prepareToQuit(&store());
    ASSERT_TRUE(waitFor(quit));
    EXPECT_FALSE(quit.result());
    EXPECT_EQ(editorsSave.count(), 1);
    EXPECT_FALSE(recorder->recording());
    EXPECT_TRUE(model.showSyncError());
    EXPECT_TRUE(model.syncErrorMessage().contains(QStringLiteral("disk is full"), Qt::CaseInsensitive))
        << model.syncErrorMessage().toStdString();
    EXPECT_EQ(note->notes(), QStringLiteral("unsaved words"));

    allowWrites(store(), QStringLiteral("note"), QStringLiteral("UPDATE"));
    quit = roles.prepareToQuit(&store());
    ASSERT_TRUE(waitFor(quit));
    EXPECT_TRUE(quit.result());
    EXPECT_EQ(storedNote(*note->id())->notes(), QStringLiteral("unsaved words"));
    EXPECT_EQ(storedTranscript(recorded), QStringLiteral("word1 word2 tail"));
    EXPECT_TRUE(allComplete(*recorded->id()));
    // Without a store there is nothing to keep the program open for.
    quit = roles.prepareToQuit(nullptr);
    ASSERT_TRUE(waitFor(quit));
    EXPECT_TRUE(quit.result());
}
