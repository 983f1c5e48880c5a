// The Summary tab and Ask AI on the real store with the scripted model; what
// a stopped or continued job keeps is tests/core's SummaryJobTest.
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
#include <QJsonArray>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTimer>
#include <QToolButton>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::test;
using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

using Stream = ScriptedLanguageModel::Stream;
using Stall = ScriptedLanguageModel::Stall;

const QString &transcript = scriptedMeetingTranscript;
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
    QString shownText(const QString &view) const
    {
        return rig.find<StructuredSummaryView>(view)->plainText();
    }

    // Declared first: the window's list waits for its worker, which may be
    // inside this model, when the rig goes.
    ScriptedLanguageModel model;
    ShellRig rig;
};

TEST_F(SummaryTabTest, SummarizeShowsTheStageAndTheGrowingTextThenTheSavedSummary)
{
    const NotePtr note = showNote(untitledNoteTitle());
    ASSERT_TRUE(showing(u"noteDetailSummaryEmpty"_s));
    ASSERT_TRUE(templates() && row(u"meetings/general"_s));
    EXPECT_EQ(templates()->text(), u"Auto"_s);
    EXPECT_TRUE(row(u"default-summary"_s)->isChecked()) << "the note's own template is checked";

    model.replies = {Stream{{u"## Decisions"_s, u"## Decisions\n- Launch moves"_s, finalSummary}, 300ms},
                     record(u"title"_s, u"Spring launch sync"_s), record(u"tags"_s, QJsonArray{u"Launch"_s})};
    // The request waits, as behind an Ask AI answer, before the model takes it up.
    model.queueWait = 800ms;
    row(u"meetings/general"_s)->trigger();
    ASSERT_TRUE(waitUntil([&] { return progressLine() == SummaryTab::waitingText(); }));
    ASSERT_TRUE(waitUntil(
        [&] { return shownText(u"noteDetailSummaryStreamingText"_s).contains(u"Launch moves"_s); }));
    EXPECT_TRUE(showing(u"noteDetailSummaryGenerating"_s) && showing(u"noteDetailSummaryCancelButton"_s));
    EXPECT_EQ(progressLine(), u"Writing summary…"_s);
    EXPECT_FALSE(shownText(u"noteDetailSummaryStreamingText"_s).contains(u"##"_s))
        << "the Markdown is rendered";

    ASSERT_TRUE(waitUntil([&] { return showing(u"noteDetailSummaryText"_s); }));
    EXPECT_TRUE(shownText(u"noteDetailSummaryText"_s).contains(u"Launch moves to April."_s));
    EXPECT_EQ(note->summary(), finalSummary);
    EXPECT_EQ(rig.find<QLineEdit>(u"noteDetailTitle"_s)->text(), u"Spring launch sync"_s);
    EXPECT_EQ(templates()->text(), u"General Meeting"_s);
}

TEST_F(SummaryTabTest, ARefusingModelDisablesSummarizeAndPointsToSettingsWhenTheUserCanFixIt)
{
    using Reason = LanguageModel::UnavailableReason;
    showNote(untitledNoteTitle());
    // A sentence that says what to do; the internal reason is not shown.
    const struct {
        Reason reason;
        const char *says;
        bool curable;
    } cases[] = {{Reason::modelNotReady,
                  "No on-device language model is installed yet. Download or import one in Settings to write "
                  "summaries; your notes and transcripts remain available.",
                  true},
                 {Reason::deviceNotEligible,
                  "This computer cannot run the on-device language model, so summaries are unavailable; your "
                  "notes and transcripts remain available.",
                  false}};
    for (const auto &c : cases) {
        model.availabilityValue = LanguageModel::Availability::unavailable(c.reason);
        rig.window->summaryTab()->refresh();
        EXPECT_EQ(rig.find<QLabel>(u"noteDetailSummaryGateMessage"_s)->text(), QString::fromUtf8(c.says));
        EXPECT_TRUE(showing(u"noteDetailSummaryGateMessage"_s));
        EXPECT_FALSE(templates()->isEnabled());
        EXPECT_EQ(showing(u"noteDetailSummaryOpenSettingsButton"_s), c.curable) << c.says;
        if (c.curable) {
            rig.click(u"noteDetailSummaryOpenSettingsButton"_s);
            ASSERT_TRUE(rig.window->settingsWindow() && rig.window->settingsWindow()->isVisible());
            rig.window->settingsWindow()->close();
        }
    }
    model.availabilityValue = LanguageModel::Availability::available();
    rig.window->summaryTab()->refresh();
    EXPECT_TRUE(templates()->isEnabled());
    EXPECT_FALSE(showing(u"noteDetailSummaryGateMessage"_s));
}

TEST_F(SummaryTabTest, AStoppedSummaryOffersToContinueOrToStartAgain)
{
    // Three sections; the job is stopped while it reads the second.
    model.contextTokens = 2400;
    const QString longText = transcript.repeated(40).left(12000);
    const NotePtr note = showNote(u"Weekly sync"_s, longText);
    model.replies = {u"Fact one."_s, Stall{}};
    row(u"meetings/general"_s)->trigger();
    ASSERT_TRUE(waitUntil([&] { return progressLine().startsWith(u"Reading transcript… 1 of 3"_s); }));
    rig.click(u"noteDetailSummaryCancelButton"_s);
    ASSERT_TRUE(waitUntil([&] { return showing(u"noteDetailSummaryResumeOffer"_s); }, 2s));
    EXPECT_EQ(rig.find<QLabel>(u"noteDetailSummaryResumeText"_s)->text(),
              u"An unfinished “General Meeting” summary can be continued where it stopped: 1 of 3 "
              "sections reviewed."_s);
    EXPECT_TRUE(rig.find(u"noteDetailContinueSummaryButton"_s)->isEnabled());

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
    EXPECT_TRUE(waitUntil([&] { return !showing(u"noteDetailSummaryResumeOffer"_s); }));
}

struct AskRig {
    QTemporaryDir data;
    SharedPersistenceController store{data.path()};
    ScriptedLanguageModel model;
    NotePtr note = store.createNote(u"Launch sync"_s,
                                    u"We agreed to ship the beta on Friday. Dana owns the release notes."_s,
                                    QUuid::createUuid(), u"transcription"_s);
    LocalAskNoteView view{note, store, model, QLocale(u"en_US"_s)};

    AskRig() { view.show(); }
    template <typename T = QWidget> T *find(const QString &name) const { return view.findChild<T *>(name); }
    void click(const QString &name) const { QTest::mouseClick(find<QPushButton>(name), Qt::LeftButton); }
    bool running() { return view.conversation().isRunning(); }
};

TEST(AskNoteViewTest, ReturnSendsStopStopsClearAsksFirstAndClosingStopsAnAnswer)
{
    AskRig rig;
    rig.model.replies = {Stall{}, Stall{}};
    rig.view.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&rig.view));
    auto *field = rig.find<QLineEdit>(u"askAIQuestionField"_s);
    field->setFocus();
    QTest::keyClicks(field, u"When do we ship?"_s);
    QTest::keyClick(field, Qt::Key_Return);
    ASSERT_TRUE(rig.running());
    // Return sends and does nothing more: the window stays, the field keeps
    // the focus, and Return in an empty field does not stop the answer.
    EXPECT_TRUE(rig.view.isVisible() && field->hasFocus());
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_TRUE(rig.running());
    rig.click(u"askAIStopButton"_s);
    EXPECT_FALSE(rig.running());
    settle(100ms);
    EXPECT_FALSE(rig.find(u"askAIErrorStrip"_s)->isVisible()) << "a stop is no failure";

    // The clear asks first; Cancel keeps everything.
    const auto answerBox = [](const QString &button) {
        QTimer::singleShot(50, [button] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            ASSERT_TRUE(box);
            EXPECT_EQ(box->windowTitle(), u"Clear Chat History?"_s);
            for (QAbstractButton *b : box->buttons())
                if (b->text() == button)
                    b->click();
        });
    };
    answerBox(u"Cancel"_s);
    rig.click(u"askAIClearButton"_s);
    EXPECT_EQ(rig.store.loadChatMessages(*rig.note->id()).size(), 1);
    answerBox(u"Clear"_s);
    rig.click(u"askAIClearButton"_s);
    EXPECT_TRUE(rig.store.loadChatMessages(*rig.note->id()).isEmpty());

    QTest::keyClicks(field, u"Anything?"_s);
    rig.click(u"askAISendButton"_s);
    ASSERT_TRUE(rig.running());
    rig.click(u"askAIDoneButton"_s);
    EXPECT_FALSE(rig.running()) << "a closed window stops its answer";
}

} // namespace
