#include "generation/LocalSummary.h"

#include "ScriptedLanguageModel.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

constexpr auto tmpl = LocalSummaryTemplate::meeting;

qint64 overheadOf(ScriptedLanguageModel &model)
{
    return model.tokenCount(LanguageModel::Instructions{LocalSummary::instructions()});
}

// The most bytes of ASCII text that fit the model, found with the fit test itself.
qsizetype capacity(ScriptedLanguageModel &model)
{
    const qint64 overhead = overheadOf(model);
    const qint64 budget = LocalSummary::budget(model);
    qsizetype low = 0;
    qsizetype high = 100000;
    while (low < high) {
        const qsizetype middle = (low + high + 1) / 2;
        if (LocalSummary::fitsModel(model, QString(middle, QLatin1Char('a')), tmpl, overhead, budget))
            low = middle;
        else
            high = middle - 1;
    }
    return low;
}

QString words(qsizetype bytes)
{
    const QString sentence = "The team agreed to ship the beta on Friday after review. ";
    return sentence.repeated(bytes / sentence.size() + 1).left(bytes);
}

} // namespace

TEST(LocalSummaryChunks, CutsAtScalarsWithinTheByteLimit)
{
    EXPECT_TRUE(LocalSummary::chunks(QString(), 4).isEmpty());
    EXPECT_EQ(LocalSummary::chunks("abcdefghij", 4), (QStringList{"abcd", "efgh", "ij"}));
    const QString four = "\U0001F600";
    EXPECT_EQ(LocalSummary::chunks(four, 4), QStringList{four});
    EXPECT_EQ(LocalSummary::chunks(four + four, 4), (QStringList{four, four}));
    // "é" is two bytes: a piece of five bytes holds "aé" and then two of them would be six.
    EXPECT_EQ(LocalSummary::chunks("aéaéé", 5), (QStringList{"aéa", "éé"}));
    // A cut may part a letter from its combining mark; joining restores the text.
    const QString combining = "abce\u0301";
    const QStringList pieces = LocalSummary::chunks(combining, 4);
    EXPECT_EQ(pieces, (QStringList{"abce", "\u0301"}));
    EXPECT_EQ(pieces.join(QString()), combining);
    // A lone surrogate counts as the three bytes of its replacement character.
    const QString lone = QString(QChar(0xD800)) + "ab";
    EXPECT_EQ(LocalSummary::chunks(lone, 4), (QStringList{QString(QChar(0xD800)) + "a", "b"}));
}

TEST(LocalSummaryChunks, ByteLimitBelowFourStopsTheProgram)
{
    EXPECT_DEATH(LocalSummary::chunks("abc", 3), "at least 4");
}

TEST(LocalSummaryFit, ChecksBothPromptsAndCountsAnExactFit)
{
    ScriptedLanguageModel model;
    model.contextTokens = 8192;
    EXPECT_EQ(LocalSummary::budget(model), 4096);
    model.contextTokens = 2400;
    const qint64 overhead = overheadOf(model);
    const QString text = words(1000);
    const qint64 finalTokens = model.tokenCount(LanguageModel::Prompt{LocalSummary::finalPrompt(text, tmpl)});
    const qint64 required = overhead + finalTokens + 512 + 256;
    EXPECT_TRUE(LocalSummary::fitsModel(model, text, tmpl, overhead, required));
    EXPECT_FALSE(LocalSummary::fitsModel(model, text, tmpl, overhead, required - 1));
    // The final prompt is the longer one here; both are asked for all the same.
    model.tokenCounts = 0;
    LocalSummary::fitsModel(model, text, tmpl, overhead, required);
    EXPECT_EQ(model.tokenCounts, 2);
}

TEST(LocalSummarySections, ASourceThatFitsIsOneSection)
{
    ScriptedLanguageModel model;
    const QString source = words(3000);
    model.tokenCounts = 0;
    EXPECT_EQ(LocalSummary::makeSections(model, source, tmpl, overheadOf(model), 4096, {}),
              QStringList{source});
    EXPECT_EQ(model.tokenCounts, 1 + 2);
}

TEST(LocalSummarySections, SectionsGrowByWholeUnitsAndRebuildTheSource)
{
    ScriptedLanguageModel model;
    model.contextTokens = 2400;
    const qsizetype fit = capacity(model);
    ASSERT_GT(fit, 4800);
    ASSERT_LT(fit, 7200);
    const QString source = words(4 * 2400 + 100);
    const QStringList sections =
        LocalSummary::makeSections(model, source, tmpl, overheadOf(model), LocalSummary::budget(model), {});
    EXPECT_EQ(sections.join(QString()), source);
    // 2400 + 2400 fit, a third unit does not; the short last unit joins the section before it.
    ASSERT_EQ(sections.size(), 2);
    EXPECT_EQ(sections.at(0).size(), 4800);
    EXPECT_EQ(sections.at(1).size(), 4900);
}

TEST(LocalSummarySections, AUnitThatDoesNotFitIsHalved)
{
    ScriptedLanguageModel model;
    // Room for about 1900 bytes of source: a 2400-byte unit must be cut in two.
    model.contextTokens = 1600;
    const qsizetype fit = capacity(model);
    ASSERT_GT(fit, 1200);
    ASSERT_LT(fit, 2400);
    const QString source = words(2400);
    const QStringList sections =
        LocalSummary::makeSections(model, source, tmpl, overheadOf(model), LocalSummary::budget(model), {});
    EXPECT_EQ(sections, (QStringList{source.left(1200), source.mid(1200)}));

    // Text after a halved unit may still join its last piece.
    const QString longer = words(2400 + 300);
    const QStringList joined =
        LocalSummary::makeSections(model, longer, tmpl, overheadOf(model), LocalSummary::budget(model), {});
    EXPECT_EQ(joined, (QStringList{longer.left(1200), longer.mid(1200)}));
}

TEST(LocalSummarySections, ASourceOfManyBytesPerCharacterStillRebuilds)
{
    ScriptedLanguageModel model;
    model.contextTokens = 1600;
    QString source;
    for (int i = 0; i < 3000; ++i)
        source +=
            (i % 3 == 0) ? QStringLiteral("e\u0301") : (i % 3 == 1 ? QStringLiteral("\U0001F600") : "漢");
    const QStringList sections =
        LocalSummary::makeSections(model, source, tmpl, overheadOf(model), LocalSummary::budget(model), {});
    EXPECT_GT(sections.size(), 3);
    EXPECT_EQ(sections.join(QString()), source);
    for (const QString &section : sections)
        EXPECT_FALSE(section.isEmpty());
}

TEST(LocalSummarySections, FailsWhenNothingCanFit)
{
    ScriptedLanguageModel model;
    model.contextTokens = 900; // less than the fixed prompt and the answer's reserve
    try {
        LocalSummary::makeSections(model, "Hello there.", tmpl, overheadOf(model),
                                   LocalSummary::budget(model), {});
        FAIL() << "sections of a source that cannot fit";
    } catch (const LocalError &error) {
        EXPECT_EQ(error.message(), "The model context is too small for this source.");
    }
}

TEST(LocalSummarySections, SplitToFitHalvesUntilEachPieceFits)
{
    const auto under = [](qsizetype bytes) {
        return [bytes](const QString &text) { return text.toUtf8().size() <= bytes; };
    };
    EXPECT_EQ(LocalSummary::splitToFit("abcdefgh", under(8), {}), QStringList{"abcdefgh"});
    EXPECT_EQ(LocalSummary::splitToFit("abcdefgh", under(4), {}), (QStringList{"abcd", "efgh"}));
    // Eleven bytes are cut at five: three pieces; five bytes are cut at the smallest limit, four.
    EXPECT_EQ(LocalSummary::splitToFit("abcdefghijk", under(4), {}),
              (QStringList{"abcd", "e", "fghi", "j", "k"}));
    EXPECT_THROW(LocalSummary::splitToFit("abcd", under(3), {}), LocalError);
    EXPECT_THROW(LocalSummary::splitToFit("ab", under(0), {}), LocalError);
    // One character made of two scalars cannot be cut.
    EXPECT_THROW(LocalSummary::splitToFit("e\u0301", under(1), {}), LocalError);

    CancellationToken cancel;
    cancel.cancel();
    EXPECT_THROW(LocalSummary::splitToFit("abc", under(8), cancel), CancellationError);
}
