#pragma once

#include <sys/resource.h>

// The most memory this process has held so far, in megabytes.
inline double peakMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) / 1024.0;
}
