// A summary's Markdown: inline runs, lines, the structured reading of
// sections and items, and the row preview.
#include "documents/InlineMarkdown.h"
#include "documents/ParsedNoteMarkdown.h"
#include "documents/PreviewSnippets.h"
#include "documents/StructuredSummary.h"

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
        {"[**bold link**](u)", "<a u><b>bold link</b></a>"},
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

TEST(InlineMarkdown, ReadsMarkdownNestedAThousandLevelsDeep)
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
}

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
    // A parse reads through the fence and keeps blank lines.
    const ParsedNoteMarkdown fenced(u"```markdown\n# A\n\n- b\n```"_s, false);
    const ParsedNoteMarkdown bare(u"# A\n\n- b"_s, false);
    EXPECT_EQ(fenced.lines(), bare.lines());
    ASSERT_EQ(bare.lines().size(), 3);
    EXPECT_EQ(bare.lines()[2].id, 2);
    EXPECT_EQ(ParsedNoteMarkdown(QString(), false).lines().size(), 1);
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

TEST(ParsedNoteMarkdown, HidesAnIncompleteLastLineOnlyWhileStreamingAndCachesTheTwoApart)
{
    for (const char *line :
         {"## Heading", "- no", "- non", "- N/", "- na", "- Nothing yet", "- no data was given", "- ", "-",
          "*", " 12", "12.", "12)", "**Bo", "__x", " ```"})
        EXPECT_TRUE(ParsedNoteMarkdown::isIncompleteTrailingLine(q(line))) << line;
    for (const char *line : {"- note", "- nob", "1234567890", "Plain text", ""})
        EXPECT_FALSE(ParsedNoteMarkdown::isIncompleteTrailingLine(q(line))) << line;

    // Only while streaming is such a last line blanked; the cache keeps the two apart.
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

// The reading written out one row per block, paragraph and item:
// "section 3 Risks", "  ¶ text", "  • [Label] body".
QString outline(const StructuredSummary &summary)
{
    QString out;
    for (const StructuredSummary::Block &block : summary.blocks()) {
        const StructuredSummary::Section &s = block.section;
        out += block.kind == StructuredSummary::Block::Kind::overview
                   ? u"overview\n"_s
                   : u"section %1 %2\n"_s.arg(s.id).arg(s.title.value_or(u"-"_s));
        for (const ParsedNoteMarkdown::Line &line : s.paragraphs)
            out += u"  ¶ "_s + describe(line.text) + QLatin1Char('\n');
        for (const StructuredSummary::Item &item : s.items)
            out += u"  "_s + item.marker + QLatin1Char(' ') +
                   (item.label ? QLatin1Char('[') + describe(*item.label) + u"] "_s : QString()) +
                   describe(item.body) + QLatin1Char('\n');
    }
    return out;
}

TEST(StructuredSummary, ReadsSectionsOverviewAndItems)
{
    const std::pair<const char *, const char *> rows[] = {
        {"", ""},
        {"Just a paragraph.\n\n- an item", "overview\n  ¶ Just a paragraph.\n  • An item\n"},
        {"## Decisions\n- Ship\n## Risks\n- n/a\n- Nothing.", "section 0 Decisions\n  • Ship\n"},
        {"## Notes\n- no risks were identified\n- No budget was mentioned, so Sam will "
         "ask.\nNone",
         "section 0 Notes\n  ¶ None\n  • No budget was mentioned, so Sam will ask.\n"},
        {"**Next steps:**\n- call Sam\n**Note** this matters",
         "section 0 Next steps\n  ¶ <b>Note</b> this matters\n  • Call Sam\n"},
        {"**Sixty characters of bold, all of them counted as one title::**\n- x",
         "section 0 Sixty characters of bold, all of them counted as one title\n  • X\n"},
        {"**Sixty-one characters of bold text, that is no longer a title.**",
         "overview\n  ¶ <b>Sixty-one characters of bold text, that is no longer a title.</b>\n"},
        {"**Ünïcödé 日本語 👩‍👩‍👧 title** :\n- x",
         "section 0 Ünïcödé 日本語 👩‍👩‍👧 title\n  • X\n"},
        {"## Decisions::\n- a\n## 2. Next:\n- b", "section 0 Decisions\n  • A\nsection 2 Next\n  • B\n"},
        {"## \n- a", "section 0 \n  • A\n"},
        // Which first section becomes the overview.
        {"## Overview\n- a\n## Decisions\n- c", "overview\n  • A\nsection 2 Decisions\n  • C\n"},
        {"## TL;DR\nShort.", "overview\n  ¶ Short.\n"},
        {"## Context\nLead.\n## Decisions\n- a", "overview\n  ¶ Lead.\nsection 2 Decisions\n  • A\n"},
        {"## Context\nLead.", "section 0 Context\n  ¶ Lead.\n"},
        {"Intro\n## A\n- x", "overview\n  ¶ Intro\nsection 1 A\n  • X\n"},
        // Label and body of an item, and the body's first letter.
        {"## P\n- Meeting at 10:30", "section 0 P\n  • Meeting at 10:30\n"},
        {"## P\n- Owner: Sam", "section 0 P\n  • [Owner] Sam\n"},
        {"## P\n- **Owner**:  *sam*", "section 0 P\n  • [Owner] <i>Sam</i>\n"},
        {"## P\n- https://example.com/x", "section 0 P\n  • Https://example.com/x\n"},
        {"## P\n- see: //path", "section 0 P\n  • See: //path\n"},
        {"## P\n- 2024: a year", "section 0 P\n  • 2024: a year\n"},
        {"## P\n- Q3 2024: a year", "section 0 P\n  • [Q3 2024] A year\n"},
        {"## P\n- a very long label with many words in it: body",
         "section 0 P\n  • A very long label with many words in it: body\n"},
        {"## P\n- five words make a label: yes", "section 0 P\n  • [five words make a label] Yes\n"},
        {"## P\n- note: iPhone ships\n- macOS first",
         "section 0 P\n  • [note] iPhone ships\n  • macOS first\n"},
        {"## P\n- ßtraße\n- empty:", "section 0 P\n  • SStraße\n  • Empty:\n"},
        {"## P\n  3) **bold** start", "section 0 P\n  3. <b>Bold</b> start\n"}};
    for (const auto &[markdown, expected] : rows)
        EXPECT_EQ(outline(StructuredSummary(ParsedNoteMarkdown(q(markdown), false))), q(expected))
            << markdown;
}

TEST(StructuredSummary, KeepsIdsIndentationAndTheTrimmedLineAndReadsAMegabyteLine)
{
    const StructuredSummary summary(ParsedNoteMarkdown(u"## A\n\n  - **Owner**: Sam \n"_s, false));
    ASSERT_EQ(summary.sections.size(), 1);
    const StructuredSummary::Item &item = summary.sections[0].items[0];
    EXPECT_EQ(std::tuple(item.id, item.indentation, item.fullText), std::tuple(2, 2, u"Owner: Sam"_s));

    const StructuredSummary line(
        *ParsedNoteMarkdown::cached(u"All **work** continues as planned. "_s.repeated(30'000), false));
    ASSERT_TRUE(line.overview);
    EXPECT_EQ(line.overview->paragraphs.size(), 1);
    EXPECT_TRUE(line.sections.isEmpty());
}

TEST(StructuredSummary, SectionTitlesHaveAKindAndASymbol)
{
    using K = SummarySectionKind;
    const struct {
        std::optional<const char *> title;
        SummarySectionKind kind;
        const char *symbol;
    } rows[] = {{"Reviewed Issues", K::risk, "exclamationmark.triangle"},
                {"Tasks", K::action, "checklist"},
                {"Follow up", K::action, "checklist"},
                {"Open Questions", K::question, "questionmark.bubble"},
                {{}, K::untitled, "text.alignleft"},
                {"", K::untitled, "text.alignleft"},
                {"Decisions", K::plain, "checkmark.seal"},
                {"Feedback", K::plain, "quote.bubble"},
                {"Misc", K::plain, "list.number"}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.title.value_or("absent"));
        const std::optional<QString> title = row.title ? std::optional(q(*row.title)) : std::nullopt;
        EXPECT_EQ(summarySectionKind(title), row.kind);
        EXPECT_EQ(summarySectionSymbol(title, summarySectionKind(title)), q(row.symbol));
    }
}

TEST(StructuredSummary, GroupsIndentedItemsUnderThePrecedingOne)
{
    const auto items = [](std::initializer_list<int> indentations) {
        QList<StructuredSummary::Item> list;
        int id = 0;
        for (const int indentation : indentations)
            list.append(StructuredSummary::Item{id++, u"•"_s, indentation, {}, {}, {}});
        return list;
    };
    const auto shape = [](const QList<StructuredSummary::Group> &groups) {
        QList<QList<int>> out;
        for (const auto &group : groups) {
            QList<int> ids{group.primary.id};
            for (const auto &child : group.children)
                ids.append(child.id);
            out.append(ids);
        }
        return out;
    };
    EXPECT_EQ(shape(itemGroups(items({0, 2, 4, 0}))), (QList<QList<int>>{{0, 1, 2}, {3}}));
    EXPECT_EQ(shape(itemGroups(items({2, 4, 2, 6}))), (QList<QList<int>>{{0, 1}, {2, 3}}));
    EXPECT_EQ(shape(itemGroups(items({4, 2}))), (QList<QList<int>>{{0}, {1}}));
    EXPECT_EQ(summaryBadgeCount(items({0, 2, 0})), 2);
    EXPECT_EQ(summaryBadgeCount(items({2, 4})), 0);
}

TEST(RowPreview, ComesFromTheUsableField)
{
    const struct {
        const char *summary, *transcription, *preview;
        bool processing;
    } rows[] = {{"## Summary\nWe agreed to ship.\n", "", "We agreed to ship.", false},
                {"  # Zusammenfassung \n\nWir liefern.", "", "Wir liefern.", false},
                {"### 요약\n결정.", "", "결정.", false},
                {"Intro\n## Summary\nMore", "", "Intro Summary More", false},
                {"## Summary", "", "Summary", false},
                {"## TL;DR\nShort.", "", "TL;DR Short.", false},
                {"```markdown\n## Overview\nText\n```", "", "Text", false},
                {"> quoted\n1. first\n  * second\n`code` and __strong__, _em_, **b** and ~~gone~~ [link](u)",
                 "", "quoted first second code and strong, em, b and gone link", false},
                {"Generating summary...", "We met\n\nand talked.", "We met and talked.", true},
                {" Transcription in progress... ", "Loading content...", "", true},
                {"", " Transcribing audio... ", "", true},
                {"", "Transcription failed: no audio", "", false},
                {"  \n", "", "", false}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.summary);
        EXPECT_EQ(PreviewSnippets::rowPreview(q(row.summary), q(row.transcription)), q(row.preview));
        EXPECT_EQ(PreviewSnippets::isProcessingNote(q(row.summary), q(row.transcription)), row.processing);
    }
}

TEST(RowPreview, CutsTheSourceAtFourHundredCharactersBeforeRemovingMarks)
{
    const QString linked = QString(395, QLatin1Char('a')) + u" [link](https://example.org)"_s;
    EXPECT_EQ(PreviewSnippets::rowPreview(linked, {}), QString(395, QLatin1Char('a')) + u" [lin"_s);

    // Characters, not UTF-16 units: a pair is never split.
    const QString face = u"😀"_s;
    EXPECT_EQ(PreviewSnippets::rowPreview(face.repeated(401), {}), face.repeated(400));
    const QString odd = QString(399, QLatin1Char('b')) + face + u"c"_s;
    EXPECT_EQ(PreviewSnippets::rowPreview(odd, {}), QString(399, QLatin1Char('b')) + face);

    const QString megabyte = u"**Long** line "_s.repeated(80'000);
    EXPECT_EQ(PreviewSnippets::rowPreview(megabyte, {}).size(),
              PreviewSnippets::plainSnippet(megabyte.first(400)).size());
}

} // namespace
