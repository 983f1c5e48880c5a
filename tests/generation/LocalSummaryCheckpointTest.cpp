#include "generation/LocalSummaryCheckpoint.h"

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;

TEST(LocalSummaryCheckpoint, FreshCheckpointStartsAtPassZero)
{
    const LocalSummaryCheckpoint fresh("We met.", LocalSummaryTemplate::standUp);
    EXPECT_EQ(fresh.input, "We met.");
    EXPECT_EQ(fresh.source, "We met.");
    EXPECT_EQ(fresh.templateKey, "meetings/stand-up");
    EXPECT_EQ(fresh.pass, 0);
    EXPECT_TRUE(fresh.facts.isEmpty());
    EXPECT_FALSE(fresh.sections.has_value());
    EXPECT_FALSE(fresh.result.has_value());
}

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

    for (const char *json : {
             R"({"input":"i","templateKey":"Study","source":"s","pass":3})",
             R"({"input":"i","templateKey":"Study","source":"s","facts":[]})",
             R"({"input":"i","templateKey":"Study","source":"s","pass":"3","facts":[]})",
             R"({"input":"i","templateKey":"Study","source":"s","pass":1.5,"facts":[]})",
             R"({"input":"i","templateKey":"Study","source":"s","pass":1,"facts":[1]})",
             R"({"input":"i","templateKey":"Study","source":"s","pass":1,"facts":[],"sections":"x"})",
             R"({"input":"i","templateKey":"Study","source":"s","pass":1,"facts":[],"result":7})",
             R"({"input":1,"templateKey":"Study","source":"s","pass":1,"facts":[]})",
             R"(["not an object"])",
             "{broken",
         })
        EXPECT_FALSE(LocalSummaryCheckpoint::fromJson(json).has_value()) << json;
}
