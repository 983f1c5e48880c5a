// The summary job of the notes list model on the real store, with a scripted
// language model that answers the summary, the title and the tags in turn.
// Here: what the job saves, what it leaves unchanged and the unfinished
// summaries it keeps. The pipeline's rules are tested in tests/generation, the
// tab in tests/shell.
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

namespace {

using Stream = ScriptedLanguageModel::Stream;
using Stall = ScriptedLanguageModel::Stall;

// Sixty words: enough for two tags, and short enough for one request.
const QString transcript = QStringLiteral(
    "Maria opened the weekly sync by reviewing the budget for the spring campaign. The team agreed to "
    "move the launch to April because the design review needs another week. Sam will draft the "
    "announcement, Priya owns the landing page, and the budget numbers go to finance by Friday. "
    "Open question: whether the partner webinar still fits in March.");

const QString finalSummary =
    QStringLiteral("## Summary\n- Launch moves to April.\n- Budget to finance by Friday.");
const QString oldSummary = QStringLiteral("Old summary");

QJsonObject titleRecord(const QString &title)
{
    return QJsonObject{{QStringLiteral("title"), title}};
}

QJsonObject tagsRecord(const QStringList &tags)
{
    return QJsonObject{{QStringLiteral("tags"), QJsonArray::fromStringList(tags)}};
}

const QJsonObject budgetTags = tagsRecord({QStringLiteral("Budget")});

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
            note->setValue(QStringLiteral("summary"), oldSummary);
            note->setValue(QStringLiteral("summaryType"), QStringLiteral("Concise"));
            store().save();
        }
        return note;
    }

    bool summarise(const NotePtr &note)
    {
        return waitFor(list().generateSummary(note, QStringLiteral("meetings/general")));
    }

    bool askedForATitle() const
    {
        return std::any_of(model.requests.begin(), model.requests.end(), [](const auto &request) {
            return request.instructions.startsWith(QStringLiteral("Create a concise descriptive title"));
        });
    }

    ScriptedLanguageModel model;
};

} // namespace

TEST_F(SummaryJobTest, SummaryTemplateTitleAndTagsAreSavedTogetherWhenTheJobEnds)
{
    NotesListViewModel &jobs = list();
    const NotePtr note = makeNote(untitledNoteTitle());
    model.replies = {
        Stream{{QStringLiteral("## Summary"), QStringLiteral("## Summary\n- Launch moves"), finalSummary},
               250ms},
        titleRecord(QStringLiteral("Spring  campaign\nsync")),
        tagsRecord({QStringLiteral("Budget"), QStringLiteral("Launch Planning")})};
    using Stage = LocalSummaryProgress::Stage;
    QList<Stage> stages;
    QStringList texts;
    bool offMainThread = false;
    StreamingSummaryViewModel &streaming = jobs.streamingSummaryViewModel();
    QObject::connect(&streaming, &StreamingSummaryViewModel::progressChanged, [&] {
        stages.append(streaming.progress().stage);
        offMainThread = offMainThread || QThread::currentThread() != application().thread();
    });
    QObject::connect(&streaming, &StreamingSummaryViewModel::summaryChanged,
                     [&](const QString &text) { texts.append(text); });
    QSignalSpy saves(&store(), &SharedPersistenceController::didSave);
    QSignalSpy completions(&jobs, &NotesListViewModel::summaryGenerationComplete);

    const int idle = KestilEngagement::shared().processingCount();
    const QFuture<void> job = jobs.generateSummary(note, QStringLiteral("meetings/general"));
    EXPECT_EQ(KestilEngagement::shared().processingCount(), idle + 1) << "a summary is model work";
    EXPECT_TRUE(jobs.isSummaryJobRunning());
    EXPECT_EQ(jobs.generatingSummaryNoteID(), note->objectId());
    EXPECT_TRUE(jobs.summaryStartedAt(note).has_value());
    // While the model writes, the text grows in the streaming model only.
    ASSERT_TRUE(waitUntil([&] { return streaming.summary().contains(QStringLiteral("Launch moves")); }));
    EXPECT_FALSE(note->summary().has_value());
    EXPECT_EQ(saves.count(), 0);

    ASSERT_TRUE(waitFor(job));
    EXPECT_FALSE(jobs.showSyncError()) << jobs.syncErrorMessage().toStdString();
    EXPECT_EQ(KestilEngagement::shared().processingCount(), idle);
    EXPECT_FALSE(offMainThread) << "the streaming model is written on the main thread only";
    EXPECT_EQ(stages,
              (QList<Stage>{Stage::writing, Stage::finishing, Stage::organizingTags, Stage::preparing}));
    ASSERT_GE(texts.size(), 3);
    EXPECT_EQ(texts.at(texts.size() - 2), finalSummary);
    EXPECT_EQ(texts.last(), QString()) << "the streaming text goes when the job ends";
    EXPECT_EQ(model.requests.size(), 3) << "the summary, a title and tags";
    EXPECT_FALSE(jobs.isGeneratingSummary());
    EXPECT_FALSE(jobs.generatingSummaryNoteID().has_value());

    EXPECT_EQ(saves.count(), 1);
    for (const NotePtr &n : {note, storedNote(*note->id())}) {
        ASSERT_TRUE(n);
        EXPECT_EQ(n->summary(), finalSummary);
        EXPECT_EQ(n->summaryType(), QStringLiteral("meetings/general"));
        EXPECT_EQ(n->title(), QStringLiteral("Spring campaign sync"));
        EXPECT_EQ(n->sortedTagNames(),
                  (QStringList{QStringLiteral("Budget"), QStringLiteral("Launch-Planning")}));
    }
    ASSERT_EQ(completions.count(), 1);
    EXPECT_EQ(completions.at(0).at(0).value<ObjectId>(), note->objectId());
    EXPECT_EQ(completions.at(0).at(1).toString(), finalSummary);
}

TEST_F(SummaryJobTest, ARunningJobDropsOtherRequestsAndACancelOrAClosedListWritesNothing)
{
    NotesListViewModel &jobs = list();
    const NotePtr note = makeNote(QStringLiteral("Kept title"), true);
    const NotePtr second = makeNote(QStringLiteral("Second"));
    QSignalSpy saves(&store(), &SharedPersistenceController::didSave);
    QSignalSpy completions(&jobs, &NotesListViewModel::summaryGenerationComplete);
    model.replies = {Stall{}};
    const QFuture<void> job = jobs.generateSummary(note, QStringLiteral("meetings/general"));
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
    EXPECT_EQ(note->summaryType(), QStringLiteral("Concise"));
    EXPECT_EQ(note->title(), QStringLiteral("Kept title"));

    // A start of a recording holds summaries off until it has started.
    const QFuture<void> started = jobs.startNewTranscription();
    ASSERT_TRUE(jobs.operationInProgress());
    EXPECT_TRUE(jobs.generateSummary(second, QString()).isFinished());
    EXPECT_FALSE(jobs.isGeneratingSummary());
    ASSERT_TRUE(waitFor(started));
    ASSERT_TRUE(waitFor(jobs.stopTranscription()));

    // The generating flag of a detail view blocks a job too, and only that
    // note's view clears it.
    jobs.beginSummaryIndicator(note);
    EXPECT_TRUE(jobs.generateSummary(second, QString()).isFinished());
    jobs.endSummaryIndicator(second);
    EXPECT_TRUE(jobs.isGeneratingSummary());
    jobs.endSummaryIndicator(note);
    EXPECT_FALSE(jobs.isGeneratingSummary());
    EXPECT_EQ(model.requests.size(), 1);

    // A list closed during a job stops its model work.
    model.replies = {Stall{}};
    const QFuture<void> closed = jobs.generateSummary(second, QString());
    ASSERT_TRUE(waitUntil([&] { return model.requests.size() == 2; }));
    clock.restart();
    models.clear();
    EXPECT_LT(clock.elapsed(), 1000);
    EXPECT_TRUE(closed.isFinished());
    EXPECT_EQ(countRows(store(), QStringLiteral("tag")), 0);
    EXPECT_FALSE(second->summary().has_value());
}

TEST_F(SummaryJobTest, DeletingTheNoteOfAJobCancelsItOrFindsItGoneAndNothingIsWrittenBack)
{
    NotesListViewModel &jobs = list();
    const NotePtr note = makeNote(untitledNoteTitle());
    const NotePtr other = makeNote(QStringLiteral("Other"));
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
    model.replies = {Stream{{QStringLiteral("## Summary"), finalSummary}, 400ms},
                     titleRecord(QStringLiteral("Spring campaign")), budgetTags};
    QSignalSpy completions(&jobs, &NotesListViewModel::summaryGenerationComplete);
    const QFuture<void> unowned = jobs.generateSummary(second, QString());
    ASSERT_TRUE(waitUntil([&] { return !jobs.streamingSummaryViewModel().summary().isEmpty(); }));
    ASSERT_TRUE(waitFor(elsewhere.deleteNote(second)));
    ASSERT_TRUE(waitFor(unowned));
    EXPECT_FALSE(jobs.showSyncError()) << jobs.syncErrorMessage().toStdString();
    EXPECT_FALSE(elsewhere.showSyncError()) << elsewhere.syncErrorMessage().toStdString();
    EXPECT_EQ(completions.count(), 0);
    EXPECT_TRUE(second->isDeleted());
    EXPECT_FALSE(storedNote(*second->id()));
    EXPECT_EQ(countRows(*reopened, QStringLiteral("note")), 0);
    EXPECT_EQ(countRows(*reopened, QStringLiteral("tag")), 0);
}

TEST_F(SummaryJobTest, OnlyATitleTheUserDidNotChooseIsReplaced)
{
    NotesListViewModel &jobs = list();
    // A typed title survives and no title is asked for. A failed tag request
    // leaves the library (empty here) and the text to decide, as for any
    // note: sixty words earn two tags.
    const NotePtr typed = makeNote(QStringLiteral("Budget review with Sam"));
    model.replies = {finalSummary, LocalError(QStringLiteral("The model ran out of memory."))};
    ASSERT_TRUE(summarise(typed));
    EXPECT_FALSE(jobs.showSyncError()) << jobs.syncErrorMessage().toStdString();
    EXPECT_FALSE(askedForATitle());
    const NotePtr stored = storedNote(*typed->id());
    EXPECT_EQ(stored->title(), QStringLiteral("Budget review with Sam"));
    EXPECT_EQ(stored->summary(), finalSummary);
    EXPECT_EQ(stored->sortedTagNames().size(), 2);

    // A title typed while the job runs wins over the generated one.
    const NotePtr renamed = makeNote(untitledNoteTitle());
    model.replies = {Stream{{QStringLiteral("## Summary"), finalSummary}, 300ms},
                     titleRecord(QStringLiteral("Generated title")), budgetTags};
    const QFuture<void> job = jobs.generateSummary(renamed, QString());
    ASSERT_TRUE(waitUntil([&] { return !jobs.streamingSummaryViewModel().summary().isEmpty(); }));
    jobs.setTitle(renamed, QStringLiteral("Typed meanwhile"));
    ASSERT_TRUE(waitFor(job));
    EXPECT_EQ(storedNote(*renamed->id())->title(), QStringLiteral("Typed meanwhile"));
    EXPECT_EQ(renamed->summary(), finalSummary);
}

TEST_F(SummaryJobTest, ATitleFailureKeepsTheSummaryAndSaysSoTruly)
{
    NotesListViewModel &jobs = list();
    const struct {
        ScriptedLanguageModel::Reply title;
        QString message;
    } cases[] = {
        // "Untitled Note" is no descriptive title.
        {titleRecord(QStringLiteral("Untitled  Note")),
         QStringLiteral("Summary saved. Title: The on-device model returned no descriptive title.")},
        // A model error says the notes are unchanged; after the save only the title is.
        {LocalError(QStringLiteral("The on-device model's answer did not have the expected form. Your notes "
                                   "are unchanged.")),
         QStringLiteral("Summary saved. Title: The on-device model's answer did not have the expected form. "
                        "The note keeps its title.")},
    };
    for (const auto &c : cases) {
        const NotePtr note = makeNote(untitledNoteTitle());
        jobs.setShowSyncError(false);
        model.replies = {finalSummary, c.title, budgetTags};
        ASSERT_TRUE(summarise(note));
        EXPECT_TRUE(jobs.showSyncError());
        EXPECT_EQ(jobs.syncErrorMessage(), c.message);
        const NotePtr stored = storedNote(*note->id());
        EXPECT_EQ(stored->title(), untitledNoteTitle());
        EXPECT_EQ(stored->summary(), finalSummary);
        EXPECT_EQ(stored->sortedTagNames(), QStringList{QStringLiteral("Budget")});
    }
}

TEST_F(SummaryJobTest, AnUnknownLanguageOrAFailedSaveLeavesTheNoteAsItWas)
{
    NotesListViewModel &jobs = list();
    const NotePtr note = makeNote(untitledNoteTitle(), true);
    QSignalSpy saves(&store(), &SharedPersistenceController::didSave);
    // The summary speaks the language the user transcribes in.
    preferences->set(QString(settings::keys::transcriptionLanguage), QStringLiteral("de-DE"));
    ASSERT_TRUE(summarise(note));
    EXPECT_EQ(jobs.syncErrorMessage(),
              QStringLiteral("The on-device summary model does not support this language."));
    EXPECT_TRUE(model.requests.isEmpty()) << "refused before any request";
    EXPECT_EQ(saves.count(), 0);

    preferences->set(QString(settings::keys::transcriptionLanguage), QString());
    jobs.setShowSyncError(false);
    model.replies = {finalSummary, titleRecord(QStringLiteral("Spring campaign")), budgetTags};
    failWrites(store(), QStringLiteral("note"), QStringLiteral("UPDATE"));
    ASSERT_TRUE(summarise(note));
    EXPECT_TRUE(jobs.showSyncError());
    EXPECT_TRUE(jobs.syncErrorMessage().contains(QStringLiteral("could not be written")))
        << jobs.syncErrorMessage().toStdString();
    EXPECT_EQ(note->summary(), oldSummary);
    EXPECT_EQ(note->summaryType(), QStringLiteral("Concise"));
    EXPECT_EQ(note->title(), untitledNoteTitle());
    EXPECT_TRUE(note->tags().isEmpty());
    allowWrites(store(), QStringLiteral("note"), QStringLiteral("UPDATE"));
    EXPECT_EQ(storedNote(*note->id())->summary(), oldSummary);
    EXPECT_EQ(countRows(*reopened, QStringLiteral("tag")), 0);
}

TEST_F(SummaryJobTest, AStoppedJobKeepsItsSectionsAndContinuesFromTheFirstUnfinishedOne)
{
    NotesListViewModel &jobs = list();
    model.contextTokens = 2400;
    // Three sections for the scripted model of a small context.
    const NotePtr note = CoreRig::makeNote(QStringLiteral("Planning"), transcript.repeated(40).left(12000));
    const SummaryCheckpointStore kept(root.path());
    model.replies = {QStringLiteral("Fact one."), Stall{}};
    const QFuture<void> job = jobs.generateSummary(note, QStringLiteral("meetings/general"));
    // The first section's key points are kept as soon as they are there.
    ASSERT_TRUE(waitUntil([&] {
        const SummaryCheckpointStore::Read read = kept.read(*note->id());
        return read.stored && read.stored->checkpoint.facts.size() == 1;
    }));
    jobs.cancelSummary();
    ASSERT_TRUE(waitFor(job, 2s));
    const auto offer = jobs.summaryResumeOffer(note);
    ASSERT_TRUE(offer);
    EXPECT_EQ(offer->templateKey, QStringLiteral("meetings/general"));
    EXPECT_EQ(offer->completed, 1);
    EXPECT_EQ(offer->total, 3);

    // Two sections left, the summary and the tags.
    model.requests.clear();
    model.replies = {QStringLiteral("Fact two."), QStringLiteral("Fact three."), finalSummary, budgetTags};
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
    const QString discarded = QStringLiteral("The unfinished summary of “Planning” was discarded because ");
    const QString unreadable = QStringLiteral("The saved progress of an unfinished summary ");
    const QString edited =
        discarded +
        QStringLiteral("its transcript was edited after the summary began; the note is unchanged.");
    const struct {
        const char *what;
        std::function<void(const NotePtr &)> change;
        QString message;
    } cases[] = {
        {"edited transcript",
         [&](const NotePtr &note) {
             note->setValue(QStringLiteral("transcription"), QStringLiteral("Another text."));
             store().save();
         },
         edited},
        {"another model",
         [&](const NotePtr &) { model.identityValue = QStringLiteral("other-model.gguf:1"); },
         discarded + QStringLiteral("it was begun with another on-device model; the note is unchanged.")},
        {"corrupt file", [&](const NotePtr &note) { overwrite(note, "{\"version\":1,\"noteID\":\""); },
         unreadable + QStringLiteral("could not be read, so it was discarded; your notes are unchanged.")},
        {"newer version", [&](const NotePtr &note) { overwrite(note, "{\"version\":7}"); },
         unreadable + QStringLiteral("was written by a newer version of Kestil, so it was discarded; your "
                                     "notes are unchanged.")},
        {"deleted note",
         [&](const NotePtr &note) {
             store().deleteNote(note);
             app->refreshNotes();
         },
         unreadable + QStringLiteral("belonged to a note that no longer exists, so it was discarded.")},
    };
    const auto keep = [&](const NotePtr &note) {
        kept.save({*note->id(), model.identityValue,
                   LocalSummaryCheckpoint(transcript, LocalSummaryTemplate::meeting)});
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        model.identityValue = QStringLiteral("scripted-model");
        const NotePtr note = makeNote(QStringLiteral("Planning"));
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
    model.identityValue = QStringLiteral("scripted-model");
    NotesListViewModel &jobs = list();
    jobs.listAppeared(app->notes(), FolderSelection::all());
    const NotePtr note = makeNote(QStringLiteral("Planning"));
    keep(note);
    ASSERT_TRUE(jobs.summaryResumeOffer(note));
    note->setValue(QStringLiteral("transcription"), QStringLiteral("Edited."));
    store().save();
    EXPECT_FALSE(jobs.summaryResumeOffer(note));
    EXPECT_EQ(jobs.syncErrorMessage(), edited);
}

TEST_F(SummaryJobTest, AKeptSummaryThatCannotBeWrittenLetsTheSummaryGoOnAndSaysSo)
{
    NotesListViewModel &jobs = list();
    // Where the checkpoints go stands a file: every write fails, as on a full disk.
    writeFile(SummaryCheckpointStore(root.path()).directory(), {});
    const NotePtr note = makeNote(QStringLiteral("Planning"));
    model.replies = {finalSummary, budgetTags};
    ASSERT_TRUE(summarise(note));
    EXPECT_EQ(storedNote(*note->id())->summary(), finalSummary);
    EXPECT_TRUE(jobs.syncErrorMessage().startsWith(QStringLiteral("Summary progress could not be saved: ")))
        << jobs.syncErrorMessage().toStdString();
    EXPECT_TRUE(jobs.syncErrorMessage().endsWith(
        QStringLiteral("The summary goes on, but it cannot be continued after a quit or a crash.")));
}
