#include "speech/SpeechResult.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

LocalTranscript applied(std::initializer_list<SpeechResult> results)
{
    LocalTranscript t;
    for (const SpeechResult &r : results)
        applySpeechResult(t, r);
    return t;
}

} // namespace

TEST(SpeechResultsLoop, FinalWithinAMillisecondReplacesTheEarlierFinal)
{
    LocalTranscript t = applied({{"hello", 1.0, 2.0, true}, {"hello there", 1.0005, 2.5, true}});
    EXPECT_EQ(t.utterances, QList<LocalUtterance>({{"hello there", 1.0005, 2.5}}));
    applySpeechResult(t, {"again", 1.0015, 3.0, true});
    EXPECT_EQ(t.utterances.size(), 2) << "a start 0.001 s away is a new utterance";
}

TEST(SpeechResultsLoop, FinalsArrivingOutOfOrderEndUpSortedByStartAndKeepTheirTextAsGiven)
{
    const LocalTranscript t =
        applied({{"c", 5.0, 6.0, true}, {"a", 1.0, 2.0, true}, {"  b ", 3.0, 4.0, true}});
    EXPECT_EQ(t.finalizedText(), "a   b  c");
    EXPECT_EQ(t.utterances[1].text, "  b ");
}

TEST(SpeechResultsLoop, VolatileReplacesTheTailAndNeverTouchesFinals)
{
    LocalTranscript t =
        applied({{"one", 0.0, 1.0, true}, {"two thr", 1.2, 2.0, false}, {"two three", 1.2, 2.4, false}});
    ASSERT_EQ(t.utterances.size(), 1);
    EXPECT_EQ(t.tentative, "two three");
    EXPECT_EQ(t.tentativeStart, 1.2);
    EXPECT_EQ(t.tentativeEnd, 2.4);
    EXPECT_EQ(t.fullText(), "one two three");

    applySpeechResult(t, {"two three four", 1.2, 2.9, true});
    EXPECT_TRUE(t.tentative.isEmpty());
    EXPECT_FALSE(t.tentativeStart.has_value());
    EXPECT_FALSE(t.tentativeEnd.has_value());
    EXPECT_EQ(t.finalizedText(), "one two three four");
}
