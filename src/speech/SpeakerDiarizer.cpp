#include "SpeakerDiarizer.h"

#include <algorithm>
#include <map>

namespace kestil {

std::vector<SpeakerTurn> orderedSpeakerTurns(std::vector<SpeakerTurn> turns)
{
    std::erase_if(turns, [](const SpeakerTurn &t) { return !(t.end > t.start); });
    std::sort(turns.begin(), turns.end(), [](const SpeakerTurn &a, const SpeakerTurn &b) {
        return a.start != b.start ? a.start < b.start : a.end < b.end;
    });

    // One person's turns, in start order, joined where they meet or overlap.
    std::vector<SpeakerTurn> joined;
    std::map<int, std::size_t> lastOf;
    for (const SpeakerTurn &turn : turns) {
        const auto last = lastOf.find(turn.speaker);
        if (last != lastOf.end() && joined[last->second].end >= turn.start) {
            joined[last->second].end = std::max(joined[last->second].end, turn.end);
            continue;
        }
        lastOf[turn.speaker] = joined.size();
        joined.push_back(turn);
    }

    std::map<int, int> numbers;
    for (SpeakerTurn &turn : joined)
        turn.speaker = numbers.try_emplace(turn.speaker, int(numbers.size())).first->second;
    return joined;
}

} // namespace kestil
