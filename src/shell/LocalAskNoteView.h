#pragma once

#include "core/Note.h"

#include <QDialog>

#include <memory>

class QLabel;
class QLineEdit;
class QPushButton;
class QStackedWidget;
class QTextBrowser;

namespace kestil {

class AskNoteConversation;
class LanguageModel;
class SharedPersistenceController;

// The Ask AI window of one note: its saved conversation, a question field,
// the answer as it streams, and the controls to stop, copy, share and clear.
// Closing the window stops a running answer; the question stays saved.
class LocalAskNoteView : public QDialog {
    Q_OBJECT
public:
    LocalAskNoteView(NotePtr note, SharedPersistenceController &store, LanguageModel &model,
                     const QLocale &locale, QWidget *parent = nullptr);
    ~LocalAskNoteView() override;

    AskNoteConversation &conversation() { return *conversation_; }
    // The text the conversation view shows, for tests and accessibility.
    QString conversationText() const;

protected:
    void hideEvent(QHideEvent *event) override;

private:
    void refresh();
    void ask(const QString &question);
    void copyConversation();
    void shareConversation();
    void confirmClear();

    std::unique_ptr<AskNoteConversation> conversation_;
    QStackedWidget *pages_ = nullptr;
    QTextBrowser *transcript_ = nullptr;
    QLabel *longNoteHint_ = nullptr;
    QLabel *status_ = nullptr;
    QWidget *errorStrip_ = nullptr;
    QLabel *error_ = nullptr;
    QLabel *notice_ = nullptr;
    QLineEdit *question_ = nullptr;
    QPushButton *send_ = nullptr;
    QPushButton *stop_ = nullptr;
    QPushButton *copy_ = nullptr;
    QPushButton *share_ = nullptr;
    QPushButton *clear_ = nullptr;
};

} // namespace kestil
