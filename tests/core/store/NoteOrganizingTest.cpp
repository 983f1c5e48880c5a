#include "core/CoreTestSupport.h"

#include "core/NoteOrganizing.h"

using namespace kestil;

namespace {

class NoteOrganizingTest : public ::testing::Test {
protected:
    SharedPersistenceController store{std::nullopt, true};
    ManagedObjectContext &context = store.context();
    NotePtr note =
        store.createNote(QStringLiteral("n"), QString(), QUuid::createUuid(), QStringLiteral("local"));
};

TEST_F(NoteOrganizingTest, FoldersAreFoundAndMadeByTrimmedNameIgnoringCaseAndSortedByOrderThenName)
{
    const FolderPtr plans = createFolder(QStringLiteral("  Plans \n"), context);
    ASSERT_TRUE(plans);
    EXPECT_EQ(plans->name(), QStringLiteral("Plans"));
    EXPECT_TRUE(plans->id());
    EXPECT_EQ(plans->sortOrder(), 0);
    for (const auto &[typed, found] :
         {std::pair{"plans", true}, {"PLANS ", true}, {"Plan", false}, {"   ", false}})
        EXPECT_EQ(findFolder(QString::fromLatin1(typed), context) == plans, found) << typed;
    EXPECT_EQ(createFolder(QStringLiteral("plans"), context), plans) << "a second create adopts the first";
    EXPECT_FALSE(createFolder(QStringLiteral(" \t "), context));
    const FolderPtr longName = createFolder(QString(500, QLatin1Char('n')), context);
    ASSERT_TRUE(createFolder(QStringLiteral("ملاحظات"), context) && longName);
    EXPECT_EQ(longName->name()->size(), 500);
    EXPECT_EQ(context.fetch<Folder>(FetchRequest{}).size(), 3);

    const FolderPtr alpha = createFolder(QStringLiteral("Alpha"), context);
    const FolderPtr first = createFolder(QStringLiteral("zulu"), context);
    first->setValue(QStringLiteral("sortOrder"), -1);
    note->setFolder(plans);
    EXPECT_EQ(folderNoteCount(*plans), 1);
    EXPECT_EQ(folderNoteCount(*alpha), 0);
    const QList<FolderPtr> sorted = sortedFolders(context);
    ASSERT_EQ(sorted.size(), 5);
    EXPECT_EQ(sorted.mid(0, 3), (QList<FolderPtr>{first, alpha, longName}));
    // Renamed to another's name: no check on rename, two folders share it.
    alpha->setValue(QStringLiteral("name"), QStringLiteral("Plans"));
    EXPECT_EQ(sortedFolders(context).size(), 5);
}

TEST_F(NoteOrganizingTest, TagsTypedByHandAreAddedOncePerCanonicalNameUpToTen)
{
    const struct {
        const char *typed;
        bool added;
    } cases[] = {
        {"q3 plan!", true}, {"Q3-Plan", false},      {"#!?", false},
        {"---", false},     {"  Planning \n", true}, {"planning", false},
    };
    for (const auto &c : cases)
        EXPECT_EQ(addManualTag(*note, QString::fromLatin1(c.typed)), c.added) << c.typed;
    EXPECT_EQ(note->sortedTagNames(), (QStringList{QStringLiteral("Planning"), QStringLiteral("q3plan")}));
    for (int i = 0; note->tags().size() < 10; ++i)
        ASSERT_TRUE(addManualTag(*note, QStringLiteral("tag%1").arg(i)));
    EXPECT_FALSE(addManualTag(*note, QStringLiteral("eleventh"))) << "the limit is silent";
    EXPECT_EQ(note->tags().size(), 10);
}

} // namespace
