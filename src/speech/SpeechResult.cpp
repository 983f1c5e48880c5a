#include "SpeechResult.h"

#include <algorithm>
#include <cmath>

namespace kestil {

void applySpeechResult(LocalTranscript &transcript, const SpeechResult &result)
{
    if (!result.isFinal) {
        transcript.tentative = result.text;
        transcript.tentativeStart = result.start;
        transcript.tentativeEnd = result.end;
        return;
    }
    auto &utterances = transcript.utterances;
    const auto same = std::find_if(utterances.begin(), utterances.end(), [&](const LocalUtterance &u) {
        return std::abs(u.start - result.start) < 0.001;
    });
    if (same != utterances.end())
        *same = LocalUtterance{result.text, result.start, result.end};
    else
        utterances.append(LocalUtterance{result.text, result.start, result.end});
    std::stable_sort(utterances.begin(), utterances.end(),
                     [](const LocalUtterance &a, const LocalUtterance &b) { return a.start < b.start; });
    transcript.tentative.clear();
    transcript.tentativeStart.reset();
    transcript.tentativeEnd.reset();
}

} // namespace kestil
