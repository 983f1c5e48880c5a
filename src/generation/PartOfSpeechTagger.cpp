#include "generation/PartOfSpeechTagger.h"

#include <unicode/ubrk.h>

#include <QFile>
#include <QStringList>

#include <memory>

namespace kestil {

namespace {

// Closed-class words (determiners, pronouns, prepositions, conjunctions and
// auxiliaries) are grammar, not content: WordNet does not describe them, yet
// spells a few of them as abbreviations (WHO, IT, US, AM).
const QSet<QString> &closedClassWords()
{
    static const QSet<QString> words{
        "a",       "an",      "the",    "this",   "that",      "these",    "those",      "my",     "your",
        "our",     "their",   "his",    "her",    "its",       "some",     "any",        "each",   "every",
        "no",      "another", "i",      "me",     "we",        "us",       "you",        "he",     "him",
        "she",     "it",      "they",   "them",   "who",       "whom",     "whose",      "which",  "what",
        "where",   "when",    "why",    "how",    "of",        "in",       "on",         "at",     "by",
        "for",     "with",    "about",  "from",   "to",        "into",     "onto",       "over",   "under",
        "up",      "down",    "out",    "off",    "as",        "than",     "and",        "or",     "but",
        "nor",     "so",      "yet",    "if",     "because",   "while",    "although",   "be",     "am",
        "is",      "are",     "was",    "were",   "been",      "being",    "do",         "does",   "did",
        "have",    "has",     "had",    "will",   "would",     "shall",    "should",     "can",    "could",
        "may",     "might",   "must",   "not",    "also",      "just",     "very",       "there",  "here",
        "then",    "all",     "both",   "either", "neither",   "such",     "own",        "same",   "other",
        "more",    "most",    "much",   "many",   "few",       "less",     "least",      "mine",   "yours",
        "ours",    "theirs",  "hers",   "myself", "ourselves", "yourself", "themselves", "itself", "himself",
        "herself", "yes",     "okay",   "ok",     "let",       "lets",     "via",        "per",    "etc",
        "like",    "well",    "really", "um",     "uh"};
    return words;
}

// Words after which a word that can be a verb is one: subjects and auxiliaries.
const QSet<QString> &verbContext()
{
    static const QSet<QString> words{"i",    "we",    "you",    "they",  "he",     "she",  "it",
                                     "to",   "will",  "would",  "shall", "should", "can",  "could",
                                     "may",  "might", "must",   "do",    "does",   "did",  "not",
                                     "also", "just",  "always", "never", "please", "lets", "let"};
    return words;
}

const QSet<QString> &determiners()
{
    static const QSet<QString> words{"a",    "an",   "the",  "this",  "that",    "these", "those",
                                     "my",   "your", "our",  "their", "his",     "her",   "its",
                                     "some", "any",  "each", "every", "another", "no"};
    return words;
}

// WordNet's own rules for finding the lemma of an inflected word.
struct Suffix {
    const char *ending;
    const char *replacement;
};
const Suffix nounSuffixes[] = {{"s", ""},      {"ses", "s"},   {"xes", "x"},   {"zes", "z"},
                               {"ches", "ch"}, {"shes", "sh"}, {"men", "man"}, {"ies", "y"}};
const Suffix verbSuffixes[] = {{"s", ""},   {"ies", "y"}, {"es", "e"},  {"es", ""},
                               {"ed", "e"}, {"ed", ""},   {"ing", "e"}, {"ing", ""}};
const Suffix adjectiveSuffixes[] = {{"er", ""}, {"est", ""}, {"er", "e"}, {"est", "e"}};

struct BreakIteratorCloser {
    void operator()(UBreakIterator *iterator) const { ubrk_close(iterator); }
};

struct Word {
    qsizetype start;
    qsizetype end;
    QString text;
};

QList<Word> wordsOf(const QString &text)
{
    QList<Word> words;
    if (text.isEmpty())
        return words;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UBreakIterator, BreakIteratorCloser> iterator(
        ubrk_open(UBRK_WORD, "en_US_POSIX", reinterpret_cast<const UChar *>(text.utf16()),
                  int32_t(text.size()), &status));
    if (U_FAILURE(status))
        return words;
    int32_t start = ubrk_first(iterator.get());
    for (int32_t end = ubrk_next(iterator.get()); end != UBRK_DONE;
         start = end, end = ubrk_next(iterator.get())) {
        // Letters, kana and ideographs; numbers are not nouns.
        const int32_t rule = ubrk_getRuleStatus(iterator.get());
        if (rule >= UBRK_WORD_LETTER && rule < UBRK_WORD_IDEO_LIMIT)
            words.append({start, end, text.mid(start, end - start)});
    }
    return words;
}

bool hasLetter(const QString &word)
{
    for (QChar c : word) {
        if (c.isLetter())
            return true;
    }
    return false;
}

bool isAcronym(const QString &word)
{
    int letters = 0;
    for (QChar c : word) {
        if (c.isLetter()) {
            if (!c.isUpper())
                return false;
            ++letters;
        }
    }
    return letters >= 2;
}

bool isCapitalised(const QString &word)
{
    return !word.isEmpty() && word.at(0).isUpper();
}

// Whether a word opens a sentence, a line, a list item or a heading: there a
// capital letter says nothing about names.
bool opensSentence(const QString &text, qsizetype start)
{
    for (qsizetype i = start - 1; i >= 0; --i) {
        const QChar c = text.at(i);
        if (c == QLatin1Char('\n') || c == QLatin1Char('.') || c == QLatin1Char('!') ||
            c == QLatin1Char('?') || c == QLatin1Char(':') || c == QLatin1Char(';'))
            return true;
        if (c.isSpace() || c == QLatin1Char('#') || c == QLatin1Char('-') || c == QLatin1Char('*') ||
            c == QLatin1Char('>') || c == QLatin1Char('"') || c == QLatin1Char('(') ||
            c == QLatin1Char('_') || c == u'“' || c == u'‘')
            continue;
        return false;
    }
    return true;
}

void loadIndex(const QString &path, QHash<QString, int> &lemmas)
{
    // Only whether a word is a lemma of the class counts here; how often it is
    // seen comes from cntlist.rev.
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine();
        if (line.startsWith(' '))
            continue; // the licence at the top of the file
        const QList<QByteArray> fields = line.split(' ');
        // lemma pos synset_cnt p_cnt [ptr_symbol...] sense_cnt tagsense_cnt synset_offset...
        if (fields.size() < 6)
            continue;
        bool ok = false;
        const int pointers = fields.at(3).toInt(&ok);
        if (!ok || fields.size() <= 5 + pointers)
            continue;
        const int tagged = fields.at(5 + pointers).toInt(&ok);
        if (!ok || fields.at(0).contains('_'))
            continue;
        lemmas.insert(QString::fromUtf8(fields.at(0)), tagged);
    }
}

// cntlist.rev: "lemma%class:file:id:head:headid sense count", one line per
// sense; the classes are 1 noun, 2 verb, 3 adjective, 4 adverb, 5 adjective
// satellite.
void loadFrequencies(const QString &path, QHash<QString, int> *frequencies)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    while (!file.atEnd()) {
        const QList<QByteArray> fields = file.readLine().trimmed().split(' ');
        if (fields.size() < 3)
            continue;
        const QByteArray &senseKey = fields.at(0);
        const qsizetype percent = senseKey.indexOf('%');
        if (percent <= 0 || percent + 1 >= senseKey.size() || senseKey.left(percent).contains('_'))
            continue;
        const int wordClass = senseKey.at(percent + 1) - '1';
        const int index = wordClass == 4 ? 2 : wordClass; // satellites are adjectives
        if (index < 0 || index > 3)
            continue;
        frequencies[index][QString::fromUtf8(senseKey.left(percent))] += fields.at(2).toInt();
    }
}

void loadExceptions(const QString &path, QHash<QString, QString> &exceptions)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    while (!file.atEnd()) {
        const QList<QByteArray> fields = file.readLine().trimmed().split(' ');
        if (fields.size() >= 2 && !exceptions.contains(QString::fromUtf8(fields.at(0))))
            exceptions.insert(QString::fromUtf8(fields.at(0)), QString::fromUtf8(fields.at(1)));
    }
}

} // namespace

const PartOfSpeechTagger &PartOfSpeechTagger::shared()
{
    static const PartOfSpeechTagger tagger([] {
        const QString configured = qEnvironmentVariable("KESTIL_WORDNET_DIR");
        return configured.isEmpty() ? QStringLiteral("/usr/share/wordnet") : configured;
    }());
    return tagger;
}

PartOfSpeechTagger::PartOfSpeechTagger(const QString &wordnetDirectory)
{
    const QString names[classCount] = {QStringLiteral("noun"), QStringLiteral("verb"), QStringLiteral("adj"),
                                       QStringLiteral("adv")};
    for (int i = 0; i < classCount; ++i) {
        loadIndex(wordnetDirectory + QStringLiteral("/index.") + names[i], lemmas_[i]);
        loadExceptions(wordnetDirectory + QLatin1Char('/') + names[i] + QStringLiteral(".exc"),
                       exceptions_[i]);
    }
    loadFrequencies(wordnetDirectory + QStringLiteral("/cntlist.rev"), frequencies_);
    nouns_ = lemmas_[noun];
}

int PartOfSpeechTagger::count(Class wordClass, const QString &lemma) const
{
    if (!lemmas_[wordClass].contains(lemma))
        return -1;
    return frequencies_[wordClass].value(lemma, 0);
}

int PartOfSpeechTagger::reading(Class wordClass, const QString &word) const
{
    const int direct = count(wordClass, word);
    return direct >= 0 ? direct : inflectedCount(wordClass, word);
}

int PartOfSpeechTagger::inflectedCount(Class wordClass, const QString &word) const
{
    int best = -1;
    if (auto it = exceptions_[wordClass].constFind(word); it != exceptions_[wordClass].constEnd())
        best = qMax(best, count(wordClass, *it));
    const auto tryRules = [&](const auto &rules) {
        for (const Suffix &rule : rules) {
            const QString ending = QString::fromLatin1(rule.ending);
            if (word.size() > ending.size() + 1 && word.endsWith(ending))
                best = qMax(best, count(wordClass,
                                        word.chopped(ending.size()) + QString::fromLatin1(rule.replacement)));
        }
    };
    if (wordClass == noun)
        tryRules(nounSuffixes);
    else if (wordClass == verb)
        tryRules(verbSuffixes);
    else if (wordClass == adjective)
        tryRules(adjectiveSuffixes);
    return best;
}

int PartOfSpeechTagger::anyReading(Class wordClass, const QString &word) const
{
    return qMax(count(wordClass, word), inflectedCount(wordClass, word));
}

bool PartOfSpeechTagger::isCommon(const QString &word) const
{
    // Seen in the tagged corpus in some class. Lexicon entries that were never
    // seen there are mostly names themselves (sarah, chen, berlin).
    for (int i = 0; i < classCount; ++i) {
        if (reading(Class(i), word) > 0)
            return true;
    }
    return closedClassWords().contains(word);
}

bool PartOfSpeechTagger::isNoun(const QString &word) const
{
    if (closedClassWords().contains(word))
        return false;
    // A word that is itself a lemma is weighed against other lemmas spelled
    // the same; an inflected word against the other readings of its
    // inflection. "meeting" is a noun lemma and no verb lemma, so a noun;
    // "runs" is far more often the verb run than the noun.
    const bool isLemma = count(noun, word) >= 0;
    const int nounCount = isLemma ? count(noun, word) : inflectedCount(noun, word);
    if (nounCount < 0)
        return false;
    int other = -1;
    for (Class wordClass : {verb, adjective, adverb})
        other = qMax(other, isLemma ? count(wordClass, word) : inflectedCount(wordClass, word));
    if (nounCount >= other && (nounCount > 0 || other < 0))
        return nounCount > 0 || word.size() >= 4;
    return false;
}

QList<PartOfSpeechTagger::Token> PartOfSpeechTagger::nounsAndNames(const QString &text) const
{
    const QList<Word> words = wordsOf(text);
    const qsizetype n = words.size();
    QList<QString> lower(n);
    QList<bool> nounCapable(n);
    for (qsizetype i = 0; i < n; ++i) {
        lower[i] = words.at(i).text.toLower();
        nounCapable[i] = !closedClassWords().contains(lower[i]) && reading(noun, lower[i]) >= 0;
    }
    // Whether two neighbouring words stand in one clause: nothing but blanks
    // (or a hyphen) between them.
    const auto adjacent = [&](qsizetype i) {
        for (qsizetype at = words.at(i).end; at < words.at(i + 1).start; ++at) {
            const QChar c = text.at(at);
            if (!c.isSpace() && c != QLatin1Char('-'))
                return false;
        }
        return true;
    };

    QList<Token> tokens;
    bool inPhrase = false; // after a determiner, until the phrase's head
    bool verbNext = false; // after a subject or an auxiliary
    for (qsizetype i = 0; i < n; ++i) {
        if (i > 0 && !adjacent(i - 1)) {
            inPhrase = false;
            verbNext = false;
        }
        const QString &word = words.at(i).text;
        const QString &lowerWord = lower.at(i);
        if (closedClassWords().contains(lowerWord)) {
            inPhrase = determiners().contains(lowerWord);
            verbNext = verbContext().contains(lowerWord);
            continue;
        }
        if (!hasLetter(word)) {
            inPhrase = false;
            verbNext = false;
            continue;
        }
        // "meeting runs", "office move waits": after a noun, a word in -s that
        // is more often a verb than a noun is the verb of the clause.
        const auto actsAsVerbAfter = [&](qsizetype at) {
            return at > 0 && nounCapable.at(at - 1) && lower.at(at).endsWith(QLatin1Char('s')) &&
                   anyReading(verb, lower.at(at)) > qMax(0, anyReading(noun, lower.at(at)));
        };
        const bool nextIsNoun = i + 1 < n && adjacent(i) && nounCapable.at(i + 1) &&
                                !(nounCapable.at(i) && actsAsVerbAfter(i + 1));
        const bool nextIsDeterminer = i + 1 < n && adjacent(i) && determiners().contains(lower.at(i + 1));

        // A name: an acronym, or a capitalised word that is no common word
        // where it stands; at the start of a sentence a capital says nothing,
        // so there only words that are not common count. A name runs on over
        // the capitalised uncommon words that follow it with one blank
        // between: "Ada Lovelace", "New York".
        bool name = isAcronym(word);
        if (!name && isCapitalised(word)) {
            name = !isCommon(lowerWord) ||
                   (!opensSentence(text, words.at(i).start) && !isNoun(lowerWord) && lowerWord.size() > 1);
        }
        if (name) {
            qsizetype end = words.at(i).end;
            qsizetype last = i;
            while (last + 1 < n) {
                const Word &next = words.at(last + 1);
                if (text.mid(end, next.start - end) != QStringLiteral(" ") || !isCapitalised(next.text) ||
                    (isCommon(lower.at(last + 1)) && !isAcronym(next.text)))
                    break;
                end = next.end;
                ++last;
            }
            tokens.append({text.mid(words.at(i).start, end - words.at(i).start), Token::Kind::name});
            i = last;
            inPhrase = false;
            verbNext = true; // "Marcus talks to ..."
            continue;
        }

        bool isNounHere = false;
        if (nounCapable.at(i)) {
            const bool canBeVerb = reading(verb, lowerWord) >= 0;
            if (inPhrase && actsAsVerbAfter(i))
                isNounHere = false;
            else if (inPhrase && !nextIsNoun)
                isNounHere = true; // the head of "the (hiring) plan"
            else if (canBeVerb && (verbNext || nextIsDeterminer) && !inPhrase)
                isNounHere = false; // "we need", "will review", "cut the costs"
            else if (!verbNext && nextIsNoun && isNoun(lower.at(i + 1)))
                isNounHere = true; // a noun before a noun: "travel costs"
            else
                isNounHere = isNoun(lowerWord);
        }
        if (isNounHere)
            tokens.append({word, Token::Kind::noun});
        // A phrase runs on through its modifiers and ends at its head.
        inPhrase = inPhrase && nextIsNoun;
        verbNext = false;
    }
    return tokens;
}

} // namespace kestil
