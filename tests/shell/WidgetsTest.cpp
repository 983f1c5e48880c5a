// The note's widgets on their own; what they show is tests/library's rules.
#include "capture/recorder/RecorderTestSupport.h"
#include "core/NoteTranscript.h"
#include "core/SharedPersistenceController.h"
#include "library/RecordingWidgetRule.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "shell/RecordingIndicator.h"
#include "shell/RecordingWidgetController.h"
#include "shell/RecordingWidgetPanel.h"
#include "shell/TranscriptEditor.h"
#include "shell/TranscriptTab.h"

#include <QGuiApplication>
#include <QLabel>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBrowser>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;

namespace {

TranscriptUtterance sentence(int i)
{
    TranscriptUtterance u;
    u.id = newTranscriptUtteranceId();
    u.text = u"Paragraph %1 talks about the budget, the schedule and who owns each item."_s.arg(i);
    u.start = 1 + 15.0 * i;
    u.end = *u.start + 2;
    return u;
}

struct TabFixture : ::testing::Test {
    TranscriptTab tab;
    QTextBrowser *text = tab.findChild<QTextBrowser *>(u"noteDetailTranscript"_s);
    void SetUp() override
    {
        tab.resize(420, 260);
        tab.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&tab) && text);
    }
    void show(const QList<TranscriptUtterance> &list, bool live)
    {
        TranscriptTabContent content;
        content.state =
            list.isEmpty() ? TranscriptTabContent::State::empty : TranscriptTabContent::State::paragraphs;
        content.view.utterances = list;
        content.view.isRecordingActive = content.view.showEllipsis = live;
        tab.setContent(content);
        QCoreApplication::processEvents();
    }
};

TEST_F(TabFixture, ParagraphsShowUnderTheirTimesAndNothingShowsTheEmptyPage)
{
    show({sentence(0), sentence(5)}, false);
    EXPECT_EQ(tab.findChild<QStackedWidget *>()->currentWidget(), text);
    EXPECT_EQ(tab.plainText(), u"0:01\n"_s + sentence(0).text + u"\n1:16\n"_s + sentence(5).text);
    show({}, false);
    EXPECT_EQ(tab.findChild<QStackedWidget *>()->currentWidget()->objectName(),
              u"noteDetailTranscriptEmpty"_s);
}

TEST(TranscriptEditorTest, SaveWritesTheEditAndCancelNothingAndARefusalKeepsTheSheetOpen)
{
    QTemporaryDir dir;
    SharedPersistenceController store(dir.path());
    const NotePtr note =
        store.createNote(u"Standup"_s, u"We shipped the beta."_s, QUuid::createUuid(), u"transcription"_s);
    const auto stored = [&] {
        return SharedPersistenceController(dir.path())
            .noteWithId(*note->id())
            ->transcription()
            .value_or(QString());
    };
    TranscriptEditor editor(note, store, [] { return TranscriptEditGate{}; });
    const auto edit = [&](const QString &text, const char *button) {
        editor.show();
        editor.findChild<QPlainTextEdit *>(u"transcriptEditorText"_s)->setPlainText(text);
        QTest::mouseClick(editor.findChild<QPushButton *>(QLatin1String(button)), Qt::LeftButton);
    };
    EXPECT_EQ(editor.text(), u"We shipped the beta."_s);
    edit(u"We shipped the beta on Friday.\n\nAna owns the release notes."_s, "transcriptEditorSaveButton");
    EXPECT_EQ(editor.result(), QDialog::Accepted);
    EXPECT_FALSE(editor.isVisible());
    EXPECT_EQ(stored(), u"We shipped the beta on Friday.\n\nAna owns the release notes."_s);
    EXPECT_EQ(transcriptUtterances(*note).size(), 2);

    QSignalSpy saves(&store, &SharedPersistenceController::didSave);
    edit(u"Thrown away."_s, "transcriptEditorCancelButton");
    EXPECT_EQ(editor.result(), QDialog::Rejected);
    EXPECT_EQ(saves.count(), 0);

    // A recording appended to the note while the sheet was open.
    TranscriptEditor again(note, store, [] { return TranscriptEditGate{}; });
    again.show();
    again.findChild<QPlainTextEdit *>(u"transcriptEditorText"_s)->setPlainText(u"My careful edit."_s);
    store.applyGeneratedFields(note, {{u"transcription"_s, u"And more."_s}});
    QTest::mouseClick(again.findChild<QPushButton *>(u"transcriptEditorSaveButton"_s), Qt::LeftButton);
    EXPECT_TRUE(again.isVisible());
    EXPECT_TRUE(again.findChild<QLabel *>(u"transcriptEditorError"_s)
                    ->text()
                    .startsWith(u"This transcript changed while you were editing."_s));
    EXPECT_EQ(again.text(), u"My careful edit."_s);
    EXPECT_EQ(stored(), u"And more."_s);
}

void sendMouse(QWidget *widget, QEvent::Type type, const QPoint &global, Qt::MouseButtons buttons)
{
    QMouseEvent event(type, widget->mapFromGlobal(global), global, Qt::LeftButton, buttons, Qt::NoModifier);
    QCoreApplication::sendEvent(widget, &event);
}

// The floating indicator over a recorder on a real file source; the test
// answers "is Kestil in front?". When it is wanted is RecordingWidgetRuleTest's.
TEST(RecordingWidgetTest, ThePanelFollowsThePreferenceOpensInTheCornerAndKeepsWhereItWasDragged)
{
    QTemporaryDir dir;
    RecorderRig recorderRig;
    recorderRig.useFile(writeTone(dir.filePath(u"tone.wav"_s), 2.0), AudioFileSource::Pace::realTime);
    PreferenceStore preferences(dir.filePath(u"config"_s));
    ProcessTapRecorder recorder(recorderRig.environment());
    RecordingWidgetController controller(preferences);
    bool kestilActive = false;
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
    RecordingWidgetPanel *panel = controller.panel();
    ASSERT_TRUE(panel && panel->isVisible());
    EXPECT_TRUE(panel->windowFlags().testFlag(Qt::WindowDoesNotAcceptFocus));
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

} // namespace
