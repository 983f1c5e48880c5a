#include "library/TranscriptEdit.h"

#include "base/Error.h"
#include "speech/TranscriptUtterancesJson.h"

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

const QSet<QString> placeholders{QStringLiteral("Transcribing audio..."),
                                 QStringLiteral("Loading transcript...")};

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
    const QString original = QStringLiteral("What the editor opened with.");
    const QString now = QStringLiteral("What a recording wrote since.");
    try {
        transcriptEditFields(now, QStringLiteral("The user's edit."), original, placeholders);
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
    const auto fields = transcriptEditFields(QStringLiteral("old"), QStringLiteral("First.\n\nSecond."),
                                             QStringLiteral("old"), placeholders);
    ASSERT_TRUE(fields);
    EXPECT_EQ(fields->value(QStringLiteral("transcription")).toString(), QStringLiteral("First.\n\nSecond."));
    const auto utterances =
        decodeTranscriptUtterances(fields->value(QStringLiteral("transcriptUtterancesJSON")).toString());
    ASSERT_TRUE(utterances);
    ASSERT_EQ(utterances->size(), 2);
    EXPECT_FALSE((*utterances)[0].start) << "an edit drops all timing";
    EXPECT_EQ((*utterances)[1].text, QStringLiteral("Second."));

    const auto cleared =
        transcriptEditFields(QStringLiteral("old"), QStringLiteral(""), QStringLiteral("old"), placeholders);
    ASSERT_TRUE(cleared);
    EXPECT_EQ(cleared->value(QStringLiteral("transcription")).toString(), QString());
    EXPECT_EQ(cleared->value(QStringLiteral("transcriptUtterancesJSON")).toString(), QStringLiteral("[]"))
        << "an emptied transcript is an empty list, written as it stands";

    const auto placeholder =
        transcriptEditFields(QStringLiteral("old"), QStringLiteral(" Transcribing audio... "),
                             QStringLiteral("old"), placeholders);
    ASSERT_TRUE(placeholder);
    EXPECT_EQ(placeholder->value(QStringLiteral("transcription")).toString(), QString())
        << "a placeholder is not saved as content";
}

} // namespace
