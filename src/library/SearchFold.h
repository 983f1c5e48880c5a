#pragma once

#include <QLocale>
#include <QString>
#include <QStringView>

namespace kestil {

// The one comparison behind every search of notes: a locale-aware,
// case-insensitive substring test. Both texts are brought to the same form
// (composed characters, full case folding with the locale's rules for the
// dotted and dotless i) and then compared character by character, so that
// "STRASSE" finds "Straße" and a decomposed "é" finds a composed one.
//
// The search index of the store holds transcripts in this folded form; its
// identity says which rules made it, so that an index made under other rules
// is rebuilt rather than trusted.
class SearchFold {
public:
    enum class Rule { standard, turkic };

    explicit SearchFold(const QLocale &locale = QLocale());
    static SearchFold withRule(Rule rule);

    Rule rule() const { return rule_; }
    // Names the rules, for the index's record of how it was made.
    QString identity() const;

    QString fold(QStringView text) const;
    // Whether `text` contains `query` by this comparison. An empty query is
    // contained in everything.
    bool contains(QStringView text, QStringView query) const;
    // The same test on a text already folded by fold().
    static bool foldedContains(QStringView foldedText, QStringView foldedQuery);

private:
    explicit SearchFold(Rule rule) : rule_(rule) {}
    Rule rule_ = Rule::standard;
};

// The platform's localizedCaseInsensitiveContains, in the current locale.
bool localizedCaseInsensitiveContains(QStringView text, QStringView query);

} // namespace kestil
