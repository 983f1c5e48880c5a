#include "core/CoreTestSupport.h"

using namespace kestil;
using namespace kestil::test;

namespace {

class ChatTest : public ::testing::Test {
protected:
    TempRoot root;
    std::unique_ptr<SharedPersistenceController> controller = root.open();
    NotePtr note = controller->createNote({}, {}, QUuid::createUuid(), QStringLiteral("local"));
    QDateTime now = QDateTime(QDate(2026, 3, 1), QTime(10, 0), Qt::UTC);

    void append(const QString &role, const QString &content, const QDateTime &at, const QUuid &noteId)
    {
        controller->appendChatMessage({QUuid::createUuid(), role, content, at}, noteId);
    }
    void ask(const QString &content, const QDateTime &at)
    {
        append(QStringLiteral("user"), content, at, *note->id());
    }
};

TEST_F(ChatTest, MessagesKeepTheirOrderEvenWithEqualOrEarlierTimes)
{
    ask(QStringLiteral("What was decided?"), now);
    append(QStringLiteral("assistant"), QStringLiteral("To ship."), now, *note->id());
    ask(QStringLiteral("When?"), now.addSecs(-60));
    const auto messages = root.open()->loadChatMessages(*note->id());
    ASSERT_EQ(messages.size(), 3);
    EXPECT_EQ(messages[0].content, QStringLiteral("What was decided?"));
    EXPECT_EQ(messages[1].role, QStringLiteral("assistant"));
    EXPECT_EQ(messages[1].timestamp, now.addMSecs(1));
    EXPECT_EQ(messages[2].content, QStringLiteral("When?"));
    EXPECT_EQ(messages[2].timestamp, now.addMSecs(2));
}

TEST_F(ChatTest, BadMessagesMissingNotesAndFailedWritesLeaveNoRowAndUnreadableRowsAreSkipped)
{
    const QString refusal = QStringLiteral("This note is unavailable. The answer was not saved.");
    EXPECT_EQ(errorOf([&] { append(QStringLiteral("system"), QStringLiteral("x"), now, *note->id()); }),
              refusal);
    EXPECT_EQ(errorOf([&] { ask(QString(), now); }), refusal);
    EXPECT_EQ(errorOf([&] { append(QStringLiteral("user"), QStringLiteral("x"), now, QUuid::createUuid()); }),
              refusal);
    failWrites(*controller, QStringLiteral("note_chat_message"), QStringLiteral("INSERT"));
    EXPECT_THROW(ask(QStringLiteral("x"), now), SystemError);
    EXPECT_FALSE(controller->context().hasChanges());
    allowWrites(*controller, QStringLiteral("note_chat_message"), QStringLiteral("INSERT"));
    EXPECT_EQ(countRows(*controller, QStringLiteral("note_chat_message")), 0);

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

TEST_F(ChatTest, ClearRemovesOnlyThisNotesMessagesOrNoneWhenItFails)
{
    auto other = controller->createNote({}, {}, QUuid::createUuid(), QStringLiteral("local"));
    ask(QStringLiteral("a"), now);
    append(QStringLiteral("user"), QStringLiteral("b"), now, *other->id());
    failWrites(*controller, QStringLiteral("note_chat_message"), QStringLiteral("DELETE"));
    EXPECT_THROW(controller->clearChatMessages(*note->id()), SystemError);
    EXPECT_EQ(controller->loadChatMessages(*note->id()).size(), 1);
    allowWrites(*controller, QStringLiteral("note_chat_message"), QStringLiteral("DELETE"));
    controller->clearChatMessages(*note->id());
    EXPECT_TRUE(controller->loadChatMessages(*note->id()).isEmpty());
    EXPECT_EQ(controller->loadChatMessages(*other->id()).size(), 1);
}

} // namespace
