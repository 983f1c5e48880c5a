// The words of a text: as runs and counts, and as nouns and names.
#include "generation/PartOfSpeechTagger.h"
#include "generation/TextWords.h"

#include "support/QtPrinters.h"

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

TEST(TextWords, RunsOfLettersAndNumbersCountsOfWordsAndGraphemes)
{
    EXPECT_EQ(TextWords::wordSet("Machine-Learning, machine 42x! Café"),
              (QSet<QString>{"machine", "learning", "42x", "café"}));
    EXPECT_TRUE(TextWords::wordSet(" -- !! ").isEmpty());
    // A decomposed accent stays inside its word.
    EXPECT_EQ(TextWords::wordSet("Cafe\u0301 au lait"), (QSet<QString>{"café", "au", "lait"}));
    EXPECT_EQ(TextWords::wordCount("Hello, world!  It's 3.5 degrees."), 5);
    EXPECT_EQ(TextWords::wordCount("... --- !!!"), 0);
    EXPECT_EQ(TextWords::words("Don't stop."), (QStringList{"Don't", "stop"}));
    EXPECT_EQ(TextWords::characterCount("e\u0301t\u00e9"), 3);
    EXPECT_EQ(TextWords::characterCount("\U0001F469\u200D\U0001F4BB"), 1);
}

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
