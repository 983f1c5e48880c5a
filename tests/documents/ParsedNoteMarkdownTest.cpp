#include "documents/ParsedNoteMarkdown.h"

#include "DocumentsTestSupport.h"

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

TEST(ParsedNoteMarkdown, RemovesAnOuterCodeFenceOnlyAroundTheWholeText)
{
    const struct {
        const char *text, *stripped;
    } rows[] = {{"```md\n## Summary\n- one\n```", "## Summary\n- one"},
                {"  ```Markdown  \n## A\n", "## A"},
                {"```\n## A\n  ```  \n\n", "## A"},
                // A blank inside the marker is no fence: the text comes back untrimmed.
                {"``` markdown\n## A\n```\n", "``` markdown\n## A\n```\n"},
                {"\n## Summary\nText  ", "\n## Summary\nText  "},
                {"A\n```\nB", "A\n```\nB"},
                {"```markdown", ""},
                {"```md\n## Sum", "## Sum"},
                {"```\n\n## A\n\n```", "\n## A\n"},
                {"", ""}};
    for (const auto &row : rows)
        EXPECT_EQ(stripOuterCodeFence(q(row.text)), q(row.stripped)) << row.text;
}

TEST(ParsedNoteMarkdown, ParsesEachKindOfLine)
{
    const struct {
        const char *raw;
        bool heading;
        std::optional<const char *> marker;
        int indentation;
        const char *described;
    } rows[] = {{"## Heading", true, {}, 0, "Heading"},
                {"#tag", true, {}, 0, "tag"},
                {"# # #  mixed", true, {}, 0, "mixed"},
                {"   # no", false, {}, 0, "   # no"},
                {"## 1. Decisions", true, "1.", 0, "Decisions"},
                {"  * item", false, "•", 2, "item"},
                {"\t1) item", false, "1.", 4, "item"},
                {"\t 12) x", false, "12.", 5, "x"},
                {"1234567890. item", false, {}, 0, "1234567890. item"},
                {"123456789. item", false, "123456789.", 0, "item"},
                {"-item", false, {}, 0, "-item"},
                {"1.item", false, {}, 0, "1.item"},
                {"+ **bold**  rest", false, "•", 0, "<b>bold</b>  rest"},
                {"- a\r", false, "•", 0, "a"},
                {"plain\r", false, {}, 0, "plain\r"},
                {"  lead", false, {}, 0, "  lead"},
                {"**x", false, {}, 0, "**x"}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.raw);
        const ParsedNoteMarkdown parsed(q(row.raw), false);
        ASSERT_EQ(parsed.lines().size(), 1);
        const ParsedNoteMarkdown::Line &line = parsed.lines().first();
        EXPECT_EQ(line.heading, row.heading);
        EXPECT_EQ(line.marker, row.marker ? std::optional(q(*row.marker)) : std::nullopt);
        EXPECT_EQ(line.indentation, row.indentation);
        EXPECT_EQ(describe(line.text), q(row.described));
    }
}

TEST(ParsedNoteMarkdown, ReadsThroughAnOuterFenceAndKeepsBlankLines)
{
    const ParsedNoteMarkdown fenced(u"```markdown\n# A\n\n- b\n```"_s, false);
    const ParsedNoteMarkdown bare(u"# A\n\n- b"_s, false);
    EXPECT_EQ(fenced.lines(), bare.lines());
    ASSERT_EQ(bare.lines().size(), 3);
    EXPECT_EQ(bare.lines()[2].id, 2);
    EXPECT_EQ(ParsedNoteMarkdown(QString(), false).lines().size(), 1);
}

TEST(ParsedNoteMarkdown, HidesATrailingLineWhileItMayStillChange)
{
    for (const char *line :
         {"## Heading", "- no", "- non", "- N/", "- na", "- Nothing yet", "- no data was given", "- ", "-",
          "*", " 12", "12.", "12)", "**Bo", "__x", " ```"})
        EXPECT_TRUE(ParsedNoteMarkdown::isIncompleteTrailingLine(q(line))) << line;
    for (const char *line : {"- note", "- nob", "1234567890", "Plain text", ""})
        EXPECT_FALSE(ParsedNoteMarkdown::isIncompleteTrailingLine(q(line))) << line;
}

TEST(ParsedNoteMarkdown, BlanksAnIncompleteLastLineOnlyWhileStreamingAndCachesTheTwoApart)
{
    const QString text = u"Intro\n## Heading"_s;
    const ParsedNoteMarkdown streaming(text, true);
    ASSERT_EQ(streaming.lines().size(), 2);
    EXPECT_FALSE(streaming.lines()[1].heading);
    EXPECT_TRUE(streaming.lines()[1].text.isEmpty());
    EXPECT_TRUE(ParsedNoteMarkdown(text, false).lines()[1].heading);
    EXPECT_TRUE(ParsedNoteMarkdown(text + QLatin1Char('\n'), true).lines()[1].heading);

    const auto saved = ParsedNoteMarkdown::cached(u"A\n- no"_s, false);
    const auto streamed = ParsedNoteMarkdown::cached(u"A\n- no"_s, true);
    EXPECT_EQ(ParsedNoteMarkdown::cached(u"A\n- no"_s, false), saved);
    EXPECT_EQ(saved->lines()[1].marker, u"•"_s);
    EXPECT_FALSE(streamed->lines()[1].marker);
}

} // namespace
