#include "documents/StructuredSummary.h"

#include "DocumentsTestSupport.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

// The reading written out one row per block, paragraph and item:
// "section 3 Risks", "  ¶ text", "  • [Label] body".
QString outline(const StructuredSummary &summary)
{
    QString out;
    for (const StructuredSummary::Block &block : summary.blocks()) {
        const StructuredSummary::Section &s = block.section;
        out += block.kind == StructuredSummary::Block::Kind::overview
                   ? QStringLiteral("overview\n")
                   : QStringLiteral("section %1 %2\n").arg(s.id).arg(s.title.value_or(QStringLiteral("-")));
        for (const ParsedNoteMarkdown::Line &line : s.paragraphs)
            out += QStringLiteral("  ¶ ") + describe(line.text) + QLatin1Char('\n');
        for (const StructuredSummary::Item &item : s.items)
            out +=
                QStringLiteral("  ") + item.marker + QLatin1Char(' ') +
                (item.label ? QLatin1Char('[') + describe(*item.label) + QStringLiteral("] ") : QString()) +
                describe(item.body) + QLatin1Char('\n');
    }
    return out;
}

struct SummaryRow {
    const char *markdown;
    const char *outline;
};

void PrintTo(const SummaryRow &row, std::ostream *out)
{
    printRowName(row.markdown, out);
}

class SummaryReading : public testing::TestWithParam<SummaryRow> {};

TEST_P(SummaryReading, Gives)
{
    const StructuredSummary summary(ParsedNoteMarkdown(QString::fromUtf8(GetParam().markdown), false));
    EXPECT_EQ(outline(summary), QString::fromUtf8(GetParam().outline));
}

INSTANTIATE_TEST_SUITE_P(
    Sections, SummaryReading,
    testing::Values(
        SummaryRow{"", ""},
        SummaryRow{"Just a paragraph.\n\n- an item", "overview\n  ¶ Just a paragraph.\n  • An item\n"},
        SummaryRow{"## Risks\n- None", ""},
        SummaryRow{"## Decisions\n- Ship\n## Risks\n- n/a\n- Nothing.", "section 0 Decisions\n  • Ship\n"},
        SummaryRow{"## Notes\n- no risks were identified\n- No budget was mentioned, so Sam will "
                   "ask.\nNone",
                   "section 0 Notes\n  ¶ None\n  • No budget was mentioned, so Sam will ask.\n"},
        SummaryRow{"**Next steps:**\n- call Sam\n**Note** this matters",
                   "section 0 Next steps\n  ¶ <b>Note</b> this matters\n  • Call Sam\n"},
        SummaryRow{
            "**Very long bold line** of more than sixty characters in all of its plain text here",
            "overview\n  ¶ <b>Very long bold line</b> of more than sixty characters in all of its plain text "
            "here\n"},
        SummaryRow{"**Sixty characters of bold, all of them counted as one title::**\n- x",
                   "section 0 Sixty characters of bold, all of them counted as one title\n  • X\n"},
        SummaryRow{"**Sixty-one characters of bold text, that is no longer a title.**",
                   "overview\n  ¶ <b>Sixty-one characters of bold text, that is no longer a title.</b>\n"},
        SummaryRow{"**Ünïcödé 日本語 👩‍👩‍👧 title** :\n- x",
                   "section 0 Ünïcödé 日本語 👩‍👩‍👧 title\n  • X\n"},
        SummaryRow{"## Decisions::\n- a\n## 2. Next:\n- b",
                   "section 0 Decisions\n  • A\nsection 2 Next\n  • B\n"},
        SummaryRow{"## \n- a", "section 0 \n  • A\n"}));

// Which first section becomes the overview.
INSTANTIATE_TEST_SUITE_P(Overview, SummaryReading,
                         testing::Values(SummaryRow{"## Overview\n- a\n## Decisions\n- c",
                                                    "overview\n  • A\nsection 2 Decisions\n  • C\n"},
                                         SummaryRow{"## TL;DR\nShort.", "overview\n  ¶ Short.\n"},
                                         SummaryRow{"## Decisions\n- a\n## Next\n- b",
                                                    "section 0 Decisions\n  • A\nsection 2 Next\n  • B\n"},
                                         SummaryRow{"## Context\nLead.\n## Decisions\n- a",
                                                    "overview\n  ¶ Lead.\nsection 2 Decisions\n  • A\n"},
                                         SummaryRow{"## Context\nLead.", "section 0 Context\n  ¶ Lead.\n"},
                                         SummaryRow{"Intro\n## A\n- x",
                                                    "overview\n  ¶ Intro\nsection 1 A\n  • X\n"}));

// Label and body of an item, and the body's first letter.
INSTANTIATE_TEST_SUITE_P(
    Items, SummaryReading,
    testing::Values(SummaryRow{"## P\n- Meeting at 10:30", "section 0 P\n  • Meeting at 10:30\n"},
                    SummaryRow{"## P\n- Owner: Sam", "section 0 P\n  • [Owner] Sam\n"},
                    SummaryRow{"## P\n- **Owner**:  *sam*", "section 0 P\n  • [Owner] <i>Sam</i>\n"},
                    SummaryRow{"## P\n- https://example.com/x", "section 0 P\n  • Https://example.com/x\n"},
                    SummaryRow{"## P\n- see: //path", "section 0 P\n  • See: //path\n"},
                    SummaryRow{"## P\n- 2024: a year", "section 0 P\n  • 2024: a year\n"},
                    SummaryRow{"## P\n- Q3 2024: a year", "section 0 P\n  • [Q3 2024] A year\n"},
                    SummaryRow{"## P\n- a very long label with many words in it: body",
                               "section 0 P\n  • A very long label with many words in it: body\n"},
                    SummaryRow{"## P\n- five words make a label: yes",
                               "section 0 P\n  • [five words make a label] Yes\n"},
                    SummaryRow{"## P\n- note: iPhone ships\n- macOS first",
                               "section 0 P\n  • [note] iPhone ships\n  • macOS first\n"},
                    SummaryRow{"## P\n- ßtraße\n- empty:", "section 0 P\n  • SStraße\n  • Empty:\n"},
                    SummaryRow{"## P\n  3) **bold** start", "section 0 P\n  3. <b>Bold</b> start\n"}));

TEST(StructuredSummary, KeepsIdsIndentationAndTheTrimmedLine)
{
    const StructuredSummary summary(
        ParsedNoteMarkdown(QStringLiteral("## A\n\n  - **Owner**: Sam \n"), false));
    ASSERT_EQ(summary.sections.size(), 1);
    const StructuredSummary::Item &item = summary.sections[0].items[0];
    EXPECT_EQ(item.id, 2);
    EXPECT_EQ(item.indentation, 2);
    EXPECT_EQ(item.fullText, QStringLiteral("Owner: Sam"));
}

TEST(StructuredSummary, ReadsAMegabyteSingleLineSummary)
{
    const QString line = QStringLiteral("All **work** continues as planned. ").repeated(30'000);
    const StructuredSummary summary(*ParsedNoteMarkdown::cached(line, false));
    ASSERT_TRUE(summary.overview);
    EXPECT_EQ(summary.overview->paragraphs.size(), 1);
    EXPECT_TRUE(summary.sections.isEmpty());
}

struct TitleRow {
    std::optional<const char *> title;
    SummarySectionKind kind;
    const char *symbol;
};

void PrintTo(const TitleRow &row, std::ostream *out)
{
    printRowName(row.title.value_or("absent"), out);
}

class SectionTitle : public testing::TestWithParam<TitleRow> {};

TEST_P(SectionTitle, HasKindAndSymbol)
{
    const std::optional<QString> title =
        GetParam().title ? std::optional(QString::fromUtf8(*GetParam().title)) : std::nullopt;
    EXPECT_EQ(summarySectionKind(title), GetParam().kind);
    EXPECT_EQ(summarySectionSymbol(title, summarySectionKind(title)), QString::fromUtf8(GetParam().symbol));
}

using K = SummarySectionKind;
INSTANTIATE_TEST_SUITE_P(
    Rows, SectionTitle,
    testing::Values(TitleRow{"Reviewed Issues", K::risk, "exclamationmark.triangle"},
                    TitleRow{"Tasks", K::action, "checklist"}, TitleRow{"Follow up", K::action, "checklist"},
                    TitleRow{"Open Questions", K::question, "questionmark.bubble"},
                    TitleRow{{}, K::untitled, "text.alignleft"}, TitleRow{"", K::untitled, "text.alignleft"},
                    TitleRow{"Decisions", K::plain, "checkmark.seal"},
                    TitleRow{"Key Dates", K::plain, "calendar"}, TitleRow{"Ideas", K::plain, "lightbulb"},
                    TitleRow{"Attendees", K::plain, "person.2"}, TitleRow{"Metrics", K::plain, "chart.bar"},
                    TitleRow{"Lecture review", K::plain, "book"},
                    TitleRow{"Feedback", K::plain, "quote.bubble"},
                    TitleRow{"Misc", K::plain, "list.number"}));

TEST(StructuredSummary, GroupsIndentedItemsUnderThePrecedingOne)
{
    const auto items = [](std::initializer_list<int> indentations) {
        QList<StructuredSummary::Item> list;
        int id = 0;
        for (const int indentation : indentations)
            list.append(StructuredSummary::Item{id++, QStringLiteral("•"), indentation, {}, {}, {}});
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
