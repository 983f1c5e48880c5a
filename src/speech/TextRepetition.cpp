#include "TextRepetition.h"

#include <QList>
#include <QSet>

namespace kestil {

QString withoutRepeatedPhrases(const QString &text, int phraseWords)
{
    struct Word {
        qsizetype offset;
        QString form;
    };
    QList<Word> words;
    qsizetype i = 0;
    while (i < text.size()) {
        while (i < text.size() && text[i].isSpace())
            ++i;
        const qsizetype start = i;
        QString form;
        while (i < text.size() && !text[i].isSpace()) {
            if (text[i].isLetterOrNumber())
                form += text[i].toLower();
            ++i;
        }
        if (!form.isEmpty())
            words.append(Word{start, form});
    }
    QSet<QString> seen;
    for (qsizetype w = 0; w + phraseWords <= words.size(); ++w) {
        QString phrase;
        for (int k = 0; k < phraseWords; ++k)
            phrase += words[w + k].form + QLatin1Char(' ');
        if (seen.contains(phrase))
            return text.left(words[w].offset).trimmed();
        seen.insert(phrase);
    }
    return text;
}

} // namespace kestil
