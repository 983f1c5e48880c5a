#include "library/TranscriptTabContent.h"
#include "library/TranscriptFollowState.h"

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;

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

    inputs.recorderFullTranscript = u"earlier text and new words"_s;
    inputs.editableTranscript = u"earlier text"_s;
    inputs.recorderCombinedUtterances = {timed(3, u"new words"_s)};
    inputs.recorderTentativeText = u"and more"_s;
    noteReads = 0;
    content = transcriptTabContent(inputs);
    EXPECT_EQ(content.view.transcript, inputs.recorderFullTranscript);
    EXPECT_EQ(content.view.utterances, inputs.recorderCombinedUtterances);
    EXPECT_EQ(content.view.interimText, u"and more"_s);
    EXPECT_EQ(noteReads, 0) << "the recorder's utterances make the note's unnecessary";

    // While the session has nothing yet, the note's own text and utterances.
    inputs = {};
    inputs.isActiveRecordingNote = true;
    inputs.recorderFullTranscript = u"   "_s;
    inputs.editableTranscript = u"what the note held"_s;
    const QList<TranscriptUtterance> stored{timed(1, u"what the note held"_s)};
    inputs.noteUtterances = [&] { return stored; };
    content = transcriptTabContent(inputs);
    EXPECT_EQ(content.view.transcript, u"what the note held"_s);
    EXPECT_EQ(content.view.utterances, stored);

    inputs.isLoading = true;
    EXPECT_EQ(transcriptTabContent(inputs).state, TranscriptTabContent::State::loading)
        << "loading comes first";
}

TEST(TranscriptTabContentTest, SavedNoteShowsItsTextOrItsUtterancesAndOtherwiseTheEmptyState)
{
    TranscriptTabInputs inputs;
    inputs.editableTranscript = u"A saved transcript."_s;
    auto content = transcriptTabContent(inputs);
    EXPECT_EQ(content.state, TranscriptTabContent::State::paragraphs);
    EXPECT_FALSE(content.view.isRecordingActive);
    EXPECT_FALSE(content.view.showEllipsis);
    EXPECT_TRUE(content.view.interimText.isEmpty());

    inputs.editableTranscript = u" \n "_s;
    const QList<TranscriptUtterance> stored{timed(1, u"Only utterances."_s)};
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
