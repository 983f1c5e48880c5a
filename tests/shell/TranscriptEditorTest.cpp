// The edit sheet's wiring: Save runs the edit rule (tested in
// tests/library/TranscriptEditTest) against the store and shows a refusal in
// the sheet; Cancel writes nothing.
#include "shell/TranscriptEditor.h"
#include "core/NoteTranscript.h"
#include "core/SharedPersistenceController.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

const QString original = u"We shipped the beta."_s;
const QString refusedByTheGate = u"Finish transcription or processing before saving edits."_s;

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

    // The sheet adds a deleted note to the running work it is given.
    store.deleteNote(note);
    click("transcriptEditorSaveButton");
    EXPECT_TRUE(editor.isVisible());
    EXPECT_EQ(errorLine(), refusedByTheGate);
}

} // namespace
