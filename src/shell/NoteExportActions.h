#pragma once

#include "core/Note.h"
#include "documents/NoteExport.h"

#include <QFileDialog>
#include <QMessageBox>
#include <QObject>
#include <QPointer>

#include <functional>

class QMenu;
class QWidget;

namespace kestil {

// The note's menu: Copy (Transcript, Summary) and Save to File… (the summary
// as PDF, the summary or the transcript alone, the whole note as plain text or
// formatted, the transcript as subtitles). Each document is built when its
// entry is chosen, before the save dialog opens; the dialog never blocks the
// window, and a failed write says so in an "Export Failed" alert while the
// note stays as it is in the library.
class NoteExportActions : public QObject {
    Q_OBJECT
public:
    // `note` gives the note the menu acts on at the moment it is used.
    NoteExportActions(std::function<NotePtr()> note, QWidget *window);

    // Fills `menu` with the entries for the current note; entries that need a
    // summary or timed utterances are left out when the note has none.
    void populate(QMenu *menu);

    // The open save dialog, while there is one.
    QFileDialog *saveDialog() const { return dialog_; }
    // The open failure alert, while there is one.
    QMessageBox *failureAlert() const { return alert_; }

    static NoteExportContent content(const Note &note);

private:
    enum class Kind {
        summaryPDF,
        summaryOnly,
        transcriptOnly,
        plainText,
        formatted,
        subtitlesSRT,
        subtitlesVTT
    };
    void exportNote(Kind kind);
    void save(const QString &title, const QString &message, const QString &fileName, const QString &filter,
              std::function<void(const QString &)> write);
    void showFailure(const QString &message);

    std::function<NotePtr()> note_;
    QWidget *window_;
    QPointer<QFileDialog> dialog_;
    QPointer<QMessageBox> alert_;
};

// "prefix" + description + "suffix", with a description's own closing full
// stop dropped so that the sentence ends once.
QString failureSentence(const QString &prefix, const QString &description, const QString &suffix);

} // namespace kestil
