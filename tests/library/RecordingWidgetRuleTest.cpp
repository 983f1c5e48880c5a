#include "library/RecordingWidgetRule.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

using Action = RecordingWidgetAction;

TEST(RecordingWidgetRuleTest, ShownOnlyWhileRecordingWithAnotherApplicationInFront)
{
    // Passes in a row, driven as the controller drives the rule: the panel
    // exists after a show and until a hide.
    struct Pass {
        bool show, recording, active;
        Action expected;
        const char *why;
    };
    const Pass passes[] = {
        {true, true, true, Action::none, "no panel over Kestil itself"},
        {true, true, false, Action::show, "another application came in front"},
        {true, true, false, Action::none, "an unchanged pass rebuilds nothing"},
        {true, true, true, Action::hide, "Kestil came back in front"},
        {true, true, true, Action::none, "still in front"},
        {true, true, false, Action::show, "away again"},
        {false, true, false, Action::hide, "the preference turned false"},
        {false, true, false, Action::none, "still turned off"},
        {true, true, false, Action::show, "turned on again"},
        {true, false, false, Action::hide, "stopped while another application is in front"},
        {true, false, true, Action::none, "stopped, nothing to hide"},
    };
    bool was = false, panel = false;
    for (const Pass &p : passes) {
        const Action action = recordingWidgetRule(p.show, p.recording, p.active, panel, was);
        EXPECT_EQ(action, p.expected) << p.why;
        panel = action == Action::show || (panel && action != Action::hide);
    }
    bool shown = true;
    EXPECT_EQ(recordingWidgetRule(true, true, false, false, shown), Action::show)
        << "a lost panel is rebuilt";
}

TEST(RecordingWidgetOriginTest, ASavedPositionIsUsedAsItIsOtherwiseTheBottomRightCorner)
{
    EXPECT_EQ(recordingWidgetOrigin(RecordingWidgetPosition{-500.4, 3000.6}, QRect(0, 0, 1280, 800)),
              QPoint(-500, 3001));
    EXPECT_EQ(recordingWidgetOrigin(RecordingWidgetPosition{1e300, 10}, std::nullopt).y(), 10);
    // The 220 by 48 panel, 24 points inside the usable area.
    EXPECT_EQ(recordingWidgetOrigin(std::nullopt, QRect(0, 0, 1280, 800)), QPoint(1036, 728));
    EXPECT_EQ(recordingWidgetOrigin(std::nullopt, QRect(1920, 30, 1000, 700)), QPoint(2676, 658));
    EXPECT_EQ(recordingWidgetOrigin(std::nullopt, std::nullopt), QPoint(20, 20));
}

} // namespace
