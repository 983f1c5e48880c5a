#pragma once

#include <QString>

namespace kestil {

// The session clock as the recording bar and the indicator show it: "m:ss"
// under an hour, "h:mm:ss" from an hour on; whole seconds, rounded down so
// that the clock never runs ahead. Anything that is not a time reads "0:00".
QString elapsedTimeText(double seconds);

} // namespace kestil
