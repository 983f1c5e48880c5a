// What a summary run keeps: its checkpoint, its template's stored key, and
// the forms that titles and tags are asked for in.
#include "generation/LocalSummaryCheckpoint.h"
#include "generation/GeneratedNoteTags.h"
#include "generation/GeneratedNoteTitle.h"
#include "generation/GenerationSchema.h"

#include "support/QtPrinters.h"

#include <QJsonArray>

#include <gtest/gtest.h>

using namespace kestil;
namespace T = LocalSummaryTemplates;

TEST(LocalSummaryCheckpoint, JsonKeepsKeyOrderAndLeavesOutAbsentFields)
{
    LocalSummaryCheckpoint checkpoint("Ünïcode \"quoted\"\n", LocalSummaryTemplate::concise);
    EXPECT_EQ(checkpoint.toJson(), R"({"input":"Ünïcode \"quoted\"\n","templateKey":"Concise",)"
                                   R"("source":"Ünïcode \"quoted\"\n","pass":0,"facts":[]})");
    checkpoint.pass = 2;
    checkpoint.facts = {"a"};
    checkpoint.sections = QStringList{"x", "y"};
    checkpoint.result = "## Summary";
    EXPECT_EQ(checkpoint.toJson(), R"({"input":"Ünïcode \"quoted\"\n","templateKey":"Concise",)"
                                   R"("source":"Ünïcode \"quoted\"\n","pass":2,"facts":["a"],)"
                                   R"("sections":["x","y"],"result":"## Summary"})");
    EXPECT_EQ(LocalSummaryCheckpoint::fromJson(checkpoint.toJson()), checkpoint);
}

TEST(LocalSummaryCheckpoint, DecodingRequiresTheFirstFiveKeysWithTheirTypes)
{
    const auto decoded = LocalSummaryCheckpoint::fromJson(
        R"({"pass":3,"facts":["f"],"source":"s","templateKey":"Study","input":"i","extra":true})");
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(decoded->pass, 3);
    EXPECT_FALSE(decoded->sections.has_value());
    EXPECT_FALSE(decoded->result.has_value());

    const QString head = R"({"input":"i","templateKey":"Study","source":"s",)";
    for (const char *rest : {R"("pass":3})", R"("facts":[]})", R"("pass":"3","facts":[]})",
                             R"("pass":1.5,"facts":[]})", R"("pass":1,"facts":[1]})",
                             R"("pass":1,"facts":[],"sections":"x"})", R"("pass":1,"facts":[],"result":7})"})
        EXPECT_FALSE(LocalSummaryCheckpoint::fromJson((head + rest).toUtf8()).has_value()) << rest;
    for (const char *json : {R"({"input":1,"templateKey":"Study","source":"s","pass":1,"facts":[]})",
                             R"(["not an object"])", "{broken"})
        EXPECT_FALSE(LocalSummaryCheckpoint::fromJson(json).has_value()) << json;
}

TEST(LocalSummaryTemplate, StoredStringsResolveByKeyThenTitleElseAuto)
{
    // Every template comes back from its key and from its stored title.
    for (LocalSummaryTemplate value : T::allCases) {
        EXPECT_EQ(T::fromStored(T::id(value)), value) << T::id(value).toStdString();
        EXPECT_EQ(T::fromStored(T::rawValue(value)), value) << T::rawValue(value).toStdString();
        EXPECT_EQ(T::category(value).has_value(), T::id(value).startsWith("meetings/"));
    }
    for (const std::optional<QString> &stored :
         {std::optional<QString>(), std::optional(QString()), std::optional<QString>("General Meeting"),
          std::optional<QString>("study"), std::optional<QString>("meetings/retro-v2")})
        EXPECT_EQ(T::fromStored(stored), LocalSummaryTemplate::autoSummary)
            << stored.value_or("-").toStdString();
}

TEST(GenerationSchema, ThePromptShowsAFormAndValidationWantsEveryFieldWithItsTypeAndCount)
{
    GenerationSchema two;
    GenerationSchema::Property aliases{"aliases", "Other names.", GenerationSchema::Kind::stringArray};
    aliases.maximumCount = 3;
    two.properties = {GenerationSchema::Property{"name", QString()}, aliases};
    EXPECT_EQ(two.promptText(), "Respond with JSON in this form:\n{\"name\": string,\n "
                                "\"aliases\": [string, ...] // at most 3 items. Other names.}");

    const GenerationSchema tags = GeneratedNoteTags::schema();
    const QJsonObject good{{"tags", QJsonArray{"Budget"}}};
    EXPECT_EQ(tags.validated(good), good);
    for (const QJsonValue &bad : {QJsonValue(QJsonArray{}), QJsonValue(QJsonArray{1}), QJsonValue("Budget"),
                                  QJsonValue(QJsonArray{"a", "b", "c", "d", "e", "f"})})
        EXPECT_TRUE(tags.validated(QJsonObject{{"tags", bad}}).isEmpty()) << bad.toString().toStdString();
    EXPECT_TRUE(GeneratedNoteTitle::schema().validated(QJsonObject{}).isEmpty());
}
