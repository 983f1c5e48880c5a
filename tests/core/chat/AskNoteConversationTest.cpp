#include "capture/recorder/RecorderTestSupport.h"
#include "generation/ScriptedLanguageModel.h"

#include "core/AskNoteConversation.h"
#include "core/SharedPersistenceController.h"
#include "prefs/KestilEngagement.h"

#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::test;

namespace {

struct ChatRig {
    QTemporaryDir data;
    SharedPersistenceController store{data.path()};
    ScriptedLanguageModel model;
    NotePtr note;

    explicit ChatRig(const QString &transcript = QStringLiteral("We agreed to ship the beta on Friday. "
                                                                "Dana owns the release notes."))
    {
        application();
        note = store.createNote(QStringLiteral("Planning"), transcript, QUuid::createUuid(),
                                QStringLiteral("transcription"));
        store.save();
    }

    std::unique_ptr<AskNoteConversation> open()
    {
        auto conversation =
            std::make_unique<AskNoteConversation>(store, model, note, QLocale(QStringLiteral("en_US")));
        conversation->load();
        return conversation;
    }

    QList<LocalChatMessage> saved()
    {
        SharedPersistenceController other(data.path());
        return other.loadChatMessages(*note->id());
    }
};

void submit(AskNoteConversation &conversation, const QString &question)
{
    conversation.setInput(question);
    conversation.send();
}

bool ask(AskNoteConversation &conversation, const QString &question)
{
    submit(conversation, question);
    return waitUntil([&] { return !conversation.isRunning(); }, std::chrono::seconds(10));
}

} // namespace

TEST(AskNoteConversationTest, AnswersStreamAreSavedAndTheNextQuestionSeesTheLastOnes)
{
    ChatRig rig;
    rig.model.replies = {ScriptedLanguageModel::Stream{{QStringLiteral("On"), QStringLiteral("On Friday.")},
                                                       std::chrono::milliseconds(30)},
                         QStringLiteral("Dana does.")};
    auto conversation = rig.open();
    QStringList previews;
    QObject::connect(conversation.get(), &AskNoteConversation::changed, [&] {
        if (!conversation->preview().isEmpty() &&
            previews.value(previews.size() - 1) != conversation->preview())
            previews.append(conversation->preview());
    });
    QSignalSpy taken(conversation.get(), &AskNoteConversation::questionTaken);

    ASSERT_TRUE(ask(*conversation, QStringLiteral("  When do we ship?  ")));
    EXPECT_EQ(taken.count(), 1);
    EXPECT_TRUE(conversation->input().isEmpty());
    EXPECT_EQ(previews, (QStringList{QStringLiteral("On"), QStringLiteral("On Friday.")}));
    EXPECT_TRUE(conversation->preview().isEmpty()) << "the preview ends with the request";
    ASSERT_EQ(conversation->messages().size(), 2);
    EXPECT_EQ(conversation->messages().at(0).content, QStringLiteral("When do we ship?"));
    EXPECT_EQ(conversation->messages().at(1).role, QStringLiteral("assistant"));
    EXPECT_EQ(conversation->messages().at(1).content, QStringLiteral("On Friday."));
    EXPECT_FALSE(conversation->error().has_value());
    ASSERT_EQ(rig.model.requests.size(), 1);

    // The next question is asked with the saved exchange as its history.
    ASSERT_TRUE(ask(*conversation, QStringLiteral("Who owns the notes?")));
    ASSERT_EQ(rig.model.requests.size(), 2);
    EXPECT_TRUE(rig.model.requests.at(1).prompt.contains(
        QStringLiteral("user: When do we ship?\nassistant: On Friday.\n\nQUESTION:\nWho owns the notes?")));

    const QList<LocalChatMessage> stored = rig.saved();
    ASSERT_EQ(stored.size(), 4);
    EXPECT_EQ(stored.at(3).content, QStringLiteral("Dana does."));
    EXPECT_TRUE(rig.open()->conversationMarkdown().startsWith(
        QStringLiteral("# Ask AI: Planning\n\n**You**\n\nWhen do we ship?\n\n**Kestil**\n\nOn Friday.")));
}

// The limits themselves are the chat prompt's (see its tests); here, what a
// refusal leaves: the question in the field, no request, nothing saved.
TEST(AskNoteConversationTest, RefusedQuestionsStayInTheFieldAndNothingIsSaved)
{
    ChatRig rig;
    auto conversation = rig.open();
    conversation->setInput(QStringLiteral("   \n"));
    EXPECT_FALSE(conversation->canSend()) << "a blank question cannot be sent";

    const QString tooLong(801, QLatin1Char('a'));
    submit(*conversation, QStringLiteral(" ") + tooLong + QStringLiteral(" "));
    EXPECT_EQ(conversation->error().value_or(QString()),
              QStringLiteral("Please shorten your question to 800 bytes or fewer."));
    EXPECT_EQ(conversation->input().trimmed(), tooLong) << "the question stays to be shortened";
    EXPECT_TRUE(conversation->messages().isEmpty());
    EXPECT_TRUE(rig.model.requests.isEmpty());
    conversation->dismissError();
    EXPECT_FALSE(conversation->error().has_value());

    rig.model.availabilityValue =
        LanguageModel::Availability::unavailable(LanguageModel::UnavailableReason::modelNotReady);
    conversation->setInput(QStringLiteral("Anything else?"));
    ASSERT_TRUE(conversation->status().has_value());
    EXPECT_TRUE(conversation->status()->contains(QStringLiteral("Ask AI")))
        << conversation->status()->toStdString();
    EXPECT_FALSE(conversation->canSend());
    EXPECT_TRUE(rig.saved().isEmpty());
}

TEST(AskNoteConversationTest, ANoteWithoutTextAsksForATranscriptAndASummaryServesWhenThereIsOne)
{
    ChatRig rig(QStringLiteral("  \n "));
    auto conversation = rig.open();
    submit(*conversation, QStringLiteral("What happened?"));
    EXPECT_EQ(conversation->error().value_or(QString()),
              QStringLiteral("Transcribe this note before asking a question."));
    EXPECT_TRUE(rig.saved().isEmpty());

    rig.note->setValue(QStringLiteral("summary"), QStringLiteral("## Summary\nThe team chose a date."));
    EXPECT_EQ(conversation->source(), QStringLiteral("## Summary\nThe team chose a date."));
    rig.model.replies = {QStringLiteral("A date was chosen.")};
    ASSERT_TRUE(ask(*conversation, QStringLiteral("What happened?")));
    EXPECT_TRUE(rig.model.requests.at(0).prompt.contains(QStringLiteral("The team chose a date.")));
}

TEST(AskNoteConversationTest, StoppingKeepsTheQuestionWithoutAnAnswerAndALateResultChangesNothing)
{
    ChatRig rig;
    rig.model.replies = {ScriptedLanguageModel::Stall{}, QStringLiteral("Friday.")};
    auto conversation = rig.open();
    QSignalSpy ended(conversation.get(), &AskNoteConversation::requestEnded);
    const int idle = KestilEngagement::shared().processingCount();
    submit(*conversation, QStringLiteral("When do we ship?"));
    ASSERT_TRUE(conversation->isRunning());
    EXPECT_EQ(KestilEngagement::shared().processingCount(), idle + 1) << "an answer is model work";
    EXPECT_FALSE(conversation->canSend()) << "one request at a time";
    EXPECT_FALSE(conversation->conversationActionsEnabled());
    ASSERT_TRUE(waitUntil([&] { return rig.model.requests.size() == 1; }));

    conversation->stop();
    EXPECT_FALSE(conversation->isRunning());
    ASSERT_TRUE(waitUntil([&] { return ended.count() == 1; }));
    settle();
    EXPECT_EQ(KestilEngagement::shared().processingCount(), idle);
    EXPECT_FALSE(conversation->error().has_value()) << "a stop is no failure";
    ASSERT_EQ(conversation->messages().size(), 1);
    EXPECT_EQ(rig.saved().size(), 1) << "the question stays saved";

    ASSERT_TRUE(ask(*conversation, QStringLiteral("And the date?")));
    EXPECT_TRUE(
        rig.model.requests.at(1).prompt.contains(QStringLiteral("user: When do we ship?\n\nQUESTION:")))
        << rig.model.requests.at(1).prompt.toStdString();
    EXPECT_EQ(rig.saved().size(), 3);
}

TEST(AskNoteConversationTest, ClosingWhileStreamingStopsAndSavesNoAnswer)
{
    ChatRig rig;
    QStringList many;
    for (int i = 1; i <= 400; ++i)
        many.append(QStringLiteral("word ").repeated(i));
    rig.model.replies = {ScriptedLanguageModel::Stream{many, std::chrono::milliseconds(5)}};
    const int idle = KestilEngagement::shared().processingCount();
    {
        auto conversation = rig.open();
        submit(*conversation, QStringLiteral("Tell me everything."));
        ASSERT_TRUE(waitUntil([&] { return !conversation->preview().isEmpty(); }));
    }
    settle();
    EXPECT_EQ(KestilEngagement::shared().processingCount(), idle)
        << "a closed window's answer ends its count";
    const QList<LocalChatMessage> stored = rig.saved();
    ASSERT_EQ(stored.size(), 1);
    EXPECT_EQ(stored.at(0).role, QStringLiteral("user"));
}

TEST(AskNoteConversationTest, FailuresShowTheirSentenceAndKeepTheConversation)
{
    ChatRig rig;
    rig.model.replies = {QStringLiteral("  \n"), LocalError(QStringLiteral("The model ran out of memory."))};
    auto conversation = rig.open();
    ASSERT_TRUE(ask(*conversation, QStringLiteral("When do we ship?")));
    EXPECT_EQ(
        conversation->error().value_or(QString()),
        QStringLiteral("The on-device language model returned no answer. Your conversation was preserved; "
                       "try again."));
    ASSERT_TRUE(ask(*conversation, QStringLiteral("When, again?")));
    EXPECT_EQ(conversation->error().value_or(QString()), QStringLiteral("The model ran out of memory."));
    EXPECT_TRUE(conversation->preview().isEmpty());
    EXPECT_EQ(conversation->messages().size(), 2);
    EXPECT_EQ(rig.saved().size(), 2) << "both questions stay; no empty answer is saved";
}

TEST(AskNoteConversationTest, AnAnswerForADeletedNoteIsNotSaved)
{
    ChatRig rig;
    auto conversation = rig.open();
    rig.model.onRequest = [&](const ScriptedLanguageModel::Request &) {
        QMetaObject::invokeMethod(
            qApp,
            [&] {
                rig.store.deleteNote(rig.note);
                rig.store.save();
            },
            Qt::BlockingQueuedConnection);
    };
    rig.model.replies = {QStringLiteral("Friday.")};
    ASSERT_TRUE(ask(*conversation, QStringLiteral("When do we ship?")));
    EXPECT_EQ(conversation->messages().size(), 1);
    EXPECT_FALSE(conversation->isRunning());
    submit(*conversation, QStringLiteral("Still there?"));
    EXPECT_FALSE(conversation->isRunning()) << "a deleted note takes no question";
}

TEST(AskNoteConversationTest, LoadingAndClearing)
{
    ChatRig rig;
    rig.store.appendChatMessage(
        {QUuid::createUuid(), QStringLiteral("user"), QStringLiteral("Hi?"), QDateTime::currentDateTimeUtc()},
        *rig.note->id());
    auto conversation = rig.open();
    ASSERT_EQ(conversation->messages().size(), 1);
    EXPECT_TRUE(conversation->conversationActionsEnabled());
    conversation->clear();
    EXPECT_TRUE(conversation->messages().isEmpty());
    EXPECT_TRUE(rig.saved().isEmpty());
    EXPECT_FALSE(conversation->conversationActionsEnabled());

    AskNoteConversation orphan(rig.store, rig.model, nullptr, QLocale(QStringLiteral("en_US")));
    orphan.load();
    EXPECT_EQ(orphan.error().value_or(QString()), QStringLiteral("This note is unavailable."));

    ChatRig longRig(QStringLiteral("We talked about the launch plan. ").repeated(80));
    EXPECT_TRUE(longRig.open()->sourceIsLong());
    EXPECT_FALSE(rig.open()->sourceIsLong());
}
