#include "ElapsedTimeText.h"

#include <cmath>

namespace kestil {

QString elapsedTimeText(double seconds)
{
    // Past a thousand hours the clock stops growing rather than overflow.
    constexpr double ceiling = 1000.0 * 3600 - 1;
    if (!std::isfinite(seconds) || seconds < 0)
        seconds = 0;
    const long long whole = static_cast<long long>(std::floor(std::min(seconds, ceiling)));
    const long long hours = whole / 3600;
    const long long minutes = (whole / 60) % 60;
    const long long secs = whole % 60;
    if (hours > 0)
        return QString::asprintf("%lld:%02lld:%02lld", hours, minutes, secs);
    return QString::asprintf("%lld:%02lld", minutes, secs);
}

} // namespace kestil
