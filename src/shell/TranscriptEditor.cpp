#include "shell/TranscriptEditor.h"

#include "base/Error.h"
#include "core/SharedPersistenceController.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace kestil {

TranscriptEditor::TranscriptEditor(NotePtr note, SharedPersistenceController &store,
                                   std::function<TranscriptEditGate()> gate, QWidget *parent)
    : QDialog(parent), note_(std::move(note)), store_(store), gate_(std::move(gate)),
      original_(note_->transcription().value_or(QString()))
{
    setObjectName(QStringLiteral("transcriptEditor"));
    setWindowTitle(QStringLiteral("Edit Transcript"));
    setModal(true);
    resize(640, 520);

    auto *layout = new QVBoxLayout(this);
    auto *heading = new QLabel(QStringLiteral("Edit Transcript"));
    QFont headingFont = heading->font();
    headingFont.setWeight(QFont::DemiBold);
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.15);
    heading->setFont(headingFont);
    layout->addWidget(heading);

    editor_ = new QPlainTextEdit(original_);
    editor_->setObjectName(QStringLiteral("transcriptEditorText"));
    editor_->setAccessibleName(QStringLiteral("transcriptEditorText"));
    layout->addWidget(editor_, 1);

    error_ = new QLabel;
    error_->setObjectName(QStringLiteral("transcriptEditorError"));
    error_->setAccessibleName(QStringLiteral("transcriptEditorError"));
    error_->setWordWrap(true);
    QPalette errorPalette = error_->palette();
    errorPalette.setColor(QPalette::WindowText, QColor(0xc6, 0x28, 0x28));
    error_->setPalette(errorPalette);
    error_->hide();
    layout->addWidget(error_);

    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    auto *cancel = new QPushButton(QStringLiteral("Cancel"));
    cancel->setObjectName(QStringLiteral("transcriptEditorCancelButton"));
    cancel->setAccessibleName(QStringLiteral("transcriptEditorCancelButton"));
    auto *saveButton = new QPushButton(QStringLiteral("Save"));
    saveButton->setObjectName(QStringLiteral("transcriptEditorSaveButton"));
    saveButton->setAccessibleName(QStringLiteral("transcriptEditorSaveButton"));
    saveButton->setDefault(true);
    buttons->addWidget(cancel);
    buttons->addWidget(saveButton);
    layout->addLayout(buttons);

    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(saveButton, &QPushButton::clicked, this, &TranscriptEditor::save);
}

QString TranscriptEditor::text() const
{
    return editor_->toPlainText();
}

QString TranscriptEditor::error() const
{
    return error_->isVisible() || !error_->text().isEmpty() ? error_->text() : QString();
}

void TranscriptEditor::showError(const QString &message)
{
    error_->setText(message);
    error_->setVisible(!message.isEmpty());
}

void TranscriptEditor::save()
{
    TranscriptEditGate gate = gate_ ? gate_() : TranscriptEditGate{};
    gate.noteDeleted = gate.noteDeleted || note_->isDeleted();
    if (!canSaveTranscriptEdit(gate)) {
        showError(transcriptEditBlockedMessage());
        return;
    }
    try {
        const auto fields = transcriptEditFields(note_->transcription().value_or(QString()), text(),
                                                 original_, placeholderTexts());
        if (fields)
            store_.applyGeneratedFields(note_, *fields);
    } catch (const std::exception &error) {
        showError(describe(error));
        return;
    }
    showError({});
    accept();
}

} // namespace kestil
