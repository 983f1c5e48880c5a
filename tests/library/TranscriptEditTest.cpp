#include "library/TranscriptEdit.h"

#include "base/Error.h"
#include "speech/TranscriptUtterancesJson.h"

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

const QSet<QString> placeholders{u"Transcribing audio..."_s, u"Loading transcript..."_s};

TEST(TranscriptEditTest, AnyRunningWorkBlocksTheSave)
{
    EXPECT_TRUE(canSaveTranscriptEdit({}));
    bool TranscriptEditGate::*flags[] = {
        &TranscriptEditGate::noteDeleted,         &TranscriptEditGate::recording,
        &TranscriptEditGate::transcriptionPaused, &TranscriptEditGate::starting,
        &TranscriptEditGate::finishing,           &TranscriptEditGate::operationInProgress,
        &TranscriptEditGate::generatingSummary,   &TranscriptEditGate::busy};
    for (auto flag : flags) {
        TranscriptEditGate gate;
        gate.*flag = true;
        EXPECT_FALSE(canSaveTranscriptEdit(gate));
    }
}

TEST(TranscriptEditTest, ATranscriptThatMovedOnIsNeverOverwrittenAndAnUnchangedOneWritesNothing)
{
    const QString original = u"What the editor opened with."_s;
    const QString now = u"What a recording wrote since."_s;
    try {
        transcriptEditFields(now, u"The user's edit."_s, original, placeholders);
        FAIL() << "a conflict must throw";
    } catch (const LocalError &error) {
        EXPECT_EQ(error.message(), QStringLiteral("This transcript changed while you were editing. Close the "
                                                  "editor and reopen it to edit the latest text."));
    }
    // Even when the user happened to type exactly the new text.
    EXPECT_THROW(transcriptEditFields(now, now, original, placeholders), LocalError);
    EXPECT_FALSE(transcriptEditFields(original, original, original, placeholders));
    EXPECT_FALSE(transcriptEditFields({}, {}, {}, placeholders));
}

TEST(TranscriptEditTest, AnEditWritesTheTextAndItsUntimedParagraphsTogetherWithoutPlaceholders)
{
    const auto fields = transcriptEditFields(u"old"_s, u"First.\n\nSecond."_s, u"old"_s, placeholders);
    ASSERT_TRUE(fields);
    EXPECT_EQ(fields->value(u"transcription"_s).toString(), u"First.\n\nSecond."_s);
    const auto utterances =
        decodeTranscriptUtterances(fields->value(u"transcriptUtterancesJSON"_s).toString());
    ASSERT_TRUE(utterances);
    ASSERT_EQ(utterances->size(), 2);
    EXPECT_FALSE((*utterances)[0].start) << "an edit drops all timing";
    EXPECT_EQ((*utterances)[1].text, u"Second."_s);

    const auto cleared = transcriptEditFields(u"old"_s, u""_s, u"old"_s, placeholders);
    ASSERT_TRUE(cleared);
    EXPECT_EQ(cleared->value(u"transcription"_s).toString(), QString());
    EXPECT_EQ(cleared->value(u"transcriptUtterancesJSON"_s).toString(), u"[]"_s)
        << "an emptied transcript is an empty list, written as it stands";

    const auto placeholder =
        transcriptEditFields(u"old"_s, u" Transcribing audio... "_s, u"old"_s, placeholders);
    ASSERT_TRUE(placeholder);
    EXPECT_EQ(placeholder->value(u"transcription"_s).toString(), QString())
        << "a placeholder is not saved as content";
}

} // namespace
