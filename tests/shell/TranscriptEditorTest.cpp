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

struct EditorFixture : ::testing::Test {
    QTemporaryDir dir;
    std::unique_ptr<SharedPersistenceController> store;
    NotePtr note;
    TranscriptEditGate gate;

    void SetUp() override
    {
        store = std::make_unique<SharedPersistenceController>(dir.path());
        note = store->createNote(QStringLiteral("Standup"), QStringLiteral("We shipped the beta."),
                                 QUuid::createUuid(), QStringLiteral("transcription"));
        TranscriptUtterance timed;
        timed.id = newTranscriptUtteranceId();
        timed.text = QStringLiteral("We shipped the beta.");
        timed.start = 3;
        timed.end = 5;
        setTranscriptUtterances(*note, {timed});
        store->save();
    }

    std::unique_ptr<TranscriptEditor> open()
    {
        auto editor = std::make_unique<TranscriptEditor>(note, *store, [this] { return gate; });
        editor->show();
        return editor;
    }
    static void type(TranscriptEditor &editor, const QString &text)
    {
        editor.findChild<QPlainTextEdit *>(QStringLiteral("transcriptEditorText"))->setPlainText(text);
    }
    static void click(TranscriptEditor &editor, const char *name)
    {
        QTest::mouseClick(editor.findChild<QPushButton *>(QLatin1String(name)), Qt::LeftButton);
    }
    static QString errorLine(TranscriptEditor &editor)
    {
        return editor.findChild<QLabel *>(QStringLiteral("transcriptEditorError"))->text();
    }
    // What another SQLite connection reads from the file.
    QString storedTranscription()
    {
        SharedPersistenceController other(dir.path());
        auto again = other.noteWithId(*note->id());
        return again ? again->transcription().value_or(QString()) : QStringLiteral("<missing>");
    }
};

TEST_F(EditorFixture, SaveWritesTheTextAndDropsTheTiming)
{
    auto editor = open();
    EXPECT_EQ(editor->findChild<QPlainTextEdit *>(QStringLiteral("transcriptEditorText"))->toPlainText(),
              QStringLiteral("We shipped the beta."));
    type(*editor, QStringLiteral("We shipped the beta on Friday.\n\nAna owns the release notes."));
    click(*editor, "transcriptEditorSaveButton");
    EXPECT_EQ(editor->result(), QDialog::Accepted);
    EXPECT_FALSE(editor->isVisible());
    EXPECT_EQ(storedTranscription(),
              QStringLiteral("We shipped the beta on Friday.\n\nAna owns the release notes."));
    const auto utterances = transcriptUtterances(*note);
    ASSERT_EQ(utterances.size(), 2);
    for (const auto &u : utterances)
        EXPECT_FALSE(u.start) << "an edited transcript shows no labels";
}

TEST_F(EditorFixture, UnchangedSaveClosesWithoutWriting)
{
    QSignalSpy saves(store.get(), &SharedPersistenceController::didSave);
    auto editor = open();
    click(*editor, "transcriptEditorSaveButton");
    EXPECT_EQ(editor->result(), QDialog::Accepted);
    EXPECT_EQ(saves.count(), 0);
}

TEST_F(EditorFixture, ATranscriptChangedMeanwhileIsNotOverwritten)
{
    auto editor = open();
    type(*editor, QStringLiteral("My careful edit."));
    // A recording appended to the note while the sheet was open.
    store->applyGeneratedFields(
        note, {{QStringLiteral("transcription"), QStringLiteral("We shipped the beta. And more.")}});
    click(*editor, "transcriptEditorSaveButton");
    EXPECT_TRUE(editor->isVisible()) << "the sheet stays open";
    EXPECT_EQ(errorLine(*editor),
              QStringLiteral("This transcript changed while you were editing. Close the editor "
                             "and reopen it to edit the latest text."));
    EXPECT_EQ(editor->text(), QStringLiteral("My careful edit.")) << "the user's text is kept";
    EXPECT_EQ(storedTranscription(), QStringLiteral("We shipped the beta. And more."));

    // Typing the new text exactly does not make the stale editor safe.
    type(*editor, QStringLiteral("We shipped the beta. And more."));
    click(*editor, "transcriptEditorSaveButton");
    EXPECT_TRUE(editor->isVisible());
}

TEST_F(EditorFixture, RunningWorkBlocksTheSave)
{
    gate.recording = true;
    auto editor = open();
    type(*editor, QStringLiteral("Edited while recording."));
    click(*editor, "transcriptEditorSaveButton");
    EXPECT_TRUE(editor->isVisible());
    EXPECT_EQ(errorLine(*editor), QStringLiteral("Finish transcription or processing before saving edits."));
    EXPECT_EQ(storedTranscription(), QStringLiteral("We shipped the beta."));

    gate.recording = false;
    click(*editor, "transcriptEditorSaveButton");
    EXPECT_EQ(editor->result(), QDialog::Accepted);
    EXPECT_EQ(storedTranscription(), QStringLiteral("Edited while recording."));
}

TEST_F(EditorFixture, CancelChangesNothing)
{
    QSignalSpy saves(store.get(), &SharedPersistenceController::didSave);
    auto editor = open();
    type(*editor, QStringLiteral("Thrown away."));
    click(*editor, "transcriptEditorCancelButton");
    EXPECT_EQ(editor->result(), QDialog::Rejected);
    EXPECT_EQ(saves.count(), 0);
    EXPECT_EQ(note->transcription(), QStringLiteral("We shipped the beta."));
}

TEST_F(EditorFixture, ADeletedNoteCannotBeSaved)
{
    auto editor = open();
    type(*editor, QStringLiteral("Too late."));
    store->deleteNote(note);
    click(*editor, "transcriptEditorSaveButton");
    EXPECT_TRUE(editor->isVisible());
    EXPECT_EQ(errorLine(*editor), QStringLiteral("Finish transcription or processing before saving edits."));
}

} // namespace
