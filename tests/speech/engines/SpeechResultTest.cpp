#include "speech/SpeechResult.h"
#include "speech/SpeakerDiarizer.h"

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

using namespace kestil;

namespace kestil {
inline void PrintTo(const SpeakerTurn &t, std::ostream *os)
{
    *os << "{" << t.start << "-" << t.end << " s, speaker " << t.speaker << "}";
}
} // namespace kestil

namespace {

LocalTranscript applied(std::initializer_list<SpeechResult> results)
{
    LocalTranscript t;
    for (const SpeechResult &r : results)
        applySpeechResult(t, r);
    return t;
}

} // namespace

TEST(SpeechResultsLoop, AFinalWithinAMillisecondReplacesTheEarlierOneAndFinalsAreSortedByStart)
{
    LocalTranscript t = applied({{"hello", 1.0, 2.0, true}, {"hello there", 1.0005, 2.5, true}});
    EXPECT_EQ(t.utterances, QList<LocalUtterance>({{"hello there", 1.0005, 2.5}}));
    applySpeechResult(t, {"again", 1.0015, 3.0, true});
    EXPECT_EQ(t.utterances.size(), 2) << "a start 0.001 s away is a new utterance";

    // Out of order: sorted by start, each text kept as given.
    const LocalTranscript sorted =
        applied({{"c", 5.0, 6.0, true}, {"a", 1.0, 2.0, true}, {"  b ", 3.0, 4.0, true}});
    EXPECT_EQ(sorted.finalizedText(), "a   b  c");
    EXPECT_EQ(sorted.utterances[1].text, "  b ");
}

TEST(SpeechResultsLoop, VolatileReplacesTheTailAndNeverTouchesFinals)
{
    EXPECT_EQ(LocalTranscript().fullText(), QString());
    EXPECT_EQ(applied({{"two thr", 1.2, 2.0, false}}).fullText(), "two thr") << "the tail alone";
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

// How a diarizer hands its turns over.
TEST(SpeakerTurnOrder, SortsJoinsAndNumbersByFirstAppearance)
{
    // Numbered in order of first appearance; one person's touching turns
    // join, another's may overlap; empty and backward turns are dropped.
    EXPECT_EQ(orderedSpeakerTurns({{5, 6, 7}, {1, 2, 3}, {3, 4, 7}}),
              (std::vector<SpeakerTurn>{{1, 2, 0}, {3, 4, 1}, {5, 6, 1}}));
    EXPECT_EQ(orderedSpeakerTurns({{0, 2, 4}, {1.5, 3, 4}, {3, 4, 4}, {2.5, 3.5, 9}}),
              (std::vector<SpeakerTurn>{{0, 4, 0}, {2.5, 3.5, 1}}));
    EXPECT_EQ(orderedSpeakerTurns({{1, 1, 0}, {3, 2, 1}, {4, 5, 2}}), (std::vector<SpeakerTurn>{{4, 5, 0}}));
}
