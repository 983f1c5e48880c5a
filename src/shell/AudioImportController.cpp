#include "AudioImportController.h"

#include "core/NotesListViewModel.h"
#include "generation/LocalSummaryTemplate.h"

#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressDialog>
#include <QPushButton>
#include <QUrl>
#include <QWidget>

#include <cmath>

namespace kestil {

namespace {

QStringList localFiles(const QMimeData *data)
{
    QStringList files;
    if (!data || !data->hasUrls())
        return files;
    for (const QUrl &url : data->urls()) {
        if (url.isLocalFile())
            files << url.toLocalFile();
    }
    return files;
}

QString clock(double seconds)
{
    const auto whole = qint64(std::llround(std::max(0.0, seconds)));
    return QString::asprintf("%lld:%02lld", static_cast<long long>(whole / 60),
                             static_cast<long long>(whole % 60));
}

} // namespace

AudioImportController::AudioImportController(LocalAppModel &app, PreferenceStore &preferences,
                                             NotesListViewModel &list, QWidget *dropTarget, QObject *parent)
    : QObject(parent), app_(app), list_(list), dropTarget_(dropTarget), import_(app, preferences)
{
    dropTarget_->setAcceptDrops(true);
    dropTarget_->installEventFilter(this);
    connect(&import_, &AudioFileImport::noteCreated, this,
            [this](const NotePtr &note) { list_.selectNote(note, false); });
    connect(&import_, &AudioFileImport::progressChanged, this, &AudioImportController::showProgress);
    connect(&import_, &AudioFileImport::finished, this, &AudioImportController::finish);
}

void AudioImportController::chooseFiles()
{
    QFileDialog dialog(dropTarget_->window(), QStringLiteral("Import Audio File"), QDir::homePath(),
                       QStringLiteral("Audio files (*.wav *.flac *.ogg *.oga *.opus *.mp3 *.caf *.aif *.aiff "
                                      "*.au *.w64);;All files (*)"));
    dialog.setObjectName(QStringLiteral("audioImportDialog"));
    dialog.setFileMode(QFileDialog::ExistingFiles);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    if (dialog.exec() == QDialog::Accepted)
        importFiles(dialog.selectedFiles());
}

void AudioImportController::importFiles(const QStringList &paths)
{
    waiting_ << paths;
    if (!import_.running())
        startNext();
}

bool AudioImportController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == dropTarget_) {
        if (event->type() == QEvent::DragEnter || event->type() == QEvent::DragMove) {
            auto *drag = static_cast<QDragMoveEvent *>(event);
            if (!localFiles(drag->mimeData()).isEmpty()) {
                drag->acceptProposedAction();
                return true;
            }
        } else if (event->type() == QEvent::Drop) {
            auto *drop = static_cast<QDropEvent *>(event);
            const QStringList files = localFiles(drop->mimeData());
            if (!files.isEmpty()) {
                drop->acceptProposedAction();
                importFiles(files);
                return true;
            }
        }
    }
    return QObject::eventFilter(watched, event);
}

void AudioImportController::startNext()
{
    while (!waiting_.isEmpty() && !import_.running()) {
        // A file that cannot begin says why at once (finish), and the next one follows.
        if (import_.start(waiting_.takeFirst()))
            return;
    }
}

void AudioImportController::showProgress()
{
    if (!import_.running()) {
        if (progress_)
            progress_->deleteLater();
        return;
    }
    if (!progress_) {
        progress_ = new QProgressDialog(dropTarget_->window());
        progress_->setObjectName(QStringLiteral("audioImportProgress"));
        progress_->setWindowTitle(QStringLiteral("Import Audio File"));
        progress_->setRange(0, 1000);
        progress_->setMinimumDuration(0);
        progress_->setAutoClose(false);
        progress_->setAutoReset(false);
        auto *cancel = new QPushButton(QStringLiteral("Cancel"));
        cancel->setObjectName(QStringLiteral("audioImportCancelButton"));
        progress_->setCancelButton(cancel);
        connect(progress_, &QProgressDialog::canceled, &import_, &AudioFileImport::cancel);
        progress_->show();
    }
    const bool copying = import_.stage() == AudioFileImport::Stage::copying;
    progress_->setLabelText(copying
                                ? QStringLiteral("Copying the audio of “%1”…").arg(import_.fileName())
                                : QStringLiteral("Transcribing “%1”: %2 of %3")
                                      .arg(import_.fileName(), clock(import_.progress() * import_.seconds()),
                                           clock(import_.seconds())));
    progress_->setValue(int(std::lround(import_.progress() * 1000)));
}

void AudioImportController::finish(bool transcribed, const QString &message)
{
    if (progress_)
        progress_->deleteLater();
    const NotePtr note = import_.note();
    if (transcribed && note) {
        offerSummary(note, message);
        emit fileTranscribed(note);
    } else
        list_.reportFailure(message);
    startNext();
}

void AudioImportController::offerSummary(const NotePtr &note, const QString &message)
{
    if (offer_)
        offer_->deleteLater();
    offer_ = new QMessageBox(QMessageBox::Question, QStringLiteral("Audio File Imported"),
                             message + QStringLiteral(" Summarize it now?"), QMessageBox::NoButton,
                             dropTarget_->window());
    offer_->setObjectName(QStringLiteral("audioImportSummaryOffer"));
    offer_->setAttribute(Qt::WA_DeleteOnClose);
    QPushButton *summarize = offer_->addButton(QStringLiteral("Summarize"), QMessageBox::AcceptRole);
    summarize->setObjectName(QStringLiteral("audioImportSummarizeButton"));
    offer_->addButton(QStringLiteral("Not Now"), QMessageBox::RejectRole)
        ->setObjectName(QStringLiteral("audioImportNotNowButton"));
    connect(summarize, &QPushButton::clicked, this, [this, note] {
        list_.selectNote(note, false);
        list_.setSelectedDetailTab(NotesListViewModel::summaryTab);
        list_.generateSummary(note, LocalSummaryTemplates::id(LocalSummaryTemplate::autoSummary));
    });
    offer_->open();
}

} // namespace kestil
