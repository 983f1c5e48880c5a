#include "library/TranscriptTabContent.h"
#include "library/TranscriptFollowState.h"

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

TranscriptUtterance timed(double start, const QString &text)
{
    TranscriptUtterance u;
    u.id = newTranscriptUtteranceId();
    u.text = text;
    u.start = start;
    u.end = start + 1;
    return u;
}

TEST(TranscriptTabContentTest, LiveRecordingShowsTheRecorderTextWithTheDotsEvenBeforeAnyWords)
{
    TranscriptTabInputs inputs;
    inputs.isActiveRecordingNote = true;
    int noteReads = 0;
    inputs.noteUtterances = [&] {
        ++noteReads;
        return QList<TranscriptUtterance>{};
    };
    auto content = transcriptTabContent(inputs);
    EXPECT_EQ(content.state, TranscriptTabContent::State::paragraphs)
        << "never the empty state while recording";
    EXPECT_TRUE(content.view.isRecordingActive);
    EXPECT_TRUE(content.view.showEllipsis);

    inputs.recorderFullTranscript = QStringLiteral("earlier text and new words");
    inputs.editableTranscript = QStringLiteral("earlier text");
    inputs.recorderCombinedUtterances = {timed(3, QStringLiteral("new words"))};
    inputs.recorderTentativeText = QStringLiteral("and more");
    noteReads = 0;
    content = transcriptTabContent(inputs);
    EXPECT_EQ(content.view.transcript, inputs.recorderFullTranscript);
    EXPECT_EQ(content.view.utterances, inputs.recorderCombinedUtterances);
    EXPECT_EQ(content.view.interimText, QStringLiteral("and more"));
    EXPECT_EQ(noteReads, 0) << "the recorder's utterances make the note's unnecessary";

    // While the session has nothing yet, the note's own text and utterances.
    inputs = {};
    inputs.isActiveRecordingNote = true;
    inputs.recorderFullTranscript = QStringLiteral("   ");
    inputs.editableTranscript = QStringLiteral("what the note held");
    const QList<TranscriptUtterance> stored{timed(1, QStringLiteral("what the note held"))};
    inputs.noteUtterances = [&] { return stored; };
    content = transcriptTabContent(inputs);
    EXPECT_EQ(content.view.transcript, QStringLiteral("what the note held"));
    EXPECT_EQ(content.view.utterances, stored);

    inputs.isLoading = true;
    EXPECT_EQ(transcriptTabContent(inputs).state, TranscriptTabContent::State::loading)
        << "loading comes first";
}

TEST(TranscriptTabContentTest, SavedNoteShowsItsTextOrItsUtterancesAndOtherwiseTheEmptyState)
{
    TranscriptTabInputs inputs;
    inputs.editableTranscript = QStringLiteral("A saved transcript.");
    auto content = transcriptTabContent(inputs);
    EXPECT_EQ(content.state, TranscriptTabContent::State::paragraphs);
    EXPECT_FALSE(content.view.isRecordingActive);
    EXPECT_FALSE(content.view.showEllipsis);
    EXPECT_TRUE(content.view.interimText.isEmpty());

    inputs.editableTranscript = QStringLiteral(" \n ");
    const QList<TranscriptUtterance> stored{timed(1, QStringLiteral("Only utterances."))};
    inputs.noteUtterances = [&] { return stored; };
    content = transcriptTabContent(inputs);
    EXPECT_EQ(content.state, TranscriptTabContent::State::paragraphs) << "utterances without a transcription";
    EXPECT_EQ(content.view.utterances, stored);

    inputs.noteUtterances = nullptr;
    EXPECT_EQ(transcriptTabContent(inputs).state, TranscriptTabContent::State::empty);
}

TEST(TranscriptFollowStateTest, UserScrollStopsFollowingAndTheBottomOrTheJumpResumesIt)
{
    TranscriptFollowState state;
    EXPECT_TRUE(state.shouldScrollToBottom());
    state.beginUserScroll();
    EXPECT_FALSE(state.shouldScrollToBottom()) << "never pull the view while the user holds it";
    state.endUserScroll(false);
    EXPECT_FALSE(state.shouldScrollToBottom());
    state.viewMoved(true);
    EXPECT_FALSE(state.shouldScrollToBottom()) << "only the user's own scroll back resumes following";
    state.endUserScroll(true);
    EXPECT_TRUE(state.shouldScrollToBottom());
    state.endUserScroll(false);
    state.resume();
    EXPECT_TRUE(state.shouldScrollToBottom());
}

} // namespace
