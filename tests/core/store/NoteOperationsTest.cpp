#include "core/CoreTestSupport.h"

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;

namespace {

class NoteOperationsTest : public ::testing::Test {
protected:
    TempRoot root;
    std::unique_ptr<SharedPersistenceController> controller = root.open();
    NotePtr makeNote(const QString &title = u"Untitled Note"_s)
    {
        return controller->createNote(title, QString(), QUuid::createUuid(), u"local"_s);
    }
    QString storedTitle(const NotePtr &note)
    {
        const auto fresh = root.open();
        const auto n = fresh->noteWithId(*note->id());
        return n ? n->title().value_or(u"<missing>"_s) : u"<no row>"_s;
    }
    qint64 rows(const char *table) { return countRows(*controller, QString::fromLatin1(table)); }
};

TEST_F(NoteOperationsTest, CreateNoteWritesItsFieldsInOneSaveOrLeavesNoRowAnywhere)
{
    failWrites(*controller, u"note"_s, u"INSERT"_s);
    EXPECT_THROW(makeNote(), SystemError);
    EXPECT_EQ(rows("note"), 0);
    EXPECT_TRUE(controller->context().fetch<Note>(FetchRequest{}).isEmpty());
    EXPECT_FALSE(controller->context().hasChanges());
    allowWrites(*controller, u"note"_s, u"INSERT"_s);

    auto note = controller->createNote(u"T"_s, u"text"_s, QUuid::createUuid(), u"local"_s);
    EXPECT_FALSE(controller->context().hasChanges());
    EXPECT_EQ(rows("note"), 1);
    EXPECT_EQ(note->transcription(), u"text"_s);
    EXPECT_TRUE(note->timestamp().has_value());
}

TEST_F(NoteOperationsTest, GeneratedFieldsAcceptOnlyNoteAttributesOfAUsableNote)
{
    auto note = makeNote();
    for (const char *key : {"tags", "folder", "titel", "notesList"}) {
        EXPECT_EQ(errorOf([&] {
                      controller->applyGeneratedFields(
                          note, {{u"summary"_s, u"S"_s}, {QString::fromLatin1(key), u"x"_s}});
                  }),
                  u"Generated content contains an unsupported note field."_s)
            << key;
        EXPECT_FALSE(note->summary().has_value()) << "nothing written before the refusal";
    }
    controller->applyGeneratedFields(
        note,
        {{u"summary"_s, u"## Done"_s}, {u"summaryType"_s, u"general"_s}, {u"title"_s, u"Quarterly plan"_s}});
    EXPECT_EQ(storedTitle(note), u"Quarterly plan"_s);

    controller->context().deleteObject(note);
    EXPECT_EQ(errorOf([&] {
                  controller->applyGeneratedFields(note, {{u"summary"_s, u"S"_s}});
              }),
              u"This note is unavailable."_s);
    SharedPersistenceController other(std::nullopt, true);
    auto foreign = other.createNote({}, {}, QUuid::createUuid(), u"local"_s);
    EXPECT_THROW(controller->applyGeneratedFields(foreign, {}), LocalError);
}

TEST_F(NoteOperationsTest, GeneratedTagsReplaceTheSetInTheSpellingMostNotesUse)
{
    auto first = makeNote();
    controller->applyGeneratedFields(first, {}, QStringList{u"Machine Learning"_s, u"Budget"_s});
    EXPECT_EQ(first->sortedTagNames(), (QStringList{u"Budget"_s, u"Machine-Learning"_s}));

    auto second = makeNote();
    controller->applyGeneratedFields(second, {}, QStringList{u"machine learning"_s, u"HIRING"_s});
    // The library's spelling wins; the set is replaced, not merged.
    EXPECT_EQ(second->sortedTagNames(), (QStringList{u"HIRING"_s, u"Machine-Learning"_s}));
    controller->applyGeneratedFields(second, {}, QStringList{u"Budget"_s});
    EXPECT_EQ(second->sortedTagNames(), QStringList{u"Budget"_s});
    EXPECT_EQ(rows("tag"), 3);
    EXPECT_EQ(rows("note_tags"), 3);
    // No tags leave the set alone.
    controller->applyGeneratedFields(second, {{u"summary"_s, u"x"_s}});
    EXPECT_EQ(second->sortedTagNames(), QStringList{u"Budget"_s});

    // Two spellings of one tag in the library, the older one on fewer notes:
    // the one more notes use is chosen.
    makeNote()->addTag(u"Résumé"_s);
    for (int i = 0; i < 3; ++i)
        makeNote()->addTag(u"Resume"_s);
    controller->save();
    auto third = makeNote();
    controller->applyGeneratedFields(third, {}, QStringList{u"RESUME"_s});
    EXPECT_EQ(third->sortedTagNames(), QStringList{u"Resume"_s});

    // The candidates count the notes of each named tag, from rows not yet in memory.
    auto unnamed = controller->context().insert<Tag>();
    unnamed->setValue(u"canonicalName"_s, u"x"_s);
    controller->save();
    auto candidates = root.open()->fetchTagCandidates();
    std::sort(candidates.begin(), candidates.end(),
              [](const auto &a, const auto &b) { return a.name < b.name; });
    EXPECT_EQ(candidates, (QList<LocalTagCandidate>{{u"Budget"_s, 2},
                                                    {u"HIRING"_s, 0},
                                                    {u"Machine-Learning"_s, 1},
                                                    {u"Resume"_s, 4},
                                                    {u"Résumé"_s, 1}}));
}

TEST_F(NoteOperationsTest, FailedSaveRestoresFieldsAndLeavesNoOrphanTag)
{
    auto note = makeNote(u"Original"_s);
    note->addTag(u"Existing"_s);
    controller->save();
    const qint64 tagsBefore = rows("tag");

    failWrites(*controller, u"note"_s, u"UPDATE"_s);
    EXPECT_THROW(controller->applyGeneratedFields(note,
                                                  {{u"title"_s, u"Generated"_s}, {u"summary"_s, u"## New"_s}},
                                                  QStringList{u"Brand New Topic"_s}),
                 SystemError);
    EXPECT_EQ(note->title(), u"Original"_s);
    EXPECT_FALSE(note->summary().has_value());
    EXPECT_EQ(note->sortedTagNames(), QStringList{u"Existing"_s});
    for (const auto &t : controller->context().fetch<Tag>(FetchRequest{}))
        EXPECT_NE(t->name(), u"Brand-New-Topic"_s);
    EXPECT_EQ(rows("tag"), tagsBefore);
    EXPECT_EQ(storedTitle(note), u"Original"_s);

    allowWrites(*controller, u"note"_s, u"UPDATE"_s);
    controller->save();
    EXPECT_EQ(storedTitle(note), u"Original"_s);
}

TEST_F(NoteOperationsTest, RecordingLeaseIsSingleAndReleasedOnlyByItsToken)
{
    auto a = makeNote();
    const QUuid lease = controller->beginRecording(a);
    EXPECT_EQ(controller->activeRecording()->noteId, a->objectId());
    EXPECT_EQ(errorOf([&] { controller->beginRecording(makeNote()); }),
              u"Finish the current transcription first."_s);
    controller->endRecording(QUuid::createUuid()); // stale
    EXPECT_TRUE(controller->activeRecording().has_value());
    controller->endRecording(lease);
    EXPECT_FALSE(controller->activeRecording().has_value());
    controller->endRecording(lease); // repeated release is harmless

    // An unsaved note gets a permanent identity before the lease names it.
    auto fresh = controller->context().insert<Note>();
    ASSERT_TRUE(fresh->objectId().isTemporary());
    controller->beginRecording(fresh);
    EXPECT_FALSE(controller->activeRecording()->noteId.isTemporary());
}

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
