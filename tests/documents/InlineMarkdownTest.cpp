#include "documents/InlineMarkdown.h"

#include "DocumentsTestSupport.h"

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

QString described(const QString &markdown)
{
    const std::optional<RichText> parsed = parseInlineMarkdown(markdown);
    return parsed ? describe(*parsed) : u"(refused)"_s;
}

TEST(InlineMarkdown, GivesTheseRuns)
{
    const std::pair<const char *, const char *> rows[] = {
        {"**Decision:** ship on *Friday*, ~~not Monday~~, see [plan](https://example.org) and `v2`.",
         "<b>Decision:</b> ship on <i>Friday</i>, <s>not Monday</s>, see <a https://example.org>plan</a> and "
         "<c>v2</c>."},
        {"_a_ __b__ ***c***", "<i>a</i> <b>b</b> <b><i>c</i></b>"},
        {"[**bold link**](u)", "<a u><b>bold link</b></a>"},
        {"<https://a.example>", "<a https://a.example>https://a.example</a>"},
        {"&amp; &copy; \\*x\\* &#65;", "& © *x* A"},
        {"![chart](c.png) here", "chart here"},
        {" **a**  ", " <b>a</b>  "},
        {"**a**\r", "<b>a</b>\r"},
        {"a\r# b\r*c*", "a\r# b\r<i>c</i>"},
        {"\u00a0_x_\u3000", "\u00a0<i>x</i>\u3000"},
        // Invalid UTF-8 keeps its replacement characters.
        {"\xff\xfe**b**\xc3", "\ufffd\ufffd<b>b</b>\ufffd"}};
    for (const auto &[markdown, runs] : rows)
        EXPECT_EQ(described(q(markdown)), q(runs)) << markdown;
    // Unclosed marks, HTML and block syntax stay characters.
    for (const char *same :
         {"a <span>b</span>", "**open and [link](", "snake_case_name", "# x", "> x", "1. x", "- x",
          "    code", "---", "===", "```", "<div>", "[a]: /url", "| a | b |", "  two  spaces\t", ""})
        EXPECT_EQ(described(q(same)), q(same)) << same;
    // Characters the parser would replace are refused.
    for (const QString &refused :
         {u"a"_s + QChar(0) + u"b"_s, u"**a**"_s + QChar(0xd800), QChar(0xdc00) + u"x"_s})
        EXPECT_FALSE(parseInlineMarkdown(refused));
}

TEST(InlineMarkdown, ReadsMarkdownNestedAThousandLevelsDeepAndAMegabyteLine)
{
    const qsizetype depth = 1000;
    EXPECT_EQ(described(QString(depth, QLatin1Char('*')) + u"a"_s + QString(depth, QLatin1Char('*'))),
              u"<b>a</b>"_s);
    const QString brackets = QString(depth, QLatin1Char('[')) + u"a"_s + QString(depth, QLatin1Char(']'));
    EXPECT_EQ(parseInlineMarkdown(brackets)->text, brackets);
    QString links;
    for (qsizetype i = 0; i < depth; ++i)
        links = u"[_"_s + links + u"_](u)"_s;
    const std::optional<RichText> nested = parseInlineMarkdown(links.replace(u"[__]"_s, u"[x]"_s));
    ASSERT_TRUE(nested);
    EXPECT_TRUE(nested->text.contains(QLatin1Char('x')));

    const std::optional<RichText> parsed = parseInlineMarkdown(u"word **bold** "_s.repeated(70'000));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->text.size(), 70'000 * 10);
    EXPECT_EQ(parsed->runs.size(), 70'000 * 2 + 1);
}

} // namespace
