#include "speech/SpeakerDiarizer.h"
#include "support/DiarisationError.h"

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

using namespace kestil;
using Turns = std::vector<SpeakerTurn>;

namespace kestil {
inline void PrintTo(const SpeakerTurn &t, std::ostream *os)
{
    *os << "{" << t.start << "-" << t.end << " s, speaker " << t.speaker << "}";
}
} // namespace kestil

TEST(SpeakerTurnOrder, SortsJoinsAndNumbersByFirstAppearance)
{
    // Numbered in order of first appearance; one person's touching turns
    // join, another's may overlap; empty and backward turns are dropped.
    EXPECT_EQ(orderedSpeakerTurns({{5, 6, 7}, {1, 2, 3}, {3, 4, 7}}),
              (Turns{{1, 2, 0}, {3, 4, 1}, {5, 6, 1}}));
    EXPECT_EQ(orderedSpeakerTurns({{0, 2, 4}, {1.5, 3, 4}, {3, 4, 4}, {2.5, 3.5, 9}}),
              (Turns{{0, 4, 0}, {2.5, 3.5, 1}}));
    EXPECT_EQ(orderedSpeakerTurns({{1, 1, 0}, {3, 2, 1}, {4, 5, 2}}), (Turns{{4, 5, 0}}));
}

// The measure the diarisation tests and the benchmark rely on: missed, false
// and confused speech under the best mapping of speakers.
TEST(DiarisationErrorRate, CountsMissedFalseAndConfusedSpeechUnderTheBestMapping)
{
    const Turns two{{0, 10, 0}, {10, 20, 1}};
    const struct {
        const char *name;
        Turns truth, found;
        double collar, missed, falseAlarm, confusion, rate;
    } cases[] = {
        {"other numbers, same turns", two, {{0, 10, 1}, {10, 20, 0}}, 0, 0, 0, 0, 0},
        {"nothing found", two, {}, 0, 20, 0, 0, 1},
        {"two people heard as one", two, {{0, 20, 0}}, 0, 0, 0, 10, 0.5},
        {"speech found in silence", {{0, 10, 0}}, {{0, 15, 0}}, 0, 0, 5, 0, 0.5},
        {"overlap missed", {{0, 10, 0}, {5, 15, 1}}, {{0, 10, 0}}, 0, 10, 0, 0, 0.5},
        {"the collar forgives the edges", two, {{0.2, 10.2, 0}, {10.2, 20, 1}}, 0.25, 0, 0, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const test::DiarisationError error = test::diarisationError(c.truth, c.found, c.collar);
        EXPECT_NEAR(error.missed, c.missed, 0.011);
        EXPECT_NEAR(error.falseAlarm, c.falseAlarm, 0.011);
        EXPECT_NEAR(error.confusion, c.confusion, 0.011);
        EXPECT_NEAR(error.rate(), c.rate, 0.002);
    }
}
