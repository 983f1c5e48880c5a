#pragma once

#include <QSet>
#include <QString>
#include <QStringList>

namespace kestil::TextWords {

// The text lower-cased and cut into maximal runs of letters and numbers, as a set.
QSet<QString> wordSet(const QString &text);

// The same runs in order, duplicates kept.
QStringList wordRuns(const QString &text);

// The number of words that ICU's word boundaries find (punctuation and
// whitespace do not count).
qsizetype wordCount(const QString &text);

// The number of user-perceived characters (grapheme clusters).
qsizetype characterCount(const QString &text);

// The first `count` user-perceived characters of the text.
QString leftCharacters(const QString &text, qsizetype count);

// The words that ICU's word boundaries find, in order, each as it is spelled.
QStringList words(const QString &text);

} // namespace kestil::TextWords
