#pragma once

#include "core/Note.h"
#include "library/TranscriptEdit.h"

#include <QDialog>

#include <functional>

class QLabel;
class QPlainTextEdit;
class QPushButton;

namespace kestil {

class SharedPersistenceController;

// The plain-text transcript editor, a sheet over the window. It remembers
// the transcript it opened with and refuses to save over one that changed
// meanwhile; any refusal or failure shows in its error line and keeps the
// user's text in the sheet.
class TranscriptEditor : public QDialog {
    Q_OBJECT
public:
    // gate tells, at the moment of saving, what work is running.
    TranscriptEditor(NotePtr note, SharedPersistenceController &store,
                     std::function<TranscriptEditGate()> gate, QWidget *parent = nullptr);

    const QString &original() const { return original_; }
    QString text() const;
    QString error() const;

    void save();

private:
    void showError(const QString &message);

    NotePtr note_;
    SharedPersistenceController &store_;
    std::function<TranscriptEditGate()> gate_;
    QString original_;
    QPlainTextEdit *editor_ = nullptr;
    QLabel *error_ = nullptr;
};

} // namespace kestil
