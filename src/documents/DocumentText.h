#pragma once

#include "documents/RichText.h"

#include <QRegularExpression>
#include <QString>
#include <QStringView>

namespace kestil::DocumentText {

// A blank is a tab or a space separator; line breaks are not blanks.
bool isBlank(QChar c);
// The text without blanks at either end; line breaks stay.
QString trimmedBlanks(QStringView text);

// The number of user-perceived characters (grapheme clusters), counted no
// further than `limit` + 1 so that a long text costs no more than a short one.
qsizetype characterCount(const QString &text, qsizetype limit);

// The code point that starts at `index` (a whole surrogate pair when there is
// one) and the number of UTF-16 units it takes.
char32_t codePointAt(QStringView text, qsizetype index, qsizetype *units = nullptr);

// A constant pattern, compiled and checked: one that does not compile stops
// the process, since no input could make it right.
QRegularExpression
constantPattern(const QString &pattern,
                QRegularExpression::PatternOptions options = QRegularExpression::NoPatternOption);

// `tail` appended to `head`, each run keeping its attributes.
void appendRichText(RichText &head, const RichText &tail);

} // namespace kestil::DocumentText
