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

namespace {

struct AskRig {
    QTemporaryDir data;
    SharedPersistenceController store{data.path()};
    ScriptedLanguageModel model;
    NotePtr note;
    std::unique_ptr<LocalAskNoteView> view;

    AskRig()
    {
        note = store.createNote(
            QStringLiteral("Launch sync"),
            QStringLiteral("We agreed to ship the beta on Friday. Dana owns the release notes."),
            QUuid::createUuid(), QStringLiteral("transcription"));
        store.save();
    }

    LocalAskNoteView &open()
    {
        view = std::make_unique<LocalAskNoteView>(note, store, model, QLocale(QStringLiteral("en_US")));
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
        {QStringLiteral("- Ship the beta"), QStringLiteral("- Ship the beta on Friday\n- Dana writes notes")},
        std::chrono::milliseconds(150)}};
    rig.open();
    EXPECT_TRUE(rig.find(QStringLiteral("askAIEmptyHeading"))->isVisible());
    EXPECT_FALSE(rig.find(QStringLiteral("askAISendButton"))->isEnabled()) << "nothing typed yet";
    EXPECT_FALSE(rig.find(QStringLiteral("askAICopyConversationButton"))->isEnabled());

    rig.click(QStringLiteral("askAISuggestion-1"));
    ASSERT_TRUE(rig.view->conversation().isRunning());
    EXPECT_TRUE(rig.find(QStringLiteral("askAIStopButton"))->isVisible());
    EXPECT_TRUE(rig.view->conversationText().contains(QStringLiteral("Thinking on this device…")))
        << rig.view->conversationText().toStdString();
    ASSERT_TRUE(
        waitUntil([&] { return rig.view->conversationText().contains(QStringLiteral("Ship the beta")); }));
    EXPECT_FALSE(rig.find(QStringLiteral("askAICopyConversationButton"))->isEnabled())
        << "not while answering";

    ASSERT_TRUE(waitUntil([&] { return !rig.view->conversation().isRunning(); }));
    EXPECT_FALSE(rig.find(QStringLiteral("askAIStopButton"))->isVisible());
    const QString shown = rig.view->conversationText();
    EXPECT_TRUE(shown.contains(QStringLiteral("Summarize the key points"))) << shown.toStdString();
    EXPECT_TRUE(shown.contains(QStringLiteral("Dana writes notes"))) << shown.toStdString();
    EXPECT_FALSE(shown.contains(QStringLiteral("Thinking")));

    rig.click(QStringLiteral("askAICopyConversationButton"));
    EXPECT_TRUE(QApplication::clipboard()->text().startsWith(
        QStringLiteral("# Ask AI: Launch sync\n\n**You**\n\nSummarize the key points\n\n**Kestil**")))
        << QApplication::clipboard()->text().toStdString();
}

TEST(AskNoteViewTest, TypingSendingStoppingAndClearing)
{
    AskRig rig;
    rig.model.replies = {ScriptedLanguageModel::Stall{}};
    rig.open();
    rig.view->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(rig.view.get()));
    auto *field = rig.find<QLineEdit>(QStringLiteral("askAIQuestionField"));
    field->setFocus();
    QTest::keyClicks(field, QStringLiteral("When do we ship?"));
    EXPECT_TRUE(rig.find(QStringLiteral("askAISendButton"))->isEnabled());
    QTest::keyClick(field, Qt::Key_Return);
    ASSERT_TRUE(rig.view->conversation().isRunning());
    // Return sends and does nothing more: no other button of the window is
    // pressed by it, and the field keeps the focus for the next question.
    EXPECT_TRUE(rig.view->isVisible()) << "Return closed the window";
    EXPECT_TRUE(field->hasFocus());
    EXPECT_TRUE(field->text().isEmpty());
    EXPECT_FALSE(rig.find(QStringLiteral("askAISendButton"))->isEnabled()) << "one question at a time";
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_TRUE(rig.view->conversation().isRunning()) << "Return in an empty field stopped the answer";
    EXPECT_TRUE(rig.view->isVisible());

    rig.click(QStringLiteral("askAIStopButton"));
    EXPECT_FALSE(rig.view->conversation().isRunning());
    settle(std::chrono::milliseconds(100));
    EXPECT_FALSE(rig.find(QStringLiteral("askAIErrorStrip"))->isVisible()) << "a stop is no failure";
    EXPECT_TRUE(rig.view->conversationText().contains(QStringLiteral("When do we ship?")));
    ASSERT_TRUE(rig.find(QStringLiteral("askAIClearButton"))->isEnabled());

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
    answerBox(QStringLiteral("Cancel"));
    rig.click(QStringLiteral("askAIClearButton"));
    EXPECT_EQ(asked,
              QStringLiteral("Clear Chat History?|Clear the conversation for this note? Its transcript and "
                             "summary stay saved."));
    EXPECT_EQ(rig.store.loadChatMessages(*rig.note->id()).size(), 1);
    answerBox(QStringLiteral("Clear"));
    rig.click(QStringLiteral("askAIClearButton"));
    EXPECT_TRUE(rig.store.loadChatMessages(*rig.note->id()).isEmpty());
    EXPECT_TRUE(rig.find(QStringLiteral("askAIEmptyHeading"))->isVisible());
}

TEST(AskNoteViewTest, AnUnavailableModelSaysWhyAndClosingStopsAnAnswer)
{
    AskRig rig;
    rig.model.availabilityValue =
        LanguageModel::Availability::unavailable(LanguageModel::UnavailableReason::modelNotReady);
    rig.open();
    auto *status = rig.find<QLabel>(QStringLiteral("askAIStatus"));
    EXPECT_TRUE(status->isVisible());
    EXPECT_TRUE(status->text().contains(QStringLiteral("Ask AI"))) << status->text().toStdString();
    QTest::keyClicks(rig.find(QStringLiteral("askAIQuestionField")), QStringLiteral("Anything?"));
    EXPECT_FALSE(rig.find(QStringLiteral("askAISendButton"))->isEnabled());

    rig.model.availabilityValue = LanguageModel::Availability::available();
    rig.model.replies = {ScriptedLanguageModel::Stall{}};
    rig.view.reset();
    rig.open();
    QTest::keyClicks(rig.find(QStringLiteral("askAIQuestionField")), QStringLiteral("Anything?"));
    rig.click(QStringLiteral("askAISendButton"));
    ASSERT_TRUE(rig.view->conversation().isRunning());
    rig.click(QStringLiteral("askAIDoneButton"));
    EXPECT_FALSE(rig.view->conversation().isRunning()) << "a closed window stops its answer";
}

TEST(AskNoteViewTest, TheNoteDetailOpensAskAIForTheShownNote)
{
    ShellRig rig;
    rig.seed({{QStringLiteral("Budget review"), QStringLiteral("The budget grows by ten percent.")}});
    ScriptedLanguageModel model;
    model.replies = {QStringLiteral("By ten percent.")};
    rig.launch();
    rig.list().setLanguageModel(&model);
    ASSERT_TRUE(waitUntil([&] { return rig.find(QStringLiteral("noteDetailAskAIButton"))->isVisible(); }));
    rig.click(QStringLiteral("noteDetailAskAIButton"));
    auto *view = rig.find<LocalAskNoteView>(QStringLiteral("askAIView"));
    ASSERT_TRUE(view && view->isVisible());
    EXPECT_EQ(view->windowTitle(), QStringLiteral("Ask AI: Budget review"));
    QTest::keyClicks(view->findChild<QLineEdit *>(QStringLiteral("askAIQuestionField")),
                     QStringLiteral("How much does the budget grow?"));
    QTest::mouseClick(view->findChild<QPushButton *>(QStringLiteral("askAISendButton")), Qt::LeftButton);
    ASSERT_TRUE(
        waitUntil([&] { return view->conversationText().contains(QStringLiteral("By ten percent.")); }));
    ASSERT_EQ(model.requests.size(), 1);
    EXPECT_TRUE(model.requests.at(0).prompt.contains(QStringLiteral("The budget grows by ten percent.")));

    rig.click(QStringLiteral("noteDetailAskAIButton"));
    EXPECT_EQ(rig.window->findChildren<LocalAskNoteView *>().size(), 1) << "one window per note";
    view->close();
    EXPECT_TRUE(waitUntil([&] { return rig.window->findChildren<LocalAskNoteView *>().isEmpty(); }));
}
