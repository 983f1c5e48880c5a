#include "core/CoreTestSupport.h"

#include "core/NoteOrganizing.h"

using namespace kestil;
using namespace kestil::test;

namespace {

class NoteOrganizingTest : public ::testing::Test {
protected:
    SharedPersistenceController store{std::nullopt, true};
    ManagedObjectContext &context = store.context();

    qsizetype folderRows() { return context.fetch<Folder>(FetchRequest{}).size(); }
};

TEST_F(NoteOrganizingTest, FoldersAreFoundAndMadeByTrimmedNameIgnoringCase)
{
    const FolderPtr plans = createFolder(QStringLiteral("  Plans \n"), context);
    ASSERT_TRUE(plans);
    EXPECT_EQ(plans->name(), QStringLiteral("Plans"));
    EXPECT_TRUE(plans->id());
    EXPECT_EQ(plans->sortOrder(), 0);

    struct Case {
        QString typed;
        bool found;
    };
    for (const Case &c : QList<Case>{{QStringLiteral("plans"), true},
                                     {QStringLiteral("PLANS "), true},
                                     {QStringLiteral("Plan"), false},
                                     {QStringLiteral("   "), false}})
        EXPECT_EQ(findFolder(c.typed, context) == plans, c.found) << c.typed.toStdString();

    EXPECT_EQ(createFolder(QStringLiteral("plans"), context), plans) << "a second create adopts the first";
    EXPECT_FALSE(createFolder(QStringLiteral(" \t "), context));
    const FolderPtr rtl = createFolder(QStringLiteral("ملاحظات"), context);
    const FolderPtr longName = createFolder(QString(500, QLatin1Char('n')), context);
    ASSERT_TRUE(rtl && longName);
    EXPECT_EQ(longName->name()->size(), 500);
    EXPECT_EQ(folderRows(), 3);
}

TEST_F(NoteOrganizingTest, CountsAndOrderOfFolders)
{
    const FolderPtr b = createFolder(QStringLiteral("beta"), context);
    const FolderPtr a = createFolder(QStringLiteral("Alpha"), context);
    const FolderPtr first = createFolder(QStringLiteral("zulu"), context);
    first->setValue(QStringLiteral("sortOrder"), -1);
    auto note =
        store.createNote(QStringLiteral("n"), QString(), QUuid::createUuid(), QStringLiteral("local"));
    note->setFolder(b);
    EXPECT_EQ(folderNoteCount(*b), 1);
    EXPECT_EQ(folderNoteCount(*a), 0);
    EXPECT_EQ(sortedFolders(context), (QList<FolderPtr>{first, a, b}));
    // Renamed to another's name: no check on rename, two folders share it.
    a->setValue(QStringLiteral("name"), QStringLiteral("beta"));
    EXPECT_EQ(sortedFolders(context).size(), 3);
}

TEST_F(NoteOrganizingTest, TagsTypedByHand)
{
    auto note =
        store.createNote(QStringLiteral("n"), QString(), QUuid::createUuid(), QStringLiteral("local"));
    struct Case {
        QString typed;
        bool added;
    };
    const QList<Case> cases{
        {QStringLiteral("q3 plan!"), true},      {QStringLiteral("Q3-Plan"), false}, // same canonical name
        {QStringLiteral("#!?"), false},          {QStringLiteral("---"), false},
        {QStringLiteral("  Planning \n"), true}, {QStringLiteral("planning"), false},
    };
    for (const Case &c : cases)
        EXPECT_EQ(addManualTag(*note, c.typed), c.added) << c.typed.toStdString();
    EXPECT_EQ(note->sortedTagNames(), (QStringList{QStringLiteral("Planning"), QStringLiteral("q3plan")}));

    for (int i = 0; note->tags().size() < 10; ++i)
        ASSERT_TRUE(addManualTag(*note, QStringLiteral("tag%1").arg(i)));
    EXPECT_FALSE(addManualTag(*note, QStringLiteral("eleventh"))) << "the limit is silent";
    EXPECT_EQ(note->tags().size(), 10);
}

} // namespace
