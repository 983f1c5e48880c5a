#pragma once

#include <optional>

namespace kestil {

// Options of one request. There is no sampling mode: a temperature of 0 means
// the most likely token every time, anything higher samples.
struct GenerationOptions {
    std::optional<double> temperature;
    std::optional<int> maximumResponseTokens;
};

} // namespace kestil
