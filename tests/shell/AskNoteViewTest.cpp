#include "ShellTestSupport.h"
#include "generation/ScriptedLanguageModel.h"

#include "core/AskNoteConversation.h"
#include "core/SharedPersistenceController.h"
#include "shell/LocalAskNoteView.h"

#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;

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

TEST(AskNoteViewTest, TypingSendingStoppingAndClearing)
{
    AskRig rig;
    rig.model.replies = {ScriptedLanguageModel::Stall{}};
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
}

TEST(AskNoteViewTest, AnUnavailableModelSaysWhyAndClosingStopsAnAnswer)
{
    AskRig rig;
    rig.model.availabilityValue =
        LanguageModel::Availability::unavailable(LanguageModel::UnavailableReason::modelNotReady);
    rig.open();
    EXPECT_TRUE(rig.find(u"askAIStatus"_s)->isVisible());
    QTest::keyClicks(rig.find(u"askAIQuestionField"_s), u"Anything?"_s);
    EXPECT_FALSE(rig.find(u"askAISendButton"_s)->isEnabled());

    rig.model.availabilityValue = LanguageModel::Availability::available();
    rig.model.replies = {ScriptedLanguageModel::Stall{}};
    rig.open();
    QTest::keyClicks(rig.find(u"askAIQuestionField"_s), u"Anything?"_s);
    rig.click(u"askAISendButton"_s);
    ASSERT_TRUE(rig.view->conversation().isRunning());
    rig.click(u"askAIDoneButton"_s);
    EXPECT_FALSE(rig.view->conversation().isRunning()) << "a closed window stops its answer";
}

TEST(AskNoteViewTest, TheNoteDetailOpensAskAIForTheShownNote)
{
    ShellRig rig;
    rig.seed({{u"Budget review"_s, u"The budget grows by ten percent."_s}});
    ScriptedLanguageModel model;
    model.replies = {u"By ten percent."_s};
    rig.launch();
    rig.list().setLanguageModel(&model);
    ASSERT_TRUE(waitUntil([&] { return rig.find(u"noteDetailAskAIButton"_s)->isVisible(); }));
    rig.click(u"noteDetailAskAIButton"_s);
    auto *view = rig.find<LocalAskNoteView>(u"askAIView"_s);
    ASSERT_TRUE(view && view->isVisible());
    EXPECT_EQ(view->windowTitle(), u"Ask AI: Budget review"_s);
    QTest::keyClicks(view->findChild<QLineEdit *>(u"askAIQuestionField"_s),
                     u"How much does the budget grow?"_s);
    QTest::mouseClick(view->findChild<QPushButton *>(u"askAISendButton"_s), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return view->conversationText().contains(u"By ten percent."_s); }));
    ASSERT_EQ(model.requests.size(), 1);
    EXPECT_TRUE(model.requests.at(0).prompt.contains(u"The budget grows by ten percent."_s));

    rig.click(u"noteDetailAskAIButton"_s);
    EXPECT_EQ(rig.window->findChildren<LocalAskNoteView *>().size(), 1) << "one window per note";
    view->close();
    EXPECT_TRUE(waitUntil([&] { return rig.window->findChildren<LocalAskNoteView *>().isEmpty(); }));
}
