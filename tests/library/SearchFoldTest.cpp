#include "library/SearchFold.h"

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;

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
        {"plain case", R::standard, QStringLiteral("Quarterly Review"), QStringLiteral("LY re"), true},
        {"sharp s folds to ss", R::standard, QStringLiteral("Hauptstraße 5"), QStringLiteral("STRASSE"),
         true},
        {"final sigma", R::standard, QStringLiteral("ΌΣΟΣ"), QStringLiteral("όσος"), true},
        {"composed and decomposed", R::standard, QStringLiteral("re\u0301sume\u0301"),
         QStringLiteral("RÉSUMÉ"), true},
        {"accents are not ignored", R::standard, QStringLiteral("résumé"), QStringLiteral("resume"), false},
        {"a base letter is not half of an accented one", R::standard, QStringLiteral("é"),
         QStringLiteral("e"), false},
        {"dotless i stays apart in most languages", R::standard, QStringLiteral("ılık"),
         QStringLiteral("ILIK"), false},
        {"Turkish I is dotless ı", R::turkic, QStringLiteral("ılık"), QStringLiteral("ILIK"), true},
        {"Turkish İ is i", R::turkic, QStringLiteral("istanbul"), QStringLiteral("İSTANBUL"), true},
        {"symbols outside the basic plane", R::standard, QStringLiteral("ship it 🚀 now"),
         QStringLiteral("🚀 N"), true},
        {"right-to-left text", R::standard, QStringLiteral("שלום עולם"), QStringLiteral("עולם"), true},
        {"empty query", R::standard, QStringLiteral("x"), QString(), true},
        {"empty text", R::standard, QString(), QStringLiteral("x"), false},
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
    const QString broken = QStringLiteral("a") + QChar(0xD800) + QStringLiteral("b");
    EXPECT_EQ(SearchFold().fold(broken), QStringLiteral("a\uFFFDb"));
}

} // namespace
