#include "core/CoreTestSupport.h"

using namespace kestil;
using namespace kestil::test;

namespace {

class NoteOperationsTest : public ::testing::Test {
protected:
    TempRoot root;
    std::unique_ptr<SharedPersistenceController> controller = root.open();
    NotePtr makeNote(const QString &title = QStringLiteral("Untitled Note"))
    {
        return controller->createNote(title, QString(), QUuid::createUuid(), QStringLiteral("local"));
    }
    QString storedTitle(const NotePtr &note)
    {
        const auto fresh = root.open();
        const auto n = fresh->noteWithId(*note->id());
        return n ? n->title().value_or(QStringLiteral("<missing>")) : QStringLiteral("<no row>");
    }
    qint64 rows(const char *table) { return countRows(*controller, QString::fromLatin1(table)); }
};

TEST_F(NoteOperationsTest, CreateNoteWritesItsFieldsInOneSaveOrLeavesNoRowAnywhere)
{
    failWrites(*controller, QStringLiteral("note"), QStringLiteral("INSERT"));
    EXPECT_THROW(makeNote(), SystemError);
    EXPECT_EQ(rows("note"), 0);
    EXPECT_TRUE(controller->context().fetch<Note>(FetchRequest{}).isEmpty());
    EXPECT_FALSE(controller->context().hasChanges());
    allowWrites(*controller, QStringLiteral("note"), QStringLiteral("INSERT"));

    auto note = controller->createNote(QStringLiteral("T"), QStringLiteral("text"), QUuid::createUuid(),
                                       QStringLiteral("local"));
    EXPECT_FALSE(controller->context().hasChanges());
    EXPECT_EQ(rows("note"), 1);
    EXPECT_EQ(note->transcription(), QStringLiteral("text"));
    EXPECT_TRUE(note->timestamp().has_value());
}

TEST_F(NoteOperationsTest, GeneratedFieldsAcceptOnlyNoteAttributesOfAUsableNote)
{
    auto note = makeNote();
    for (const char *key : {"tags", "folder", "titel", "notesList"}) {
        EXPECT_EQ(errorOf([&] {
                      controller->applyGeneratedFields(note,
                                                       {{QStringLiteral("summary"), QStringLiteral("S")},
                                                        {QString::fromLatin1(key), QStringLiteral("x")}});
                  }),
                  QStringLiteral("Generated content contains an unsupported note field."))
            << key;
        EXPECT_FALSE(note->summary().has_value()) << "nothing written before the refusal";
    }
    controller->applyGeneratedFields(note, {{QStringLiteral("summary"), QStringLiteral("## Done")},
                                            {QStringLiteral("summaryType"), QStringLiteral("general")},
                                            {QStringLiteral("title"), QStringLiteral("Quarterly plan")}});
    EXPECT_EQ(storedTitle(note), QStringLiteral("Quarterly plan"));

    controller->context().deleteObject(note);
    EXPECT_EQ(errorOf([&] {
                  controller->applyGeneratedFields(note, {{QStringLiteral("summary"), QStringLiteral("S")}});
              }),
              QStringLiteral("This note is unavailable."));
    SharedPersistenceController other(std::nullopt, true);
    auto foreign = other.createNote({}, {}, QUuid::createUuid(), QStringLiteral("local"));
    EXPECT_THROW(controller->applyGeneratedFields(foreign, {}), LocalError);
}

TEST_F(NoteOperationsTest, GeneratedTagsReplaceTheSetInTheSpellingMostNotesUse)
{
    auto first = makeNote();
    controller->applyGeneratedFields(
        first, {}, QStringList{QStringLiteral("Machine Learning"), QStringLiteral("Budget")});
    EXPECT_EQ(first->sortedTagNames(),
              (QStringList{QStringLiteral("Budget"), QStringLiteral("Machine-Learning")}));

    auto second = makeNote();
    controller->applyGeneratedFields(
        second, {}, QStringList{QStringLiteral("machine learning"), QStringLiteral("HIRING")});
    // The library's spelling wins; the set is replaced, not merged.
    EXPECT_EQ(second->sortedTagNames(),
              (QStringList{QStringLiteral("HIRING"), QStringLiteral("Machine-Learning")}));
    controller->applyGeneratedFields(second, {}, QStringList{QStringLiteral("Budget")});
    EXPECT_EQ(second->sortedTagNames(), QStringList{QStringLiteral("Budget")});
    EXPECT_EQ(rows("tag"), 3);
    EXPECT_EQ(rows("note_tags"), 3);
    // No tags leave the set alone.
    controller->applyGeneratedFields(second, {{QStringLiteral("summary"), QStringLiteral("x")}});
    EXPECT_EQ(second->sortedTagNames(), QStringList{QStringLiteral("Budget")});

    // Two spellings of one tag in the library, the older one on fewer notes:
    // the one more notes use is chosen.
    makeNote()->addTag(QStringLiteral("Résumé"));
    for (int i = 0; i < 3; ++i)
        makeNote()->addTag(QStringLiteral("Resume"));
    controller->save();
    auto third = makeNote();
    controller->applyGeneratedFields(third, {}, QStringList{QStringLiteral("RESUME")});
    EXPECT_EQ(third->sortedTagNames(), QStringList{QStringLiteral("Resume")});

    // The candidates count the notes of each named tag, from rows not yet in memory.
    auto unnamed = controller->context().insert<Tag>();
    unnamed->setValue(QStringLiteral("canonicalName"), QStringLiteral("x"));
    controller->save();
    auto candidates = root.open()->fetchTagCandidates();
    std::sort(candidates.begin(), candidates.end(),
              [](const auto &a, const auto &b) { return a.name < b.name; });
    EXPECT_EQ(candidates, (QList<LocalTagCandidate>{{QStringLiteral("Budget"), 2},
                                                    {QStringLiteral("HIRING"), 0},
                                                    {QStringLiteral("Machine-Learning"), 1},
                                                    {QStringLiteral("Resume"), 4},
                                                    {QStringLiteral("Résumé"), 1}}));
}

TEST_F(NoteOperationsTest, FailedSaveRestoresFieldsAndLeavesNoOrphanTag)
{
    auto note = makeNote(QStringLiteral("Original"));
    note->addTag(QStringLiteral("Existing"));
    controller->save();
    const qint64 tagsBefore = rows("tag");

    failWrites(*controller, QStringLiteral("note"), QStringLiteral("UPDATE"));
    EXPECT_THROW(controller->applyGeneratedFields(note,
                                                  {{QStringLiteral("title"), QStringLiteral("Generated")},
                                                   {QStringLiteral("summary"), QStringLiteral("## New")}},
                                                  QStringList{QStringLiteral("Brand New Topic")}),
                 SystemError);
    EXPECT_EQ(note->title(), QStringLiteral("Original"));
    EXPECT_FALSE(note->summary().has_value());
    EXPECT_EQ(note->sortedTagNames(), QStringList{QStringLiteral("Existing")});
    for (const auto &t : controller->context().fetch<Tag>(FetchRequest{}))
        EXPECT_NE(t->name(), QStringLiteral("Brand-New-Topic"));
    EXPECT_EQ(rows("tag"), tagsBefore);
    EXPECT_EQ(storedTitle(note), QStringLiteral("Original"));

    allowWrites(*controller, QStringLiteral("note"), QStringLiteral("UPDATE"));
    controller->save();
    EXPECT_EQ(storedTitle(note), QStringLiteral("Original"));
}

TEST_F(NoteOperationsTest, RecordingLeaseIsSingleAndReleasedOnlyByItsToken)
{
    auto a = makeNote();
    const QUuid lease = controller->beginRecording(a);
    EXPECT_EQ(controller->activeRecording()->noteId, a->objectId());
    EXPECT_EQ(errorOf([&] { controller->beginRecording(makeNote()); }),
              QStringLiteral("Finish the current transcription first."));
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

} // namespace
