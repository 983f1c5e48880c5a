// The summary job of the notes list model, on the real store, with a
// scripted language model that answers each request of the pipeline, the
// title and the tags in turn.
#include "core/CoreTestRig.h"
#include "generation/ScriptedLanguageModel.h"

#include "core/NoteTranscript.h"
#include "core/SummaryCheckpointStore.h"
#include "generation/LocalNoteTags.h"
#include "generation/LocalSummary.h"
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

QJsonObject titleRecord(const QString &title)
{
    return QJsonObject{{QStringLiteral("title"), title}};
}

QJsonObject tagsRecord(const QStringList &tags)
{
    return QJsonObject{{QStringLiteral("tags"), QJsonArray::fromStringList(tags)}};
}

const QJsonObject budgetTags = tagsRecord({QStringLiteral("Budget")});

bool isTitleRequest(const ScriptedLanguageModel::Request &request)
{
    return request.instructions.startsWith(QStringLiteral("Create a concise descriptive title"));
}

class SummaryJobTest : public CoreRigTest {
protected:
    SummaryJobTest() { languageModel = &model; }
    // The lists stop their jobs before the scripted model they may be inside goes.
    void TearDown() override { models.clear(); }

    NotePtr makeNote(const QString &title, const QString &text = transcript,
                     const std::optional<QString> &summary = std::nullopt)
    {
        const NotePtr note = CoreRig::makeNote(title, text);
        if (summary) {
            note->setValue(QStringLiteral("summary"), *summary);
            note->setValue(QStringLiteral("summaryType"), QStringLiteral("Concise"));
            store().save();
        }
        return note;
    }

    bool summarise(const NotePtr &note)
    {
        return waitFor(list().generateSummary(note, QStringLiteral("meetings/general")));
    }

    bool waitUntilWriting()
    {
        return waitUntil(
            [&] { return list().streamingSummaryViewModel().progress() == LocalSummaryProgress::writing(); });
    }

    bool waitUntilStreaming()
    {
        return waitUntil([&] { return !list().streamingSummaryViewModel().summary().isEmpty(); });
    }

    ScriptedLanguageModel model;
};

} // namespace

TEST_F(SummaryJobTest, SummarisesTitlesAndTagsANoteAndSavesThemTogether)
{
    NotesListViewModel &jobs = list();
    const NotePtr note = makeNote(untitledNoteTitle());
    const NotePtr other = makeNote(QStringLiteral("Other"));
    model.replies = {
        Stream{{QStringLiteral("## Summary"), QStringLiteral("## Summary\n- Launch moves"), finalSummary},
               250ms},
        titleRecord(QStringLiteral("Spring  campaign\nsync")),
        tagsRecord({QStringLiteral("Budget"), QStringLiteral("Launch Planning")})};

    QList<LocalSummaryProgress::Stage> stages;
    QStringList texts;
    bool offMainThread = false;
    StreamingSummaryViewModel &streaming = jobs.streamingSummaryViewModel();
    QObject::connect(&streaming, &StreamingSummaryViewModel::progressChanged, [&] {
        stages.append(streaming.progress().stage);
        offMainThread = offMainThread || QThread::currentThread() != application().thread();
    });
    QObject::connect(&streaming, &StreamingSummaryViewModel::summaryChanged, [&](const QString &text) {
        texts.append(text);
        offMainThread = offMainThread || QThread::currentThread() != application().thread();
    });
    QSignalSpy saves(&store(), &SharedPersistenceController::didSave);
    QSignalSpy completions(&jobs, &NotesListViewModel::summaryGenerationComplete);

    const QDateTime before = QDateTime::currentDateTimeUtc();
    const int idle = KestilEngagement::shared().processingCount();
    const QFuture<void> job = jobs.generateSummary(note, QStringLiteral("meetings/general"));
    EXPECT_EQ(KestilEngagement::shared().processingCount(), idle + 1) << "a summary is model work";
    EXPECT_TRUE(jobs.isGeneratingSummary());
    EXPECT_TRUE(jobs.isSummaryJobRunning());
    EXPECT_EQ(jobs.generatingSummaryNoteID(), note->objectId());
    ASSERT_TRUE(jobs.summaryStartedAt(note).has_value());
    EXPECT_GE(*jobs.summaryStartedAt(note), before);
    EXPECT_FALSE(jobs.summaryStartedAt(other).has_value());
    // While the model writes, the text grows in the streaming model only.
    ASSERT_TRUE(waitUntil([&] { return streaming.summary().contains(QStringLiteral("Launch moves")); }));
    EXPECT_EQ(streaming.progress().stage, LocalSummaryProgress::Stage::writing);
    EXPECT_FALSE(note->summary().has_value());
    EXPECT_EQ(saves.count(), 0);

    ASSERT_TRUE(waitFor(job));
    EXPECT_EQ(KestilEngagement::shared().processingCount(), idle);
    EXPECT_FALSE(jobs.showSyncError()) << jobs.syncErrorMessage().toStdString();
    EXPECT_FALSE(offMainThread) << "the streaming model is written on the main thread only";
    EXPECT_EQ(stages, (QList<LocalSummaryProgress::Stage>{LocalSummaryProgress::Stage::writing,
                                                          LocalSummaryProgress::Stage::finishing,
                                                          LocalSummaryProgress::Stage::organizingTags,
                                                          LocalSummaryProgress::Stage::preparing}));
    ASSERT_GE(texts.size(), 3);
    EXPECT_EQ(texts.at(texts.size() - 2), finalSummary);
    EXPECT_EQ(texts.last(), QString()) << "the streaming text goes when the job ends";

    EXPECT_EQ(saves.count(), 1);
    EXPECT_EQ(note->summary(), finalSummary);
    EXPECT_EQ(note->summaryType(), QStringLiteral("meetings/general"));
    EXPECT_EQ(note->title(), QStringLiteral("Spring campaign sync"));
    EXPECT_EQ(note->sortedTagNames(),
              (QStringList{QStringLiteral("Budget"), QStringLiteral("Launch-Planning")}));
    const NotePtr stored = storedNote(*note->id());
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->summary(), finalSummary);
    EXPECT_EQ(stored->summaryType(), QStringLiteral("meetings/general"));
    EXPECT_EQ(stored->title(), QStringLiteral("Spring campaign sync"));
    EXPECT_EQ(stored->sortedTagNames().size(), 2);

    ASSERT_EQ(completions.count(), 1);
    EXPECT_EQ(completions.at(0).at(0).value<ObjectId>(), note->objectId());
    EXPECT_EQ(completions.at(0).at(1).toString(), finalSummary);

    EXPECT_FALSE(jobs.isGeneratingSummary());
    EXPECT_FALSE(jobs.isSummaryJobRunning());
    EXPECT_FALSE(jobs.generatingSummaryNoteID().has_value());
    EXPECT_FALSE(jobs.generatingSummaryStartedAt().has_value());
    EXPECT_EQ(streaming.progress(), LocalSummaryProgress::preparing());

    // The requests: the summary of the transcript, a title from the summary,
    // tags from the summary.
    ASSERT_EQ(model.requests.size(), 3);
    EXPECT_TRUE(model.requests[0].streamed);
    EXPECT_TRUE(model.requests[0].prompt.contains(QStringLiteral("weekly sync")));
    EXPECT_TRUE(isTitleRequest(model.requests[1]));
    EXPECT_TRUE(model.requests[1].prompt.contains(QStringLiteral("Launch moves to April")));
    EXPECT_TRUE(model.requests[2].structured);
}

TEST_F(SummaryJobTest, RequestsWhileAJobRunsOrARecordingStartsAreDroppedSilently)
{
    NotesListViewModel &jobs = list();
    const NotePtr first = makeNote(QStringLiteral("First"));
    const NotePtr second = makeNote(QStringLiteral("Second"));
    model.replies = {Stall{}};

    const QFuture<void> job = jobs.generateSummary(first, QString());
    ASSERT_TRUE(waitUntil([&] { return model.requests.size() == 1; }));
    // Another note, or the same one: dropped, and nothing said.
    EXPECT_TRUE(jobs.generateSummary(second, QStringLiteral("Concise")).isFinished());
    EXPECT_TRUE(jobs.generateSummary(first, QStringLiteral("Concise")).isFinished());
    EXPECT_EQ(jobs.generatingSummaryNoteID(), first->objectId());
    EXPECT_FALSE(jobs.showSyncError());

    jobs.cancelSummary();
    ASSERT_TRUE(waitFor(job, 2s));
    EXPECT_EQ(model.requests.size(), 1);

    // A start of a recording holds summaries off until it has started.
    const QFuture<void> started = jobs.startNewTranscription();
    ASSERT_TRUE(jobs.operationInProgress());
    EXPECT_TRUE(jobs.generateSummary(second, QString()).isFinished());
    EXPECT_FALSE(jobs.isGeneratingSummary());
    ASSERT_TRUE(waitFor(started));
    ASSERT_TRUE(waitFor(jobs.stopTranscription()));

    // The generating flag of a detail view blocks a job too, and only that
    // note's view can clear it.
    jobs.beginSummaryIndicator(first);
    EXPECT_TRUE(jobs.isGeneratingSummary());
    EXPECT_FALSE(jobs.isSummaryJobRunning());
    EXPECT_TRUE(jobs.summaryStartedAt(first).has_value());
    EXPECT_TRUE(jobs.generateSummary(second, QString()).isFinished());
    jobs.endSummaryIndicator(second);
    EXPECT_TRUE(jobs.isGeneratingSummary());
    jobs.endSummaryIndicator(first);
    EXPECT_FALSE(jobs.isGeneratingSummary());
    EXPECT_FALSE(jobs.summaryStartedAt(first).has_value());
    EXPECT_EQ(model.requests.size(), 1);
    EXPECT_FALSE(jobs.showSyncError()) << jobs.syncErrorMessage().toStdString();
}

TEST_F(SummaryJobTest, CancellingStopsTheModelPromptlyAndWritesNothing)
{
    NotesListViewModel &jobs = list();
    const NotePtr note = makeNote(QStringLiteral("Kept title"), transcript, QStringLiteral("Old summary"));
    QSignalSpy saves(&store(), &SharedPersistenceController::didSave);
    QSignalSpy completions(&jobs, &NotesListViewModel::summaryGenerationComplete);
    model.replies = {Stall{}};

    const QFuture<void> job = jobs.generateSummary(note, QStringLiteral("Concise"));
    ASSERT_TRUE(waitUntilWriting());
    QElapsedTimer clock;
    clock.start();
    jobs.cancelSummary();
    ASSERT_TRUE(waitFor(job, 2s));
    EXPECT_LT(clock.elapsed(), 1000);

    EXPECT_FALSE(jobs.showSyncError()) << "a cancel says nothing";
    EXPECT_EQ(saves.count(), 0);
    EXPECT_EQ(completions.count(), 0);
    EXPECT_EQ(note->summary(), QStringLiteral("Old summary"));
    EXPECT_EQ(note->summaryType(), QStringLiteral("Concise"));
    EXPECT_EQ(note->title(), QStringLiteral("Kept title"));
    EXPECT_EQ(jobs.streamingSummaryViewModel().summary(), QString());
    EXPECT_FALSE(jobs.isGeneratingSummary());

    model.replies = {finalSummary, budgetTags};
    ASSERT_TRUE(summarise(note));
    EXPECT_EQ(note->summary(), finalSummary);

    // A list closed during a job stops its model work.
    const NotePtr other = makeNote(untitledNoteTitle());
    model.replies = {Stall{}};
    const qsizetype asked = model.requests.size();
    const QFuture<void> closed = jobs.generateSummary(other, QString());
    ASSERT_TRUE(waitUntil([&] { return model.requests.size() == asked + 1; }));
    clock.restart();
    models.clear();
    EXPECT_LT(clock.elapsed(), 1000);
    EXPECT_TRUE(closed.isFinished());
    EXPECT_FALSE(other->summary().has_value());
}

TEST_F(SummaryJobTest, DeletingTheNoteOfAJobCancelsItOrFindsItGoneAndNothingIsWrittenBack)
{
    NotesListViewModel &jobs = list();
    const NotePtr note = makeNote(untitledNoteTitle());
    const NotePtr other = makeNote(QStringLiteral("Other"));
    const QUuid id = *note->id();
    model.replies = {Stall{}};

    const QFuture<void> job = jobs.generateSummary(note, QString());
    ASSERT_TRUE(waitUntilWriting());
    // Deleting another note leaves the job alone.
    ASSERT_TRUE(waitFor(jobs.deleteNote(other)));
    settle();
    EXPECT_TRUE(other->isDeleted());
    EXPECT_TRUE(jobs.isSummaryJobRunning());
    EXPECT_FALSE(job.isFinished());
    // Deleting is allowed while a summary runs; the job of that note stops.
    ASSERT_TRUE(waitFor(jobs.deleteNote(note)));
    ASSERT_TRUE(waitFor(job, 2s));
    EXPECT_FALSE(jobs.showSyncError()) << jobs.syncErrorMessage().toStdString();
    EXPECT_FALSE(jobs.isGeneratingSummary());
    EXPECT_FALSE(storedNote(id));
    EXPECT_EQ(countRows(*reopened, QStringLiteral("note")), 0);

    NotesListViewModel &elsewhere = anotherList();
    const NotePtr second = makeNote(untitledNoteTitle());
    const QUuid secondId = *second->id();
    // The other list does not own the job, so nothing cancels it: the job
    // finds the note gone before its save.
    model.replies = {Stream{{QStringLiteral("## Summary"), finalSummary}, 400ms},
                     titleRecord(QStringLiteral("Spring campaign")), budgetTags};
    QSignalSpy completions(&jobs, &NotesListViewModel::summaryGenerationComplete);

    const QFuture<void> unowned = jobs.generateSummary(second, QString());
    ASSERT_TRUE(waitUntilStreaming());
    ASSERT_TRUE(waitFor(elsewhere.deleteNote(second)));
    ASSERT_TRUE(waitFor(unowned));

    EXPECT_FALSE(jobs.showSyncError()) << jobs.syncErrorMessage().toStdString();
    EXPECT_FALSE(elsewhere.showSyncError()) << elsewhere.syncErrorMessage().toStdString();
    EXPECT_EQ(completions.count(), 0);
    EXPECT_TRUE(second->isDeleted());
    EXPECT_FALSE(storedNote(secondId));
    EXPECT_EQ(countRows(*reopened, QStringLiteral("note")), 0);
    EXPECT_EQ(countRows(*reopened, QStringLiteral("tag")), 0);
}

TEST_F(SummaryJobTest, OnlyATitleTheUserDidNotChooseIsReplaced)
{
    NotesListViewModel &jobs = list();

    // A typed title survives, and no title is even asked for. A failed tag
    // request falls back to tags from the text without a word: without the
    // model's proposals the library (empty here) and the text decide, as for
    // any note, and sixty words earn two tags.
    const NotePtr typed = makeNote(QStringLiteral("Budget review with Sam"));
    model.replies = {finalSummary, LocalError(QStringLiteral("The model ran out of memory."))};
    ASSERT_TRUE(summarise(typed));
    EXPECT_FALSE(jobs.showSyncError()) << jobs.syncErrorMessage().toStdString();
    EXPECT_EQ(typed->title(), QStringLiteral("Budget review with Sam"));
    EXPECT_EQ(typed->summary(), finalSummary);
    for (const auto &request : model.requests)
        EXPECT_FALSE(isTitleRequest(request));
    const QStringList tags = typed->sortedTagNames();
    const QStringList fromText =
        LocalNoteTags::completedNames(std::nullopt, transcriptForReading(*typed), finalSummary, {});
    EXPECT_EQ(tags.size(), 2);
    EXPECT_EQ(QSet<QString>(tags.begin(), tags.end()), QSet<QString>(fromText.begin(), fromText.end()));
    EXPECT_EQ(storedNote(*typed->id())->sortedTagNames(), tags);

    // A title of the automatic date shape is the system's own: replaced.
    const NotePtr dated = makeNote(QString());
    dated->setValue(QStringLiteral("title"), abbreviatedDateTime(dated->effectiveTimestamp()));
    store().save();
    ASSERT_TRUE(dated->isDateLikeTitle());
    model.requests.clear();
    model.replies = {finalSummary, titleRecord(QStringLiteral("Spring campaign sync")), budgetTags};
    ASSERT_TRUE(summarise(dated));
    EXPECT_EQ(dated->title(), QStringLiteral("Spring campaign sync"));
    ASSERT_EQ(model.requests.size(), 3);
    EXPECT_TRUE(isTitleRequest(model.requests[1]));

    // A title typed while the job runs wins over the generated one.
    const NotePtr renamed = makeNote(untitledNoteTitle());
    model.replies = {Stream{{QStringLiteral("## Summary"), finalSummary}, 300ms},
                     titleRecord(QStringLiteral("Generated title")), budgetTags};
    const QFuture<void> job = jobs.generateSummary(renamed, QString());
    ASSERT_TRUE(waitUntilStreaming());
    jobs.setTitle(renamed, QStringLiteral("Typed meanwhile"));
    ASSERT_TRUE(waitFor(job));
    EXPECT_EQ(renamed->title(), QStringLiteral("Typed meanwhile"));
    EXPECT_EQ(renamed->summary(), finalSummary);
    EXPECT_FALSE(jobs.showSyncError()) << jobs.syncErrorMessage().toStdString();
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
        QSignalSpy completions(&jobs, &NotesListViewModel::summaryGenerationComplete);
        jobs.setShowSyncError(false);
        model.replies = {finalSummary, c.title, budgetTags};
        ASSERT_TRUE(summarise(note));

        EXPECT_TRUE(jobs.showSyncError());
        EXPECT_EQ(jobs.syncErrorMessage(), c.message);
        EXPECT_EQ(note->title(), untitledNoteTitle());
        EXPECT_EQ(note->summary(), finalSummary);
        EXPECT_EQ(note->sortedTagNames(), QStringList{QStringLiteral("Budget")});
        EXPECT_EQ(storedNote(*note->id())->summary(), finalSummary);
        EXPECT_EQ(completions.count(), 1);
    }
}

TEST_F(SummaryJobTest, AnUnknownLanguageOrAFailedSaveLeavesTheNoteAsItWas)
{
    NotesListViewModel &jobs = list();
    const NotePtr note = makeNote(untitledNoteTitle(), transcript, QStringLiteral("Old summary"));
    QSignalSpy saves(&store(), &SharedPersistenceController::didSave);
    preferences->set(QString(settings::keys::transcriptionLanguage), QStringLiteral("de-DE"));
    EXPECT_EQ(jobs.summaryLocale().language(), QLocale::German);
    ASSERT_TRUE(summarise(note));
    EXPECT_TRUE(jobs.showSyncError());
    EXPECT_EQ(jobs.syncErrorMessage(),
              QStringLiteral("The on-device summary model does not support this language."));
    EXPECT_TRUE(model.requests.isEmpty()) << "refused before any request";
    EXPECT_EQ(saves.count(), 0);
    EXPECT_EQ(note->summary(), QStringLiteral("Old summary"));
    EXPECT_EQ(note->title(), untitledNoteTitle());
    EXPECT_FALSE(jobs.isGeneratingSummary());

    preferences->set(QString(settings::keys::transcriptionLanguage), QString());
    jobs.setShowSyncError(false);
    model.replies = {finalSummary, titleRecord(QStringLiteral("Spring campaign")), budgetTags};
    failWrites(store(), QStringLiteral("note"), QStringLiteral("UPDATE"));
    ASSERT_TRUE(summarise(note));

    EXPECT_TRUE(jobs.showSyncError());
    EXPECT_TRUE(jobs.syncErrorMessage().contains(QStringLiteral("could not be written")))
        << jobs.syncErrorMessage().toStdString();
    EXPECT_EQ(note->summary(), QStringLiteral("Old summary"));
    EXPECT_EQ(note->summaryType(), QStringLiteral("Concise"));
    EXPECT_EQ(note->title(), untitledNoteTitle());
    EXPECT_TRUE(note->tags().isEmpty());
    allowWrites(store(), QStringLiteral("note"), QStringLiteral("UPDATE"));
    const NotePtr stored = storedNote(*note->id());
    EXPECT_EQ(stored->summary(), QStringLiteral("Old summary"));
    EXPECT_EQ(countRows(*reopened, QStringLiteral("tag")), 0);
}

TEST_F(SummaryJobTest, AStoppedJobContinuesFromItsFirstUnfinishedSection)
{
    NotesListViewModel &jobs = list();
    model.contextTokens = 2400;
    // Three sections for the scripted model of a small context.
    const NotePtr note = makeNote(QStringLiteral("Planning"), transcript.repeated(40).left(12000));
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

    const std::optional<NotesListViewModel::SummaryResumeOffer> offer = jobs.summaryResumeOffer(note);
    ASSERT_TRUE(offer);
    EXPECT_EQ(offer->templateKey, QStringLiteral("meetings/general"));
    EXPECT_EQ(offer->completed, 1);
    EXPECT_EQ(offer->total, 3);
    const QStringList sections = *kept.read(*note->id()).stored->checkpoint.sections;

    model.requests.clear();
    model.replies = {QStringLiteral("Fact two."), QStringLiteral("Fact three."), finalSummary, budgetTags};
    ASSERT_TRUE(waitFor(jobs.continueSummary(note)));
    EXPECT_FALSE(jobs.showSyncError()) << jobs.syncErrorMessage().toStdString();
    ASSERT_EQ(model.requests.size(), 4);
    EXPECT_EQ(model.requests.at(0).prompt, LocalSummary::keyPointPrompt(sections.at(1)));
    EXPECT_EQ(model.requests.at(1).prompt, LocalSummary::keyPointPrompt(sections.at(2)));
    EXPECT_EQ(model.requests.at(2).prompt,
              LocalSummary::finalPrompt(QStringLiteral("Fact one.\n\nFact two.\n\nFact three."),
                                        LocalSummaryTemplate::meeting));
    EXPECT_EQ(note->summary(), finalSummary);
    // A saved summary leaves nothing to continue.
    EXPECT_EQ(kept.read(*note->id()).state, SummaryCheckpointStore::State::absent);
    EXPECT_FALSE(jobs.summaryResumeOffer(note));
}

TEST_F(SummaryJobTest, AKeptSummaryThatCanNoLongerGoOnIsDiscardedWithASentence)
{
    const SummaryCheckpointStore kept(root.path());
    const QString edited =
        QStringLiteral("The unfinished summary of “Planning” was discarded because its "
                       "transcript was edited after the summary began; the note is unchanged.");
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
         QStringLiteral(
             "The unfinished summary of “Planning” was discarded because it was begun with another "
             "on-device model; the note is unchanged.")},
        {"corrupt file",
         [&](const NotePtr &note) {
             QFile file(kept.path(*note->id()));
             ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
             file.write("{\"version\":1,\"noteID\":\"");
         },
         QStringLiteral("The saved progress of an unfinished summary could not be read, so it was discarded; "
                        "your notes are unchanged.")},
        {"newer version",
         [&](const NotePtr &note) {
             QFile file(kept.path(*note->id()));
             ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
             file.write("{\"version\":7}");
         },
         QStringLiteral(
             "The saved progress of an unfinished summary was written by a newer version of Kestil, "
             "so it was discarded; your notes are unchanged.")},
        {"deleted note",
         [&](const NotePtr &note) {
             store().deleteNote(note);
             app->refreshNotes();
         },
         QStringLiteral(
             "The saved progress of an unfinished summary belonged to a note that no longer exists, "
             "so it was discarded.")},
    };
    for (const auto &c : cases) {
        model.identityValue = QStringLiteral("scripted-model");
        const NotePtr note = makeNote(QStringLiteral("Planning"));
        const QUuid id = *note->id();
        kept.save(
            {id, model.identityValue, LocalSummaryCheckpoint(transcript, LocalSummaryTemplate::meeting)});
        c.change(note);
        // The next launch looks at what was kept.
        const auto launched = makeList();
        launched->listAppeared(app->notes(), FolderSelection::all());
        EXPECT_TRUE(launched->showSyncError()) << c.what;
        EXPECT_EQ(launched->syncErrorMessage(), c.message) << c.what;
        EXPECT_EQ(kept.read(id).state, SummaryCheckpointStore::State::absent) << c.what;
    }
    // An edit found later, while the program runs, is told when the note is shown.
    model.identityValue = QStringLiteral("scripted-model");
    NotesListViewModel &jobs = list();
    jobs.listAppeared(app->notes(), FolderSelection::all());
    const NotePtr note = makeNote(QStringLiteral("Planning"));
    kept.save({*note->id(), model.identityValue,
               LocalSummaryCheckpoint(transcript, LocalSummaryTemplate::meeting)});
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
    QFile blocker(SummaryCheckpointStore(root.path()).directory());
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    const NotePtr note = makeNote(QStringLiteral("Planning"));
    model.replies = {finalSummary, budgetTags};
    ASSERT_TRUE(summarise(note));

    EXPECT_EQ(note->summary(), finalSummary);
    EXPECT_TRUE(jobs.showSyncError());
    EXPECT_TRUE(jobs.syncErrorMessage().startsWith(QStringLiteral("Summary progress could not be saved: ")))
        << jobs.syncErrorMessage().toStdString();
    EXPECT_TRUE(jobs.syncErrorMessage().endsWith(
        QStringLiteral("The summary goes on, but it cannot be continued after a quit or a crash.")));
}
