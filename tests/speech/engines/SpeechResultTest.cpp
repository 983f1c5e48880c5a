#include "speech/SpeechResult.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

SpeechResult final(const char *text, double start, double end)
{
    return SpeechResult{QString::fromUtf8(text), start, end, true};
}

SpeechResult volatileResult(const char *text, double start, double end)
{
    return SpeechResult{QString::fromUtf8(text), start, end, false};
}

} // namespace

TEST(SpeechResultsLoop, FinalWithinAMillisecondReplacesTheEarlierFinal)
{
    LocalTranscript t;
    applySpeechResult(t, final("hello", 1.0, 2.0));
    applySpeechResult(t, final("hello there", 1.0005, 2.5));
    ASSERT_EQ(t.utterances.size(), 1);
    EXPECT_EQ(t.utterances[0], (LocalUtterance{"hello there", 1.0005, 2.5}));

    applySpeechResult(t, final("again", 1.0015, 3.0));
    EXPECT_EQ(t.utterances.size(), 2) << "a start 0.001 s away is a new utterance";
}

TEST(SpeechResultsLoop, FinalsArrivingOutOfOrderEndUpSortedByStartStably)
{
    LocalTranscript t;
    applySpeechResult(t, final("c", 5.0, 6.0));
    applySpeechResult(t, final("a", 1.0, 2.0));
    applySpeechResult(t, final("b", 3.0, 4.0));
    QStringList order;
    for (const auto &u : t.utterances)
        order << u.text;
    EXPECT_EQ(order, (QStringList{"a", "b", "c"}));
}

TEST(SpeechResultsLoop, VolatileReplacesTheTailAndNeverTouchesFinals)
{
    LocalTranscript t;
    applySpeechResult(t, final("one", 0.0, 1.0));
    applySpeechResult(t, volatileResult("two thr", 1.2, 2.0));
    applySpeechResult(t, volatileResult("two three", 1.2, 2.4));
    ASSERT_EQ(t.utterances.size(), 1);
    EXPECT_EQ(t.tentative, "two three");
    EXPECT_EQ(t.tentativeStart, 1.2);
    EXPECT_EQ(t.tentativeEnd, 2.4);
    EXPECT_EQ(t.fullText(), "one two three");

    applySpeechResult(t, final("two three four", 1.2, 2.9));
    EXPECT_TRUE(t.tentative.isEmpty());
    EXPECT_FALSE(t.tentativeStart.has_value());
    EXPECT_FALSE(t.tentativeEnd.has_value());
    EXPECT_EQ(t.finalizedText(), "one two three four");
}

TEST(SpeechResultsLoop, TextIsKeptExactlyAsTheEngineGaveIt)
{
    LocalTranscript t;
    applySpeechResult(t, final("  spaced out  ", 0.0, 1.0));
    EXPECT_EQ(t.utterances[0].text, "  spaced out  ");
}
