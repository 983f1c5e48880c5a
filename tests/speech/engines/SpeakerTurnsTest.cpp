#include "speech/SpeakerDiarizer.h"
#include "support/DiarisationError.h"

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

struct OrderCase {
    const char *name;
    std::vector<SpeakerTurn> raw;
    std::vector<SpeakerTurn> ordered;
};

class SpeakerTurnOrder : public ::testing::TestWithParam<OrderCase> {};

struct ErrorCase {
    const char *name;
    std::vector<SpeakerTurn> truth;
    std::vector<SpeakerTurn> found;
    double collar;
    double missed;
    double falseAlarm;
    double confusion;
    double rate;
};

class DiarisationErrorRate : public ::testing::TestWithParam<ErrorCase> {};

} // namespace

TEST_P(SpeakerTurnOrder, SortsJoinsAndNumbersByFirstAppearance)
{
    EXPECT_EQ(orderedSpeakerTurns(GetParam().raw), GetParam().ordered);
}

const OrderCase orderCases[] = {
    {"NumberedInOrderOfFirstAppearance",
     {{5, 6, 7}, {1, 2, 3}, {3, 4, 7}},
     {{1, 2, 0}, {3, 4, 1}, {5, 6, 1}}},
    {"OnePersonsTouchingTurnsJoinOthersMayOverlap",
     {{0, 2, 4}, {1.5, 3, 4}, {3, 4, 4}, {2.5, 3.5, 9}},
     {{0, 4, 0}, {2.5, 3.5, 1}}},
    {"EmptyAndBackwardTurnsDropped", {{1, 1, 0}, {3, 2, 1}, {4, 5, 2}}, {{4, 5, 0}}},
};
INSTANTIATE_TEST_SUITE_P(Table, SpeakerTurnOrder, ::testing::ValuesIn(orderCases),
                         [](const auto &param) { return std::string(param.param.name); });

// The measure the diarisation tests and the benchmark rely on.
TEST_P(DiarisationErrorRate, CountsMissedFalseAndConfusedSpeechUnderTheBestMapping)
{
    const ErrorCase &c = GetParam();
    const test::DiarisationError error = test::diarisationError(c.truth, c.found, c.collar);
    EXPECT_NEAR(error.missed, c.missed, 0.011);
    EXPECT_NEAR(error.falseAlarm, c.falseAlarm, 0.011);
    EXPECT_NEAR(error.confusion, c.confusion, 0.011);
    EXPECT_NEAR(error.rate(), c.rate, 0.002);
}

const ErrorCase errorCases[] = {
    {"OtherNumbersSameTurns", {{0, 10, 0}, {10, 20, 1}}, {{0, 10, 1}, {10, 20, 0}}, 0, 0, 0, 0, 0},
    {"NothingFound", {{0, 10, 0}, {10, 20, 1}}, {}, 0, 20, 0, 0, 1},
    {"TwoPeopleHeardAsOne", {{0, 10, 0}, {10, 20, 1}}, {{0, 20, 0}}, 0, 0, 0, 10, 0.5},
    {"SpeechFoundInSilence", {{0, 10, 0}}, {{0, 15, 0}}, 0, 0, 5, 0, 0.5},
    {"OverlapMissed", {{0, 10, 0}, {5, 15, 1}}, {{0, 10, 0}}, 0, 10, 0, 0, 0.5},
    {"CollarForgivesTheEdges", {{0, 10, 0}, {10, 20, 1}}, {{0.2, 10.2, 0}, {10.2, 20, 1}}, 0.25, 0, 0, 0, 0},
};
INSTANTIATE_TEST_SUITE_P(Table, DiarisationErrorRate, ::testing::ValuesIn(errorCases),
                         [](const auto &param) { return std::string(param.param.name); });
