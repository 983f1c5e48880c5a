#include "generation/PartOfSpeechTagger.h"

#include "support/QtPrinters.h"

#include <QFile>

#include <gtest/gtest.h>

using namespace kestil;
using Kind = PartOfSpeechTagger::Token::Kind;

namespace {

QStringList texts(const QList<PartOfSpeechTagger::Token> &tokens, Kind kind)
{
    QStringList list;
    for (const auto &token : tokens) {
        if (token.kind == kind)
            list.append(token.text);
    }
    return list;
}

const PartOfSpeechTagger &tagger()
{
    if (!PartOfSpeechTagger::shared().hasLexicon())
        ADD_FAILURE() << "WordNet (Debian package wordnet-base) is not installed";
    return PartOfSpeechTagger::shared();
}

} // namespace

TEST(PartOfSpeechTagger, ReadsNounsFromTheLexiconAndItsContext)
{
    const auto tokens = tagger().nounsAndNames("We need to cut travel costs and review the hiring plan. The "
                                               "meeting runs long, and the runs were fun. "
                                               "The office move waits.");
    EXPECT_EQ(texts(tokens, Kind::noun),
              (QStringList{"travel", "costs", "plan", "meeting", "runs", "fun", "office", "move"}));
    EXPECT_TRUE(texts(tokens, Kind::name).isEmpty());
}

TEST(PartOfSpeechTagger, FindsAndJoinsProperNames)
{
    const auto tokens = tagger().nounsAndNames("Yesterday Ada Lovelace met the NASA team. Marcus sends the "
                                               "budget to Priyanka on Friday in New York.");
    EXPECT_EQ(texts(tokens, Kind::name),
              (QStringList{"Ada Lovelace", "NASA", "Marcus", "Priyanka", "New York"}));
    EXPECT_TRUE(texts(tokens, Kind::noun).contains("budget"));
    // A capital at the start of a sentence is no name by itself.
    EXPECT_FALSE(texts(tagger().nounsAndNames("Budget talks went well."), Kind::name).contains("Budget"));
}

TEST(PartOfSpeechTagger, LeavesOutFunctionWordsNumbersAndPunctuation)
{
    EXPECT_TRUE(tagger().nounsAndNames("It is what it is, and 42 of them were there!").isEmpty());
    EXPECT_TRUE(tagger().nounsAndNames(QString()).isEmpty());
}

TEST(PartOfSpeechTagger, WithoutALexiconOnlyNamesAreFound)
{
    const PartOfSpeechTagger bare("/nonexistent");
    EXPECT_FALSE(bare.hasLexicon());
    const auto tokens = bare.nounsAndNames("the budget for Kestil and the AI team");
    EXPECT_EQ(texts(tokens, Kind::name), (QStringList{"Kestil", "AI"}));
    EXPECT_TRUE(texts(tokens, Kind::noun).isEmpty());
}
