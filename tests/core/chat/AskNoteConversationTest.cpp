// The Ask AI conversation over the real store with a scripted language model:
// what is asked, what is saved and what a stop, a failure or a delete leaves.
// The window's controls are tested in tests/shell, the prompt's limits in
// tests/generation.
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
using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

struct ChatRig {
    QTemporaryDir data;
    SharedPersistenceController store{data.path()};
    ScriptedLanguageModel model;
    NotePtr note;
    int idle = KestilEngagement::shared().processingCount();

    explicit ChatRig(const QString &transcript = u"We agreed to ship the beta on Friday. "
                                                 "Dana owns the release notes."_s)
    {
        application();
        note = store.createNote(u"Planning"_s, transcript, QUuid::createUuid(), u"transcription"_s);
    }

    std::unique_ptr<AskNoteConversation> open()
    {
        auto conversation = std::make_unique<AskNoteConversation>(store, model, note, QLocale(u"en_US"_s));
        conversation->load();
        return conversation;
    }

    QList<LocalChatMessage> saved()
    {
        return SharedPersistenceController(data.path()).loadChatMessages(*note->id());
    }
    bool idleAgain() const { return KestilEngagement::shared().processingCount() == idle; }
};

void submit(AskNoteConversation &conversation, const QString &question)
{
    conversation.setInput(question);
    conversation.send();
}

bool ask(AskNoteConversation &conversation, const QString &question)
{
    submit(conversation, question);
    return waitUntil([&] { return !conversation.isRunning(); }, 10s);
}

} // namespace

TEST(AskNoteConversationTest, AnswersStreamAreSavedAndTheNextQuestionSeesTheLastOnes)
{
    ChatRig rig;
    // Each request waits behind other work of the model, and says so.
    rig.model.queueWait = 300ms;
    rig.model.replies = {ScriptedLanguageModel::Stream{{u"On"_s, u"On Friday."_s}, 30ms}, u"Dana does."_s};
    auto conversation = rig.open();
    QStringList previews;
    QObject::connect(conversation.get(), &AskNoteConversation::changed, [&] {
        if (!conversation->preview().isEmpty() &&
            previews.value(previews.size() - 1) != conversation->preview())
            previews.append(conversation->preview());
    });
    QSignalSpy taken(conversation.get(), &AskNoteConversation::questionTaken);

    submit(*conversation, u"  When do we ship?  "_s);
    EXPECT_EQ(KestilEngagement::shared().processingCount(), rig.idle + 1) << "an answer is model work";
    EXPECT_FALSE(conversation->canSend()) << "one request at a time";
    EXPECT_FALSE(conversation->conversationActionsEnabled());
    ASSERT_TRUE(waitUntil([&] { return conversation->waitingForModel(); }));
    ASSERT_TRUE(waitUntil([&] { return !conversation->isRunning(); }));
    EXPECT_FALSE(conversation->waitingForModel());
    EXPECT_EQ(taken.count(), 1);
    EXPECT_TRUE(conversation->input().isEmpty());
    EXPECT_EQ(previews, (QStringList{u"On"_s, u"On Friday."_s}));
    EXPECT_TRUE(conversation->preview().isEmpty()) << "the preview ends with the request";
    ASSERT_EQ(conversation->messages().size(), 2);
    EXPECT_EQ(conversation->messages().at(0).content, u"When do we ship?"_s);
    EXPECT_EQ(conversation->messages().at(1).role, u"assistant"_s);
    EXPECT_EQ(conversation->messages().at(1).content, u"On Friday."_s);
    EXPECT_FALSE(conversation->error().has_value());
    settle();
    EXPECT_TRUE(rig.idleAgain());

    // The next question is asked with the saved exchange as its history.
    ASSERT_TRUE(ask(*conversation, u"Who owns the notes?"_s));
    ASSERT_EQ(rig.model.requests.size(), 2);
    EXPECT_TRUE(rig.model.requests.at(1).prompt.contains(
        u"user: When do we ship?\nassistant: On Friday.\n\nQUESTION:\nWho owns the notes?"_s));
    const QList<LocalChatMessage> stored = rig.saved();
    ASSERT_EQ(stored.size(), 4);
    EXPECT_EQ(stored.at(3).content, u"Dana does."_s);
    EXPECT_TRUE(rig.open()->conversationMarkdown().startsWith(
        u"# Ask AI: Planning\n\n**You**\n\nWhen do we ship?\n\n**Kestil**\n\nOn Friday."_s));
}

TEST(AskNoteConversationTest, AStopOrAClosedWindowKeepsTheQuestionWithoutAnAnswer)
{
    ChatRig rig;
    rig.model.replies = {ScriptedLanguageModel::Stall{}, u"Friday."_s};
    auto conversation = rig.open();
    QSignalSpy ended(conversation.get(), &AskNoteConversation::requestEnded);
    submit(*conversation, u"When do we ship?"_s);
    ASSERT_TRUE(waitUntil([&] { return rig.model.requests.size() == 1; }));
    conversation->stop();
    EXPECT_FALSE(conversation->isRunning());
    ASSERT_TRUE(waitUntil([&] { return ended.count() == 1; }));
    settle();
    EXPECT_TRUE(rig.idleAgain());
    EXPECT_FALSE(conversation->error().has_value()) << "a stop is no failure";
    EXPECT_EQ(conversation->messages().size(), 1);
    EXPECT_EQ(rig.saved().size(), 1) << "the question stays saved";
    // A late result changes nothing; the next question sees the lone one.
    ASSERT_TRUE(ask(*conversation, u"And the date?"_s));
    EXPECT_TRUE(rig.model.requests.at(1).prompt.contains(u"user: When do we ship?\n\nQUESTION:"_s))
        << rig.model.requests.at(1).prompt.toStdString();
    EXPECT_EQ(rig.saved().size(), 3);

    QStringList many;
    for (int i = 1; i <= 400; ++i)
        many.append(u"word "_s.repeated(i));
    rig.model.replies = {ScriptedLanguageModel::Stream{many, 5ms}};
    submit(*conversation, u"Tell me everything."_s);
    ASSERT_TRUE(waitUntil([&] { return !conversation->preview().isEmpty(); }));
    conversation.reset();
    settle();
    EXPECT_TRUE(rig.idleAgain()) << "a closed window's answer ends its count";
    ASSERT_EQ(rig.saved().size(), 4);
    EXPECT_EQ(rig.saved().last().role, u"user"_s);
}

TEST(AskNoteConversationTest, FailuresShowTheirSentenceAndAnAnswerForADeletedNoteIsNotSaved)
{
    ChatRig rig;
    rig.model.replies = {u"  \n"_s, LocalError(u"The model ran out of memory."_s)};
    auto conversation = rig.open();
    ASSERT_TRUE(ask(*conversation, u"When do we ship?"_s));
    EXPECT_EQ(conversation->error(), u"The on-device language model returned no answer. Your "
                                     "conversation was preserved; try again."_s);
    ASSERT_TRUE(ask(*conversation, u"When, again?"_s));
    EXPECT_EQ(conversation->error(), u"The model ran out of memory."_s);
    EXPECT_TRUE(conversation->preview().isEmpty());
    EXPECT_EQ(conversation->messages().size(), 2);
    EXPECT_EQ(rig.saved().size(), 2) << "both questions stay; no empty answer is saved";

    rig.model.onRequest = [&](const ScriptedLanguageModel::Request &) {
        QMetaObject::invokeMethod(
            qApp, [&] { rig.store.deleteNote(rig.note); }, Qt::BlockingQueuedConnection);
    };
    rig.model.replies = {u"Friday."_s};
    ASSERT_TRUE(ask(*conversation, u"Still there?"_s));
    EXPECT_EQ(conversation->messages().size(), 3) << "no answer joins the question";
    submit(*conversation, u"And now?"_s);
    EXPECT_FALSE(conversation->isRunning()) << "a deleted note takes no question";
    EXPECT_EQ(rig.model.requests.size(), 3);
}

TEST(AskNoteConversationTest, ASavedConversationLoadsAndALongSourceIsTold)
{
    ChatRig rig;
    rig.store.appendChatMessage({QUuid::createUuid(), u"user"_s, u"Hi?"_s, QDateTime::currentDateTimeUtc()},
                                *rig.note->id());
    auto conversation = rig.open();
    ASSERT_EQ(conversation->messages().size(), 1);
    EXPECT_TRUE(conversation->conversationActionsEnabled());
    EXPECT_FALSE(conversation->sourceIsLong());
    conversation->clear();
    EXPECT_TRUE(rig.saved().isEmpty());
    EXPECT_FALSE(conversation->conversationActionsEnabled());

    AskNoteConversation orphan(rig.store, rig.model, nullptr, QLocale(u"en_US"_s));
    orphan.load();
    EXPECT_EQ(orphan.error(), u"This note is unavailable."_s);
    EXPECT_TRUE(ChatRig(u"We talked about the launch plan. "_s.repeated(80)).open()->sourceIsLong());
}
