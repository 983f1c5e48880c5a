#include "support/DiarisationError.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace kestil::test {

namespace {

constexpr double frame = 0.01;

int speakerCount(std::span<const SpeakerTurn> turns)
{
    int count = 0;
    for (const SpeakerTurn &t : turns)
        count = std::max(count, t.speaker + 1);
    return count;
}

// activity[speaker][frame]: whether the speaker talks at the frame's middle.
std::vector<std::vector<bool>> activity(std::span<const SpeakerTurn> turns, std::size_t frames)
{
    std::vector<std::vector<bool>> active(std::size_t(speakerCount(turns)), std::vector<bool>(frames));
    for (const SpeakerTurn &t : turns) {
        const auto first = std::size_t(std::max(0.0, std::ceil(t.start / frame - 0.5)));
        const auto last = std::min(frames, std::size_t(std::max(0.0, std::ceil(t.end / frame - 0.5))));
        for (std::size_t f = first; f < last; ++f)
            active[std::size_t(t.speaker)][f] = true;
    }
    return active;
}

// For a square matrix of costs, the column of each row that makes the sum
// smallest (the Hungarian method with potentials, O(n³)).
std::vector<int> cheapestAssignment(const std::vector<std::vector<double>> &cost)
{
    const std::size_t n = cost.size();
    const double infinity = std::numeric_limits<double>::infinity();
    std::vector<double> u(n + 1), v(n + 1);
    std::vector<std::size_t> rowOf(n + 1), way(n + 1);
    for (std::size_t row = 1; row <= n; ++row) {
        rowOf[0] = row;
        std::size_t column = 0;
        std::vector<double> least(n + 1, infinity);
        std::vector<bool> used(n + 1, false);
        do {
            used[column] = true;
            const std::size_t r = rowOf[column];
            double delta = infinity;
            std::size_t next = 0;
            for (std::size_t c = 1; c <= n; ++c) {
                if (used[c])
                    continue;
                const double reduced = cost[r - 1][c - 1] - u[r] - v[c];
                if (reduced < least[c]) {
                    least[c] = reduced;
                    way[c] = column;
                }
                if (least[c] < delta) {
                    delta = least[c];
                    next = c;
                }
            }
            for (std::size_t c = 0; c <= n; ++c) {
                if (used[c]) {
                    u[rowOf[c]] += delta;
                    v[c] -= delta;
                } else {
                    least[c] -= delta;
                }
            }
            column = next;
        } while (rowOf[column] != 0);
        do {
            const std::size_t previous = way[column];
            rowOf[column] = rowOf[previous];
            column = previous;
        } while (column != 0);
    }
    std::vector<int> assignment(n, -1);
    for (std::size_t c = 1; c <= n; ++c)
        assignment[rowOf[c] - 1] = int(c - 1);
    return assignment;
}

} // namespace

double DiarisationError::rate() const
{
    if (speech <= 0)
        return falseAlarm > 0 ? 1.0 : 0.0;
    return (missed + falseAlarm + confusion) / speech;
}

DiarisationError diarisationError(std::span<const SpeakerTurn> truth, std::span<const SpeakerTurn> found,
                                  double collar)
{
    double end = 0;
    for (const auto *turns : {&truth, &found})
        for (const SpeakerTurn &t : *turns)
            end = std::max(end, t.end);
    const auto frames = std::size_t(std::ceil(end / frame)) + 1;

    std::vector<bool> scored(frames, true);
    for (const SpeakerTurn &t : truth) {
        for (const double edge : {t.start, t.end}) {
            const auto first = std::size_t(std::max(0.0, std::ceil((edge - collar) / frame - 0.5)));
            const auto last =
                std::min(frames, std::size_t(std::max(0.0, std::ceil((edge + collar) / frame - 0.5))));
            for (std::size_t f = first; f < last; ++f)
                scored[f] = false;
        }
    }

    const auto real = activity(truth, frames);
    const auto heard = activity(found, frames);
    const std::size_t size = std::max(real.size(), heard.size());
    std::vector<std::vector<double>> cost(size, std::vector<double>(size, 0.0));
    for (std::size_t r = 0; r < real.size(); ++r)
        for (std::size_t h = 0; h < heard.size(); ++h)
            for (std::size_t f = 0; f < frames; ++f)
                cost[r][h] -= (scored[f] && real[r][f] && heard[h][f]) ? 1.0 : 0.0;
    const std::vector<int> mapping = cheapestAssignment(cost);

    DiarisationError error;
    for (std::size_t f = 0; f < frames; ++f) {
        if (!scored[f])
            continue;
        int truthCount = 0;
        int foundCount = 0;
        int correct = 0;
        for (std::size_t r = 0; r < real.size(); ++r) {
            truthCount += real[r][f];
            const auto h = std::size_t(mapping[r]);
            correct += real[r][f] && h < heard.size() && heard[h][f];
        }
        for (std::size_t h = 0; h < heard.size(); ++h)
            foundCount += heard[h][f];
        error.speech += truthCount * frame;
        error.missed += std::max(0, truthCount - foundCount) * frame;
        error.falseAlarm += std::max(0, foundCount - truthCount) * frame;
        error.confusion += (std::min(truthCount, foundCount) - correct) * frame;
    }
    return error;
}

} // namespace kestil::test
