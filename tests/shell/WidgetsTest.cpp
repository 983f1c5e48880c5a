// The note's widgets on their own, offscreen: the transcript tab, the
// transcript edit sheet, the summary page, the floating recording indicator
// and the level meter.
#include "capture/recorder/RecorderTestSupport.h"
#include "core/NoteTranscript.h"
#include "core/SharedPersistenceController.h"
#include "library/RecordingWidgetRule.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "shell/RecordingIndicator.h"
#include "shell/RecordingWidgetController.h"
#include "shell/RecordingWidgetPanel.h"
#include "shell/StructuredSummaryView.h"
#include "shell/TranscriptEditor.h"
#include "shell/TranscriptTab.h"

#include <QDesktopServices>
#include <QGuiApplication>
#include <QLabel>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBlock>
#include <QTextBrowser>
#include <QUrl>

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;
using namespace kestil::test;

// The transcript tab draws what the content rules (tests/library) make of a
// note: paragraphs under their times, the empty page, live text updated in
// place, and a view that follows the live text only while the user leaves it
// at the bottom.
namespace {

TranscriptUtterance utterance(double start, const QString &text)
{
    TranscriptUtterance u;
    u.id = newTranscriptUtteranceId();
    u.text = text;
    u.start = start;
    u.end = start + 2;
    return u;
}

// A long paragraph that the live normalisation keeps as its own.
TranscriptUtterance sentence(int i)
{
    return utterance(1 + 15.0 * i,
                     u"Paragraph %1 talks about the budget, the schedule and who owns each item."_s.arg(i));
}

struct TabFixture : ::testing::Test {
    TranscriptTab tab;
    QTextBrowser *text = nullptr;
    void SetUp() override
    {
        tab.resize(420, 260);
        tab.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&tab));
        text = tab.findChild<QTextBrowser *>(u"noteDetailTranscript"_s);
        ASSERT_TRUE(text);
    }
    QScrollBar *bar() const { return text->verticalScrollBar(); }
    void show(const QList<TranscriptUtterance> &list, bool live, const QString &interim = {})
    {
        TranscriptTabContent content;
        content.state = TranscriptTabContent::State::paragraphs;
        content.view.utterances = list;
        content.view.isRecordingActive = content.view.showEllipsis = live;
        content.view.interimText = interim;
        tab.setContent(content);
        QCoreApplication::processEvents();
    }
};

TEST_F(TabFixture, ParagraphsShowUnderTheirTimesAndNothingShowsTheEmptyPage)
{
    show({utterance(0.4, u"Welcome, everyone."_s), utterance(75.5, u"Next item."_s)}, false);
    EXPECT_EQ(tab.findChild<QStackedWidget *>()->currentWidget(), text);
    EXPECT_EQ(tab.plainText(), u"0:00\nWelcome, everyone.\n1:16\nNext item."_s);
    EXPECT_EQ(text->document()->blockCount(), 2);

    tab.setContent({});
    QCoreApplication::processEvents();
    QWidget *page = tab.findChild<QStackedWidget *>()->currentWidget();
    ASSERT_EQ(page->objectName(), u"noteDetailTranscriptEmpty"_s);
    QStringList texts;
    for (auto *label : page->findChildren<QLabel *>())
        texts << label->text();
    EXPECT_TRUE(texts.contains(u"No transcript available"_s));
}

TEST_F(TabFixture, FollowsTheBottomUntilTheUserScrollsAwayAndASavedTranscriptOpensAtItsTop)
{
    QList<TranscriptUtterance> list;
    for (int i = 0; i < 30; ++i)
        list.append(sentence(i));
    show(list, true);
    ASSERT_GT(bar()->maximum(), 0) << "the text must overflow the view";
    EXPECT_EQ(bar()->value(), bar()->maximum());

    QSignalSpy following(&tab, &TranscriptTab::followingChanged);
    bar()->triggerAction(QAbstractSlider::SliderPageStepSub);
    QCoreApplication::processEvents();
    ASSERT_FALSE(following.isEmpty());
    EXPECT_FALSE(following.last().at(0).toBool());
    const int held = bar()->value();
    list.append(sentence(40));
    show(list, true);
    EXPECT_EQ(bar()->value(), held) << "new text must not pull the view while the user reads above";

    // The user's own scroll to the bottom resumes following.
    bar()->triggerAction(QAbstractSlider::SliderToMaximum);
    QCoreApplication::processEvents();
    EXPECT_TRUE(following.last().at(0).toBool());
    list.append(sentence(41));
    show(list, true);
    EXPECT_EQ(bar()->value(), bar()->maximum());

    tab.showFromTop();
    show(list, false);
    EXPECT_EQ(bar()->value(), 0);
}

// The edit sheet's wiring: Save runs the edit rule (tested in
// tests/library/TranscriptEditTest) against the store and shows a refusal in
// the sheet; Cancel writes nothing.

const QString original = u"We shipped the beta."_s;

struct EditorFixture : ::testing::Test {
    QTemporaryDir dir;
    SharedPersistenceController store{dir.path()};
    NotePtr note = store.createNote(u"Standup"_s, original, QUuid::createUuid(), u"transcription"_s);
    QSignalSpy saves{&store, &SharedPersistenceController::didSave};
    TranscriptEditor editor{note, store, [] { return TranscriptEditGate{}; }};

    void SetUp() override
    {
        store.save();
        saves.clear();
        editor.show();
    }
    void type(const QString &text)
    {
        editor.findChild<QPlainTextEdit *>(u"transcriptEditorText"_s)->setPlainText(text);
    }
    void click(const char *name)
    {
        QTest::mouseClick(editor.findChild<QPushButton *>(QLatin1String(name)), Qt::LeftButton);
    }
    QString errorLine() { return editor.findChild<QLabel *>(u"transcriptEditorError"_s)->text(); }
    QString storedTranscription()
    {
        SharedPersistenceController other(dir.path());
        return other.noteWithId(*note->id())->transcription().value_or(QString());
    }
};

TEST_F(EditorFixture, SaveWritesTheEditToTheStoreAndClosesAndCancelWritesNothing)
{
    EXPECT_EQ(editor.text(), original);
    type(u"We shipped the beta on Friday.\n\nAna owns the release notes."_s);
    click("transcriptEditorSaveButton");
    EXPECT_EQ(editor.result(), QDialog::Accepted);
    EXPECT_FALSE(editor.isVisible());
    EXPECT_EQ(storedTranscription(), u"We shipped the beta on Friday.\n\nAna owns the release notes."_s);
    EXPECT_EQ(transcriptUtterances(*note).size(), 2);

    editor.show();
    type(u"Thrown away."_s);
    click("transcriptEditorCancelButton");
    EXPECT_EQ(editor.result(), QDialog::Rejected);
    EXPECT_EQ(saves.count(), 1);
    EXPECT_EQ(storedTranscription(), u"We shipped the beta on Friday.\n\nAna owns the release notes."_s);
}

TEST_F(EditorFixture, ARefusedEditKeepsTheSheetOpenWithTheReasonAndTheUsersText)
{
    type(u"My careful edit."_s);
    // A recording appended to the note while the sheet was open.
    store.applyGeneratedFields(note, {{u"transcription"_s, original + u" And more."_s}});
    click("transcriptEditorSaveButton");
    EXPECT_TRUE(editor.isVisible());
    EXPECT_TRUE(errorLine().startsWith(u"This transcript changed while you were editing."_s));
    EXPECT_EQ(editor.text(), u"My careful edit."_s);
    EXPECT_EQ(storedTranscription(), original + u" And more."_s);
}

// The summary page as the window shows it: its blocks and items are found by
// their names, a half-written line is held back while streaming, and a click
// on a link opens it without changing the page.

class UrlCatcher : public QObject {
    Q_OBJECT
public:
    QList<QUrl> opened;
public slots:
    void open(const QUrl &url) { opened.append(url); }
};

QStringList itemNames(const StructuredSummaryView &view)
{
    QStringList names;
    for (const QWidget *child : view.widget()->findChildren<QWidget *>())
        names.append(child->objectName());
    names.sort();
    return names;
}

TEST(StructuredSummaryViewTest, NamesItsBlocksHoldsBackAHalfLineAndOpensLinksOnlyOnClick)
{
    StructuredSummaryView view(u"noteDetailSummaryText"_s);
    view.resize(600, 500);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    const QString summary = u"Read [the plan](https://example.org/plan) first.\n\n## Decisions\n"
                            "- Launch in April\n- Owner: Sam\n"_s;
    view.setMarkdown(summary + u"## Ris"_s, true);
    EXPECT_EQ(itemNames(view), (QStringList{u"markdownListItem-3"_s, u"markdownListItem-4"_s,
                                            u"structuredSummaryOverview"_s}));
    view.setMarkdown(summary + u"## Risks\n- Budget\n"_s, false);
    EXPECT_TRUE(itemNames(view).contains(u"markdownListItem-6"_s));
    EXPECT_EQ(view.widget()->findChild<QWidget *>(u"markdownListItem-4"_s)->accessibleDescription(),
              u"• Owner: Sam"_s);

    UrlCatcher catcher;
    QDesktopServices::setUrlHandler(u"https"_s, &catcher, "open");
    QPoint link;
    for (int x = 0; x < 600 && link.isNull(); x += 2) {
        for (int y = 0; y < 80 && link.isNull(); y += 2) {
            if (!view.linkAt(QPoint(x, y)).isEmpty())
                link = QPoint(x, y);
        }
    }
    ASSERT_FALSE(link.isNull());
    QTest::mouseClick(view.widget(), Qt::LeftButton, {}, link);
    QDesktopServices::unsetUrlHandler(u"https"_s);
    EXPECT_EQ(catcher.opened, (QList<QUrl>{QUrl(u"https://example.org/plan"_s)}));
    EXPECT_EQ(view.markdown(), summary + u"## Risks\n- Budget\n"_s);
    EXPECT_TRUE(view.isVisible());
}

// The floating recording indicator and the level meter, on a recorder that
// runs on a real file source. Whether the panel is wanted is tests/library's
// RecordingWidgetRuleTest; that the real program shows it over another
// application is the recording end-to-end test's.

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

} // namespace

#include "WidgetsTest.moc"
