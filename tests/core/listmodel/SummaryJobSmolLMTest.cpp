// A real note summarised through the notes list model on a real instruct
// model (SmolLM2-135M-Instruct): pipeline, title, tags and the one save. The
// model is small and its prose is poor; the test checks structure, never
// wording. A cancel's effect on the note is the scripted job tests' business.
#include "core/CoreTestRig.h"
#include "generation/ModelFolder.h"

#include "core/SummaryCheckpointStore.h"
#include "generation/LlamaLanguageModel.h"
#include "generation/LocalNoteTags.h"

#include <QSignalSpy>

using namespace kestil;
using namespace kestil::test;
using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

TEST(SummaryJobSmolLM, SummarisesARealNoteAndSavesSummaryTemplateTitleAndTags)
{
    KESTIL_REQUIRE_MODEL("smollm2-135m-instruct-q4_1.gguf");
    ModelFolder folder;
    folder.install(u"smollm2-135m-instruct-q4_1.gguf"_s);
    // The same answers on every run: a failure is the program's, not the dice's.
    qputenv("KESTIL_LANGUAGE_MODEL_SEED", "1");
    LlamaLanguageModel languageModel(folder.directory());
    CoreRig rig(1.0);
    ASSERT_TRUE(rig.app->storeReady());
    rig.languageModel = &languageModel;
    NotesListViewModel &list = rig.list();

    const QString text = QString::fromUtf8(
        fileBytes(QStringLiteral(KESTIL_TEST_DATA_DIR "/generation/weekly-sync-transcript.txt")));
    ASSERT_GT(text.size(), 1500);
    const NotePtr note = rig.makeNote(untitledNoteTitle(), text, u"transcription"_s);
    QList<LocalSummaryProgress::Stage> stages;
    StreamingSummaryViewModel &streaming = list.streamingSummaryViewModel();
    QObject::connect(&streaming, &StreamingSummaryViewModel::progressChanged,
                     [&] { stages.append(streaming.progress().stage); });
    QSignalSpy completions(&list, &NotesListViewModel::summaryGenerationComplete);
    QSignalSpy saves(&rig.store(), &SharedPersistenceController::didSave);

    ASSERT_TRUE(waitFor(list.generateSummary(note, u"meetings/general"_s), 540s));

    // A failed title keeps the summary and says so; anything else is a failure.
    if (list.showSyncError()) {
        EXPECT_TRUE(list.syncErrorMessage().startsWith(u"Summary saved. Title: "_s))
            << list.syncErrorMessage().toStdString();
    }
    ASSERT_EQ(completions.count(), 1);
    EXPECT_EQ(saves.count(), 1);
    // The transcript fits the model at once: one streamed request, then the
    // title and the tags.
    EXPECT_EQ(stages.count(LocalSummaryProgress::Stage::writing), 1);
    EXPECT_TRUE(stages.contains(LocalSummaryProgress::Stage::organizingTags));
    const QString summary = note->summary().value_or(QString());
    EXPECT_FALSE(summary.trimmed().isEmpty());
    EXPECT_FALSE(summary.trimmed().startsWith(u"```"_s)) << summary.toStdString();
    EXPECT_EQ(completions.at(0).at(1).toString(), summary);
    EXPECT_TRUE(list.showSyncError() || !note->needsGeneratedTitle(false))
        << "a generated title replaced the automatic one";
    // Within the text's allowance, each tag final: resolving it changes nothing.
    const QStringList tags = note->sortedTagNames();
    ASSERT_FALSE(tags.isEmpty());
    EXPECT_LE(tags.size(), LocalNoteTags::tagLimit(text));
    for (const QString &tag : tags)
        EXPECT_EQ(LocalNoteTags::resolvedNames({tag}, {}), QStringList{tag});

    const NotePtr stored = rig.storedNote(*note->id());
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->summary(), summary);
    EXPECT_EQ(stored->summaryType(), u"meetings/general"_s);
    EXPECT_EQ(stored->title(), note->title());
    EXPECT_EQ(stored->sortedTagNames(), tags);
    EXPECT_EQ(countRows(*rig.reopened, u"tag"_s), tags.size());
    // The summary is in the note: no unfinished one is kept to continue.
    EXPECT_EQ(SummaryCheckpointStore(rig.root.path()).read(*note->id()).state,
              SummaryCheckpointStore::State::absent);
}
