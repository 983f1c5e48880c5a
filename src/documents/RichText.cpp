#include "documents/RichText.h"

#include <algorithm>

namespace kestil {

RichText RichText::plain(const QString &text)
{
    RichText result;
    result.append(text);
    return result;
}

void RichText::append(const QString &characters, const RichTextAttributes &attributes)
{
    if (characters.isEmpty())
        return;
    if (!runs.isEmpty() && runs.last().attributes == attributes)
        runs.last().length += characters.size();
    else
        runs.append(RichTextRun{text.size(), characters.size(), attributes});
    text.append(characters);
}

RichText RichText::mid(qsizetype from, qsizetype length) const
{
    const qsizetype begin = std::clamp<qsizetype>(from, 0, text.size());
    const qsizetype end =
        length < 0 ? text.size() : std::clamp<qsizetype>(begin + length, begin, text.size());
    RichText result;
    for (const RichTextRun &run : runs) {
        const qsizetype runBegin = std::max(run.start, begin);
        const qsizetype runEnd = std::min(run.start + run.length, end);
        if (runBegin < runEnd)
            result.append(text.mid(runBegin, runEnd - runBegin), run.attributes);
    }
    return result;
}

RichTextAttributes RichText::attributesAt(qsizetype position) const
{
    // Runs are in order and without gaps: the last run starting at or before
    // the position holds it.
    const auto after = std::upper_bound(runs.cbegin(), runs.cend(), position,
                                        [](qsizetype p, const RichTextRun &run) { return p < run.start; });
    if (after == runs.cbegin())
        return {};
    const RichTextRun &run = *(after - 1);
    return position < run.start + run.length ? run.attributes : RichTextAttributes{};
}

} // namespace kestil
