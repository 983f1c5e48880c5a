#include "core/CoreTestSupport.h"

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;

namespace {

class ChatTest : public ::testing::Test {
protected:
    TempRoot root;
    std::unique_ptr<SharedPersistenceController> controller = root.open();
    NotePtr note = controller->createNote({}, {}, QUuid::createUuid(), u"local"_s);
    QDateTime now = QDateTime(QDate(2026, 3, 1), QTime(10, 0), Qt::UTC);

    void append(const QString &role, const QString &content, const QDateTime &at, const QUuid &noteId)
    {
        controller->appendChatMessage({QUuid::createUuid(), role, content, at}, noteId);
    }
    void ask(const QString &content, const QDateTime &at) { append(u"user"_s, content, at, *note->id()); }
};

TEST_F(ChatTest, MessagesKeepTheirOrderEvenWithEqualOrEarlierTimes)
{
    ask(u"What was decided?"_s, now);
    append(u"assistant"_s, u"To ship."_s, now, *note->id());
    ask(u"When?"_s, now.addSecs(-60));
    const auto messages = root.open()->loadChatMessages(*note->id());
    ASSERT_EQ(messages.size(), 3);
    EXPECT_EQ(messages[0].content, u"What was decided?"_s);
    EXPECT_EQ(messages[1].role, u"assistant"_s);
    EXPECT_EQ(messages[1].timestamp, now.addMSecs(1));
    EXPECT_EQ(messages[2].content, u"When?"_s);
    EXPECT_EQ(messages[2].timestamp, now.addMSecs(2));
}

TEST_F(ChatTest, BadMessagesMissingNotesAndFailedWritesLeaveNoRowAndUnreadableRowsAreSkipped)
{
    const QString refusal = u"This note is unavailable. The answer was not saved."_s;
    EXPECT_EQ(errorOf([&] { append(u"system"_s, u"x"_s, now, *note->id()); }), refusal);
    EXPECT_EQ(errorOf([&] { ask(QString(), now); }), refusal);
    EXPECT_EQ(errorOf([&] { append(u"user"_s, u"x"_s, now, QUuid::createUuid()); }), refusal);
    failWrites(*controller, u"note_chat_message"_s, u"INSERT"_s);
    EXPECT_THROW(ask(u"x"_s, now), SystemError);
    EXPECT_FALSE(controller->context().hasChanges());
    allowWrites(*controller, u"note_chat_message"_s, u"INSERT"_s);
    EXPECT_EQ(countRows(*controller, u"note_chat_message"_s), 0);

    const QByteArray sql =
        u"INSERT INTO note_chat_message (pk, id, noteId, role, content, timestamp) "
        "VALUES (90, '%1', '%2', 'tool', 'x', 1), (91, NULL, '%2', 'user', 'x', 2), "
        "(92, '%3', '%2', 'user', 'kept', NULL)"_s
            .arg(idText(QUuid::createUuid()), idText(*note->id()), idText(QUuid::createUuid()))
            .toUtf8();
    execSql(*controller, sql.constData());
    const auto messages = controller->loadChatMessages(*note->id());
    ASSERT_EQ(messages.size(), 1);
    EXPECT_EQ(messages[0].content, u"kept"_s);
    EXPECT_EQ(messages[0].timestamp.date().year(), 1);
}

TEST_F(ChatTest, ClearRemovesOnlyThisNotesMessagesOrNoneWhenItFails)
{
    auto other = controller->createNote({}, {}, QUuid::createUuid(), u"local"_s);
    ask(u"a"_s, now);
    append(u"user"_s, u"b"_s, now, *other->id());
    failWrites(*controller, u"note_chat_message"_s, u"DELETE"_s);
    EXPECT_THROW(controller->clearChatMessages(*note->id()), SystemError);
    EXPECT_EQ(controller->loadChatMessages(*note->id()).size(), 1);
    allowWrites(*controller, u"note_chat_message"_s, u"DELETE"_s);
    controller->clearChatMessages(*note->id());
    EXPECT_TRUE(controller->loadChatMessages(*note->id()).isEmpty());
    EXPECT_EQ(controller->loadChatMessages(*other->id()).size(), 1);
}

} // namespace
