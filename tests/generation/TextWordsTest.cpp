#include "generation/TextWords.h"

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;

TEST(TextWords, WordSetIsLowerCasedRunsOfLettersAndNumbers)
{
    EXPECT_EQ(TextWords::wordSet("Machine-Learning, machine 42x! Café"),
              (QSet<QString>{"machine", "learning", "42x", "café"}));
    EXPECT_TRUE(TextWords::wordSet(" -- !! ").isEmpty());
    // A decomposed accent stays inside its word.
    EXPECT_EQ(TextWords::wordSet("Cafe\u0301 au lait"), (QSet<QString>{"café", "au", "lait"}));
}

TEST(TextWords, WordCountSkipsPunctuationAndWhitespace)
{
    EXPECT_EQ(TextWords::wordCount("Hello, world!  It's 3.5 degrees."), 5);
    EXPECT_EQ(TextWords::wordCount(QString()), 0);
    EXPECT_EQ(TextWords::wordCount("... --- !!!"), 0);
    EXPECT_EQ(TextWords::words("Don't stop."), (QStringList{"Don't", "stop"}));
}

TEST(TextWords, CharacterCountCountsGraphemes)
{
    EXPECT_EQ(TextWords::characterCount("e\u0301t\u00e9"), 3);
    EXPECT_EQ(TextWords::characterCount("\U0001F469\u200D\U0001F4BB"), 1);
}
