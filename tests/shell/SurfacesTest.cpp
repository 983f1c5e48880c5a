#include "capture/recorder/RecorderTestSupport.h"
#include "library/RecordingWidgetRule.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "shell/RecordingIndicator.h"
#include "shell/RecordingWidgetController.h"
#include "shell/RecordingWidgetPanel.h"

#include <QGuiApplication>
#include <QLabel>
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

// A recorder running on a real file source, and the indicator's controller
// with the question "is Kestil in front?" answered by the test.
struct IndicatorRig {
    QTemporaryDir dir;
    RecorderRig recorderRig;
    PreferenceStore preferences{dir.filePath(u"config"_s)};
    std::unique_ptr<ProcessTapRecorder> recorder;
    RecordingWidgetController controller{preferences};
    bool kestilActive = true;
    int taps = 0;

    IndicatorRig()
    {
        recorderRig.useFile(writeTone(dir.filePath(u"tone.wav"_s), 2.0), AudioFileSource::Pace::realTime);
        recorder = std::make_unique<ProcessTapRecorder>(recorderRig.environment());
        controller.setApplicationActive([this] { return kestilActive; });
        controller.start(recorder.get(), [this] { ++taps; });
    }
    ~IndicatorRig()
    {
        controller.stop();
        if (recorder->recording())
            waitFor(recorder->stop());
    }
    bool record()
    {
        return waitFor(recorder->start(dir.filePath(u"root"_s), QUuid::createUuid(), false)) &&
               recorder->recording();
    }
    RecordingWidgetPanel *panel() const { return controller.panel(); }
};

void sendMouse(QWidget *widget, QEvent::Type type, const QPoint &global, Qt::MouseButtons buttons)
{
    QMouseEvent event(type, widget->mapFromGlobal(global), global, Qt::LeftButton, buttons, Qt::NoModifier);
    QCoreApplication::sendEvent(widget, &event);
}

TEST(RecordingWidgetTest, TheWatchAndThePreferenceShowAndHideThePanel)
{
    IndicatorRig rig;
    ASSERT_TRUE(rig.record());
    rig.controller.update();
    EXPECT_FALSE(rig.panel()) << "never over Kestil itself";

    rig.kestilActive = false;
    ASSERT_TRUE(waitUntil([&] { return rig.panel() != nullptr; }, std::chrono::milliseconds(1500)))
        << "the half-second watch shows it";
    RecordingWidgetPanel *panel = rig.panel();
    EXPECT_TRUE(panel->isVisible());
    EXPECT_EQ(panel->size(), QSize(220, 48));
    const Qt::WindowFlags flags = panel->windowFlags();
    EXPECT_TRUE(flags.testFlag(Qt::Tool) && flags.testFlag(Qt::FramelessWindowHint) &&
                flags.testFlag(Qt::WindowStaysOnTopHint) && flags.testFlag(Qt::WindowDoesNotAcceptFocus));
    EXPECT_TRUE(panel->testAttribute(Qt::WA_ShowWithoutActivating));
    ASSERT_TRUE(waitUntil([&] { return panel->elapsedText() != u"0:00"_s; }))
        << "the clock follows the recorder: " << panel->elapsedText().toStdString();
    EXPECT_TRUE(panel->indicator()->animating());

    // The preference's own signal hides it at once, not the next tick.
    settings::setShowRecordingWidget(rig.preferences, false);
    EXPECT_FALSE(rig.panel());
    rig.controller.update();
    EXPECT_FALSE(rig.panel());
    settings::setShowRecordingWidget(rig.preferences, true);
    EXPECT_TRUE(rig.panel());

    rig.kestilActive = true;
    ASSERT_TRUE(waitUntil([&] { return rig.panel() == nullptr; }, std::chrono::milliseconds(1500)));
}

TEST(RecordingWidgetTest, ItOpensAtTheSavedPlaceOrInTheCornerAndKeepsWhereItWasDragged)
{
    IndicatorRig rig;
    ASSERT_TRUE(rig.record());
    rig.kestilActive = false;
    rig.controller.update();
    ASSERT_TRUE(rig.panel());
    const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
    EXPECT_EQ(rig.panel()->pos(), recordingWidgetOrigin(std::nullopt, area));

    // A drag of many small moves is written once, when it ends.
    QSignalSpy writes(&rig.preferences, &PreferenceStore::changed);
    RecordingWidgetPanel *panel = rig.panel();
    const QPoint start = panel->mapToGlobal(QPoint(110, 24));
    sendMouse(panel, QEvent::MouseButtonPress, start, Qt::LeftButton);
    for (int step = 1; step <= 30; ++step)
        sendMouse(panel, QEvent::MouseMove, start - QPoint(10 * step, 5 * step), Qt::LeftButton);
    EXPECT_EQ(writes.count(), 0) << "nothing is saved while the drag goes on";
    sendMouse(panel, QEvent::MouseButtonRelease, start - QPoint(300, 150), Qt::NoButton);
    const QPoint dropped = panel->pos();
    EXPECT_EQ(dropped, recordingWidgetOrigin(std::nullopt, area) - QPoint(300, 150));
    EXPECT_EQ(writes.count(), 2) << "one save of both coordinates";
    EXPECT_EQ(settings::recordingWidgetPosition(rig.preferences),
              (RecordingWidgetPosition{double(dropped.x()), double(dropped.y())}));
    EXPECT_EQ(rig.taps, 0) << "a drag is not a click";

    // A click without a drag brings Kestil forward.
    const QPoint centre = panel->mapToGlobal(QPoint(110, 24));
    sendMouse(panel, QEvent::MouseButtonPress, centre, Qt::LeftButton);
    sendMouse(panel, QEvent::MouseButtonRelease, centre, Qt::NoButton);
    EXPECT_EQ(rig.taps, 1);

    // The next panel opens where this one was left, as it was saved.
    rig.kestilActive = true;
    rig.controller.update();
    ASSERT_FALSE(rig.panel());
    rig.kestilActive = false;
    rig.controller.update();
    ASSERT_TRUE(rig.panel());
    EXPECT_EQ(rig.panel()->pos(), dropped);
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
    QTest::qWait(200);
    EXPECT_GT(average(), rest + 0.3);
    meter.setPaused(true);
    QTest::qWait(300);
    EXPECT_NEAR(average(), rest, 0.02) << "a paused recording hears nothing";
    meter.setRunning(false);
    EXPECT_FALSE(meter.animating());
}

} // namespace
