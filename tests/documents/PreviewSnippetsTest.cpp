#include "documents/PreviewSnippets.h"

#include "DocumentsTestSupport.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

struct PreviewRow {
    const char *summary;
    const char *transcription;
    const char *preview;
    bool processing;
};

void PrintTo(const PreviewRow &row, std::ostream *out)
{
    printRowName(row.summary, out);
}

class RowPreview : public testing::TestWithParam<PreviewRow> {};

TEST_P(RowPreview, ComesFromTheUsableField)
{
    const QString summary = QString::fromUtf8(GetParam().summary);
    const QString transcription = QString::fromUtf8(GetParam().transcription);
    EXPECT_EQ(PreviewSnippets::rowPreview(summary, transcription), QString::fromUtf8(GetParam().preview));
    EXPECT_EQ(PreviewSnippets::isProcessingNote(summary, transcription), GetParam().processing);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RowPreview,
    testing::Values(
        PreviewRow{"## Summary\nWe agreed to ship.\n", "", "We agreed to ship.", false},
        PreviewRow{"  # Zusammenfassung \n\nWir liefern.", "", "Wir liefern.", false},
        PreviewRow{"### 요약\n결정.", "", "결정.", false}, PreviewRow{"#### Résumé\nOui.", "", "Oui.", false},
        PreviewRow{"Intro\n## Summary\nMore", "", "Intro Summary More", false},
        PreviewRow{"## Summary", "", "Summary", false},
        PreviewRow{"## TL;DR\nShort.", "", "TL;DR Short.", false},
        PreviewRow{"```markdown\n## Overview\nText\n```", "", "Text", false},
        PreviewRow{
            "> quoted\n1. first\n  * second\n`code` and __strong__, _em_, **b** and ~~gone~~ [link](u)", "",
            "quoted first second code and strong, em, b and gone link", false},
        PreviewRow{"Generating summary...", "We met\n\nand talked.", "We met and talked.", true},
        PreviewRow{" Transcription in progress... ", "Loading content...", "", true},
        PreviewRow{"", " Transcribing audio... ", "", true},
        PreviewRow{"", "Transcription failed: no audio", "", false}, PreviewRow{"  \n", "", "", false}));

TEST(RowPreview, CutsTheSourceAtFourHundredCharactersBeforeRemovingMarks)
{
    // A link cut by the limit keeps its marks.
    const QString linked = QString(395, QLatin1Char('a')) + QStringLiteral(" [link](https://example.org)");
    EXPECT_EQ(PreviewSnippets::rowPreview(linked, {}),
              QString(395, QLatin1Char('a')) + QStringLiteral(" [lin"));

    // Characters, not UTF-16 units: a pair is never split.
    const QString face = QStringLiteral("😀");
    EXPECT_EQ(PreviewSnippets::rowPreview(face.repeated(401), {}), face.repeated(400));
    const QString odd = QString(399, QLatin1Char('b')) + face + QStringLiteral("c");
    EXPECT_EQ(PreviewSnippets::rowPreview(odd, {}), QString(399, QLatin1Char('b')) + face);

    const QString megabyte = QStringLiteral("**Long** line ").repeated(80'000);
    EXPECT_EQ(PreviewSnippets::rowPreview(megabyte, {}).size(),
              PreviewSnippets::plainSnippet(megabyte.first(400)).size());
}

} // namespace
