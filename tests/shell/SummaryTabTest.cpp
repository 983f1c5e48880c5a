// The Summary tab of the window, driven by its object names: a template is
// picked, Summarize starts the job, the stage and the growing text show, and
// the saved summary replaces the old one only at the end. The window runs on
// the real store; the language model is the scripted one of the generation
// tests.
#include "ShellTestSupport.h"
#include "generation/ScriptedLanguageModel.h"

#include "generation/LocalSummary.h"

#include "shell/SettingsWindow.h"
#include "shell/StructuredSummaryView.h"
#include "shell/SummaryTab.h"

#include <QAction>
#include <QDialog>
#include <QJsonArray>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::test;
using namespace std::chrono_literals;

namespace {

using Stream = ScriptedLanguageModel::Stream;
using Stall = ScriptedLanguageModel::Stall;

const QString transcript = QStringLiteral(
    "Maria opened the weekly sync by reviewing the budget for the spring campaign. The team agreed to "
    "move the launch to April because the design review needs another week. Sam will draft the "
    "announcement, Priya owns the landing page, and the budget numbers go to finance by Friday.");

const QString finalSummary =
    QStringLiteral("## Decisions\n- Launch moves to **April**.\n- Budget to finance.");

QJsonObject record(const QString &field, const QJsonValue &value)
{
    return QJsonObject{{field, value}};
}

class SummaryTabTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        rig.launch();
        ASSERT_TRUE(rig.exposed);
        rig.list().setLanguageModel(&model);
    }

    // A note of the library, selected, with its Summary tab in front.
    NotePtr showNote(const QString &title, const std::optional<QString> &summary = std::nullopt,
                     const QString &text = transcript)
    {
        const NotePtr note = rig.addNote(title, text);
        if (summary) {
            note->setValue(QStringLiteral("summary"), *summary);
            note->setValue(QStringLiteral("summaryType"), QStringLiteral("Concise"));
            rig.app->store()->save();
        }
        rig.list().selectNote(note, false);
        rig.find<QTabWidget>(QStringLiteral("noteDetailTabs"))->setCurrentIndex(0);
        return note;
    }
    bool showing(const QString &name) const { return rig.showing(name); }

    QString progressLine() const
    {
        return rig.find<QLabel>(QStringLiteral("noteDetailSummaryProgress"))->text();
    }

    QToolButton *templates() const
    {
        return rig.find<QToolButton>(QStringLiteral("noteDetailTemplatesButton"));
    }
    QAction *row(const QString &key) const
    {
        return rig.window->findChild<QAction *>(QStringLiteral("noteTemplate-") + key);
    }
    // Chooses a row of the Templates menu, which starts the summary.
    void choose(const QString &key) const { row(key)->trigger(); }
    QPushButton *button(const QString &name) const { return rig.find<QPushButton>(name); }
    StructuredSummaryView *summaryView(const QString &name) const
    {
        return rig.find<StructuredSummaryView>(name);
    }

    // Declared first: the window's list waits for its worker, which may be
    // inside this model, when the rig goes.
    ScriptedLanguageModel model;
    ShellRig rig;
};

} // namespace

TEST_F(SummaryTabTest, SummarizeShowsTheStageAndTheGrowingTextThenTheSavedSummary)
{
    const NotePtr note = showNote(untitledNoteTitle());
    ASSERT_TRUE(showing(QStringLiteral("noteDetailSummaryEmpty")));
    // One row per template, the note's own checked.
    ASSERT_TRUE(templates() && row(QStringLiteral("meetings/general")));
    EXPECT_EQ(row(QStringLiteral("meetings/general"))->text(), QStringLiteral("General Meeting"));
    EXPECT_EQ(templates()->text(), QStringLiteral("Auto"));
    for (QAction *action : templates()->menu()->actions())
        EXPECT_EQ(action->isChecked(), action == row(QStringLiteral("default-summary")))
            << action->objectName().toStdString();
    EXPECT_TRUE(templates()->isEnabled());

    model.replies = {
        Stream{{QStringLiteral("## Decisions"), QStringLiteral("## Decisions\n- Launch moves"), finalSummary},
               300ms},
        record(QStringLiteral("title"), QStringLiteral("Spring launch sync")),
        record(QStringLiteral("tags"), QJsonArray{QStringLiteral("Launch")})};
    QStringList lines;
    QObject::connect(&rig.list(), &NotesListViewModel::streamingSummaryChanged,
                     [&] { lines.append(progressLine()); });
    // The request waits, as behind an Ask AI answer, before the model takes it up.
    model.queueWait = 800ms;
    choose(QStringLiteral("meetings/general"));
    ASSERT_TRUE(waitUntil([&] { return progressLine() == SummaryTab::waitingText(); }));
    EXPECT_EQ(progressLine(), QStringLiteral("Waiting for the on-device model to finish another request…"));

    // While it runs: the stage in words, the text as it grows, and Cancel.
    ASSERT_TRUE(waitUntil([&] { return showing(QStringLiteral("noteDetailSummaryGenerating")); }));
    EXPECT_FALSE(showing(QStringLiteral("noteDetailSummaryActions")));
    EXPECT_TRUE(showing(QStringLiteral("noteDetailSummaryCancelButton")));
    StructuredSummaryView *streaming = summaryView(QStringLiteral("noteDetailSummaryStreamingText"));
    ASSERT_TRUE(waitUntil([&] { return streaming->plainText().contains(QStringLiteral("Launch moves")); }));
    EXPECT_EQ(progressLine(), QStringLiteral("Writing summary…"));
    EXPECT_FALSE(streaming->plainText().contains(QStringLiteral("##"))) << "the Markdown is rendered";
    EXPECT_FALSE(note->summary().has_value()) << "nothing is saved before the end";

    // After: the saved summary, rendered, with the way to summarise again.
    ASSERT_TRUE(waitUntil([&] { return showing(QStringLiteral("noteDetailSummaryText")); }));
    StructuredSummaryView *text = summaryView(QStringLiteral("noteDetailSummaryText"));
    EXPECT_TRUE(text->plainText().contains(QStringLiteral("Launch moves to April.")));
    EXPECT_FALSE(text->plainText().contains(QStringLiteral("**")));
    EXPECT_TRUE(lines.contains(QStringLiteral("Finishing note title…")));
    EXPECT_TRUE(lines.contains(QStringLiteral("Organizing tags…")));
    EXPECT_EQ(note->summary(), finalSummary);
    EXPECT_EQ(note->summaryType(), QStringLiteral("meetings/general"));
    EXPECT_EQ(note->sortedTagNames(), QStringList{QStringLiteral("Launch")});
    EXPECT_EQ(rig.find<QLineEdit>(QStringLiteral("noteDetailTitle"))->text(),
              QStringLiteral("Spring launch sync"));
    EXPECT_TRUE(showing(QStringLiteral("noteDetailSummaryActions")));
    EXPECT_TRUE(templates()->isEnabled());
    EXPECT_EQ(templates()->text(), QStringLiteral("General Meeting"));
    EXPECT_TRUE(row(QStringLiteral("meetings/general"))->isChecked());
    EXPECT_FALSE(rig.window->alert());
}

TEST_F(SummaryTabTest, CancelKeepsTheOldSummaryAndTheTranscriptIsNotSavedMeanwhile)
{
    const NotePtr note = showNote(QStringLiteral("Budget review"), QStringLiteral("Old **summary**"));
    ASSERT_TRUE(showing(QStringLiteral("noteDetailSummaryText")));
    // The menu shows the template the summary was made with.
    EXPECT_EQ(templates()->text(), QStringLiteral("Concise"));
    EXPECT_TRUE(row(QStringLiteral("Concise"))->isChecked());

    model.replies = {Stall{}};
    choose(QStringLiteral("meetings/brainstorming"));
    ASSERT_TRUE(waitUntil([&] { return progressLine() == QStringLiteral("Writing summary…"); }));
    ASSERT_TRUE(showing(QStringLiteral("noteDetailSummaryGenerating")));

    // Meanwhile the transcript editor refuses to save.
    auto *tabs = rig.find<QTabWidget>(QStringLiteral("noteDetailTabs"));
    tabs->setCurrentIndex(1);
    rig.click(QStringLiteral("noteDetailEditTranscriptButton"));
    auto *editor = rig.window->findChild<QDialog *>(QStringLiteral("transcriptEditor"));
    ASSERT_TRUE(editor);
    editor->findChild<QPlainTextEdit *>(QStringLiteral("transcriptEditorText"))
        ->setPlainText(QStringLiteral("Edited."));
    QTest::mouseClick(editor->findChild<QPushButton *>(QStringLiteral("transcriptEditorSaveButton")),
                      Qt::LeftButton);
    EXPECT_EQ(editor->findChild<QLabel *>(QStringLiteral("transcriptEditorError"))->text(),
              QStringLiteral("Finish transcription or processing before saving edits."));
    EXPECT_EQ(note->transcription(), transcript);
    editor->reject();

    tabs->setCurrentIndex(0);
    rig.click(QStringLiteral("noteDetailSummaryCancelButton"));
    ASSERT_TRUE(waitUntil([&] { return showing(QStringLiteral("noteDetailSummaryText")); }, 2s));
    EXPECT_TRUE(summaryView(QStringLiteral("noteDetailSummaryText"))
                    ->plainText()
                    .contains(QStringLiteral("Old summary")));
    EXPECT_EQ(note->summary(), QStringLiteral("Old **summary**"));
    EXPECT_EQ(note->summaryType(), QStringLiteral("Concise"));
    EXPECT_FALSE(rig.list().isGeneratingSummary());
    settle();
    EXPECT_FALSE(rig.window->alert()) << "a cancel says nothing";
}

TEST_F(SummaryTabTest, ARefusingModelDisablesSummarizeAndPointsToSettingsWhenTheUserCanFixIt)
{
    using Reason = LanguageModel::UnavailableReason;
    QSignalSpy settings(rig.window->summaryTab(), &SummaryTab::settingsRequested);
    const NotePtr note = showNote(untitledNoteTitle());
    auto *gate = rig.find<QLabel>(QStringLiteral("noteDetailSummaryGateMessage"));
    // A sentence that says what to do; the internal reason is not shown.
    const struct {
        Reason reason;
        const char *says;
        bool curable;
    } cases[] = {
        {Reason::modelNotReady,
         "No on-device language model is installed yet. Download or import one in Settings to write "
         "summaries; your notes and transcripts remain available.",
         true},
        {Reason::languageModelDisabled,
         "On-device AI is switched off in Settings. Switch it on to write summaries; your notes and "
         "transcripts remain available.",
         true},
        {Reason::deviceNotEligible,
         "This computer cannot run the on-device language model, so summaries are unavailable; your notes "
         "and transcripts remain available.",
         false},
    };
    for (const auto &c : cases) {
        model.availabilityValue = LanguageModel::Availability::unavailable(c.reason);
        rig.window->summaryTab()->refresh();
        EXPECT_TRUE(showing(QStringLiteral("noteDetailSummaryGateMessage")));
        EXPECT_EQ(gate->text(), QString::fromUtf8(c.says));
        EXPECT_FALSE(templates()->isEnabled());
        EXPECT_EQ(showing(QStringLiteral("noteDetailSummaryOpenSettingsButton")), c.curable) << c.says;
    }
    model.availabilityValue = LanguageModel::Availability::unavailable(Reason::modelNotReady);
    rig.window->summaryTab()->refresh();
    rig.click(QStringLiteral("noteDetailSummaryOpenSettingsButton"));
    EXPECT_EQ(settings.count(), 1);
    ASSERT_TRUE(rig.window->settingsWindow());
    EXPECT_TRUE(rig.window->settingsWindow()->isVisible());
    rig.window->settingsWindow()->close();

    // Ready again: Summarize comes back and the sentence goes.
    model.availabilityValue = LanguageModel::Availability::available();
    rig.window->summaryTab()->refresh();
    EXPECT_TRUE(templates()->isEnabled());
    EXPECT_FALSE(showing(QStringLiteral("noteDetailSummaryGateMessage")));
    EXPECT_TRUE(model.requests.isEmpty());
    EXPECT_FALSE(note->summary().has_value());
}

TEST_F(SummaryTabTest, AFailedSummaryIsToldInTheAlertAndTheOldSummaryShowsAgain)
{
    const NotePtr note = showNote(QStringLiteral("Budget review"), QStringLiteral("Old summary"));
    model.replies = {Stream{{QStringLiteral("Partial words"), QStringLiteral("  ")}, 100ms}};
    choose(QStringLiteral("default-summary"));
    ASSERT_TRUE(waitUntil([&] { return rig.window->alert() != nullptr; }));
    EXPECT_EQ(
        rig.window->alert()->text(),
        QStringLiteral("The on-device model returned no summary. Existing note content was preserved."));
    EXPECT_TRUE(showing(QStringLiteral("noteDetailSummaryText")));
    StructuredSummaryView *text = summaryView(QStringLiteral("noteDetailSummaryText"));
    EXPECT_EQ(text->plainText(), QStringLiteral("Old summary"));
    EXPECT_EQ(note->summary(), QStringLiteral("Old summary"));
    EXPECT_TRUE(templates()->isEnabled());
}

TEST_F(SummaryTabTest, AnotherNoteBeingSummarizedHoldsThisOneOff)
{
    const NotePtr first = showNote(QStringLiteral("First"));
    model.replies = {Stall{}};
    choose(QStringLiteral("default-summary"));
    ASSERT_TRUE(waitUntil([&] { return showing(QStringLiteral("noteDetailSummaryGenerating")); }));

    showNote(QStringLiteral("Second"));
    EXPECT_TRUE(showing(QStringLiteral("noteDetailSummaryEmpty")));
    EXPECT_TRUE(showing(QStringLiteral("noteDetailSummaryBusyMessage")));
    EXPECT_FALSE(templates()->isEnabled());

    // Back on the first note the job is still in view, and Cancel ends it.
    rig.list().selectNote(first, false);
    rig.find<QTabWidget>(QStringLiteral("noteDetailTabs"))->setCurrentIndex(0);
    EXPECT_TRUE(showing(QStringLiteral("noteDetailSummaryGenerating")));
    rig.click(QStringLiteral("noteDetailSummaryCancelButton"));
    ASSERT_TRUE(waitUntil([&] { return showing(QStringLiteral("noteDetailSummaryEmpty")); }, 2s));
    EXPECT_TRUE(templates()->isEnabled());
    EXPECT_FALSE(first->summary().has_value());
}

TEST_F(SummaryTabTest, AStoppedSummaryOffersToContinueOrToStartAgain)
{
    // Three sections; the job is stopped while it reads the second.
    model.contextTokens = 2400;
    const QString longText = transcript.repeated(40).left(12000);
    const NotePtr note = showNote(QStringLiteral("Weekly sync"), std::nullopt, longText);
    model.replies = {QStringLiteral("Fact one."), Stall{}};
    choose(QStringLiteral("meetings/general"));
    ASSERT_TRUE(
        waitUntil([&] { return progressLine().startsWith(QStringLiteral("Reading transcript… 1 of 3")); }));
    auto *bar = rig.find<QProgressBar>(QStringLiteral("noteDetailSummaryProgressBar"));
    EXPECT_EQ(bar->maximum(), 1000);
    EXPECT_GT(bar->value(), 0);
    rig.click(QStringLiteral("noteDetailSummaryCancelButton"));
    ASSERT_TRUE(waitUntil([&] { return showing(QStringLiteral("noteDetailSummaryResumeOffer")); }, 2s));
    EXPECT_EQ(
        rig.find<QLabel>(QStringLiteral("noteDetailSummaryResumeText"))->text(),
        QStringLiteral("An unfinished “General Meeting” summary can be continued where it stopped: 1 of 3 "
                       "sections reviewed."));
    EXPECT_TRUE(button(QStringLiteral("noteDetailContinueSummaryButton"))->isEnabled());

    // Summarize Again drops what was read and begins at the first section.
    model.requests.clear();
    model.responder = [](const ScriptedLanguageModel::Request &request) -> ScriptedLanguageModel::Reply {
        if (request.streamed)
            return finalSummary;
        if (request.structured)
            return record(QStringLiteral("tags"), QJsonArray{QStringLiteral("Launch")});
        return QStringLiteral("- The launch moves to April.");
    };
    rig.click(QStringLiteral("noteDetailSummarizeAgainButton"));
    ASSERT_TRUE(waitUntil([&] { return note->summary() == finalSummary; }));
    ASSERT_FALSE(model.requests.isEmpty());
    EXPECT_TRUE(model.requests.first().prompt.startsWith(LocalSummary::keyPointPrompt(longText.left(200))));
    ASSERT_TRUE(waitUntil([&] { return !showing(QStringLiteral("noteDetailSummaryResumeOffer")); }));
}
