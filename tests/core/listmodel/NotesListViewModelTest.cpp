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
using namespace Qt::StringLiterals;

namespace {

const QString deleteRefused = u"Cancel or finish the current operation before deleting notes."_s;
const QString unavailable = u"This note is unavailable."_s;

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
    const FolderPtr folder = createFolder(u"Meetings"_s, store().context());
    store().save();
    NotesListViewModel &model = list();
    model.setPendingFolderSelection(FolderSelection::folder(*folder->id()));
    const QFuture<void> started = model.startNewTranscription();

    // At once: the note, its lease, its folder name and the transcript tab.
    const NotePtr note = model.newNoteBeingRecorded();
    ASSERT_TRUE(note);
    const QUuid id = *note->id();
    EXPECT_EQ(note->noteType(), u"transcription"_s);
    EXPECT_EQ(note->sourceURL(), u"Recordings/"_s + idText(id));
    EXPECT_FALSE(model.canStart());
    EXPECT_TRUE(store().activeRecording().has_value());
    EXPECT_EQ(app->selected(), id);
    EXPECT_EQ(model.selectedDetailTab(), NotesListViewModel::transcriptTab);
    EXPECT_EQ(roles.recordingNotesViewModel(), &model);
    ASSERT_TRUE(waitFor(started));
    EXPECT_FALSE(model.showSyncError()) << model.syncErrorMessage().toStdString();

    // Each committed snapshot is in the file while the recording runs.
    ASSERT_TRUE(rig.waitForFileDelivered());
    ASSERT_TRUE(waitUntil([&] { return note->transcription() == u"word1 word2"_s; }));
    EXPECT_EQ(model.accumulatedTranscription(), u"word1 word2 partial"_s);
    EXPECT_FALSE(store().context().hasChanges());
    EXPECT_EQ(storedTranscript(note), u"word1 word2"_s);

    stop(model);
    EXPECT_FALSE(model.newNoteBeingRecorded());
    EXPECT_FALSE(store().activeRecording().has_value());
    EXPECT_EQ(roles.recordingNotesViewModel(), nullptr);
    const NotePtr stored = storedNote(id);
    EXPECT_EQ(stored->transcription(), u"word1 word2 tail"_s);
    const auto utterances = transcriptUtterances(*stored);
    ASSERT_FALSE(utterances.isEmpty());
    EXPECT_EQ(utterances.first().start, 0.0);
    EXPECT_EQ(utterances.last().end, 2.5);
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
    snapshot.tentative = u"hello there"_s;
    model.receiveSnapshot(snapshot);
    EXPECT_EQ(model.accumulatedTranscription(), u"hello there"_s);
    EXPECT_EQ(note->transcription(), QString());
    EXPECT_EQ(saves.count(), 0);

    snapshot.utterances = {LocalUtterance{u" hello there "_s, 0.5, 1.5}};
    snapshot.tentative = u"and"_s;
    model.receiveSnapshot(snapshot);
    EXPECT_EQ(model.accumulatedTranscription(), u" hello there  and"_s);
    EXPECT_EQ(note->transcription(), u" hello there "_s);
    EXPECT_EQ(saves.count(), 1);

    // A new tentative tail after the same finals is shown, and the store,
    // which holds those finals already, is not written again.
    snapshot.tentative = u"and then"_s;
    model.receiveSnapshot(snapshot);
    EXPECT_EQ(model.accumulatedTranscription(), u" hello there  and then"_s);
    EXPECT_EQ(saves.count(), 1);

    // A snapshot that cannot be saved is reported, the recording goes on, and
    // the next snapshot writes and tries again.
    failWrites(store(), u"note"_s, u"UPDATE"_s);
    snapshot.tentative.clear();
    snapshot.utterances.append(LocalUtterance{u"first words"_s, 2.5, 3.5});
    model.receiveSnapshot(snapshot);
    EXPECT_TRUE(model.showSyncError());
    EXPECT_TRUE(recorder->recording());
    allowWrites(store(), u"note"_s, u"UPDATE"_s);
    snapshot.utterances.append(LocalUtterance{u"more words"_s, 3.5, 4.5});
    model.receiveSnapshot(snapshot);
    EXPECT_EQ(storedTranscript(note), u" hello there  first words more words"_s);
    stop(model);
}

TEST_F(NotesListViewModelTest, RecordingIntoANoteWithTextKeepsItInFrontAndTimesTheNewWordsAfterIt)
{
    NotesListViewModel &model = list();
    const NotePtr note = makeNote(u"Standup"_s, u"Earlier text."_s);
    // Four seconds of earlier audio in the note's folder.
    writeSegment(root.path(), *note->id(), 4);

    ASSERT_TRUE(waitFor(model.startTranscription(note)));
    ASSERT_TRUE(rig.waitForFileDelivered());
    ASSERT_TRUE(waitUntil([&] { return model.accumulatedTranscription().contains(u"word2"_s); }));
    EXPECT_TRUE(model.accumulatedTranscription().startsWith(u"Earlier text. word1"_s));
    stop(model);
    // The untimed earlier paragraph and the new words read as one short
    // paragraph, timed after the four seconds of earlier audio.
    const auto utterances = transcriptUtterances(*storedNote(*note->id()));
    ASSERT_EQ(utterances.size(), 1);
    EXPECT_EQ(utterances[0].text, u"Earlier text. word1 word2 tail"_s);
    EXPECT_EQ(utterances[0].start, 4.0);
    EXPECT_EQ(utterances[0].end, 6.5);
}

TEST_F(NotesListViewModelTest,
       WhileARecordingStartsOrFinishesStartsChangeNothingAndDeletesAreRefusedWithWords)
{
    rig.speechStartGate = std::make_shared<Latch>();
    auto gate = std::make_shared<Latch>();
    rig.engine->finishGate = gate;
    NotesListViewModel &model = list();
    const NotePtr kept = makeNote(u"Keep"_s);
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
    // Stops while one runs, and one from a list that does not record, end
    // with it.
    const QList<QFuture<void>> stops{model.stopTranscription(), model.stopTranscription(),
                                     anotherList().stopTranscription()};
    ASSERT_TRUE(recorder->finishing());
    refusesDelete();
    settle();
    for (const auto &stop : stops)
        EXPECT_FALSE(stop.isFinished());
    gate->open();
    for (const auto &stop : stops)
        ASSERT_TRUE(waitFor(stop));
    EXPECT_EQ(rig.engine->finishes.load(), 1);

    ASSERT_TRUE(waitFor(model.deleteNote(kept)));
    EXPECT_FALSE(store().noteWithId(*kept->id()));
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
        moves << QDir(root.path()).relativeFilePath(from) + u" -> "_s +
                     QDir(root.path()).relativeFilePath(to);
        stoppedAndCompleteBeforeMove = !recorder->recording() && !recorder->finishing() && allComplete(id);
        moveItemAtomically(from, to);
    });

    ASSERT_TRUE(waitFor(model.deleteNote(note)));
    EXPECT_FALSE(model.showSyncError()) << model.syncErrorMessage().toStdString();
    EXPECT_EQ(moves, QStringList{u"Recordings/%1 -> DeletedRecordings/%1"_s.arg(idText(id))});
    EXPECT_TRUE(stoppedAndCompleteBeforeMove);
    EXPECT_FALSE(store().noteWithId(id));
    EXPECT_FALSE(QDir(root.file(u"Recordings/"_s + idText(id))).exists());
    EXPECT_FALSE(QDir(root.file(u"DeletedRecordings/"_s + idText(id))).exists());
    EXPECT_TRUE(model.selectedNoteIDs().isEmpty());

    // Deleting from another list stops the recording list first.
    NotesListViewModel &other = anotherList();
    const NotePtr second = record(model);
    ASSERT_TRUE(waitFor(other.deleteNote(second)));
    EXPECT_FALSE(other.showSyncError()) << other.syncErrorMessage().toStdString();
    EXPECT_FALSE(model.newNoteBeingRecorded());
    EXPECT_FALSE(store().noteWithId(*second->id()));
}

TEST_F(NotesListViewModelTest, AfterAFailedStartTheLeaseIsFreeAndTheNextStartWorks)
{
    auto systemAudioFlags = std::make_shared<QList<bool>>();
    rig.makeSource = [wav = tone, systemAudioFlags](bool systemAudio) -> std::unique_ptr<AudioSource> {
        systemAudioFlags->append(systemAudio);
        if (systemAudioFlags->size() == 1)
            return std::make_unique<ScriptedSource>(
                ScriptedSource::Script{{}, u"No microphone input is available."_s},
                std::make_shared<SourceProbe>());
        return std::make_unique<AudioFileSource>(wav, AudioFileSource::Pace::asFastAsConsumed);
    };
    settings::setRecordSystemAudio(*preferences, false);
    NotesListViewModel &model = list();

    ASSERT_TRUE(waitFor(model.startNewTranscription()));
    EXPECT_EQ(model.syncErrorMessage(), u"No microphone input is available."_s);
    EXPECT_FALSE(model.operationInProgress());
    EXPECT_FALSE(store().activeRecording().has_value());
    // The empty note stays, with its folder name; nothing is deleted.
    const auto notes = store().fetchNotes();
    ASSERT_EQ(notes.size(), 1);
    EXPECT_TRUE(notes[0]->sourceURL().has_value());

    settings::setRecordSystemAudio(*preferences, true);
    EXPECT_NE(record(model), notes[0]);
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

TEST_F(NotesListViewModelTest, ACaptureFailureEndsTheRecordingThroughTheListAndSavesTheNote)
{
    rig.useScript({.format = AudioFormat{AudioSampleFormat::float32, 16000, 1},
                   .buffers = std::vector(16, std::vector<unsigned char>(1600 * 4, 0)),
                   .failureAt = 15,
                   .failure = u"The sound server ended the microphone recording: gone"_s},
                  std::make_shared<SourceProbe>());
    NotesListViewModel &model = list();
    const QFuture<void> started = model.startNewTranscription();
    const NotePtr note = model.newNoteBeingRecorded();
    ASSERT_TRUE(note && waitFor(started));
    ASSERT_TRUE(waitUntil([&] { return !model.newNoteBeingRecorded() && !recorder->finishing(); }));
    EXPECT_EQ(model.syncErrorMessage(), u"Capture stopped: The sound server ended the microphone "
                                        "recording: gone. Captured audio was preserved."_s);
    EXPECT_FALSE(store().activeRecording().has_value());
    EXPECT_EQ(storedTranscript(note), u"word1 tail"_s);
}

TEST_F(NotesListViewModelTest, SelectingOpensTheSummaryOnlyWhenThereIsOneAndDeletesGoPastFailures)
{
    NotesListViewModel &model = list();
    const NotePtr plain = makeNote(u"A"_s);
    const NotePtr summarised = makeNote(u"B"_s);
    summarised->setValue(u"summary"_s, u"## Points\n- one"_s);
    const NotePtr generating = makeNote(u"C"_s);
    generating->setValue(u"summary"_s, u"Generating summary..."_s);
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
    other.listAppeared({plain}, FolderSelection::all());
    EXPECT_EQ(roles.activeNotesViewModel(), &other);
    EXPECT_EQ(other.selectedNoteIDs(), QList<ObjectId>{summarised->objectId()});
    EXPECT_EQ(other.pendingFolderSelection(), FolderSelection::all());

    // Deleting the selected notes; then by position, going on past a note
    // whose delete fails and showing its error.
    model.selectNote(summarised, false);
    model.selectNote(generating, true);
    ASSERT_TRUE(waitFor(model.deleteSelectedNotes({summarised, plain, generating})));
    EXPECT_EQ(store().fetchNotes(), QList<NotePtr>{plain});
    EXPECT_TRUE(model.selectedNoteIDs().isEmpty());
    const QList<NotePtr> more = {plain, makeNote(u"more"_s), makeNote(u"more"_s)};
    store().deleteNote(more[1]);
    ASSERT_TRUE(waitFor(model.deleteNotes({0, 1, 2, 7}, more)));
    EXPECT_EQ(model.syncErrorMessage(), unavailable);
    EXPECT_TRUE(store().fetchNotes().isEmpty());
}

TEST_F(NotesListViewModelTest, EditsAndQuitsThatCannotBeSavedArePutBackOrKeptAndSayWhy)
{
    NotesListViewModel &model = list();
    roles.setActiveNotesViewModel(&model);
    const NotePtr note = makeNote(u"Title"_s);
    QSignalSpy saves(&store(), &SharedPersistenceController::didSave);
    // Unchanged or blank titles save nothing.
    model.setTitle(note, u"Title"_s);
    model.setTitle(note, u"   "_s);
    EXPECT_EQ(saves.count(), 0);
    model.setTitle(note, u"Weekly review"_s);
    model.setSummary(note, u"Short."_s);
    model.setSummaryType(note, u"meeting"_s);
    EXPECT_EQ(saves.count(), 3);
    EXPECT_EQ(storedNote(*note->id())->title(), u"Weekly review"_s);

    failWrites(store(), u"note"_s, u"UPDATE"_s);
    model.setSummaryType(note, u"lecture"_s);
    EXPECT_EQ(note->summaryType(), u"meeting"_s);
    EXPECT_TRUE(model.syncErrorMessage().contains(u"disk is full"_s, Qt::CaseInsensitive));
    allowWrites(store(), u"note"_s, u"UPDATE"_s);

    // A quit while recording stops the recording and saves every editor; one
    // whose save fails stays running and says why, with the words kept in
    // memory for the next try.
    const NotePtr recorded = record(model);
    ASSERT_TRUE(rig.waitForFileDelivered());
    failWrites(store(), u"note"_s, u"UPDATE"_s);
    model.setShowSyncError(false);
    note->setValue(u"notes"_s, u"unsaved words"_s);
    QSignalSpy editorsSave(&roles, &NotesListRoles::forceAllEditorsSave);
    QFuture<bool> quit = roles.prepareToQuit(&store());
    ASSERT_TRUE(waitFor(quit));
    EXPECT_FALSE(quit.result());
    EXPECT_EQ(editorsSave.count(), 1);
    EXPECT_FALSE(recorder->recording());
    EXPECT_TRUE(model.showSyncError());
    EXPECT_TRUE(model.syncErrorMessage().contains(u"disk is full"_s, Qt::CaseInsensitive))
        << model.syncErrorMessage().toStdString();
    EXPECT_EQ(note->notes(), u"unsaved words"_s);

    allowWrites(store(), u"note"_s, u"UPDATE"_s);
    quit = roles.prepareToQuit(&store());
    ASSERT_TRUE(waitFor(quit));
    EXPECT_TRUE(quit.result());
    EXPECT_EQ(storedNote(*note->id())->notes(), u"unsaved words"_s);
    EXPECT_EQ(storedTranscript(recorded), u"word1 word2 tail"_s);
    EXPECT_TRUE(allComplete(*recorded->id()));
    // Without a store there is nothing to keep the program open for.
    quit = roles.prepareToQuit(nullptr);
    ASSERT_TRUE(waitFor(quit));
    EXPECT_TRUE(quit.result());
}
