#include "core/CoreTestSupport.h"

using namespace kestil;
using namespace kestil::test;

namespace {

class ChatTest : public ::testing::Test {
protected:
    TempRoot root;
    std::unique_ptr<SharedPersistenceController> controller = root.open();
    NotePtr note = controller->createNote({}, {}, QUuid::createUuid(), QStringLiteral("local"));
    LocalChatMessage message(const QString &role, const QString &content, const QDateTime &at)
    {
        return {QUuid::createUuid(), role, content, at};
    }
};

TEST_F(ChatTest, MessagesKeepTheirOrderEvenWithEqualTimes)
{
    const QDateTime t = QDateTime(QDate(2026, 3, 1), QTime(10, 0), Qt::UTC);
    controller->appendChatMessage(message(QStringLiteral("user"), QStringLiteral("What was decided?"), t),
                                  *note->id());
    controller->appendChatMessage(message(QStringLiteral("assistant"), QStringLiteral("To ship."), t),
                                  *note->id());
    controller->appendChatMessage(message(QStringLiteral("user"), QStringLiteral("When?"), t.addSecs(-60)),
                                  *note->id());
    auto reopened = root.open();
    const auto messages = reopened->loadChatMessages(*note->id());
    ASSERT_EQ(messages.size(), 3);
    EXPECT_EQ(messages[0].content, QStringLiteral("What was decided?"));
    EXPECT_EQ(messages[1].timestamp, t.addMSecs(1));
    EXPECT_EQ(messages[2].content, QStringLiteral("When?"));
    EXPECT_EQ(messages[2].timestamp, t.addMSecs(2));
}

TEST_F(ChatTest, RefusesBadMessagesAndMissingNotes)
{
    const QString refusal = QStringLiteral("This note is unavailable. The answer was not saved.");
    const auto now = QDateTime::currentDateTimeUtc();
    for (const auto &[m, noteId] :
         {std::pair{message(QStringLiteral("system"), QStringLiteral("x"), now), *note->id()},
          std::pair{message(QStringLiteral("user"), QString(), now), *note->id()},
          std::pair{message(QStringLiteral("user"), QStringLiteral("x"), now), QUuid::createUuid()}}) {
        EXPECT_EQ(errorOf([&] { controller->appendChatMessage(m, noteId); }), refusal);
    }
    EXPECT_EQ(countRows(*controller, QStringLiteral("note_chat_message")), 0);
}

TEST_F(ChatTest, FailedAppendLeavesNoRowAndUnreadableRowsAreSkipped)
{
    failWrites(*controller, QStringLiteral("note_chat_message"), QStringLiteral("INSERT"));
    EXPECT_THROW(controller->appendChatMessage(
                     message(QStringLiteral("user"), QStringLiteral("x"), QDateTime::currentDateTimeUtc()),
                     *note->id()),
                 SystemError);
    EXPECT_TRUE(controller->loadChatMessages(*note->id()).isEmpty());
    EXPECT_FALSE(controller->context().hasChanges());
    allowWrites(*controller, QStringLiteral("note_chat_message"), QStringLiteral("INSERT"));

    const QByteArray sql =
        QStringLiteral("INSERT INTO note_chat_message (pk, id, noteId, role, content, timestamp) "
                       "VALUES (90, '%1', '%2', 'tool', 'x', 1), (91, NULL, '%2', 'user', 'x', 2), "
                       "(92, '%3', '%2', 'user', 'kept', NULL)")
            .arg(idText(QUuid::createUuid()), idText(*note->id()), idText(QUuid::createUuid()))
            .toUtf8();
    execSql(*controller, sql.constData());
    const auto messages = controller->loadChatMessages(*note->id());
    ASSERT_EQ(messages.size(), 1);
    EXPECT_EQ(messages[0].content, QStringLiteral("kept"));
    EXPECT_EQ(messages[0].timestamp.date().year(), 1);
}

TEST_F(ChatTest, ClearRemovesOnlyThisNotesMessages)
{
    auto other = controller->createNote({}, {}, QUuid::createUuid(), QStringLiteral("local"));
    const auto now = QDateTime::currentDateTimeUtc();
    controller->appendChatMessage(message(QStringLiteral("user"), QStringLiteral("a"), now), *note->id());
    controller->appendChatMessage(message(QStringLiteral("user"), QStringLiteral("b"), now), *other->id());
    failWrites(*controller, QStringLiteral("note_chat_message"), QStringLiteral("DELETE"));
    EXPECT_THROW(controller->clearChatMessages(*note->id()), SystemError);
    EXPECT_EQ(controller->loadChatMessages(*note->id()).size(), 1);
    allowWrites(*controller, QStringLiteral("note_chat_message"), QStringLiteral("DELETE"));
    controller->clearChatMessages(*note->id());
    EXPECT_TRUE(controller->loadChatMessages(*note->id()).isEmpty());
    EXPECT_EQ(controller->loadChatMessages(*other->id()).size(), 1);
}

TEST(TagCandidatesTest, CountNotesPerNamedTag)
{
    TempRoot root;
    {
        auto controller = root.open();
        for (int i = 0; i < 3; ++i) {
            auto n = controller->createNote({}, {}, QUuid::createUuid(), QStringLiteral("local"));
            n->addTag(QStringLiteral("Weekly"));
            if (i == 0)
                n->addTag(QStringLiteral("Hiring"));
        }
        auto unnamed = controller->context().insert<Tag>();
        unnamed->setValue(QStringLiteral("canonicalName"), QStringLiteral("x"));
        controller->save();
    }
    auto controller = root.open(); // counts come from rows not yet in memory
    auto candidates = controller->fetchTagCandidates();
    std::sort(candidates.begin(), candidates.end(),
              [](const auto &a, const auto &b) { return a.usageCount > b.usageCount; });
    ASSERT_EQ(candidates.size(), 2);
    EXPECT_EQ(candidates[0], (LocalTagCandidate{QStringLiteral("Weekly"), 3}));
    EXPECT_EQ(candidates[1], (LocalTagCandidate{QStringLiteral("Hiring"), 1}));
}

} // namespace
