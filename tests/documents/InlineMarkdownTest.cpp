#include "documents/InlineMarkdown.h"

#include "DocumentsTestSupport.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

struct InlineRow {
    const char *markdown;
    const char *described;
};

void PrintTo(const InlineRow &row, std::ostream *out)
{
    printRowName(row.markdown, out);
}

class InlineMarkdownRows : public testing::TestWithParam<InlineRow> {};

TEST_P(InlineMarkdownRows, GiveTheseRuns)
{
    const std::optional<RichText> parsed = parseInlineMarkdown(QString::fromUtf8(GetParam().markdown));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(describe(*parsed), QString::fromUtf8(GetParam().described));
}

INSTANTIATE_TEST_SUITE_P(
    Formatting, InlineMarkdownRows,
    testing::Values(
        InlineRow{"**Decision:** ship on *Friday*, ~~not Monday~~, see [plan](https://example.org) and `v2`.",
                  "<b>Decision:</b> ship on <i>Friday</i>, <s>not Monday</s>, see <a "
                  "https://example.org>plan</a> and "
                  "<c>v2</c>."},
        InlineRow{"_a_ __b__ ***c***", "<i>a</i> <b>b</b> <b><i>c</i></b>"},
        InlineRow{"[**bold link**](u)", "<a u><b>bold link</b></a>"},
        InlineRow{"<https://a.example>", "<a https://a.example>https://a.example</a>"},
        InlineRow{"&amp; &copy; \\*x\\* &#65;", "& © *x* A"},
        InlineRow{"a <span>b</span>", "a <span>b</span>"}, InlineRow{"![chart](c.png) here", "chart here"},
        InlineRow{"**open and [link](", "**open and [link]("},
        InlineRow{"snake_case_name", "snake_case_name"}));

// Nothing of the line is read as a block: those marks stay characters.
INSTANTIATE_TEST_SUITE_P(BlockSyntax, InlineMarkdownRows,
                         testing::Values(InlineRow{"# x", "# x"}, InlineRow{"> x", "> x"},
                                         InlineRow{"1. x", "1. x"}, InlineRow{"- x", "- x"},
                                         InlineRow{"    code", "    code"}, InlineRow{"---", "---"},
                                         InlineRow{"===", "==="}, InlineRow{"```", "```"},
                                         InlineRow{"<div>", "<div>"}, InlineRow{"[a]: /url", "[a]: /url"},
                                         InlineRow{"| a | b |", "| a | b |"}));

INSTANTIATE_TEST_SUITE_P(
    WhiteSpace, InlineMarkdownRows,
    testing::Values(InlineRow{"  two  spaces\t", "  two  spaces\t"}, InlineRow{" **a**  ", " <b>a</b>  "},
                    InlineRow{"**a**\r", "<b>a</b>\r"}, InlineRow{"a\r# b\r*c*", "a\r# b\r<i>c</i>"},
                    InlineRow{"\u00a0_x_\u3000", "\u00a0<i>x</i>\u3000"}, InlineRow{"", ""}));

TEST(InlineMarkdown, RefusesCharactersTheParserWouldReplace)
{
    EXPECT_FALSE(parseInlineMarkdown(QStringLiteral("a") + QChar(0) + QStringLiteral("b")));
    EXPECT_FALSE(parseInlineMarkdown(QStringLiteral("**a**") + QChar(0xd800)));
    EXPECT_FALSE(parseInlineMarkdown(QChar(0xdc00) + QStringLiteral("x")));
}

TEST(InlineMarkdown, KeepsReplacementCharactersOfInvalidUtf8)
{
    const QString line = QString::fromUtf8("\xff\xfe**b**\xc3");
    const std::optional<RichText> parsed = parseInlineMarkdown(line);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(describe(*parsed), QStringLiteral("\ufffd\ufffd<b>b</b>\ufffd"));
}

TEST(InlineMarkdown, ReadsMarkdownNestedAThousandLevelsDeep)
{
    const qsizetype depth = 1000;
    const std::optional<RichText> emphasis = parseInlineMarkdown(
        QString(depth, QLatin1Char('*')) + QStringLiteral("a") + QString(depth, QLatin1Char('*')));
    ASSERT_TRUE(emphasis);
    EXPECT_EQ(describe(*emphasis), QStringLiteral("<b>a</b>"));

    const QString brackets =
        QString(depth, QLatin1Char('[')) + QStringLiteral("a") + QString(depth, QLatin1Char(']'));
    EXPECT_EQ(parseInlineMarkdown(brackets)->text, brackets);

    QString links;
    for (qsizetype i = 0; i < depth; ++i)
        links = QStringLiteral("[_") + links + QStringLiteral("_](u)");
    const std::optional<RichText> nested =
        parseInlineMarkdown(links.replace(QStringLiteral("[__]"), QStringLiteral("[x]")));
    ASSERT_TRUE(nested);
    EXPECT_TRUE(nested->text.contains(QLatin1Char('x')));
}

TEST(InlineMarkdown, ReadsAMegabyteLine)
{
    QString line;
    for (int i = 0; i < 70'000; ++i)
        line += QStringLiteral("word **bold** ");
    const std::optional<RichText> parsed = parseInlineMarkdown(line);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->text.size(), 70'000 * 10);
    EXPECT_EQ(parsed->runs.size(), 70'000 * 2 + 1);
}

} // namespace
