#include "documents/StructuredSummary.h"

#include "documents/DocumentText.h"

#include <QRegularExpression>
#include <QStringList>

#include <algorithm>
#include <utility>

namespace kestil {

namespace {

using DocumentText::characterCount;
using DocumentText::codePointAt;
using DocumentText::trimmedBlanks;

bool isNumeric(char32_t c)
{
    return QChar::isNumber(c);
}

// A line of nothing but strong text (colons and white space aside) stands
// for a heading: models often write "**Next steps:**" instead of "##".
bool isBoldLine(const ParsedNoteMarkdown::Line &line, const QString &trimmed)
{
    if (line.marker || trimmed.isEmpty() || characterCount(trimmed, 60) > 60)
        return false;
    const RichText &text = line.text;
    return std::all_of(text.runs.cbegin(), text.runs.cend(), [&](const RichTextRun &run) {
        if (run.attributes.strong)
            return true;
        const QStringView characters = QStringView(text.text).sliced(run.start, run.length);
        return std::all_of(characters.cbegin(), characters.cend(),
                           [](QChar c) { return c.isSpace() || c == QLatin1Char(':'); });
    });
}

bool isFiller(const QString &trimmed)
{
    static const QRegularExpression filler = DocumentText::constantPattern(
        QStringLiteral("(*ANY)^(none|n/?a|nothing|no\\b.{0,40}\\b(provided|mentioned|discussed|given|stated|"
                       "identified|noted|specified))\\.?$"),
        QRegularExpression::CaseInsensitiveOption | QRegularExpression::UseUnicodePropertiesOption);
    return filler.match(trimmed).hasMatch();
}

// Whether the text ahead of a colon reads as a short label rather than part
// of a time, a number, an address or a sentence.
bool isLabel(const QString &label, const QString &rest)
{
    if (label.isEmpty() || rest.isEmpty() || characterCount(label, 40) > 40)
        return false;
    const qsizetype lastStart =
        label.size() > 1 && label.back().isLowSurrogate() ? label.size() - 2 : label.size() - 1;
    const char32_t last = codePointAt(label, lastStart);
    if (isNumeric(last) && isNumeric(codePointAt(rest, 0)))
        return false;
    static const QRegularExpression blanks = DocumentText::constantPattern(
        QStringLiteral("[\\t\\p{Zs}]+"), QRegularExpression::UseUnicodePropertiesOption);
    if (label.split(blanks, Qt::SkipEmptyParts).size() >= 6)
        return false;
    bool allNumeric = true;
    qsizetype units = 0;
    for (qsizetype i = 0; i < label.size() && allNumeric; i += units)
        allNumeric = isNumeric(codePointAt(label, i, &units));
    return !allNumeric && !rest.startsWith(QStringLiteral("//"));
}

// The first letter in upper case, unless the first word already mixes cases
// on purpose ("iPhone", "macOS").
RichText capitalised(const RichText &body)
{
    if (body.isEmpty())
        return body;
    qsizetype units = 0;
    const char32_t first = codePointAt(body.text, 0, &units);
    if (!QChar::isLower(first))
        return body;
    for (qsizetype i = 0; i < body.text.size(); i += units) {
        const char32_t c = codePointAt(body.text, i, &units);
        if (QChar::isSpace(c))
            break;
        if (QChar::isUpper(c))
            return body;
    }
    RichText result;
    result.append(body.text.first(units).toUpper(), body.attributesAt(0));
    DocumentText::appendRichText(result, body.mid(units));
    return result;
}

StructuredSummary::Item makeItem(const ParsedNoteMarkdown::Line &line, const QString &trimmed)
{
    StructuredSummary::Item item;
    item.id = line.id;
    item.marker = line.marker.value_or(QString());
    item.indentation = line.indentation;
    item.fullText = trimmed;
    item.body = line.text;
    const qsizetype colon = line.text.text.indexOf(QLatin1Char(':'));
    if (colon >= 0) {
        const QString label = trimmedBlanks(QStringView(line.text.text).first(colon));
        const QString rest = trimmedBlanks(QStringView(line.text.text).sliced(colon + 1));
        if (isLabel(label, rest)) {
            item.label = RichText::plain(label);
            qsizetype bodyStart = colon + 1;
            while (bodyStart < line.text.text.size() && line.text.text.at(bodyStart).isSpace())
                ++bodyStart;
            item.body = line.text.mid(bodyStart);
        }
    }
    item.body = capitalised(item.body);
    return item;
}

QString titleOf(const QString &trimmed)
{
    QString title = trimmed;
    while (title.endsWith(QLatin1Char(':')))
        title.chop(1);
    return trimmedBlanks(title);
}

bool isSummaryTitle(const QString &title)
{
    static const QStringList words{QStringLiteral("summary"),
                                   QStringLiteral("overview"),
                                   QStringLiteral("tl;dr"),
                                   QStringLiteral("tldr"),
                                   QStringLiteral("in short"),
                                   QStringLiteral("at a glance"),
                                   QStringLiteral("executive summary"),
                                   QStringLiteral("résumé"),
                                   QStringLiteral("resume"),
                                   QStringLiteral("resumen"),
                                   QStringLiteral("resumo"),
                                   QStringLiteral("riassunto"),
                                   QStringLiteral("zusammenfassung"),
                                   QStringLiteral("samenvatting"),
                                   QStringLiteral("概要"),
                                   QStringLiteral("要約"),
                                   QStringLiteral("摘要"),
                                   QStringLiteral("요약")};
    return words.contains(title.toLower());
}

bool containsAny(const QString &lowered, std::initializer_list<const char *> words)
{
    return std::any_of(words.begin(), words.end(),
                       [&](const char *word) { return lowered.contains(QString::fromUtf8(word)); });
}

} // namespace

StructuredSummary::StructuredSummary(const ParsedNoteMarkdown &parsed)
{
    Section current;
    const auto close = [&] {
        if (current.title || !current.paragraphs.isEmpty() || !current.items.isEmpty())
            sections.append(std::move(current));
        current = Section{};
    };

    for (const ParsedNoteMarkdown::Line &line : parsed.lines()) {
        const QString trimmed = trimmedBlanks(line.text.text);
        if (line.heading || isBoldLine(line, trimmed)) {
            close();
            current.id = line.id;
            current.title = titleOf(trimmed);
        } else if (!line.marker) {
            if (!trimmed.isEmpty())
                current.paragraphs.append(line);
        } else if (!trimmed.isEmpty() && !isFiller(trimmed)) {
            current.items.append(makeItem(line, trimmed));
        }
    }
    close();
    sections.removeIf([](const Section &s) { return s.paragraphs.isEmpty() && s.items.isEmpty(); });

    if (sections.isEmpty())
        return;
    const Section &first = sections.first();
    if (!first.title || isSummaryTitle(*first.title) || (first.items.isEmpty() && sections.size() > 1))
        overview = sections.takeFirst();
}

QList<StructuredSummary::Block> StructuredSummary::blocks() const
{
    QList<Block> result;
    if (overview)
        result.append(Block{Block::Kind::overview, *overview});
    for (const Section &section : sections)
        result.append(Block{Block::Kind::section, section});
    return result;
}

SummarySectionKind summarySectionKind(const std::optional<QString> &title)
{
    const QString lowered = title.value_or(QString()).toLower();
    if (containsAny(lowered, {"action", "next step", "to-do", "todo", "task", "follow-up", "follow up",
                              "owner", "assignment", "remind"}))
        return SummarySectionKind::action;
    if (containsAny(lowered, {"question", "unresolved", "open item", "unknown"}))
        return SummarySectionKind::question;
    if (containsAny(lowered, {"risk", "blocker", "concern", "issue", "challenge"}))
        return SummarySectionKind::risk;
    return lowered.isEmpty() ? SummarySectionKind::untitled : SummarySectionKind::plain;
}

QString summarySectionSymbol(const std::optional<QString> &title, SummarySectionKind kind)
{
    switch (kind) {
    case SummarySectionKind::action:
        return QStringLiteral("checklist");
    case SummarySectionKind::question:
        return QStringLiteral("questionmark.bubble");
    case SummarySectionKind::risk:
        return QStringLiteral("exclamationmark.triangle");
    case SummarySectionKind::untitled:
        return QStringLiteral("text.alignleft");
    case SummarySectionKind::plain:
        break;
    }
    const QString lowered = title.value_or(QString()).toLower();
    static const QList<std::pair<QString, QStringList>> symbols{
        {QStringLiteral("checkmark.seal"),
         {QStringLiteral("decision"), QStringLiteral("agreed"), QStringLiteral("outcome")}},
        {QStringLiteral("calendar"),
         {QStringLiteral("date"), QStringLiteral("deadline"), QStringLiteral("schedule"),
          QStringLiteral("timeline"), QStringLiteral("milestone"), QStringLiteral("check-in"),
          QStringLiteral("meeting")}},
        {QStringLiteral("lightbulb"),
         {QStringLiteral("idea"), QStringLiteral("brainstorm"), QStringLiteral("theme")}},
        {QStringLiteral("person.2"),
         {QStringLiteral("people"), QStringLiteral("participant"), QStringLiteral("attendee"),
          QStringLiteral("who")}},
        {QStringLiteral("chart.bar"),
         {QStringLiteral("metric"), QStringLiteral("number"), QStringLiteral("fact"), QStringLiteral("data"),
          QStringLiteral("progress")}},
        {QStringLiteral("book"),
         {QStringLiteral("concept"), QStringLiteral("definition"), QStringLiteral("lecture"),
          QStringLiteral("learn"), QStringLiteral("study"), QStringLiteral("review")}},
        {QStringLiteral("quote.bubble"), {QStringLiteral("feedback"), QStringLiteral("quote")}},
    };
    for (const auto &[symbol, words] : symbols) {
        if (std::any_of(words.cbegin(), words.cend(),
                        [&](const QString &word) { return lowered.contains(word); }))
            return symbol;
    }
    return QStringLiteral("list.number");
}

QList<StructuredSummary::Group> itemGroups(const QList<StructuredSummary::Item> &items)
{
    QList<StructuredSummary::Group> groups;
    if (items.isEmpty())
        return groups;
    const int smallest = std::min_element(items.cbegin(), items.cend(), [](const auto &a, const auto &b) {
                             return a.indentation < b.indentation;
                         })->indentation;
    for (const StructuredSummary::Item &item : items) {
        if (item.indentation > smallest && !groups.isEmpty())
            groups.last().children.append(item);
        else
            groups.append(StructuredSummary::Group{item, {}});
    }
    return groups;
}

int summaryBadgeCount(const QList<StructuredSummary::Item> &items)
{
    return int(
        std::count_if(items.cbegin(), items.cend(), [](const auto &item) { return item.indentation == 0; }));
}

} // namespace kestil
