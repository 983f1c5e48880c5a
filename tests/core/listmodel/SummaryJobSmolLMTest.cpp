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

namespace {

// The level of a Markdown heading line ("## x" is 2), 0 for any other line.
qsizetype headingLevel(const QString &line)
{
    qsizetype hashes = 0;
    while (hashes < line.size() && line.at(hashes) == QLatin1Char('#'))
        ++hashes;
    return hashes > 0 && hashes < line.size() && line.at(hashes) == QLatin1Char(' ') ? hashes : 0;
}

// Markdown without a fence, opening with the asked-for heading or an overview
// sentence, and no heading without text under it (sub-headings belong to
// it) unless the response cap cut the text off at the end.
void expectSummaryShape(const QString &summary)
{
    EXPECT_FALSE(summary.trimmed().isEmpty());
    EXPECT_FALSE(summary.trimmed().startsWith(QStringLiteral("```")));
    const QStringList lines = summary.trimmed().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    bool overview = false;
    for (qsizetype i = 0; i < qMin<qsizetype>(3, lines.size()); ++i)
        overview = overview || lines.at(i).split(QLatin1Char(' '), Qt::SkipEmptyParts).size() >= 5;
    EXPECT_TRUE(summary.contains(QStringLiteral("## Summary")) || overview) << summary.toStdString();
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const qsizetype own = headingLevel(lines.at(i));
        if (own == 0)
            continue;
        bool content = false;
        bool closed = false;
        for (qsizetype j = i + 1; j < lines.size() && !content && !closed; ++j) {
            const qsizetype other = headingLevel(lines.at(j));
            closed = other > 0 && other <= own;
            content = other == 0;
        }
        EXPECT_TRUE(content || !closed) << "empty section " << lines.at(i).toStdString() << " in\n"
                                        << summary.toStdString();
    }
}

} // namespace

TEST(SummaryJobSmolLM, SummarisesARealNoteAndSavesSummaryTemplateTitleAndTags)
{
    KESTIL_REQUIRE_MODEL("smollm2-135m-instruct-q4_1.gguf");
    ModelFolder folder;
    folder.install(QStringLiteral("smollm2-135m-instruct-q4_1.gguf"));
    // The same answers on every run: a failure is the program's, not the dice's.
    qputenv("KESTIL_LANGUAGE_MODEL_SEED", "1");
    LlamaLanguageModel languageModel(folder.directory());
    EXPECT_EQ(languageModel.contextSize(), 8192);
    EXPECT_TRUE(languageModel.supportsLocale(QLocale(QStringLiteral("en_US"))));
    EXPECT_FALSE(languageModel.supportsLocale(QLocale(QStringLiteral("de_DE"))));
    CoreRig rig(1.0);
    ASSERT_TRUE(rig.app->storeReady());
    rig.languageModel = &languageModel;
    NotesListViewModel &list = rig.list();

    const QString text = QString::fromUtf8(
        readFile(QStringLiteral(KESTIL_TEST_DATA_DIR "/generation/weekly-sync-transcript.txt")));
    ASSERT_GT(text.size(), 1500);
    const NotePtr note = rig.makeNote(untitledNoteTitle(), text, QStringLiteral("transcription"));
    QList<LocalSummaryProgress::Stage> stages;
    QStringList streamed;
    StreamingSummaryViewModel &streaming = list.streamingSummaryViewModel();
    QObject::connect(&streaming, &StreamingSummaryViewModel::progressChanged,
                     [&] { stages.append(streaming.progress().stage); });
    QObject::connect(&streaming, &StreamingSummaryViewModel::summaryChanged,
                     [&](const QString &snapshot) { streamed.append(snapshot); });
    QSignalSpy completions(&list, &NotesListViewModel::summaryGenerationComplete);
    QSignalSpy saves(&rig.store(), &SharedPersistenceController::didSave);

    ASSERT_TRUE(waitFor(list.generateSummary(note, QStringLiteral("meetings/general")), 540s));

    // A failed title keeps the summary and says so; anything else is a failure.
    if (list.showSyncError()) {
        EXPECT_TRUE(list.syncErrorMessage().startsWith(QStringLiteral("Summary saved. Title: ")))
            << list.syncErrorMessage().toStdString();
    }
    ASSERT_EQ(completions.count(), 1);
    EXPECT_EQ(saves.count(), 1);
    // The transcript fits the model at once: one streamed request, then the
    // title and the tags.
    ASSERT_FALSE(stages.isEmpty());
    EXPECT_EQ(stages.first(), LocalSummaryProgress::Stage::writing);
    EXPECT_EQ(stages.count(LocalSummaryProgress::Stage::writing), 1);
    EXPECT_TRUE(stages.contains(LocalSummaryProgress::Stage::organizingTags));

    const QString summary = note->summary().value_or(QString());
    expectSummaryShape(summary);
    EXPECT_EQ(completions.at(0).at(1).toString(), summary);
    // Each snapshot grew the text; the last before the job's end was the summary.
    ASSERT_GE(streamed.size(), 2);
    EXPECT_EQ(streamed.last(), QString());
    EXPECT_EQ(streamed.at(streamed.size() - 2), summary);
    for (qsizetype i = 1; i + 1 < streamed.size(); ++i)
        EXPECT_NE(streamed.at(i), streamed.at(i - 1));
    EXPECT_EQ(note->summaryType(), QStringLiteral("meetings/general"));

    const QString title = note->title().value_or(QString());
    EXPECT_FALSE(title.trimmed().isEmpty());
    EXPECT_LE(title.size(), 100);
    EXPECT_FALSE(title.contains(QLatin1Char('\n')));
    if (!list.showSyncError()) {
        EXPECT_NE(title, untitledNoteTitle());
        EXPECT_FALSE(note->needsGeneratedTitle(false)) << "a generated title replaced the automatic one";
    }

    // Within the text's allowance; each tag is final (resolving it changes
    // nothing) and is a tag row of the store.
    const QStringList tags = note->sortedTagNames();
    ASSERT_FALSE(tags.isEmpty());
    EXPECT_LE(tags.size(), LocalNoteTags::tagLimit(text));
    for (const QString &tag : tags) {
        EXPECT_FALSE(LocalNoteTags::key(tag).isEmpty()) << tag.toStdString();
        EXPECT_EQ(LocalNoteTags::resolvedNames({tag}, {}), QStringList{tag});
    }

    const NotePtr stored = rig.storedNote(*note->id());
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->summary(), summary);
    EXPECT_EQ(stored->summaryType(), QStringLiteral("meetings/general"));
    EXPECT_EQ(stored->title(), note->title());
    EXPECT_EQ(stored->sortedTagNames(), tags);
    EXPECT_EQ(countRows(*rig.reopened, QStringLiteral("tag")), tags.size());
    // The summary is in the note: no unfinished one is kept to continue.
    EXPECT_EQ(SummaryCheckpointStore(rig.root.path()).read(*note->id()).state,
              SummaryCheckpointStore::State::absent);
}
