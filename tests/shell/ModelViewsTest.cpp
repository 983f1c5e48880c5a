// The views that talk to the language model, on the real store with the
// scripted model of the generation tests: the Summary tab and Ask AI. (The
// real program opens Ask AI and answers in the privacy end-to-end test.)
#include "ShellTestSupport.h"
#include "core/AskNoteConversation.h"
#include "core/SharedPersistenceController.h"
#include "generation/LocalSummary.h"
#include "generation/ScriptedLanguageModel.h"
#include "shell/LocalAskNoteView.h"
#include "shell/SettingsWindow.h"
#include "shell/StructuredSummaryView.h"
#include "shell/SummaryTab.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QJsonArray>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QToolButton>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::test;
using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

// The Summary tab of the window, driven by its object names: a template is
// picked, Summarize starts the job, the stage and the growing text show, and
// the saved summary replaces the old one only at the end. The window runs on
// the real store; the language model is the scripted one of the generation
// tests. What a cancelled or failed job keeps is tests/core's SummaryJobTest.
namespace {

using Stream = ScriptedLanguageModel::Stream;
using Stall = ScriptedLanguageModel::Stall;

const QString transcript =
    u"Maria opened the weekly sync by reviewing the budget for the spring campaign. The team agreed to "
    "move the launch to April because the design review needs another week. Sam will draft the "
    "announcement, Priya owns the landing page, and the budget numbers go to finance by Friday."_s;

const QString finalSummary = u"## Decisions\n- Launch moves to **April**.\n- Budget to finance."_s;

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
    NotePtr showNote(const QString &title, const QString &text = transcript)
    {
        const NotePtr note = rig.addNote(title, text);
        rig.list().selectNote(note, false);
        rig.find<QTabWidget>(u"noteDetailTabs"_s)->setCurrentIndex(0);
        return note;
    }
    bool showing(const QString &name) const { return rig.showing(name); }

    QString progressLine() const { return rig.find<QLabel>(u"noteDetailSummaryProgress"_s)->text(); }

    QToolButton *templates() const { return rig.find<QToolButton>(u"noteDetailTemplatesButton"_s); }
    QAction *row(const QString &key) const
    {
        return rig.window->findChild<QAction *>(u"noteTemplate-"_s + key);
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
    ASSERT_TRUE(showing(u"noteDetailSummaryEmpty"_s));
    // One row per template, the note's own checked.
    ASSERT_TRUE(templates() && row(u"meetings/general"_s));
    EXPECT_EQ(row(u"meetings/general"_s)->text(), u"General Meeting"_s);
    EXPECT_EQ(templates()->text(), u"Auto"_s);
    EXPECT_TRUE(row(u"default-summary"_s)->isChecked());

    model.replies = {Stream{{u"## Decisions"_s, u"## Decisions\n- Launch moves"_s, finalSummary}, 300ms},
                     record(u"title"_s, u"Spring launch sync"_s), record(u"tags"_s, QJsonArray{u"Launch"_s})};
    // The request waits, as behind an Ask AI answer, before the model takes it up.
    model.queueWait = 800ms;
    choose(u"meetings/general"_s);
    ASSERT_TRUE(waitUntil([&] { return progressLine() == SummaryTab::waitingText(); }));
    EXPECT_EQ(progressLine(), u"Waiting for the on-device model to finish another request…"_s);

    // While it runs: the stage in words, the text as it grows, and Cancel.
    ASSERT_TRUE(waitUntil([&] { return showing(u"noteDetailSummaryGenerating"_s); }));
    EXPECT_FALSE(showing(u"noteDetailSummaryActions"_s));
    EXPECT_TRUE(showing(u"noteDetailSummaryCancelButton"_s));
    StructuredSummaryView *streaming = summaryView(u"noteDetailSummaryStreamingText"_s);
    ASSERT_TRUE(waitUntil([&] { return streaming->plainText().contains(u"Launch moves"_s); }));
    EXPECT_EQ(progressLine(), u"Writing summary…"_s);
    EXPECT_FALSE(streaming->plainText().contains(u"##"_s)) << "the Markdown is rendered";

    // After: the saved summary, rendered, with the way to summarise again.
    ASSERT_TRUE(waitUntil([&] { return showing(u"noteDetailSummaryText"_s); }));
    StructuredSummaryView *text = summaryView(u"noteDetailSummaryText"_s);
    EXPECT_TRUE(text->plainText().contains(u"Launch moves to April."_s));
    EXPECT_EQ(note->summary(), finalSummary);
    EXPECT_EQ(rig.find<QLineEdit>(u"noteDetailTitle"_s)->text(), u"Spring launch sync"_s);
    EXPECT_TRUE(showing(u"noteDetailSummaryActions"_s));
    EXPECT_EQ(templates()->text(), u"General Meeting"_s);
    EXPECT_TRUE(row(u"meetings/general"_s)->isChecked());
}

TEST_F(SummaryTabTest, ARefusingModelDisablesSummarizeAndPointsToSettingsWhenTheUserCanFixIt)
{
    using Reason = LanguageModel::UnavailableReason;
    QSignalSpy settings(rig.window->summaryTab(), &SummaryTab::settingsRequested);
    showNote(untitledNoteTitle());
    auto *gate = rig.find<QLabel>(u"noteDetailSummaryGateMessage"_s);
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
        {Reason::deviceNotEligible,
         "This computer cannot run the on-device language model, so summaries are unavailable; your notes "
         "and transcripts remain available.",
         false}};
    for (const auto &c : cases) {
        model.availabilityValue = LanguageModel::Availability::unavailable(c.reason);
        rig.window->summaryTab()->refresh();
        EXPECT_TRUE(showing(u"noteDetailSummaryGateMessage"_s));
        EXPECT_EQ(gate->text(), QString::fromUtf8(c.says));
        EXPECT_FALSE(templates()->isEnabled());
        EXPECT_EQ(showing(u"noteDetailSummaryOpenSettingsButton"_s), c.curable) << c.says;
    }
    model.availabilityValue = LanguageModel::Availability::unavailable(Reason::languageModelDisabled);
    rig.window->summaryTab()->refresh();
    rig.click(u"noteDetailSummaryOpenSettingsButton"_s);
    EXPECT_EQ(settings.count(), 1);
    ASSERT_TRUE(rig.window->settingsWindow());
    EXPECT_TRUE(rig.window->settingsWindow()->isVisible());
    rig.window->settingsWindow()->close();

    // Ready again: Summarize comes back and the sentence goes.
    model.availabilityValue = LanguageModel::Availability::available();
    rig.window->summaryTab()->refresh();
    EXPECT_TRUE(templates()->isEnabled());
    EXPECT_FALSE(showing(u"noteDetailSummaryGateMessage"_s));
    EXPECT_TRUE(model.requests.isEmpty());
}

TEST_F(SummaryTabTest, AStoppedSummaryOffersToContinueOrToStartAgain)
{
    // Three sections; the job is stopped while it reads the second.
    model.contextTokens = 2400;
    const QString longText = transcript.repeated(40).left(12000);
    const NotePtr note = showNote(u"Weekly sync"_s, longText);
    model.replies = {u"Fact one."_s, Stall{}};
    choose(u"meetings/general"_s);
    ASSERT_TRUE(waitUntil([&] { return progressLine().startsWith(u"Reading transcript… 1 of 3"_s); }));
    auto *bar = rig.find<QProgressBar>(u"noteDetailSummaryProgressBar"_s);
    EXPECT_EQ(bar->maximum(), 1000);
    EXPECT_GT(bar->value(), 0);
    rig.click(u"noteDetailSummaryCancelButton"_s);
    ASSERT_TRUE(waitUntil([&] { return showing(u"noteDetailSummaryResumeOffer"_s); }, 2s));
    EXPECT_EQ(rig.find<QLabel>(u"noteDetailSummaryResumeText"_s)->text(),
              u"An unfinished “General Meeting” summary can be continued where it stopped: 1 of 3 "
              "sections reviewed."_s);
    EXPECT_TRUE(button(u"noteDetailContinueSummaryButton"_s)->isEnabled());

    // Summarize Again drops what was read and begins at the first section.
    model.requests.clear();
    model.responder = [](const ScriptedLanguageModel::Request &request) -> ScriptedLanguageModel::Reply {
        if (request.streamed)
            return finalSummary;
        if (request.structured)
            return record(u"tags"_s, QJsonArray{u"Launch"_s});
        return u"- The launch moves to April."_s;
    };
    rig.click(u"noteDetailSummarizeAgainButton"_s);
    ASSERT_TRUE(waitUntil([&] { return note->summary() == finalSummary; }));
    ASSERT_FALSE(model.requests.isEmpty());
    EXPECT_TRUE(model.requests.first().prompt.startsWith(LocalSummary::keyPointPrompt(longText.left(200))));
    ASSERT_TRUE(waitUntil([&] { return !showing(u"noteDetailSummaryResumeOffer"_s); }));
}

namespace {

struct AskRig {
    QTemporaryDir data;
    SharedPersistenceController store{data.path()};
    ScriptedLanguageModel model;
    NotePtr note;
    std::unique_ptr<LocalAskNoteView> view;

    AskRig()
    {
        note = store.createNote(u"Launch sync"_s,
                                u"We agreed to ship the beta on Friday. Dana owns the release notes."_s,
                                QUuid::createUuid(), u"transcription"_s);
        store.save();
    }

    LocalAskNoteView &open()
    {
        view = std::make_unique<LocalAskNoteView>(note, store, model, QLocale(u"en_US"_s));
        view->show();
        return *view;
    }

    template <typename T = QWidget> T *find(const QString &name) const { return view->findChild<T *>(name); }
    void click(const QString &name) const { QTest::mouseClick(find<QPushButton>(name), Qt::LeftButton); }
};

} // namespace

TEST(AskNoteViewTest, ASuggestedQuestionIsAnsweredWhileTheWindowShowsItsProgress)
{
    AskRig rig;
    rig.model.onRequest = [](const ScriptedLanguageModel::Request &) {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    };
    rig.model.replies = {ScriptedLanguageModel::Stream{
        {u"- Ship the beta"_s, u"- Ship the beta on Friday\n- Dana writes notes"_s},
        std::chrono::milliseconds(150)}};
    rig.open();
    EXPECT_TRUE(rig.find(u"askAIEmptyHeading"_s)->isVisible());
    EXPECT_FALSE(rig.find(u"askAISendButton"_s)->isEnabled()) << "nothing typed yet";

    rig.click(u"askAISuggestion-1"_s);
    ASSERT_TRUE(rig.view->conversation().isRunning());
    EXPECT_TRUE(rig.find(u"askAIStopButton"_s)->isVisible());
    EXPECT_TRUE(rig.view->conversationText().contains(u"Thinking on this device…"_s));
    ASSERT_TRUE(waitUntil([&] { return rig.view->conversationText().contains(u"Ship the beta"_s); }));
    EXPECT_FALSE(rig.find(u"askAICopyConversationButton"_s)->isEnabled()) << "not while answering";
    ASSERT_TRUE(waitUntil([&] { return !rig.view->conversation().isRunning(); }));
    EXPECT_FALSE(rig.find(u"askAIStopButton"_s)->isVisible());
    const QString shown = rig.view->conversationText();
    EXPECT_TRUE(shown.contains(u"Summarize the key points"_s) && shown.contains(u"Dana writes notes"_s))
        << shown.toStdString();
    EXPECT_FALSE(shown.contains(u"Thinking"_s));
    rig.click(u"askAICopyConversationButton"_s);
    EXPECT_TRUE(QApplication::clipboard()->text().startsWith(u"# Ask AI: Launch sync\n"_s));
}

TEST(AskNoteViewTest, TypingSendingStoppingClearingAndClosing)
{
    AskRig rig;
    rig.model.replies = {ScriptedLanguageModel::Stall{}, ScriptedLanguageModel::Stall{}};
    rig.open();
    rig.view->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(rig.view.get()));
    auto *field = rig.find<QLineEdit>(u"askAIQuestionField"_s);
    field->setFocus();
    QTest::keyClicks(field, u"When do we ship?"_s);
    EXPECT_TRUE(rig.find(u"askAISendButton"_s)->isEnabled());
    QTest::keyClick(field, Qt::Key_Return);
    ASSERT_TRUE(rig.view->conversation().isRunning());
    // Return sends and does nothing more: no other button of the window is
    // pressed by it, and the field keeps the focus for the next question.
    EXPECT_TRUE(rig.view->isVisible()) << "Return closed the window";
    EXPECT_TRUE(field->hasFocus());
    EXPECT_TRUE(field->text().isEmpty());
    EXPECT_FALSE(rig.find(u"askAISendButton"_s)->isEnabled()) << "one question at a time";
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_TRUE(rig.view->conversation().isRunning()) << "Return in an empty field stopped the answer";
    EXPECT_TRUE(rig.view->isVisible());

    rig.click(u"askAIStopButton"_s);
    EXPECT_FALSE(rig.view->conversation().isRunning());
    settle(std::chrono::milliseconds(100));
    EXPECT_FALSE(rig.find(u"askAIErrorStrip"_s)->isVisible()) << "a stop is no failure";
    EXPECT_TRUE(rig.view->conversationText().contains(u"When do we ship?"_s));
    ASSERT_TRUE(rig.find(u"askAIClearButton"_s)->isEnabled());

    // The clear asks first; Cancel keeps everything.
    QString asked;
    const auto answerBox = [&](const QString &button) {
        QTimer::singleShot(50, [&asked, button] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            ASSERT_TRUE(box);
            asked = box->windowTitle() + QLatin1Char('|') + box->text();
            for (QAbstractButton *b : box->buttons()) {
                if (b->text() == button)
                    b->click();
            }
        });
    };
    answerBox(u"Cancel"_s);
    rig.click(u"askAIClearButton"_s);
    EXPECT_EQ(asked, u"Clear Chat History?|Clear the conversation for this note? Its transcript and "
                     "summary stay saved."_s);
    EXPECT_EQ(rig.store.loadChatMessages(*rig.note->id()).size(), 1);
    answerBox(u"Clear"_s);
    rig.click(u"askAIClearButton"_s);
    EXPECT_TRUE(rig.store.loadChatMessages(*rig.note->id()).isEmpty());
    EXPECT_TRUE(rig.find(u"askAIEmptyHeading"_s)->isVisible());

    QTest::keyClicks(field, u"Anything?"_s);
    rig.click(u"askAISendButton"_s);
    ASSERT_TRUE(rig.view->conversation().isRunning());
    rig.click(u"askAIDoneButton"_s);
    EXPECT_FALSE(rig.view->conversation().isRunning()) << "a closed window stops its answer";
}
