#include "documents/PreviewSnippets.h"

#include "DocumentsTestSupport.h"

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

TEST(RowPreview, ComesFromTheUsableField)
{
    const struct {
        const char *summary, *transcription, *preview;
        bool processing;
    } rows[] = {{"## Summary\nWe agreed to ship.\n", "", "We agreed to ship.", false},
                {"  # Zusammenfassung \n\nWir liefern.", "", "Wir liefern.", false},
                {"### 요약\n결정.", "", "결정.", false},
                {"#### Résumé\nOui.", "", "Oui.", false},
                {"Intro\n## Summary\nMore", "", "Intro Summary More", false},
                {"## Summary", "", "Summary", false},
                {"## TL;DR\nShort.", "", "TL;DR Short.", false},
                {"```markdown\n## Overview\nText\n```", "", "Text", false},
                {"> quoted\n1. first\n  * second\n`code` and __strong__, _em_, **b** and ~~gone~~ [link](u)",
                 "", "quoted first second code and strong, em, b and gone link", false},
                {"Generating summary...", "We met\n\nand talked.", "We met and talked.", true},
                {" Transcription in progress... ", "Loading content...", "", true},
                {"", " Transcribing audio... ", "", true},
                {"", "Transcription failed: no audio", "", false},
                {"  \n", "", "", false}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.summary);
        EXPECT_EQ(PreviewSnippets::rowPreview(q(row.summary), q(row.transcription)), q(row.preview));
        EXPECT_EQ(PreviewSnippets::isProcessingNote(q(row.summary), q(row.transcription)), row.processing);
    }
}

TEST(RowPreview, CutsTheSourceAtFourHundredCharactersBeforeRemovingMarks)
{
    const QString linked = QString(395, QLatin1Char('a')) + u" [link](https://example.org)"_s;
    EXPECT_EQ(PreviewSnippets::rowPreview(linked, {}), QString(395, QLatin1Char('a')) + u" [lin"_s);

    // Characters, not UTF-16 units: a pair is never split.
    const QString face = u"😀"_s;
    EXPECT_EQ(PreviewSnippets::rowPreview(face.repeated(401), {}), face.repeated(400));
    const QString odd = QString(399, QLatin1Char('b')) + face + u"c"_s;
    EXPECT_EQ(PreviewSnippets::rowPreview(odd, {}), QString(399, QLatin1Char('b')) + face);

    const QString megabyte = u"**Long** line "_s.repeated(80'000);
    EXPECT_EQ(PreviewSnippets::rowPreview(megabyte, {}).size(),
              PreviewSnippets::plainSnippet(megabyte.first(400)).size());
}

} // namespace
