#pragma once

#include "core/AudioFileImport.h"

#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <QProgressDialog>
#include <QStringList>

namespace kestil {

class LocalAppModel;
class NotesListViewModel;
class PreferenceStore;

// "Import Audio File…" and audio files dropped on the notes list: asks for
// files, runs one AudioFileImport after another with a progress window that
// can cancel, selects each new note, and when a file is transcribed offers
// to summarise it. Failures are shown the way every action's are.
class AudioImportController : public QObject {
    Q_OBJECT
public:
    // `dropTarget` takes dropped files (and is the parent of the windows).
    AudioImportController(LocalAppModel &app, PreferenceStore &preferences, NotesListViewModel &list,
                          QWidget *dropTarget, QObject *parent = nullptr);

    // Opens the file dialog and imports what is chosen.
    void chooseFiles();
    // Imports the files in order, after any already waiting.
    void importFiles(const QStringList &paths);

    AudioFileImport &import() { return import_; }
    // While an import runs.
    QProgressDialog *progressWindow() const { return progress_; }
    // The offer to summarise the last transcribed file, while it is open.
    QMessageBox *summaryOffer() const { return offer_; }

signals:
    // A file became a note with its whole transcript.
    void fileTranscribed(const kestil::NotePtr &note);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void startNext();
    void showProgress();
    void finish(bool transcribed, const QString &message);
    void offerSummary(const NotePtr &note, const QString &message);

    LocalAppModel &app_;
    NotesListViewModel &list_;
    QWidget *dropTarget_;
    AudioFileImport import_;
    QStringList waiting_;
    QPointer<QProgressDialog> progress_;
    QPointer<QMessageBox> offer_;
};

} // namespace kestil
