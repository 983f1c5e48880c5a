#include "core/CoreTestSupport.h"

#include "core/Note.h"

using namespace kestil;

namespace {

class NoteEntityTest : public ::testing::Test {
protected:
    SharedPersistenceController controller{std::nullopt, true};
    NotePtr note = controller.context().insert<Note>();
};

TEST_F(NoteEntityTest, TitlesTheSystemMadeAreReplacedAndBlankOnesShowAsUntitled)
{
    note->setValue(QStringLiteral("timestamp"), QDateTime(QDate(2025, 1, 2), QTime(9, 15), Qt::UTC));
    const QString untitled = QStringLiteral("Untitled Note");
    const struct {
        QVariant title;
        QString shown;
        bool automatic;
        bool dateLike;
    } cases[] = {
        {QVariant(), untitled, true, false},
        {QStringLiteral("  \n "), untitled, true, false},
        {QStringLiteral("  Weekly sync \n"), QStringLiteral("Weekly sync"), false, false},
        {QStringLiteral("Untitled"), QStringLiteral("Untitled"), true, false},
        {QStringLiteral("untitled"), QStringLiteral("untitled"), false, false},
        {QStringLiteral(" Untitled Note "), untitled, true, false},
        // The expression alone decides, whatever the note's own date.
        {QStringLiteral("Mar 14, 3:07 PM"), QStringLiteral("Mar 14, 3:07 PM"), true, true},
        {QStringLiteral("Mar 14, 3:07 pm"), QStringLiteral("Mar 14, 3:07 pm"), false, false},
        {abbreviatedDateTime(*note->timestamp()), abbreviatedDateTime(*note->timestamp()), true, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.title.toString().toStdString());
        note->setValue(QStringLiteral("title"), c.title);
        EXPECT_EQ(note->displayTitle(), c.shown);
        EXPECT_EQ(note->needsGeneratedTitle(false), c.automatic);
        EXPECT_TRUE(note->needsGeneratedTitle(true));
        EXPECT_EQ(note->isDateLikeTitle(), c.dateLike);
    }
    // Only a title the user did not choose goes into the generated fields.
    const auto fieldsFor = [&](const QString &title) {
        return generatedNoteFields(QStringLiteral("S"), QStringLiteral("general"), title, *note);
    };
    const QVariantMap fields = fieldsFor(QStringLiteral(" New "));
    EXPECT_EQ(fields.value(QStringLiteral("title")).toString(), QStringLiteral(" New "));
    EXPECT_EQ(fields.value(QStringLiteral("summaryType")).toString(), QStringLiteral("general"));
    EXPECT_FALSE(fieldsFor(QStringLiteral("   ")).contains(QStringLiteral("title")));
    note->setValue(QStringLiteral("title"), QStringLiteral("Chosen by the user"));
    EXPECT_FALSE(fieldsFor(QStringLiteral("New")).contains(QStringLiteral("title")));
    EXPECT_TRUE(fieldsFor(QStringLiteral("New")).contains(QStringLiteral("summary")));
}

TEST_F(NoteEntityTest, SummaryContentIgnoresBlanksAndThePlaceholder)
{
    EXPECT_FALSE(note->hasSummaryContent());
    for (const char *blank : {"   ", "\nGenerating summary...\n"}) {
        note->setValue(QStringLiteral("summary"), QString::fromLatin1(blank));
        EXPECT_FALSE(note->hasSummaryContent()) << blank;
    }
    note->setValue(QStringLiteral("summary"), QStringLiteral("## Overview"));
    EXPECT_TRUE(note->hasSummaryContent());
}

TEST_F(NoteEntityTest, TagsAreOneRowPerCanonicalNameShownInTheirDisplayForm)
{
    for (const char *typed : {"Project Alpha", "project-alpha", "PROJECT ALPHA!"})
        EXPECT_EQ(canonicalTagName(QString::fromLatin1(typed)), QStringLiteral("projectalpha")) << typed;
    EXPECT_EQ(canonicalTagName(QStringLiteral("Café Crème")), QStringLiteral("cafécrème"));
    EXPECT_EQ(displayTagName(QStringLiteral("Q3 roadmap (draft)")), QStringLiteral("Q3-roadmap-draft"));

    note->addTag(QStringLiteral("plan-b"));
    note->addTag(QStringLiteral("Plan B"));
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
    EXPECT_EQ(controller.context().fetch<Tag>(FetchRequest{}).size(), 2)
        << "a removed tag stays in the library";
    note->removeTag(QStringLiteral("alpha"));
    EXPECT_FALSE(note->tagLine().has_value());
}

} // namespace
