// The summary job of the notes list model on the real store, with a scripted
// language model: what the job saves, what it leaves unchanged and the
// unfinished summaries it keeps. The pipeline's rules are tested in
// tests/generation, the tab in tests/shell.
#include "core/CoreTestRig.h"
#include "generation/ScriptedLanguageModel.h"

#include "core/SummaryCheckpointStore.h"
#include "prefs/KestilEngagement.h"
#include "prefs/SettingsKeys.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QSignalSpy>
#include <QThread>

using namespace kestil;
using namespace kestil::test;
using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

using Stream = ScriptedLanguageModel::Stream;
using Stall = ScriptedLanguageModel::Stall;

const QString &transcript = scriptedMeetingTranscript;

const QString finalSummary = u"## Summary\n- Launch moves to April.\n- Budget to finance by Friday."_s;
const QString oldSummary = u"Old summary"_s;

const auto titleRecord = [](const QString &title) { return QJsonObject{{u"title"_s, title}}; };
const auto tagsRecord = [](const QStringList &tags) {
    return QJsonObject{{u"tags"_s, QJsonArray::fromStringList(tags)}};
};
const QJsonObject budgetTags = tagsRecord({u"Budget"_s});

class SummaryJobTest : public CoreRigTest {
protected:
    SummaryJobTest() { languageModel = &model; }
    // The lists stop their jobs before the scripted model they may be inside goes.
    void TearDown() override { models.clear(); }

    // A note of the transcript; with `summarised`, one that has an old summary.
    NotePtr makeNote(const QString &title, bool summarised = false)
    {
        const NotePtr note = CoreRig::makeNote(title, transcript);
        if (summarised) {
            note->setValue(u"summary"_s, oldSummary);
            note->setValue(u"summaryType"_s, u"Concise"_s);
            store().save();
        }
        return note;
    }

    bool summarise(const NotePtr &note)
    {
        return waitFor(list().generateSummary(note, u"meetings/general"_s));
    }

    ScriptedLanguageModel model;
};

} // namespace

TEST_F(SummaryJobTest, SummaryTemplateTitleAndTagsAreSavedTogetherWhenTheJobEnds)
{
    NotesListViewModel &jobs = list();
    const NotePtr note = makeNote(untitledNoteTitle());
    model.replies = {Stream{{u"## Summary"_s, u"## Summary\n- Launch moves"_s, finalSummary}, 250ms},
                     titleRecord(u"Spring  campaign\nsync"_s),
                     tagsRecord({u"Budget"_s, u"Launch Planning"_s})};
    using Stage = LocalSummaryProgress::Stage;
    QList<Stage> stages;
    bool offMainThread = false;
    StreamingSummaryViewModel &streaming = jobs.streamingSummaryViewModel();
    QObject::connect(&streaming, &StreamingSummaryViewModel::progressChanged, [&] {
        stages.append(streaming.progress().stage);
        offMainThread = offMainThread || QThread::currentThread() != application().thread();
    });
    QSignalSpy saves(&store(), &SharedPersistenceController::didSave);
    QSignalSpy completions(&jobs, &NotesListViewModel::summaryGenerationComplete);

    const int idle = KestilEngagement::shared().processingCount();
    const QFuture<void> job = jobs.generateSummary(note, u"meetings/general"_s);
    EXPECT_EQ(KestilEngagement::shared().processingCount(), idle + 1) << "a summary is model work";
    EXPECT_EQ(jobs.generatingSummaryNoteID(), note->objectId());
    EXPECT_TRUE(jobs.summaryStartedAt(note).has_value());
    // While the model writes, the text grows in the streaming model only.
    ASSERT_TRUE(waitUntil([&] { return streaming.summary().contains(u"Launch moves"_s); }));
    EXPECT_FALSE(note->summary().has_value());
    EXPECT_EQ(saves.count(), 0);

    ASSERT_TRUE(waitFor(job));
    EXPECT_FALSE(jobs.showSyncError()) << jobs.syncErrorMessage().toStdString();
    EXPECT_EQ(KestilEngagement::shared().processingCount(), idle);
    EXPECT_FALSE(offMainThread) << "the streaming model is written on the main thread only";
    EXPECT_EQ(stages,
              (QList<Stage>{Stage::writing, Stage::finishing, Stage::organizingTags, Stage::preparing}));
    EXPECT_EQ(streaming.summary(), QString()) << "the streaming text goes when the job ends";
    EXPECT_FALSE(jobs.isGeneratingSummary());
    EXPECT_EQ(saves.count(), 1);
    for (const NotePtr &n : {note, storedNote(*note->id())}) {
        ASSERT_TRUE(n);
        EXPECT_EQ(n->summary(), finalSummary);
        EXPECT_EQ(n->summaryType(), u"meetings/general"_s);
        EXPECT_EQ(n->title(), u"Spring campaign sync"_s);
        EXPECT_EQ(n->sortedTagNames(), (QStringList{u"Budget"_s, u"Launch-Planning"_s}));
    }
    ASSERT_EQ(completions.count(), 1);
    EXPECT_EQ(completions.at(0).at(0).value<ObjectId>(), note->objectId());
    EXPECT_EQ(completions.at(0).at(1).toString(), finalSummary);
}

TEST_F(SummaryJobTest, ARunningJobDropsOtherRequestsAndACancelOrAClosedListWritesNothing)
{
    NotesListViewModel &jobs = list();
    const NotePtr note = makeNote(u"Kept title"_s, true);
    const NotePtr second = makeNote(u"Second"_s);
    QSignalSpy saves(&store(), &SharedPersistenceController::didSave);
    QSignalSpy completions(&jobs, &NotesListViewModel::summaryGenerationComplete);
    model.replies = {Stall{}};
    const QFuture<void> job = jobs.generateSummary(note, u"meetings/general"_s);
    ASSERT_TRUE(waitUntil([&] { return model.requests.size() == 1; }));
    // Another note, or the same one: dropped, and nothing said.
    EXPECT_TRUE(jobs.generateSummary(second, QString()).isFinished());
    EXPECT_TRUE(jobs.generateSummary(note, QString()).isFinished());
    EXPECT_EQ(jobs.generatingSummaryNoteID(), note->objectId());
    QElapsedTimer clock;
    clock.start();
    jobs.cancelSummary();
    ASSERT_TRUE(waitFor(job, 2s));
    EXPECT_LT(clock.elapsed(), 1000);
    EXPECT_FALSE(jobs.showSyncError()) << "a cancel says nothing";
    EXPECT_EQ(model.requests.size(), 1);
    EXPECT_EQ(saves.count(), 0);
    EXPECT_EQ(completions.count(), 0);
    EXPECT_EQ(note->summary(), oldSummary);
    EXPECT_EQ(note->title(), u"Kept title"_s);

    // A start of a recording holds summaries off until it has started.
    const QFuture<void> started = jobs.startNewTranscription();
    ASSERT_TRUE(jobs.operationInProgress());
    EXPECT_TRUE(jobs.generateSummary(second, QString()).isFinished());
    EXPECT_FALSE(jobs.isGeneratingSummary());
    ASSERT_TRUE(waitFor(started));
    ASSERT_TRUE(waitFor(jobs.stopTranscription()));

    // A list closed during a job stops its model work.
    model.replies = {Stall{}};
    const QFuture<void> closed = jobs.generateSummary(second, QString());
    ASSERT_TRUE(waitUntil([&] { return model.requests.size() == 2; }));
    clock.restart();
    models.clear();
    EXPECT_LT(clock.elapsed(), 1000);
    EXPECT_TRUE(closed.isFinished());
    EXPECT_FALSE(second->summary().has_value());
}

TEST_F(SummaryJobTest, DeletingTheNoteOfAJobCancelsItOrFindsItGoneAndNothingIsWrittenBack)
{
    NotesListViewModel &jobs = list();
    const NotePtr note = makeNote(untitledNoteTitle());
    const NotePtr other = makeNote(u"Other"_s);
    model.replies = {Stall{}};
    const QFuture<void> job = jobs.generateSummary(note, QString());
    ASSERT_TRUE(waitUntil([&] { return model.requests.size() == 1; }));
    // Deleting another note leaves the job alone; deleting its note stops it.
    ASSERT_TRUE(waitFor(jobs.deleteNote(other)));
    settle();
    EXPECT_TRUE(jobs.isSummaryJobRunning());
    ASSERT_TRUE(waitFor(jobs.deleteNote(note)));
    ASSERT_TRUE(waitFor(job, 2s));
    EXPECT_FALSE(jobs.showSyncError()) << jobs.syncErrorMessage().toStdString();
    EXPECT_FALSE(storedNote(*note->id()));

    // Another list does not own the job, so nothing cancels it: the job finds
    // the note gone before its save.
    NotesListViewModel &elsewhere = anotherList();
    const NotePtr second = makeNote(untitledNoteTitle());
    model.replies = {Stream{{u"## Summary"_s, finalSummary}, 400ms}, titleRecord(u"Spring campaign"_s),
                     budgetTags};
    QSignalSpy completions(&jobs, &NotesListViewModel::summaryGenerationComplete);
    const QFuture<void> unowned = jobs.generateSummary(second, QString());
    ASSERT_TRUE(waitUntil([&] { return !jobs.streamingSummaryViewModel().summary().isEmpty(); }));
    ASSERT_TRUE(waitFor(elsewhere.deleteNote(second)));
    ASSERT_TRUE(waitFor(unowned));
    EXPECT_FALSE(jobs.showSyncError()) << jobs.syncErrorMessage().toStdString();
    EXPECT_EQ(completions.count(), 0);
    EXPECT_FALSE(storedNote(*second->id()));
    EXPECT_EQ(countRows(*reopened, u"note"_s), 0);
    EXPECT_EQ(countRows(*reopened, u"tag"_s), 0);
}

TEST_F(SummaryJobTest, OnlyATitleTheUserDidNotChooseIsReplacedAndAFailedOneKeepsTheSummary)
{
    NotesListViewModel &jobs = list();
    // A typed title survives and no title is asked for. A failed tag request
    // leaves the library (empty here) and the text to decide, as for any
    // note: sixty words earn two tags.
    const NotePtr typed = makeNote(u"Budget review with Sam"_s);
    model.replies = {finalSummary, LocalError(u"The model ran out of memory."_s)};
    ASSERT_TRUE(summarise(typed));
    EXPECT_FALSE(jobs.showSyncError()) << jobs.syncErrorMessage().toStdString();
    EXPECT_EQ(model.requests.size(), 2) << "the summary and the tags; no title";
    const NotePtr stored = storedNote(*typed->id());
    EXPECT_EQ(stored->title(), u"Budget review with Sam"_s);
    EXPECT_EQ(stored->summary(), finalSummary);
    EXPECT_EQ(stored->sortedTagNames().size(), 2);

    // A title typed while the job runs wins over the generated one.
    const NotePtr renamed = makeNote(untitledNoteTitle());
    model.replies = {Stream{{u"## Summary"_s, finalSummary}, 300ms}, titleRecord(u"Generated title"_s),
                     budgetTags};
    const QFuture<void> job = jobs.generateSummary(renamed, QString());
    ASSERT_TRUE(waitUntil([&] { return !jobs.streamingSummaryViewModel().summary().isEmpty(); }));
    jobs.setTitle(renamed, u"Typed meanwhile"_s);
    ASSERT_TRUE(waitFor(job));
    EXPECT_EQ(storedNote(*renamed->id())->title(), u"Typed meanwhile"_s);
    EXPECT_EQ(renamed->summary(), finalSummary);

    // A title that fails leaves the summary saved; the model's "your notes are
    // unchanged" would not be true after the save, so the sentence says what is.
    const NotePtr untitled = makeNote(untitledNoteTitle());
    model.replies = {
        finalSummary,
        LocalError(u"The on-device model's answer did not have the expected form. Your notes are "
                   "unchanged."_s),
        budgetTags};
    ASSERT_TRUE(summarise(untitled));
    EXPECT_EQ(jobs.syncErrorMessage(), u"Summary saved. Title: The on-device model's answer did not have the "
                                       "expected form. The note keeps its title."_s);
    const NotePtr saved = storedNote(*untitled->id());
    EXPECT_EQ(saved->title(), untitledNoteTitle());
    EXPECT_EQ(saved->summary(), finalSummary);
    EXPECT_EQ(saved->sortedTagNames(), QStringList{u"Budget"_s});
}

TEST_F(SummaryJobTest, AnUnknownLanguageOrAFailedSaveLeavesTheNoteAsItWas)
{
    NotesListViewModel &jobs = list();
    const NotePtr note = makeNote(untitledNoteTitle(), true);
    QSignalSpy saves(&store(), &SharedPersistenceController::didSave);
    // The summary speaks the language the user transcribes in.
    preferences->set(QString(settings::keys::transcriptionLanguage), u"de-DE"_s);
    ASSERT_TRUE(summarise(note));
    EXPECT_EQ(jobs.syncErrorMessage(), u"The on-device summary model does not support this language."_s);
    EXPECT_TRUE(model.requests.isEmpty()) << "refused before any request";
    EXPECT_EQ(saves.count(), 0);

    preferences->set(QString(settings::keys::transcriptionLanguage), QString());
    jobs.setShowSyncError(false);
    model.replies = {finalSummary, titleRecord(u"Spring campaign"_s), budgetTags};
    failWrites(store(), u"note"_s, u"UPDATE"_s);
    ASSERT_TRUE(summarise(note));
    EXPECT_TRUE(jobs.syncErrorMessage().contains(u"could not be written"_s))
        << jobs.syncErrorMessage().toStdString();
    EXPECT_EQ(note->summary(), oldSummary);
    EXPECT_EQ(note->summaryType(), u"Concise"_s);
    EXPECT_EQ(note->title(), untitledNoteTitle());
    EXPECT_TRUE(note->tags().isEmpty());
    allowWrites(store(), u"note"_s, u"UPDATE"_s);
    EXPECT_EQ(storedNote(*note->id())->summary(), oldSummary);
    EXPECT_EQ(countRows(*reopened, u"tag"_s), 0);
}

TEST_F(SummaryJobTest, AStoppedJobKeepsItsSectionsAndContinuesFromTheFirstUnfinishedOne)
{
    NotesListViewModel &jobs = list();
    model.contextTokens = 2400;
    // Three sections for the scripted model of a small context.
    const NotePtr note = CoreRig::makeNote(u"Planning"_s, transcript.repeated(40).left(12000));
    const SummaryCheckpointStore kept(root.path());
    model.replies = {u"Fact one."_s, Stall{}};
    const QFuture<void> job = jobs.generateSummary(note, u"meetings/general"_s);
    // The first section's key points are kept as soon as they are there.
    ASSERT_TRUE(waitUntil([&] {
        const SummaryCheckpointStore::Read read = kept.read(*note->id());
        return read.stored && read.stored->checkpoint.facts.size() == 1;
    }));
    jobs.cancelSummary();
    ASSERT_TRUE(waitFor(job, 2s));
    const auto offer = jobs.summaryResumeOffer(note);
    ASSERT_TRUE(offer);
    EXPECT_EQ(offer->templateKey, u"meetings/general"_s);
    EXPECT_EQ(std::pair(offer->completed, offer->total), std::pair(1, 3));

    // Two sections left, the summary and the tags.
    model.requests.clear();
    model.replies = {u"Fact two."_s, u"Fact three."_s, finalSummary, budgetTags};
    ASSERT_TRUE(waitFor(jobs.continueSummary(note)));
    EXPECT_FALSE(jobs.showSyncError()) << jobs.syncErrorMessage().toStdString();
    EXPECT_EQ(model.requests.size(), 4);
    EXPECT_EQ(storedNote(*note->id())->summary(), finalSummary);
    // A saved summary leaves nothing to continue.
    EXPECT_EQ(kept.read(*note->id()).state, SummaryCheckpointStore::State::absent);
    EXPECT_FALSE(jobs.summaryResumeOffer(note));
}

TEST_F(SummaryJobTest, AKeptSummaryThatCanNoLongerGoOnIsDiscardedWithASentence)
{
    const SummaryCheckpointStore kept(root.path());
    const auto overwrite = [&](const NotePtr &note, const QByteArray &bytes) {
        writeFile(kept.path(*note->id()), bytes);
    };
    const QString discarded = u"The unfinished summary of “Planning” was discarded because "_s;
    const QString unreadable = u"The saved progress of an unfinished summary "_s;
    const QString edited =
        discarded + u"its transcript was edited after the summary began; the note is unchanged."_s;
    const struct {
        const char *what;
        std::function<void(const NotePtr &)> change;
        QString message;
    } cases[] = {
        {"edited transcript",
         [&](const NotePtr &note) {
             note->setValue(u"transcription"_s, u"Another text."_s);
             store().save();
         },
         edited},
        {"another model", [&](const NotePtr &) { model.identityValue = u"other-model.gguf:1"_s; },
         discarded + u"it was begun with another on-device model; the note is unchanged."_s},
        {"corrupt file", [&](const NotePtr &note) { overwrite(note, "{\"version\":1,\"noteID\":\""); },
         unreadable + u"could not be read, so it was discarded; your notes are unchanged."_s},
        {"newer version", [&](const NotePtr &note) { overwrite(note, "{\"version\":7}"); },
         unreadable + u"was written by a newer version of Kestil, so it was discarded; your "
                      "notes are unchanged."_s},
        {"deleted note",
         [&](const NotePtr &note) {
             store().deleteNote(note);
             app->refreshNotes();
         },
         unreadable + u"belonged to a note that no longer exists, so it was discarded."_s},
    };
    const auto keep = [&](const NotePtr &note) {
        kept.save({*note->id(), model.identityValue,
                   LocalSummaryCheckpoint(transcript, LocalSummaryTemplate::meeting)});
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        model.identityValue = u"scripted-model"_s;
        const NotePtr note = makeNote(u"Planning"_s);
        keep(note);
        c.change(note);
        // The next launch looks at what was kept.
        const auto launched = makeList();
        launched->listAppeared(app->notes(), FolderSelection::all());
        EXPECT_TRUE(launched->showSyncError());
        EXPECT_EQ(launched->syncErrorMessage(), c.message);
        EXPECT_EQ(kept.read(*note->id()).state, SummaryCheckpointStore::State::absent);
    }
    // An edit found later, while the program runs, is told when the note is shown.
    model.identityValue = u"scripted-model"_s;
    NotesListViewModel &jobs = list();
    jobs.listAppeared(app->notes(), FolderSelection::all());
    const NotePtr note = makeNote(u"Planning"_s);
    keep(note);
    ASSERT_TRUE(jobs.summaryResumeOffer(note));
    note->setValue(u"transcription"_s, u"Edited."_s);
    store().save();
    EXPECT_FALSE(jobs.summaryResumeOffer(note));
    EXPECT_EQ(jobs.syncErrorMessage(), edited);
}

TEST_F(SummaryJobTest, AKeptSummaryThatCannotBeWrittenLetsTheSummaryGoOnAndSaysSo)
{
    NotesListViewModel &jobs = list();
    // Where the checkpoints go stands a file: every write fails, as on a full disk.
    writeFile(SummaryCheckpointStore(root.path()).directory(), {});
    const NotePtr note = makeNote(u"Planning"_s);
    model.replies = {finalSummary, budgetTags};
    ASSERT_TRUE(summarise(note));
    EXPECT_EQ(storedNote(*note->id())->summary(), finalSummary);
    EXPECT_EQ(jobs.syncErrorMessage(),
              u"Summary progress could not be saved: Kestil could not write “%1”: its folder could not be "
              "created. The summary goes on, but it cannot be continued after a quit or a crash."_s.arg(
                  SummaryCheckpointStore(root.path()).path(*note->id())));
}

// The unfinished summaries kept beside the store: one file per note, replaced
// in one step (a QSaveFile); unusable ones are told apart by the job above.
namespace {

using State = SummaryCheckpointStore::State;

StoredSummaryCheckpoint stored(const QUuid &note, const QString &input, int facts = 1)
{
    LocalSummaryCheckpoint checkpoint(input, LocalSummaryTemplate::meeting);
    checkpoint.sections = QStringList{input.left(input.size() / 2), input.mid(input.size() / 2)};
    for (int i = 0; i < facts; ++i)
        checkpoint.facts.append(u"Fact %1."_s.arg(i));
    return {note, u"model.gguf:1234"_s, checkpoint};
}

} // namespace

TEST(SummaryCheckpointStore, KeepsOneFilePerNoteAndReplacesIt)
{
    QTemporaryDir root;
    const SummaryCheckpointStore store(root.path());
    const QUuid note = QUuid::createUuid();
    EXPECT_EQ(store.read(note).state, State::absent);

    store.save(stored(note, u"First transcript, long enough to cut."_s));
    const StoredSummaryCheckpoint second = stored(note, u"Second transcript “quoted”."_s, 2);
    store.save(second);
    const SummaryCheckpointStore::Read read = store.read(note);
    ASSERT_EQ(read.state, State::readable);
    EXPECT_EQ(read.stored, second);
    const QString name = note.toString(QUuid::WithoutBraces).toUpper() + u".json"_s;
    EXPECT_EQ(QDir(store.directory()).entryList(QDir::Files), QStringList{name});

    // What a write cut off by a crash leaves beside the file goes at the next
    // launch; only the store's own names are notes'.
    writeFile(store.path(note) + u".aB3xYz"_s, "{\"version\":1,\"no");
    writeFile(store.directory() + u"/"_s + name.toLower(), "{}");
    store.removeLeftovers();
    QStringList left = QDir(store.directory()).entryList(QDir::Files | QDir::Hidden);
    left.sort();
    EXPECT_EQ(left, (QStringList{name, name.toLower()}));
    EXPECT_EQ(store.noteIDs(), QList<QUuid>{note});
    EXPECT_EQ(store.read(note).stored, second);

    store.remove(note);
    EXPECT_EQ(store.read(note).state, State::absent);
    store.remove(note); // a missing file is no failure
}
