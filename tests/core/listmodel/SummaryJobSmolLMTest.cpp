// A real note summarised through the notes list model on a real instruct
// model (SmolLM2-135M-Instruct): pipeline, title, tags and the one save, then
// a cancel in the middle of the model's writing. The model is small and its
// prose is poor; these tests check structure, never wording.
#include "capture/recorder/RecorderTestSupport.h"
#include "core/store/StoreTestSupport.h"
#include "generation/ModelFolder.h"

#include "core/LocalAppModel.h"
#include "core/NotesListRoles.h"
#include "core/NotesListViewModel.h"
#include "generation/LlamaLanguageModel.h"
#include "generation/LocalNoteTags.h"
#include "prefs/PreferenceStore.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>

using namespace kestil;
using namespace kestil::test;
using namespace kestil::testing;
using namespace std::chrono_literals;

namespace {

const QString modelFile = QStringLiteral("smollm2-135m-instruct-q4_1.gguf");

QString weeklySync()
{
    QFile file(QStringLiteral(KESTIL_TEST_DATA_DIR "/generation/weekly-sync-transcript.txt"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll());
}

class SummaryJobSmolLM : public ::testing::Test {
protected:
    void SetUp() override
    {
        KESTIL_REQUIRE_MODEL("smollm2-135m-instruct-q4_1.gguf");
        application();
        folder.install(modelFile);
        // The same answers on every run: see the model's seed.
        qputenv("KESTIL_LANGUAGE_MODEL_SEED", "1");
        languageModel = std::make_unique<LlamaLanguageModel>(folder.directory());
        rig.useFile(writeTone(config.filePath(QStringLiteral("tone.wav")), 1.0));
        preferences = std::make_unique<PreferenceStore>(config.filePath(QStringLiteral("prefs")));
        LaunchEnvironment environment;
        environment.root = root.path();
        environment.languageModelAvailability = [] { return LanguageModelAvailability::available; };
        app = std::make_unique<LocalAppModel>(environment);
        ASSERT_TRUE(app->storeReady());
        recorder = std::make_unique<ProcessTapRecorder>(rig.environment());
        list = std::make_unique<NotesListViewModel>(*app, *recorder, roles, *preferences);
        list->setLanguageModel(languageModel.get());
    }

    void TearDown() override
    {
        list.reset();
        recorder.reset();
    }

    NotePtr makeNote(const std::optional<QString> &summary = std::nullopt)
    {
        const NotePtr note = app->store()->createNote(untitledNoteTitle(), weeklySync(), QUuid::createUuid(),
                                                      QStringLiteral("transcription"));
        if (summary) {
            note->setValue(QStringLiteral("summary"), *summary);
            app->store()->save();
        }
        return note;
    }

    ModelFolder folder;
    std::unique_ptr<LlamaLanguageModel> languageModel;
    TempRoot root;
    QTemporaryDir config;
    RecorderRig rig;
    std::unique_ptr<PreferenceStore> preferences;
    std::unique_ptr<LocalAppModel> app;
    NotesListRoles roles;
    std::unique_ptr<ProcessTapRecorder> recorder;
    std::unique_ptr<NotesListViewModel> list;
};

} // namespace

TEST_F(SummaryJobSmolLM, SummarisesARealNoteAndSavesSummaryTemplateTitleAndTags)
{
    const NotePtr note = makeNote();
    ASSERT_GT(note->transcription()->size(), 1500);
    QList<LocalSummaryProgress::Stage> stages;
    QObject::connect(&list->streamingSummaryViewModel(), &StreamingSummaryViewModel::progressChanged,
                     [&] { stages.append(list->streamingSummaryViewModel().progress().stage); });
    QSignalSpy completions(list.get(), &NotesListViewModel::summaryGenerationComplete);
    QSignalSpy saves(app->store(), &SharedPersistenceController::didSave);

    ASSERT_TRUE(waitFor(list->generateSummary(note, QStringLiteral("meetings/general")), 540s));

    // A failed title keeps the summary and says so; anything else is a failure.
    if (list->showSyncError()) {
        EXPECT_TRUE(list->syncErrorMessage().startsWith(QStringLiteral("Summary saved. Title: ")))
            << list->syncErrorMessage().toStdString();
    }
    ASSERT_EQ(completions.count(), 1);
    EXPECT_EQ(saves.count(), 1);
    EXPECT_TRUE(stages.contains(LocalSummaryProgress::Stage::writing));
    EXPECT_TRUE(stages.contains(LocalSummaryProgress::Stage::organizingTags));

    const QString summary = note->summary().value_or(QString());
    EXPECT_FALSE(summary.trimmed().isEmpty());
    EXPECT_EQ(completions.at(0).at(1).toString(), summary);
    EXPECT_FALSE(summary.trimmed().startsWith(QStringLiteral("```")));
    EXPECT_EQ(note->summaryType(), QStringLiteral("meetings/general"));
    const QString title = note->title().value_or(QString());
    EXPECT_FALSE(title.trimmed().isEmpty());
    EXPECT_LE(title.size(), 100);
    if (!list->showSyncError()) {
        EXPECT_FALSE(note->needsGeneratedTitle(false)) << "a generated title replaced the automatic one";
    }

    // 342 words earn at most three tags; each is a tag row of the store with
    // a name that resolves to itself.
    const QStringList tags = note->sortedTagNames();
    EXPECT_GE(tags.size(), 1);
    EXPECT_LE(tags.size(), 3);
    for (const QString &tag : tags) {
        EXPECT_FALSE(LocalNoteTags::key(tag).isEmpty()) << tag.toStdString();
        EXPECT_EQ(LocalNoteTags::resolvedNames({tag}, {}), QStringList{tag}) << tag.toStdString();
    }

    SharedPersistenceController reopened(root.path());
    const NotePtr stored = reopened.noteWithId(*note->id());
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->summary(), summary);
    EXPECT_EQ(stored->summaryType(), QStringLiteral("meetings/general"));
    EXPECT_EQ(stored->title(), note->title());
    EXPECT_EQ(stored->sortedTagNames(), tags);
    EXPECT_EQ(countRows(reopened, QStringLiteral("tag")), tags.size());
}

TEST_F(SummaryJobSmolLM, ACancelStopsTheRealModelWithinASecondAndKeepsTheOldSummary)
{
    const NotePtr note = makeNote(QStringLiteral("Old summary"));
    QSignalSpy saves(app->store(), &SharedPersistenceController::didSave);
    const QFuture<void> job = list->generateSummary(note, QStringLiteral("Concise"));
    // Cancel once the model has begun to write.
    ASSERT_TRUE(waitUntil([&] { return !list->streamingSummaryViewModel().summary().isEmpty(); }, 300s));
    QElapsedTimer clock;
    clock.start();
    list->cancelSummary();
    ASSERT_TRUE(waitFor(job, 10s));
    EXPECT_LT(clock.elapsed(), 1000);

    EXPECT_FALSE(list->showSyncError()) << list->syncErrorMessage().toStdString();
    EXPECT_EQ(saves.count(), 0);
    EXPECT_EQ(note->summary(), QStringLiteral("Old summary"));
    EXPECT_EQ(note->title(), untitledNoteTitle());
    EXPECT_EQ(list->streamingSummaryViewModel().summary(), QString());
    EXPECT_FALSE(list->isGeneratingSummary());
}
