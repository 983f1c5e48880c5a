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

namespace {

const QString original = QStringLiteral("We shipped the beta.");
const QString refusedByTheGate = QStringLiteral("Finish transcription or processing before saving edits.");

struct EditorFixture : ::testing::Test {
    QTemporaryDir dir;
    SharedPersistenceController store{dir.path()};
    NotePtr note = store.createNote(QStringLiteral("Standup"), original, QUuid::createUuid(),
                                    QStringLiteral("transcription"));
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
        editor.findChild<QPlainTextEdit *>(QStringLiteral("transcriptEditorText"))->setPlainText(text);
    }
    void click(const char *name)
    {
        QTest::mouseClick(editor.findChild<QPushButton *>(QLatin1String(name)), Qt::LeftButton);
    }
    QString errorLine()
    {
        return editor.findChild<QLabel *>(QStringLiteral("transcriptEditorError"))->text();
    }
    QString storedTranscription()
    {
        SharedPersistenceController other(dir.path());
        return other.noteWithId(*note->id())->transcription().value_or(QString());
    }
};

TEST_F(EditorFixture, SaveWritesTheEditToTheStoreAndCloses)
{
    EXPECT_EQ(editor.text(), original);
    type(QStringLiteral("We shipped the beta on Friday.\n\nAna owns the release notes."));
    click("transcriptEditorSaveButton");
    EXPECT_EQ(editor.result(), QDialog::Accepted);
    EXPECT_FALSE(editor.isVisible());
    EXPECT_EQ(storedTranscription(),
              QStringLiteral("We shipped the beta on Friday.\n\nAna owns the release notes."));
    EXPECT_EQ(transcriptUtterances(*note).size(), 2);
}

TEST_F(EditorFixture, UnchangedSaveAndCancelWriteNothing)
{
    click("transcriptEditorSaveButton");
    EXPECT_EQ(editor.result(), QDialog::Accepted);
    editor.show();
    type(QStringLiteral("Thrown away."));
    click("transcriptEditorCancelButton");
    EXPECT_EQ(editor.result(), QDialog::Rejected);
    EXPECT_EQ(saves.count(), 0);
    EXPECT_EQ(note->transcription(), original);
}

TEST_F(EditorFixture, ARefusedEditKeepsTheSheetOpenWithTheReasonAndTheUsersText)
{
    type(QStringLiteral("My careful edit."));
    // A recording appended to the note while the sheet was open.
    store.applyGeneratedFields(note,
                               {{QStringLiteral("transcription"), original + QStringLiteral(" And more.")}});
    click("transcriptEditorSaveButton");
    EXPECT_TRUE(editor.isVisible());
    EXPECT_TRUE(errorLine().startsWith(QStringLiteral("This transcript changed while you were editing.")));
    EXPECT_EQ(editor.text(), QStringLiteral("My careful edit."));
    EXPECT_EQ(storedTranscription(), original + QStringLiteral(" And more."));

    // The sheet adds a deleted note to the running work it is given.
    store.deleteNote(note);
    click("transcriptEditorSaveButton");
    EXPECT_TRUE(editor.isVisible());
    EXPECT_EQ(errorLine(), refusedByTheGate);
}

} // namespace
