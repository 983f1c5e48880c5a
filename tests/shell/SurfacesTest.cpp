// The floating recording indicator and the level meter, on a recorder that
// runs on a real file source. Whether the panel is wanted is tests/library's
// RecordingWidgetRuleTest; that the real program shows it over another
// application is the recording end-to-end test's.
#include "capture/recorder/RecorderTestSupport.h"
#include "library/RecordingWidgetRule.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "shell/RecordingIndicator.h"
#include "shell/RecordingWidgetController.h"
#include "shell/RecordingWidgetPanel.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <QScreen>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;

namespace {

void sendMouse(QWidget *widget, QEvent::Type type, const QPoint &global, Qt::MouseButtons buttons)
{
    QMouseEvent event(type, widget->mapFromGlobal(global), global, Qt::LeftButton, buttons, Qt::NoModifier);
    QCoreApplication::sendEvent(widget, &event);
}

// The indicator's controller with the question "is Kestil in front?"
// answered by the test.
TEST(RecordingWidgetTest, ThePanelFollowsThePreferenceOpensInTheCornerAndKeepsWhereItWasDragged)
{
    QTemporaryDir dir;
    RecorderRig recorderRig;
    recorderRig.useFile(writeTone(dir.filePath(u"tone.wav"_s), 2.0), AudioFileSource::Pace::realTime);
    PreferenceStore preferences(dir.filePath(u"config"_s));
    ProcessTapRecorder recorder(recorderRig.environment());
    RecordingWidgetController controller(preferences);
    bool kestilActive = true;
    int taps = 0;
    controller.setApplicationActive([&] { return kestilActive; });
    controller.start(&recorder, [&] { ++taps; });
    struct Stop {
        RecordingWidgetController &controller;
        ProcessTapRecorder &recorder;
        ~Stop()
        {
            controller.stop();
            if (recorder.recording())
                waitFor(recorder.stop());
        }
    } stop{controller, recorder};
    ASSERT_TRUE(waitFor(recorder.start(dir.filePath(u"root"_s), QUuid::createUuid(), false)));
    controller.update();
    EXPECT_FALSE(controller.panel()) << "never over Kestil itself";

    kestilActive = false;
    controller.update();
    RecordingWidgetPanel *panel = controller.panel();
    ASSERT_TRUE(panel && panel->isVisible());
    EXPECT_EQ(panel->size(), QSize(220, 48));
    const Qt::WindowFlags flags = panel->windowFlags();
    EXPECT_TRUE(flags.testFlag(Qt::Tool) && flags.testFlag(Qt::FramelessWindowHint) &&
                flags.testFlag(Qt::WindowStaysOnTopHint) && flags.testFlag(Qt::WindowDoesNotAcceptFocus));
    EXPECT_TRUE(panel->testAttribute(Qt::WA_ShowWithoutActivating));
    const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
    EXPECT_EQ(panel->pos(), recordingWidgetOrigin(std::nullopt, area));
    ASSERT_TRUE(waitUntil([&] { return panel->elapsedText() != u"0:00"_s; }))
        << "the clock follows the recorder: " << panel->elapsedText().toStdString();
    EXPECT_TRUE(panel->indicator()->animating());

    // The preference's own signal hides it at once, not the next tick.
    settings::setShowRecordingWidget(preferences, false);
    EXPECT_FALSE(controller.panel());
    settings::setShowRecordingWidget(preferences, true);
    ASSERT_TRUE(panel = controller.panel());

    // A drag of many small moves is written once, when it ends.
    QSignalSpy writes(&preferences, &PreferenceStore::changed);
    const QPoint start = panel->mapToGlobal(QPoint(110, 24));
    sendMouse(panel, QEvent::MouseButtonPress, start, Qt::LeftButton);
    for (int step = 1; step <= 30; ++step)
        sendMouse(panel, QEvent::MouseMove, start - QPoint(10 * step, 5 * step), Qt::LeftButton);
    EXPECT_EQ(writes.count(), 0) << "nothing is saved while the drag goes on";
    sendMouse(panel, QEvent::MouseButtonRelease, start - QPoint(300, 150), Qt::NoButton);
    const QPoint dropped = panel->pos();
    EXPECT_EQ(dropped, recordingWidgetOrigin(std::nullopt, area) - QPoint(300, 150));
    EXPECT_EQ(writes.count(), 2) << "one save of both coordinates";
    EXPECT_EQ(settings::recordingWidgetPosition(preferences),
              (RecordingWidgetPosition{double(dropped.x()), double(dropped.y())}));
    EXPECT_EQ(taps, 0) << "a drag is not a click";
    // A click without a drag brings Kestil forward.
    const QPoint centre = panel->mapToGlobal(QPoint(110, 24));
    sendMouse(panel, QEvent::MouseButtonPress, centre, Qt::LeftButton);
    sendMouse(panel, QEvent::MouseButtonRelease, centre, Qt::NoButton);
    EXPECT_EQ(taps, 1);

    // Kestil in front hides it; the next panel opens where this one was left.
    kestilActive = true;
    controller.update();
    ASSERT_FALSE(controller.panel());
    kestilActive = false;
    controller.update();
    ASSERT_TRUE(controller.panel());
    EXPECT_EQ(controller.panel()->pos(), dropped);
}

TEST(RecordingIndicatorTest, TheWindowMeterRisesWithTheLevelAndRestsWhenPaused)
{
    RecordingIndicator meter(true, std::vector<double>(8, 22.0));
    meter.show();
    const auto average = [&] {
        double sum = 0;
        for (const auto &bar : meter.bars())
            sum += bar.smoothedHeightFactor;
        return sum / double(meter.bars().size());
    };
    const double rest = average();
    EXPECT_FALSE(meter.animating()) << "nothing moves before a recording runs";
    meter.setRunning(true);
    EXPECT_TRUE(meter.animating());
    meter.setAudioLevel(0.2f);
    EXPECT_TRUE(QTest::qWaitFor([&] { return average() > rest + 0.3; }, 2000));
    meter.setPaused(true);
    EXPECT_TRUE(QTest::qWaitFor([&] { return std::abs(average() - rest) < 0.02; }, 2000))
        << "a paused recording hears nothing";
    meter.setRunning(false);
    EXPECT_FALSE(meter.animating());
}

} // namespace
