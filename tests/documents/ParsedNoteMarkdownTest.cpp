#include "documents/ParsedNoteMarkdown.h"

#include "DocumentsTestSupport.h"

#include <gtest/gtest.h>

#include <random>

using namespace kestil;

namespace {

struct FenceRow {
    const char *text;
    const char *stripped;
};

void PrintTo(const FenceRow &row, std::ostream *out)
{
    printRowName(row.text, out);
}

class OuterCodeFence : public testing::TestWithParam<FenceRow> {};

TEST_P(OuterCodeFence, IsRemovedOnlyAroundTheWholeText)
{
    EXPECT_EQ(stripOuterCodeFence(QString::fromUtf8(GetParam().text)),
              QString::fromUtf8(GetParam().stripped));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, OuterCodeFence,
    testing::Values(FenceRow{"```md\n## Summary\n- one\n```", "## Summary\n- one"},
                    FenceRow{"  ```Markdown  \n## A\n", "## A"}, FenceRow{"```\n## A\n  ```  \n\n", "## A"},
                    // A blank inside the marker is no fence: the text comes back untrimmed.
                    FenceRow{"``` markdown\n## A\n```\n", "``` markdown\n## A\n```\n"},
                    FenceRow{"\n## Summary\nText  ", "\n## Summary\nText  "},
                    FenceRow{"A\n```\nB", "A\n```\nB"}, FenceRow{"```markdown", ""},
                    FenceRow{"```md\n## Sum", "## Sum"}, FenceRow{"```\n\n## A\n\n```", "\n## A\n"},
                    FenceRow{"", ""}));

struct LineRow {
    const char *raw;
    bool heading;
    std::optional<const char *> marker;
    int indentation;
    const char *described;
};

void PrintTo(const LineRow &row, std::ostream *out)
{
    printRowName(row.raw, out);
}

class MarkdownLine : public testing::TestWithParam<LineRow> {};

TEST_P(MarkdownLine, ParsesAs)
{
    const LineRow &row = GetParam();
    const ParsedNoteMarkdown parsed(QString::fromUtf8(row.raw), false);
    ASSERT_EQ(parsed.lines().size(), 1);
    const ParsedNoteMarkdown::Line &line = parsed.lines().first();
    EXPECT_EQ(line.heading, row.heading);
    EXPECT_EQ(line.marker, row.marker ? std::optional(QString::fromUtf8(*row.marker)) : std::nullopt);
    EXPECT_EQ(line.indentation, row.indentation);
    EXPECT_EQ(describe(line.text), QString::fromUtf8(row.described));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, MarkdownLine,
    testing::Values(LineRow{"## Heading", true, {}, 0, "Heading"}, LineRow{"#tag", true, {}, 0, "tag"},
                    LineRow{"# # #  mixed", true, {}, 0, "mixed"},
                    LineRow{"   # no", false, {}, 0, "   # no"},
                    LineRow{"## 1. Decisions", true, "1.", 0, "Decisions"},
                    LineRow{"  * item", false, "•", 2, "item"}, LineRow{"\t1) item", false, "1.", 4, "item"},
                    LineRow{"\t 12) x", false, "12.", 5, "x"},
                    LineRow{"1234567890. item", false, {}, 0, "1234567890. item"},
                    LineRow{"123456789. item", false, "123456789.", 0, "item"},
                    LineRow{"-item", false, {}, 0, "-item"}, LineRow{"1.item", false, {}, 0, "1.item"},
                    LineRow{"+ **bold**  rest", false, "•", 0, "<b>bold</b>  rest"},
                    LineRow{"- a\r", false, "•", 0, "a"}, LineRow{"plain\r", false, {}, 0, "plain\r"},
                    LineRow{"  lead", false, {}, 0, "  lead"}, LineRow{"**x", false, {}, 0, "**x"}));

TEST(ParsedNoteMarkdown, ReadsThroughAnOuterFenceAndKeepsBlankLines)
{
    const ParsedNoteMarkdown fenced(QStringLiteral("```markdown\n# A\n\n- b\n```"), false);
    const ParsedNoteMarkdown bare(QStringLiteral("# A\n\n- b"), false);
    EXPECT_EQ(fenced.lines(), bare.lines());
    ASSERT_EQ(bare.lines().size(), 3);
    EXPECT_EQ(bare.lines()[2].id, 2);
    EXPECT_EQ(ParsedNoteMarkdown(QString(), false).lines().size(), 1);
}

struct TrailingRow {
    const char *line;
    bool incomplete;
};

void PrintTo(const TrailingRow &row, std::ostream *out)
{
    printRowName(row.line, out);
}

class TrailingLine : public testing::TestWithParam<TrailingRow> {};

TEST_P(TrailingLine, IsHiddenWhileItMayStillChange)
{
    EXPECT_EQ(ParsedNoteMarkdown::isIncompleteTrailingLine(QString::fromUtf8(GetParam().line)),
              GetParam().incomplete);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, TrailingLine,
    testing::Values(TrailingRow{"## Heading", true}, TrailingRow{"- no", true}, TrailingRow{"- non", true},
                    TrailingRow{"- N/", true}, TrailingRow{"- na", true}, TrailingRow{"- Nothing yet", true},
                    TrailingRow{"- no data was given", true}, TrailingRow{"- ", true},
                    TrailingRow{"- note", false}, TrailingRow{"- nob", false}, TrailingRow{"-", true},
                    TrailingRow{"*", true}, TrailingRow{" 12", true}, TrailingRow{"12.", true},
                    TrailingRow{"12)", true}, TrailingRow{"1234567890", false}, TrailingRow{"**Bo", true},
                    TrailingRow{"__x", true}, TrailingRow{" ```", true}, TrailingRow{"Plain text", false},
                    TrailingRow{"", false}));

TEST(ParsedNoteMarkdown, BlanksAnIncompleteLastLineOnlyWhileStreaming)
{
    const QString text = QStringLiteral("Intro\n## Heading");
    const ParsedNoteMarkdown streaming(text, true);
    ASSERT_EQ(streaming.lines().size(), 2);
    EXPECT_FALSE(streaming.lines()[1].heading);
    EXPECT_TRUE(streaming.lines()[1].text.isEmpty());
    EXPECT_TRUE(ParsedNoteMarkdown(text, false).lines()[1].heading);
    EXPECT_TRUE(ParsedNoteMarkdown(text + QLatin1Char('\n'), true).lines()[1].heading);
}

TEST(ParsedNoteMarkdown, CachesStreamingAndSavedParsesApart)
{
    const QString text = QStringLiteral("A\n- no");
    const auto saved = ParsedNoteMarkdown::cached(text, false);
    const auto streaming = ParsedNoteMarkdown::cached(text, true);
    EXPECT_EQ(ParsedNoteMarkdown::cached(text, false), saved);
    EXPECT_EQ(ParsedNoteMarkdown::cached(text, true), streaming);
    EXPECT_EQ(saved->lines()[1].marker, QStringLiteral("•"));
    EXPECT_FALSE(streaming->lines()[1].marker);
}

// Random Markdown-ish text: every line survives, and a line without any
// inline markup keeps its characters exactly.
TEST(ParsedNoteMarkdown, NeverLosesALineOrItsPlainCharacters)
{
    const QStringList pieces{"*", "_", "`",  "~", "[",  "]",  "(",  ")", "#", "-",
                             "1", ".", "\t", " ", "  ", "\n", "\r", "a", "b", "word",
                             "&", "<", ">",  "!", "\\", "é",  "😀",  ":", "|"};
    const QString markup = QStringLiteral("*_`~[]()<>&!\\");
    std::mt19937 random(20240611);
    for (int round = 0; round < 3000; ++round) {
        QString text;
        const int length = int(random() % 60);
        for (int i = 0; i < length; ++i)
            text += pieces[qsizetype(random() % pieces.size())];
        const QStringList raw = stripOuterCodeFence(text).split(QLatin1Char('\n'));
        const ParsedNoteMarkdown parsed(text, false);
        ASSERT_EQ(parsed.lines().size(), raw.size()) << text.toStdString();
        for (qsizetype i = 0; i < raw.size(); ++i) {
            const ParsedNoteMarkdown::Line &line = parsed.lines()[i];
            EXPECT_EQ(line.id, i);
            const bool plain =
                std::none_of(raw[i].cbegin(), raw[i].cend(), [&](QChar c) { return markup.contains(c); });
            if (!plain)
                continue;
            EXPECT_LE(line.text.runs.size(), 1) << text.toStdString();
            if (!line.heading && !line.marker) {
                EXPECT_EQ(line.text.text, raw[i]) << text.toStdString();
            }
        }
    }
}

} // namespace
