#include "shell/ObsidianExportRunner.h"

#include "base/CancellationError.h"
#include "core/LocalAppModel.h"
#include "core/SharedPersistenceController.h"
#include "documents/ObsidianExport.h"
#include "shell/NoteExportActions.h"

#include <QFileDialog>
#include <QLocale>
#include <QWidget>

namespace kestil {

ObsidianExportRunner::ObsidianExportRunner(LocalAppModel &app, QWidget *window)
    : QObject(window), app_(app), window_(window)
{
}

ObsidianExportRunner::~ObsidianExportRunner()
{
    if (worker_) {
        cancel_->store(true);
        worker_->wait();
        delete worker_;
    }
}

void ObsidianExportRunner::chooseFolderAndExport(const NotePtr &note)
{
    if (!note || running())
        return;
    const NoteExportContent content = NoteExportActions::content(*note);
    if (dialog_)
        dialog_->close();
    auto *dialog = new QFileDialog(
        window_, QStringLiteral("Choose an Obsidian vault folder for Markdown and local audio."));
    dialog->setObjectName(QStringLiteral("obsidianExportFolderDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    dialog->setLabelText(QFileDialog::Accept, QStringLiteral("Export Here"));
    dialog->setWindowModality(Qt::WindowModal);
    dialog_ = dialog;
    connect(dialog, &QFileDialog::fileSelected, this,
            [this, content](const QString &folder) { exportTo(content, folder); });
    dialog->open();
}

void ObsidianExportRunner::exportTo(const NoteExportContent &note, const QString &folder)
{
    if (running())
        return;
    std::optional<QString> root;
    if (app_.store())
        root = app_.store()->root();
    cancel_ = std::make_shared<std::atomic_bool>(false);
    lastShownPercent_ = -1;
    app_.setMessage(QStringLiteral("Exporting the note to the selected folder…"));
    QPointer<ObsidianExportRunner> self(this);
    const std::shared_ptr<std::atomic_bool> cancel = cancel_;
    worker_ = QThread::create([self, note, folder, root, cancel] {
        QString message;
        try {
            const ObsidianExport::Result result = ObsidianExport::run(
                note, folder, root,
                [self](qint64 done, qint64 total) {
                    QMetaObject::invokeMethod(
                        self.data(),
                        [self, done, total] {
                            if (self)
                                self->showProgress(done, total);
                        },
                        Qt::QueuedConnection);
                },
                cancel.get());
            message = result.message();
        } catch (const CancellationError &) {
            message = QStringLiteral("Export stopped. Local source files were retained.");
        } catch (const std::exception &failure) {
            message = failureSentence(QStringLiteral("Export failed: "), describe(failure),
                                      QStringLiteral(". Local source files were retained."));
        }
        QMetaObject::invokeMethod(
            self.data(),
            [self, message] {
                if (!self)
                    return;
                self->worker_->wait();
                delete self->worker_;
                self->worker_ = nullptr;
                self->app_.setMessage(message);
                emit self->finished();
            },
            Qt::QueuedConnection);
    });
    worker_->start();
}

void ObsidianExportRunner::showProgress(qint64 done, qint64 total)
{
    if (!running() || total <= 0)
        return;
    const qint64 percent = done * 100 / total;
    if (percent == lastShownPercent_)
        return;
    lastShownPercent_ = percent;
    const QLocale locale;
    app_.setMessage(
        QStringLiteral("Exporting the note’s audio to the selected folder: %1 of %2 copied (%3%).")
            .arg(locale.formattedDataSize(done), locale.formattedDataSize(total))
            .arg(percent));
}

} // namespace kestil
