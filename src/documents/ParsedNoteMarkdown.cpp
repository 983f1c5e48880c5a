#include "documents/ParsedNoteMarkdown.h"

#include "base/BoundedCache.h"
#include "documents/DocumentText.h"
#include "documents/InlineMarkdown.h"

#include <QRegularExpression>
#include <QStringList>

namespace kestil {

namespace {

using DocumentText::trimmedBlanks;

// "(*ANY)" lets "." and "$" treat every Unicode line break as one, as the
// patterns of this dialect were written to read a line with a trailing "\r".
const QRegularExpression &listPattern()
{
    static const QRegularExpression pattern =
        DocumentText::constantPattern(QStringLiteral("(*ANY)^([ \\t]*)([-+*]|[0-9]{1,9}[.)])[ \\t]+(.*)$"));
    return pattern;
}

const QRegularExpression &bareNumberPattern()
{
    static const QRegularExpression pattern =
        DocumentText::constantPattern(QRegularExpression::anchoredPattern(QStringLiteral("[0-9]{1,9}[.)]?")));
    return pattern;
}

// The words that empty sections are filled with; a list item that may still
// grow into one of them is not shown yet.
bool mayBecomeFiller(const QString &itemText)
{
    static const QStringList fillers{QStringLiteral("none"), QStringLiteral("nothing"), QStringLiteral("n/a"),
                                     QStringLiteral("na")};
    for (const QString &filler : fillers) {
        if (filler.startsWith(itemText))
            return true;
    }
    return itemText == QStringLiteral("no") || itemText.startsWith(QStringLiteral("no ")) ||
           itemText.startsWith(QStringLiteral("none")) || itemText.startsWith(QStringLiteral("nothing"));
}

ParsedNoteMarkdown::Line parseLine(int id, const QString &raw)
{
    ParsedNoteMarkdown::Line line;
    line.id = id;
    line.heading = raw.startsWith(QLatin1Char('#'));
    QString rest = raw;
    if (line.heading) {
        qsizetype start = 0;
        while (start < raw.size() &&
               (raw.at(start) == QLatin1Char('#') || DocumentText::isBlank(raw.at(start))))
            ++start;
        rest = raw.sliced(start);
    }

    QString text = rest;
    const QRegularExpressionMatch match = listPattern().match(rest);
    if (match.hasMatch()) {
        const QString marker = match.captured(2);
        line.marker = marker.size() == 1 && QStringLiteral("-+*").contains(marker)
                          ? QStringLiteral("•")
                          : marker.chopped(1) + QLatin1Char('.');
        for (const QChar c : match.capturedView(1))
            line.indentation += c == QLatin1Char('\t') ? 4 : 1;
        text = match.captured(3);
    }
    line.text = parseInlineMarkdown(text).value_or(RichText::plain(text));
    return line;
}

qint64 costOf(const QString &content, qsizetype lines)
{
    return 8 * qint64(content.toUtf8().size()) + 128 * qint64(lines);
}

} // namespace

ParsedNoteMarkdown::ParsedNoteMarkdown(const QString &content, bool isStreaming)
{
    QStringList raw = stripOuterCodeFence(content).split(QLatin1Char('\n'));
    if (isStreaming && isIncompleteTrailingLine(raw.last()))
        raw.last().clear();
    lines_.reserve(raw.size());
    for (qsizetype i = 0; i < raw.size(); ++i)
        lines_.append(parseLine(int(i), raw[i]));
}

std::shared_ptr<const ParsedNoteMarkdown> ParsedNoteMarkdown::cached(const QString &content, bool isStreaming)
{
    static BoundedCache<QString, ParsedNoteMarkdown> cache(16, 0x800000);
    const QString key = (isStreaming ? QStringLiteral("stream:") : QStringLiteral("saved:")) + content;
    if (std::shared_ptr<const ParsedNoteMarkdown> hit = cache.object(key))
        return hit;
    auto parsed = std::make_shared<const ParsedNoteMarkdown>(content, isStreaming);
    cache.setObject(key, parsed, costOf(content, parsed->lines().size()));
    return parsed;
}

bool ParsedNoteMarkdown::isIncompleteTrailingLine(const QString &line)
{
    const QRegularExpressionMatch item = listPattern().match(line);
    if (item.hasMatch() && mayBecomeFiller(trimmedBlanks(item.capturedView(3)).toLower()))
        return true;
    const QString trimmed = trimmedBlanks(line);
    for (const QLatin1String opening :
         {QLatin1String("#"), QLatin1String("**"), QLatin1String("__"), QLatin1String("```")}) {
        if (trimmed.startsWith(opening))
            return true;
    }
    if (trimmed == QStringLiteral("-") || trimmed == QStringLiteral("+") || trimmed == QStringLiteral("*"))
        return true;
    return bareNumberPattern().match(trimmed).hasMatch();
}

QString stripOuterCodeFence(const QString &text)
{
    QStringList lines = text.trimmed().split(QLatin1Char('\n'));
    const QString opening = trimmedBlanks(lines.first()).toLower();
    if (opening != QStringLiteral("```") && opening != QStringLiteral("```markdown") &&
        opening != QStringLiteral("```md"))
        return text;
    lines.removeFirst();
    if (!lines.isEmpty() && lines.last().trimmed() == QStringLiteral("```"))
        lines.removeLast();
    return lines.join(QLatin1Char('\n'));
}

} // namespace kestil
