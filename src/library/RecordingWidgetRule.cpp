#include "RecordingWidgetRule.h"

#include <algorithm>
#include <cmath>

namespace kestil {

RecordingWidgetAction recordingWidgetRule(bool showRecordingWidget, bool recording, bool applicationActive,
                                          bool panelExists, bool &wasWidgetVisible)
{
    if (!showRecordingWidget || !recording) {
        if (!wasWidgetVisible)
            return RecordingWidgetAction::none;
        wasWidgetVisible = false;
        return RecordingWidgetAction::hide;
    }
    const bool visible = !applicationActive;
    if (wasWidgetVisible == visible)
        return visible && !panelExists ? RecordingWidgetAction::show : RecordingWidgetAction::none;
    wasWidgetVisible = visible;
    if (!visible)
        return RecordingWidgetAction::hide;
    return panelExists ? RecordingWidgetAction::none : RecordingWidgetAction::show;
}

QPoint recordingWidgetOrigin(const std::optional<RecordingWidgetPosition> &saved,
                             const std::optional<QRect> &availableScreenArea)
{
    if (saved) {
        // Kept as stored; only a value no screen coordinate can hold is cut.
        const auto coordinate = [](double v) { return int(std::lround(std::clamp(v, -1.0e6, 1.0e6))); };
        return QPoint(coordinate(saved->x), coordinate(saved->y));
    }
    if (!availableScreenArea)
        return QPoint(20, 20);
    // Screen coordinates grow downwards: the bottom margin is measured up
    // from the area's lower edge.
    const QRect &area = *availableScreenArea;
    return QPoint(area.x() + area.width() - recordingWidgetSize.width() - recordingWidgetMargin,
                  area.y() + area.height() - recordingWidgetSize.height() - recordingWidgetMargin);
}

} // namespace kestil
