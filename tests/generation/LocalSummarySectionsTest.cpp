#include "generation/LocalSummary.h"

#include "ScriptedLanguageModel.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

constexpr auto tmpl = LocalSummaryTemplate::meeting;

QString words(qsizetype bytes)
{
    const QString sentence = "The team agreed to ship the beta on Friday after review. ";
    return sentence.repeated(bytes / sentence.size() + 1).left(bytes);
}

// The sections of a source for a scripted model with this much context.
QStringList sections(const QString &source, qint64 contextTokens)
{
    ScriptedLanguageModel model;
    model.contextTokens = contextTokens;
    const qint64 overhead = model.tokenCount(LanguageModel::Instructions{LocalSummary::instructions()});
    return LocalSummary::makeSections(model, source, tmpl, overhead, LocalSummary::budget(model), {});
}

} // namespace

TEST(LocalSummaryChunks, CutsAtScalarsWithinTheByteLimit)
{
    const QString four = "\U0001F600";
    const QString lone = QString(QChar(0xD800));
    const std::tuple<QString, qsizetype, QStringList> rows[] = {
        {QString(), 4, {}},
        {"abcdefghij", 4, {"abcd", "efgh", "ij"}},
        {four, 4, {four}},
        {four + four, 4, {four, four}},
        // "é" is two bytes: a piece of five bytes holds "aé" and then two of them would be six.
        {"aéaéé", 5, {"aéa", "éé"}},
        // A cut may part a letter from its combining mark; joining restores the text.
        {"abce\u0301", 4, {"abce", "\u0301"}},
        // A lone surrogate counts as the three bytes of its replacement character.
        {lone + "ab", 4, {lone + "a", "b"}}};
    for (const auto &[text, limit, pieces] : rows)
        EXPECT_EQ(LocalSummary::chunks(text, limit), pieces) << text.toStdString();
    EXPECT_DEATH(LocalSummary::chunks("abc", 3), "at least 4");
}

TEST(LocalSummaryFit, ChecksBothPromptsAndCountsAnExactFit)
{
    ScriptedLanguageModel model;
    model.contextTokens = 8192;
    EXPECT_EQ(LocalSummary::budget(model), 4096);
    model.contextTokens = 2400;
    const qint64 overhead = model.tokenCount(LanguageModel::Instructions{LocalSummary::instructions()});
    const QString text = words(1000);
    const qint64 required =
        overhead + model.tokenCount(LanguageModel::Prompt{LocalSummary::finalPrompt(text, tmpl)}) + 512 + 256;
    EXPECT_FALSE(LocalSummary::fitsModel(model, text, tmpl, overhead, required - 1));
    // The final prompt is the longer one here; both are asked for all the same.
    model.tokenCounts = 0;
    EXPECT_TRUE(LocalSummary::fitsModel(model, text, tmpl, overhead, required));
    EXPECT_EQ(model.tokenCounts, 2);
}

TEST(LocalSummarySections, GrowByWholeUnitsHalveWhatDoesNotFitAndRebuildTheSource)
{
    const QString fits = words(3000);
    EXPECT_EQ(sections(fits, 4096), QStringList{fits});
    // About 5000 bytes fit: 2400 + 2400, a third unit does not; the short last unit joins the section before
    // it.
    const QString source = words(4 * 2400 + 100);
    EXPECT_EQ(sections(source, 2400), (QStringList{source.left(4800), source.mid(4800)}));
    // About 1900 bytes fit: a 2400-byte unit is cut in two, and text after it may still join its last piece.
    for (const QString &text : {words(2400), words(2700)})
        EXPECT_EQ(sections(text, 1600), (QStringList{text.left(1200), text.mid(1200)}));

    QString wide;
    for (int i = 0; i < 1000; ++i)
        wide += QStringLiteral("e\u0301\U0001F600漢");
    const QStringList pieces = sections(wide, 1600);
    EXPECT_GT(pieces.size(), 3);
    EXPECT_EQ(pieces.join(QString()), wide);
    EXPECT_FALSE(pieces.contains(QString()));

    // Less context than the fixed prompt and the answer's reserve.
    try {
        sections("Hello there.", 900);
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
    // Nothing fits, or one character of two scalars would have to be cut.
    EXPECT_THROW(LocalSummary::splitToFit("abcd", under(3), {}), LocalError);
    EXPECT_THROW(LocalSummary::splitToFit("ab", under(0), {}), LocalError);
    EXPECT_THROW(LocalSummary::splitToFit("e\u0301", under(1), {}), LocalError);
    CancellationToken cancel;
    cancel.cancel();
    EXPECT_THROW(LocalSummary::splitToFit("abc", under(8), cancel), CancellationError);
}
