#include "generation/GenerationSchema.h"
#include "generation/GeneratedNoteTags.h"
#include "generation/GeneratedNoteTitle.h"

#include "support/QtPrinters.h"

#include <QJsonArray>

#include <gtest/gtest.h>

using namespace kestil;

TEST(GenerationSchema, ThePromptShowsAFormToFillInWithEachFieldsDescription)
{
    GenerationSchema two;
    GenerationSchema::Property name{"name", QString()};
    GenerationSchema::Property aliases{"aliases", "Other names.", GenerationSchema::Kind::stringArray};
    aliases.maximumCount = 3;
    two.properties = {name, aliases};
    EXPECT_EQ(two.promptText(), "Respond with JSON in this form:\n{\"name\": string,\n "
                                "\"aliases\": [string, ...] // at most 3 items. Other names.}");
}

TEST(GenerationSchema, TheGrammarBoundsEveryStringAndTheTagCount)
{
    const QString title = GeneratedNoteTitle::schema().grammar();
    EXPECT_TRUE(title.contains("(char){1,120}")) << title.toStdString();
    EXPECT_TRUE(title.startsWith("root ::= \"{\" ws \"\\\"title\\\"\" ws \":\" ws value0"))
        << title.toStdString();
    const QString tags = GeneratedNoteTags::schema().grammar();
    // One character over the longest tag: a longer proposal arrives too long and is dropped.
    EXPECT_TRUE(tags.contains("(char){1,49}")) << tags.toStdString();
    // One tag, then at most four more.
    EXPECT_TRUE(tags.contains("(ws \",\" ws text0){0,4}")) << tags.toStdString();
}

TEST(GenerationSchema, ValidationWantsEveryFieldWithItsTypeAndCount)
{
    const GenerationSchema tags = GeneratedNoteTags::schema();
    const QJsonObject good{{"tags", QJsonArray{"Budget"}}};
    EXPECT_EQ(tags.validated(good), good);
    EXPECT_TRUE(tags.validated(QJsonObject{{"tags", QJsonArray{}}}).isEmpty());
    EXPECT_TRUE(tags.validated(QJsonObject{{"tags", QJsonArray{1}}}).isEmpty());
    EXPECT_TRUE(tags.validated(QJsonObject{{"tags", "Budget"}}).isEmpty());
    EXPECT_TRUE(tags.validated(QJsonObject{{"tags", QJsonArray{"a", "b", "c", "d", "e", "f"}}}).isEmpty());
    EXPECT_TRUE(GeneratedNoteTitle::schema().validated(QJsonObject{}).isEmpty());
}
