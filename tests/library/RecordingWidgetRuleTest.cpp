#include "library/RecordingWidgetRule.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

using Action = RecordingWidgetAction;

// Drives the rule the way the controller does, remembering the panel.
struct Indicator {
    bool was = false;
    bool panel = false;
    Action pass(bool show, bool recording, bool active)
    {
        const Action a = recordingWidgetRule(show, recording, active, panel, was);
        if (a == Action::show)
            panel = true;
        if (a == Action::hide)
            panel = false;
        return a;
    }
};

TEST(RecordingWidgetRuleTest, ShownOnlyWhileAnotherApplicationIsInFront)
{
    Indicator w;
    EXPECT_EQ(w.pass(true, true, true), Action::none) << "no panel over Kestil itself";
    EXPECT_FALSE(w.panel);
    EXPECT_EQ(w.pass(true, true, false), Action::show);
    EXPECT_EQ(w.pass(true, true, false), Action::none) << "an unchanged pass rebuilds nothing";
    EXPECT_EQ(w.pass(true, true, true), Action::hide);
    EXPECT_EQ(w.pass(true, true, true), Action::none);
    EXPECT_EQ(w.pass(true, true, false), Action::show);
}

TEST(RecordingWidgetRuleTest, TurnedOffOrStoppedHidesIt)
{
    Indicator w;
    w.pass(true, true, false);
    EXPECT_EQ(w.pass(false, true, false), Action::hide) << "the preference turned false";
    EXPECT_EQ(w.pass(false, true, false), Action::none);
    EXPECT_EQ(w.pass(true, true, false), Action::show);
    EXPECT_EQ(w.pass(true, false, false), Action::hide) << "stopped while another application is in front";
    EXPECT_EQ(w.pass(true, false, true), Action::none);
}

TEST(RecordingWidgetRuleTest, AMissingPanelThatShouldShowIsBuiltAgain)
{
    bool was = true;
    EXPECT_EQ(recordingWidgetRule(true, true, false, false, was), Action::show);
    EXPECT_EQ(recordingWidgetRule(true, true, false, true, was), Action::none);
}

TEST(RecordingWidgetOriginTest, SavedPositionIsUsedAsItIs)
{
    EXPECT_EQ(recordingWidgetOrigin(RecordingWidgetPosition{-500.4, 3000.6}, QRect(0, 0, 1280, 800)),
              QPoint(-500, 3001));
    EXPECT_EQ(recordingWidgetOrigin(RecordingWidgetPosition{1e300, 10}, std::nullopt).y(), 10);
}

TEST(RecordingWidgetOriginTest, DefaultIsTheBottomRightCornerOfTheUsableArea)
{
    EXPECT_EQ(recordingWidgetOrigin(std::nullopt, QRect(0, 0, 1280, 800)),
              QPoint(1280 - 220 - 24, 800 - 48 - 24));
    EXPECT_EQ(recordingWidgetOrigin(std::nullopt, QRect(1920, 30, 1000, 700)),
              QPoint(1920 + 1000 - 244, 30 + 700 - 72));
    EXPECT_EQ(recordingWidgetOrigin(std::nullopt, std::nullopt), QPoint(20, 20));
}

} // namespace
