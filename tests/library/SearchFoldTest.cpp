#include "library/SearchFold.h"

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

TEST(SearchFoldTest, CaseInsensitiveSubstringByTheLocalesRules)
{
    struct Case {
        const char *name;
        SearchFold::Rule rule;
        QString text;
        QString query;
        bool contains;
    };
    using R = SearchFold::Rule;
    const QList<Case> cases{
        {"plain case", R::standard, u"Quarterly Review"_s, u"LY re"_s, true},
        {"sharp s folds to ss", R::standard, u"Hauptstraße 5"_s, u"STRASSE"_s, true},
        {"final sigma", R::standard, u"ΌΣΟΣ"_s, u"όσος"_s, true},
        {"composed and decomposed", R::standard, u"re\u0301sume\u0301"_s, u"RÉSUMÉ"_s, true},
        {"accents are not ignored", R::standard, u"résumé"_s, u"resume"_s, false},
        {"a base letter is not half of an accented one", R::standard, u"é"_s, u"e"_s, false},
        {"dotless i stays apart in most languages", R::standard, u"ılık"_s, u"ILIK"_s, false},
        {"Turkish I is dotless ı", R::turkic, u"ılık"_s, u"ILIK"_s, true},
        {"Turkish İ is i", R::turkic, u"istanbul"_s, u"İSTANBUL"_s, true},
        {"symbols outside the basic plane", R::standard, u"ship it 🚀 now"_s, u"🚀 N"_s, true},
        {"right-to-left text", R::standard, u"שלום עולם"_s, u"עולם"_s, true},
        {"empty query", R::standard, u"x"_s, QString(), true},
        {"empty text", R::standard, QString(), u"x"_s, false},
    };
    for (const Case &c : cases)
        EXPECT_EQ(SearchFold::withRule(c.rule).contains(c.text, c.query), c.contains) << c.name;
}

TEST(SearchFoldTest, RulesComeFromTheLocaleAndNameTheIndex)
{
    EXPECT_EQ(SearchFold(QLocale(QLocale::Turkish, QLocale::Turkey)).rule(), SearchFold::Rule::turkic);
    EXPECT_EQ(SearchFold(QLocale(QLocale::Azerbaijani)).rule(), SearchFold::Rule::turkic);
    EXPECT_EQ(SearchFold(QLocale(QLocale::German, QLocale::Germany)).rule(), SearchFold::Rule::standard);
    EXPECT_NE(SearchFold::withRule(SearchFold::Rule::turkic).identity(),
              SearchFold::withRule(SearchFold::Rule::standard).identity());
}

TEST(SearchFoldTest, UnpairedSurrogatesReadAsReplacementCharacters)
{
    const QString broken = u"a"_s + QChar(0xD800) + u"b"_s;
    EXPECT_EQ(SearchFold().fold(broken), u"a\uFFFDb"_s);
}

} // namespace
