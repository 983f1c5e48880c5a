#pragma once

namespace kestil {

// The saved origin of the floating recording widget, in screen coordinates.
struct RecordingWidgetPosition {
    double x = 0;
    double y = 0;

    friend bool operator==(const RecordingWidgetPosition &, const RecordingWidgetPosition &) = default;
};

} // namespace kestil
