#pragma once

#include <QString>

namespace kestil {

// A decoder caught in a loop writes a phrase again and again ("He was not an
// ill-disposed young man. He was not an ill-disposed young man. He was not
// an…"). This cuts the text where a run of `phraseWords` words begins that
// already came earlier in it, and keeps what came before as it was written.
// Words are compared without case and punctuation. Real speech within one
// short stretch hardly ever repeats so many words in a row.
QString withoutRepeatedPhrases(const QString &text, int phraseWords = 4);

} // namespace kestil
