#include "generation/LocalSummaryProgress.h"

namespace kestil {

QString LocalSummaryProgress::title() const
{
    switch (stage) {
    case Stage::reading:
        return pass == 0 ? QStringLiteral("Reading transcript") : QStringLiteral("Combining key points");
    case Stage::preparing:
        return QStringLiteral("Preparing summary");
    case Stage::writing:
        return QStringLiteral("Writing summary");
    case Stage::finishing:
        return QStringLiteral("Finishing note title");
    case Stage::organizingTags:
        return QStringLiteral("Organizing tags");
    }
    return {};
}

std::optional<QString> LocalSummaryProgress::detail() const
{
    if (stage != Stage::reading)
        return std::nullopt;
    return QStringLiteral("%1 of %2 sections reviewed").arg(completed).arg(total);
}

std::optional<double> LocalSummaryProgress::fraction() const
{
    if (stage != Stage::reading || total < 1)
        return std::nullopt;
    return double(completed) / double(total);
}

} // namespace kestil
