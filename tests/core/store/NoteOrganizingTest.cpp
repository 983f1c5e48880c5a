#include "core/CoreTestSupport.h"

#include "core/NoteOrganizing.h"

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

class NoteOrganizingTest : public ::testing::Test {
protected:
    SharedPersistenceController store{std::nullopt, true};
    ManagedObjectContext &context = store.context();
    NotePtr note = store.createNote(u"n"_s, QString(), QUuid::createUuid(), u"local"_s);
};

TEST_F(NoteOrganizingTest, FoldersAreFoundAndMadeByTrimmedNameIgnoringCaseAndSortedByOrderThenName)
{
    const FolderPtr plans = createFolder(u"  Plans \n"_s, context);
    ASSERT_TRUE(plans);
    EXPECT_EQ(plans->name(), u"Plans"_s);
    EXPECT_TRUE(plans->id());
    EXPECT_EQ(plans->sortOrder(), 0);
    for (const auto &[typed, found] :
         {std::pair{"plans", true}, {"PLANS ", true}, {"Plan", false}, {"   ", false}})
        EXPECT_EQ(findFolder(QString::fromLatin1(typed), context) == plans, found) << typed;
    EXPECT_EQ(createFolder(u"plans"_s, context), plans) << "a second create adopts the first";
    EXPECT_FALSE(createFolder(u" \t "_s, context));
    const FolderPtr longName = createFolder(QString(500, QLatin1Char('n')), context);
    ASSERT_TRUE(createFolder(u"ملاحظات"_s, context) && longName);
    EXPECT_EQ(longName->name()->size(), 500);
    EXPECT_EQ(context.fetch<Folder>(FetchRequest{}).size(), 3);

    const FolderPtr alpha = createFolder(u"Alpha"_s, context);
    const FolderPtr first = createFolder(u"zulu"_s, context);
    first->setValue(u"sortOrder"_s, -1);
    note->setFolder(plans);
    EXPECT_EQ(folderNoteCount(*plans), 1);
    EXPECT_EQ(folderNoteCount(*alpha), 0);
    const QList<FolderPtr> sorted = sortedFolders(context);
    ASSERT_EQ(sorted.size(), 5);
    EXPECT_EQ(sorted.mid(0, 3), (QList<FolderPtr>{first, alpha, longName}));
    // Renamed to another's name: no check on rename, two folders share it.
    alpha->setValue(u"name"_s, u"Plans"_s);
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
    EXPECT_EQ(note->sortedTagNames(), (QStringList{u"Planning"_s, u"q3plan"_s}));
    for (int i = 0; note->tags().size() < 10; ++i)
        ASSERT_TRUE(addManualTag(*note, u"tag%1"_s.arg(i)));
    EXPECT_FALSE(addManualTag(*note, u"eleventh"_s)) << "the limit is silent";
    EXPECT_EQ(note->tags().size(), 10);
}

} // namespace
