#include "core/CoreTestSupport.h"

#include "core/Note.h"
#include "core/NoteOrganizing.h"

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

class NoteEntityTest : public ::testing::Test {
protected:
    SharedPersistenceController controller{std::nullopt, true};
    ManagedObjectContext &context = controller.context();
    NotePtr note = context.insert<Note>();
};

TEST_F(NoteEntityTest, TitlesTheSystemMadeAreReplacedAndBlankOnesShowAsUntitled)
{
    note->setValue(u"timestamp"_s, QDateTime(QDate(2025, 1, 2), QTime(9, 15), Qt::UTC));
    const QString untitled = u"Untitled Note"_s;
    const struct {
        QVariant title;
        QString shown;
        bool automatic;
        bool dateLike;
    } cases[] = {
        {QVariant(), untitled, true, false},
        {u"  \n "_s, untitled, true, false},
        {u"  Weekly sync \n"_s, u"Weekly sync"_s, false, false},
        {u"Untitled"_s, u"Untitled"_s, true, false},
        {u"untitled"_s, u"untitled"_s, false, false},
        {u" Untitled Note "_s, untitled, true, false},
        // The expression alone decides, whatever the note's own date.
        {u"Mar 14, 3:07 PM"_s, u"Mar 14, 3:07 PM"_s, true, true},
        {u"Mar 14, 3:07 pm"_s, u"Mar 14, 3:07 pm"_s, false, false},
        {abbreviatedDateTime(*note->timestamp()), abbreviatedDateTime(*note->timestamp()), true, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.title.toString().toStdString());
        note->setValue(u"title"_s, c.title);
        EXPECT_EQ(note->displayTitle(), c.shown);
        EXPECT_EQ(note->needsGeneratedTitle(false), c.automatic);
        EXPECT_TRUE(note->needsGeneratedTitle(true));
        EXPECT_EQ(note->isDateLikeTitle(), c.dateLike);
    }
    // Only a title the user did not choose goes into the generated fields.
    const auto fieldsFor = [&](const QString &title) {
        return generatedNoteFields(u"S"_s, u"general"_s, title, *note);
    };
    const QVariantMap fields = fieldsFor(u" New "_s);
    EXPECT_EQ(fields.value(u"title"_s).toString(), u" New "_s);
    EXPECT_EQ(fields.value(u"summaryType"_s).toString(), u"general"_s);
    EXPECT_FALSE(fieldsFor(u"   "_s).contains(u"title"_s));
    note->setValue(u"title"_s, u"Chosen by the user"_s);
    EXPECT_FALSE(fieldsFor(u"New"_s).contains(u"title"_s));
    EXPECT_TRUE(fieldsFor(u"New"_s).contains(u"summary"_s));
}

TEST_F(NoteEntityTest, SummaryContentIgnoresBlanksAndThePlaceholder)
{
    EXPECT_FALSE(note->hasSummaryContent());
    for (const char *blank : {"   ", "\nGenerating summary...\n"}) {
        note->setValue(u"summary"_s, QString::fromLatin1(blank));
        EXPECT_FALSE(note->hasSummaryContent()) << blank;
    }
    note->setValue(u"summary"_s, u"## Overview"_s);
    EXPECT_TRUE(note->hasSummaryContent());
}

TEST_F(NoteEntityTest, TagsAreOneRowPerCanonicalNameShownInTheirDisplayForm)
{
    for (const char *typed : {"Project Alpha", "project-alpha", "PROJECT ALPHA!"})
        EXPECT_EQ(canonicalTagName(QString::fromLatin1(typed)), u"projectalpha"_s) << typed;
    EXPECT_EQ(canonicalTagName(u"Café Crème"_s), u"cafécrème"_s);
    EXPECT_EQ(displayTagName(u"Q3 roadmap (draft)"_s), u"Q3-roadmap-draft"_s);

    note->addTag(u"plan-b"_s);
    note->addTag(u"Plan B"_s);
    EXPECT_EQ(note->sortedTagNames(), QStringList{u"plan-b"_s});
    // A second note adopts the existing library row rather than a new one.
    auto other = context.insert<Note>();
    other->addTag(u"PLAN b"_s);
    ASSERT_EQ(other->tags().size(), 1);
    EXPECT_EQ(other->tags().first(), note->tags().first());

    note->addTag(u"Alpha"_s);
    EXPECT_EQ(note->tagLine(), u"Alpha, plan-b"_s);
    note->removeTag(u"PLAN-B"_s);
    note->removeTag(u"alpha"_s);
    EXPECT_FALSE(note->tagLine().has_value());
    EXPECT_EQ(context.fetch<Tag>(FetchRequest{}).size(), 2) << "a removed tag stays in the library";
}

TEST_F(NoteEntityTest, TagsTypedByHandAreAddedOncePerCanonicalNameUpToTen)
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
