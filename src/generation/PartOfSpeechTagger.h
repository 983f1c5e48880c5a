#pragma once

#include <QHash>
#include <QList>
#include <QSet>
#include <QString>

namespace kestil {

// Finds the nouns and proper names of a text. Words come from ICU's word
// boundaries. Whether a word is a noun is decided on WordNet: its lemmas for
// each word class, its inflection rules, and how often each reading was seen
// in WordNet's tagged corpus (cntlist.rev), weighed with the words around it
// (the head of a phrase after "the" is a noun; a word after "we" or "will",
// or before "the", is a verb when it can be one). Proper names are acronyms
// and capitalised words that are no common noun where they stand, with runs
// of them ("Ada Lovelace") joined into one.
class PartOfSpeechTagger {
public:
    struct Token {
        enum class Kind { noun, name };
        QString text;
        Kind kind = Kind::noun;

        friend bool operator==(const Token &, const Token &) = default;
    };

    // The tagger on the system's WordNet ($KESTIL_WORDNET_DIR, else
    // /usr/share/wordnet), loaded once on first use.
    static const PartOfSpeechTagger &shared();

    // A tagger on the WordNet files in a folder (index.noun, index.verb,
    // index.adj, index.adv, the *.exc lists and cntlist.rev). Without them it
    // still finds names.
    explicit PartOfSpeechTagger(const QString &wordnetDirectory);

    bool hasLexicon() const { return !nouns_.isEmpty(); }

    // The nouns and names of a text in order, punctuation and whitespace left out.
    QList<Token> nounsAndNames(const QString &text) const;

    // Whether the lexicon, without context, reads a lower-case word as a noun.
    bool isNoun(const QString &word) const;

private:
    enum Class { noun, verb, adjective, adverb, classCount };

    // How often a lemma was seen in one class; -1 when it is no lemma of it.
    int count(Class wordClass, const QString &lemma) const;
    // The highest count among lemmas that the word is an inflection of.
    int inflectedCount(Class wordClass, const QString &word) const;
    // The count of a word in a class, as a lemma when it is one, else as an inflection.
    int reading(Class wordClass, const QString &word) const;
    // The higher of its counts as a lemma and as an inflection ("costs" is
    // a lemma of its own, and the plural of cost).
    int anyReading(Class wordClass, const QString &word) const;
    bool isCommon(const QString &word) const;

    QHash<QString, int> nouns_;
    QHash<QString, int> lemmas_[classCount];
    QHash<QString, int> frequencies_[classCount];
    QHash<QString, QString> exceptions_[classCount];
};

} // namespace kestil
