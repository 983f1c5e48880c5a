#include "documents/DocumentText.h"

#include <QTextBoundaryFinder>

namespace kestil::DocumentText {

bool isBlank(QChar c)
{
    return c == QLatin1Char('\t') || c.category() == QChar::Separator_Space;
}

QString trimmedBlanks(QStringView text)
{
    qsizetype start = 0;
    qsizetype end = text.size();
    while (start < end && isBlank(text.at(start)))
        ++start;
    while (end > start && isBlank(text.at(end - 1)))
        --end;
    return text.sliced(start, end - start).toString();
}

qsizetype characterCount(const QString &text, qsizetype limit)
{
    // A prefix never holds more characters than the whole text, so a growing
    // prefix answers for a long text without segmenting all of it.
    for (qsizetype prefix = (limit + 2) * 4;; prefix *= 2) {
        const bool whole = prefix >= text.size();
        QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, whole ? text : text.left(prefix));
        qsizetype count = 0;
        while (count <= limit && finder.toNextBoundary() > 0)
            ++count;
        if (whole || count > limit)
            return count;
    }
}

char32_t codePointAt(QStringView text, qsizetype index, qsizetype *units)
{
    const QChar c = text.at(index);
    if (c.isHighSurrogate() && index + 1 < text.size() && text.at(index + 1).isLowSurrogate()) {
        if (units)
            *units = 2;
        return QChar::surrogateToUcs4(c, text.at(index + 1));
    }
    if (units)
        *units = 1;
    return c.unicode();
}

QRegularExpression constantPattern(const QString &pattern, QRegularExpression::PatternOptions options)
{
    QRegularExpression expression(pattern, options);
    if (!expression.isValid())
        qFatal("Invalid constant pattern %s: %s", qPrintable(pattern), qPrintable(expression.errorString()));
    expression.optimize();
    return expression;
}

void appendRichText(RichText &head, const RichText &tail)
{
    for (const RichTextRun &run : tail.runs)
        head.append(tail.text.mid(run.start, run.length), run.attributes);
}

} // namespace kestil::DocumentText
