#include "documents/StructuredSummary.h"

#include "DocumentsTestSupport.h"

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

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
        {"## Risks\n- None", ""},
        {"## Decisions\n- Ship\n## Risks\n- n/a\n- Nothing.", "section 0 Decisions\n  • Ship\n"},
        {"## Notes\n- no risks were identified\n- No budget was mentioned, so Sam will "
         "ask.\nNone",
         "section 0 Notes\n  ¶ None\n  • No budget was mentioned, so Sam will ask.\n"},
        {"**Next steps:**\n- call Sam\n**Note** this matters",
         "section 0 Next steps\n  ¶ <b>Note</b> this matters\n  • Call Sam\n"},
        {"**Very long bold line** of more than sixty characters in all of its plain text here",
         "overview\n  ¶ <b>Very long bold line</b> of more than sixty characters in all of its plain text "
         "here\n"},
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
        {"## Decisions\n- a\n## Next\n- b", "section 0 Decisions\n  • A\nsection 2 Next\n  • B\n"},
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

TEST(StructuredSummary, KeepsIdsIndentationAndTheTrimmedLine)
{
    const StructuredSummary summary(ParsedNoteMarkdown(u"## A\n\n  - **Owner**: Sam \n"_s, false));
    ASSERT_EQ(summary.sections.size(), 1);
    const StructuredSummary::Item &item = summary.sections[0].items[0];
    EXPECT_EQ(item.id, 2);
    EXPECT_EQ(item.indentation, 2);
    EXPECT_EQ(item.fullText, u"Owner: Sam"_s);
}

TEST(StructuredSummary, ReadsAMegabyteSingleLineSummary)
{
    const QString line = u"All **work** continues as planned. "_s.repeated(30'000);
    const StructuredSummary summary(*ParsedNoteMarkdown::cached(line, false));
    ASSERT_TRUE(summary.overview);
    EXPECT_EQ(summary.overview->paragraphs.size(), 1);
    EXPECT_TRUE(summary.sections.isEmpty());
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
                {"Key Dates", K::plain, "calendar"},
                {"Ideas", K::plain, "lightbulb"},
                {"Attendees", K::plain, "person.2"},
                {"Metrics", K::plain, "chart.bar"},
                {"Lecture review", K::plain, "book"},
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

} // namespace
