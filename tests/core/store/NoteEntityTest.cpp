#include "core/CoreTestSupport.h"

#include "core/Note.h"

using namespace kestil;

namespace {

class NoteEntityTest : public ::testing::Test {
protected:
    SharedPersistenceController controller{std::nullopt, true};
    NotePtr note = controller.context().insert<Note>();
    void setTitle(const QString &t) { note->setValue(QStringLiteral("title"), t); }
};

TEST_F(NoteEntityTest, DisplayTitleTrimsAndFallsBackAndSummaryContentIgnoresBlanksAndThePlaceholder)
{
    EXPECT_EQ(note->displayTitle(), QStringLiteral("Untitled Note"));
    setTitle(QStringLiteral("  \n "));
    EXPECT_EQ(note->displayTitle(), QStringLiteral("Untitled Note"));
    setTitle(QStringLiteral("  Weekly sync \n"));
    EXPECT_EQ(note->displayTitle(), QStringLiteral("Weekly sync"));

    EXPECT_FALSE(note->hasSummaryContent());
    note->setValue(QStringLiteral("summary"), QStringLiteral("   "));
    EXPECT_FALSE(note->hasSummaryContent());
    note->setValue(QStringLiteral("summary"), QStringLiteral("\nGenerating summary...\n"));
    EXPECT_FALSE(note->hasSummaryContent());
    note->setValue(QStringLiteral("summary"), QStringLiteral("## Overview"));
    EXPECT_TRUE(note->hasSummaryContent());
}

TEST_F(NoteEntityTest, GeneratedTitleReplacesOnlyAutomaticTitles)
{
    EXPECT_TRUE(note->needsGeneratedTitle(false)); // missing
    setTitle(QStringLiteral("Untitled"));
    EXPECT_TRUE(note->needsGeneratedTitle(false));
    setTitle(QStringLiteral("untitled"));
    EXPECT_FALSE(note->needsGeneratedTitle(false));
    EXPECT_TRUE(note->needsGeneratedTitle(true));
    setTitle(QStringLiteral(" Untitled Note "));
    EXPECT_TRUE(note->needsGeneratedTitle(false));
    setTitle(QStringLiteral("Budget review"));
    EXPECT_FALSE(note->needsGeneratedTitle(false));
}

TEST_F(NoteEntityTest, DateLikeTitles)
{
    note->setValue(QStringLiteral("timestamp"), QDateTime(QDate(2025, 1, 2), QTime(9, 15), Qt::UTC));
    setTitle(QString());
    EXPECT_FALSE(note->isDateLikeTitle());
    // The expression alone decides, whatever the note's own date.
    setTitle(QStringLiteral("Mar 14, 3:07 PM"));
    EXPECT_TRUE(note->isDateLikeTitle());
    EXPECT_TRUE(note->needsGeneratedTitle(false));
    setTitle(QStringLiteral("Mar 14, 3:07 pm"));
    EXPECT_FALSE(note->isDateLikeTitle());
    setTitle(abbreviatedDateTime(*note->timestamp()));
    EXPECT_TRUE(note->isDateLikeTitle());
}

TEST(TagNameTest, CanonicalAndDisplayForms)
{
    for (const char *typed : {"Project Alpha", "project-alpha", "PROJECT ALPHA!"})
        EXPECT_EQ(canonicalTagName(QString::fromLatin1(typed)), QStringLiteral("projectalpha")) << typed;
    EXPECT_EQ(canonicalTagName(QStringLiteral("Café Crème")), QStringLiteral("cafécrème"));
    EXPECT_EQ(displayTagName(QStringLiteral("Plan B!")), QStringLiteral("Plan-B"));
    EXPECT_EQ(displayTagName(QStringLiteral("Q3 roadmap (draft)")), QStringLiteral("Q3-roadmap-draft"));
}

TEST_F(NoteEntityTest, AddTagReusesByCanonicalNameAndRemoveKeepsTheRow)
{
    note->addTag(QStringLiteral("plan-b"));
    ASSERT_EQ(note->tags().size(), 1);
    note->addTag(QStringLiteral("Plan B"));
    ASSERT_EQ(note->tags().size(), 1);
    EXPECT_EQ(note->sortedTagNames(), QStringList{QStringLiteral("plan-b")});

    // A second note adopts the existing library row rather than a new one.
    auto other = controller.context().insert<Note>();
    other->addTag(QStringLiteral("PLAN b"));
    ASSERT_EQ(other->tags().size(), 1);
    EXPECT_EQ(other->tags().first(), note->tags().first());

    note->addTag(QStringLiteral("Alpha"));
    EXPECT_EQ(note->tagLine(), QStringLiteral("Alpha, plan-b"));
    note->removeTag(QStringLiteral("PLAN-B"));
    EXPECT_EQ(note->sortedTagNames(), QStringList{QStringLiteral("Alpha")});
    EXPECT_EQ(controller.context().fetch<Tag>(FetchRequest{}).size(), 2);
    note->removeTag(QStringLiteral("alpha"));
    EXPECT_FALSE(note->tagLine().has_value());
}

TEST_F(NoteEntityTest, GeneratedFieldsCarryTheTitleOnlyWhenNeeded)
{
    const auto fieldsFor = [&](const QString &title) {
        return generatedNoteFields(QStringLiteral("S"), QStringLiteral("general"), title, *note);
    };
    auto fields = fieldsFor(QStringLiteral(" New "));
    EXPECT_EQ(fields.value(QStringLiteral("title")).toString(), QStringLiteral(" New "));
    EXPECT_EQ(fields.value(QStringLiteral("summaryType")).toString(), QStringLiteral("general"));
    EXPECT_FALSE(fieldsFor(QStringLiteral("   ")).contains(QStringLiteral("title")));
    setTitle(QStringLiteral("Chosen by the user"));
    fields = fieldsFor(QStringLiteral("New"));
    EXPECT_FALSE(fields.contains(QStringLiteral("title")));
    EXPECT_TRUE(fields.contains(QStringLiteral("summary")));
}

TEST(PlaceholderTextTest, ExactlyTheFourStatusLines)
{
    EXPECT_EQ(placeholderTexts().size(), 4);
    EXPECT_TRUE(placeholderTexts().contains(QStringLiteral("Transcription in progress...")));
}

} // namespace
