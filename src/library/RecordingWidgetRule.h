#pragma once

#include "prefs/RecordingWidgetPosition.h"

#include <QPoint>
#include <QRect>
#include <QSize>

#include <optional>

namespace kestil {

// What one pass of the floating indicator's rule asks for.
enum class RecordingWidgetAction { none, hide, show };

// The indicator shows only while a recording runs, the user has not switched
// it off, and another application is in front; it never covers Kestil
// itself. wasWidgetVisible is the last state applied; it keeps a pass that
// changes nothing from rebuilding or re-hiding the panel, except that a panel
// that should be on screen and is missing is built again.
RecordingWidgetAction recordingWidgetRule(bool showRecordingWidget, bool recording, bool applicationActive,
                                          bool panelExists, bool &wasWidgetVisible);

inline constexpr QSize recordingWidgetSize{220, 48};
inline constexpr int recordingWidgetMargin = 24;

// Where the panel goes: a saved position as it is (no check against the
// present screens); otherwise 24 points in from the bottom-right corner of
// the screen's usable area; with no screen at all, (20, 20).
QPoint recordingWidgetOrigin(const std::optional<RecordingWidgetPosition> &saved,
                             const std::optional<QRect> &availableScreenArea);

} // namespace kestil
