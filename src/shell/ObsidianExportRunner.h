#pragma once

#include "core/Note.h"
#include "documents/NoteExport.h"

#include <QFileDialog>
#include <QObject>
#include <QPointer>
#include <QThread>

#include <atomic>
#include <memory>

class QWidget;

namespace kestil {

class LocalAppModel;

// Exports a note into a folder of an Obsidian vault. The folder is asked for
// each time; the copy of the note's audio runs on a thread of its own, with
// its progress in the window's message line, so an hour of audio never
// freezes the window. The outcome ends in the same line.
class ObsidianExportRunner : public QObject {
    Q_OBJECT
public:
    ObsidianExportRunner(LocalAppModel &app, QWidget *window);
    // A running copy is stopped and waited for: no thread outlives the window.
    ~ObsidianExportRunner() override;

    // Opens the folder dialog, then exports the note into the chosen folder.
    void chooseFolderAndExport(const NotePtr &note);
    // Exports into `folder` without asking.
    void exportTo(const NoteExportContent &note, const QString &folder);

    bool running() const { return worker_ != nullptr; }
    QFileDialog *folderDialog() const { return dialog_; }

signals:
    void finished();

private:
    void showProgress(qint64 done, qint64 total);

    LocalAppModel &app_;
    QWidget *window_;
    QPointer<QFileDialog> dialog_;
    QThread *worker_ = nullptr;
    std::shared_ptr<std::atomic_bool> cancel_;
    qint64 lastShownPercent_ = -1;
};

} // namespace kestil
