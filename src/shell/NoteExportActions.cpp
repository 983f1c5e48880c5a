#include "shell/NoteExportActions.h"

#include "base/Error.h"
#include "core/NoteTranscript.h"
#include "documents/Subtitles.h"
#include "documents/SummaryPDF.h"
#include "speech/SpeakerNames.h"

#include <QAction>
#include <QClipboard>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMenu>
#include <QMessageBox>
#include <QWidget>

namespace kestil {

namespace {

QAction *addEntry(QMenu *menu, const QString &text, const QString &identifier)
{
    QAction *action = menu->addAction(text);
    action->setObjectName(identifier);
    return action;
}

} // namespace

QString failureSentence(const QString &prefix, const QString &description, const QString &suffix)
{
    QString cause = description.trimmed();
    while (cause.endsWith(QLatin1Char('.')))
        cause.chop(1);
    return prefix + cause + suffix;
}

NoteExportActions::NoteExportActions(std::function<NotePtr()> note, QWidget *window)
    : QObject(window), note_(std::move(note)), window_(window)
{
}

NoteExportContent NoteExportActions::content(const Note &note)
{
    NoteExportContent content;
    content.title = note.title();
    content.timestamp = note.timestamp();
    content.summary = note.summary().value_or(QString());
    content.transcription = transcriptForReading(note);
    content.notes = note.notes().value_or(QString());
    content.tags = note.sortedTagNames();
    content.sourceURL = note.sourceURL().value_or(QString());
    return content;
}

void NoteExportActions::populate(QMenu *menu)
{
    menu->clear();
    const NotePtr note = note_();
    if (!note)
        return;
    const bool summary = NoteExport::hasExportableSummary(note->summary().value_or(QString()));
    const bool subtitles = Subtitles::hasTimedUtterances(transcriptUtterances(*note));

    QMenu *copy = menu->addMenu(QStringLiteral("Copy"));
    copy->setObjectName(QStringLiteral("noteMenuCopy"));
    connect(addEntry(copy, QStringLiteral("Transcript"), QStringLiteral("copyTranscriptButton")),
            &QAction::triggered, this, [this] {
                if (const NotePtr shown = note_())
                    QGuiApplication::clipboard()->setText(transcriptForReading(*shown).trimmed());
            });
    if (summary) {
        connect(addEntry(copy, QStringLiteral("Summary"), QStringLiteral("copySummaryButton")),
                &QAction::triggered, this, [this] {
                    if (const NotePtr shown = note_())
                        QGuiApplication::clipboard()->setText(shown->summary().value_or(QString()).trimmed());
                });
    }

    QMenu *save = menu->addMenu(QStringLiteral("Save to File..."));
    save->setObjectName(QStringLiteral("noteMenuSaveToFile"));
    const auto entry = [&](const QString &text, const QString &identifier, Kind kind) {
        connect(addEntry(save, text, identifier), &QAction::triggered, this,
                [this, kind] { exportNote(kind); });
    };
    if (summary) {
        entry(QStringLiteral("Summary as PDF"), QStringLiteral("exportSummaryPDFButton"), Kind::summaryPDF);
        entry(QStringLiteral("Summary Only"), QStringLiteral("exportSummaryButton"), Kind::summaryOnly);
    }
    entry(QStringLiteral("Transcript Only"), QStringLiteral("exportTranscriptButton"), Kind::transcriptOnly);
    entry(QStringLiteral("Full Note (Plain Text)"), QStringLiteral("exportFullNotePlainTextButton"),
          Kind::plainText);
    entry(QStringLiteral("Full Note (Formatted)"), QStringLiteral("exportFullNoteFormattedButton"),
          Kind::formatted);
    if (subtitles) {
        save->addSeparator();
        entry(QStringLiteral("Transcript as Subtitles (SRT)"), QStringLiteral("exportSubtitlesSRTButton"),
              Kind::subtitlesSRT);
        entry(QStringLiteral("Transcript as Subtitles (WebVTT)"), QStringLiteral("exportSubtitlesVTTButton"),
              Kind::subtitlesVTT);
    }
}

void NoteExportActions::exportNote(Kind kind)
{
    const NotePtr note = note_();
    if (!note)
        return;
    const NoteExportContent content = NoteExportActions::content(*note);
    const QString exportTitle = QStringLiteral("Export Note");
    const QString exportMessage = QStringLiteral("Choose where to save your note");
    const QString markdownFilter = QStringLiteral("Markdown (*.md)");

    // The document is built now, from the note as it is when the entry was
    // chosen; the dialog only picks where it goes.
    const auto writeText = [](const QString &text) {
        return [text](const QString &path) { NoteExport::writeTextAtomically(path, text); };
    };
    switch (kind) {
    case Kind::summaryPDF: {
        const QString title = content.title.value_or(QString()).trimmed().isEmpty()
                                  ? untitledNoteTitle()
                                  : content.title->trimmed();
        const QColor accent = window_->palette().color(QPalette::Highlight);
        const QString summary = content.summary;
        const std::optional<QDateTime> date = content.timestamp;
        save(
            QStringLiteral("Export Summary as PDF"), QString(),
            NoteExport::suggestedFileName(content.title, QStringLiteral(" - Summary"), QStringLiteral("pdf")),
            QStringLiteral("PDF (*.pdf)"), [title, date, summary, accent](const QString &path) {
                SummaryPDF::write(title, date, summary, path, accent);
            });
        return;
    }
    case Kind::summaryOnly:
        save(exportTitle, exportMessage,
             NoteExport::suggestedFileName(content.title, QStringLiteral(" - Summary"), QStringLiteral("md")),
             markdownFilter,
             writeText(NoteExport::sectionDocument(content, QStringLiteral("Summary"), content.summary)));
        return;
    case Kind::transcriptOnly:
        save(exportTitle, exportMessage,
             NoteExport::suggestedFileName(content.title, QStringLiteral(" - Transcript"),
                                           QStringLiteral("md")),
             markdownFilter,
             writeText(
                 NoteExport::sectionDocument(content, QStringLiteral("Transcript"), content.transcription)));
        return;
    case Kind::plainText:
        save(exportTitle, exportMessage,
             NoteExport::suggestedFileName(content.title, QString(), QStringLiteral("txt")),
             QStringLiteral("Plain text (*.txt)"), writeText(NoteExport::plainTextDocument(content)));
        return;
    case Kind::formatted:
        save(exportTitle, exportMessage,
             NoteExport::suggestedFileName(content.title, QString(), QStringLiteral("md")), markdownFilter,
             writeText(NoteExport::formattedDocument(content)));
        return;
    case Kind::subtitlesSRT:
    case Kind::subtitlesVTT: {
        const QList<SubtitleCue> cues = Subtitles::cues(utterancesWithSpeakerNames(
            transcriptUtterances(*note), decodeSpeakerNames(note->speakerNamesJSON())));
        const bool srt = kind == Kind::subtitlesSRT;
        save(exportTitle, exportMessage,
             NoteExport::suggestedFileName(content.title, QString(),
                                           srt ? QStringLiteral("srt") : QStringLiteral("vtt")),
             srt ? QStringLiteral("SubRip subtitles (*.srt)") : QStringLiteral("WebVTT subtitles (*.vtt)"),
             writeText(srt ? Subtitles::srt(cues) : Subtitles::webVtt(cues)));
        return;
    }
    }
}

void NoteExportActions::save(const QString &title, const QString &message, const QString &fileName,
                             const QString &filter, std::function<void(const QString &)> write)
{
    if (dialog_)
        dialog_->close();
    auto *dialog =
        new QFileDialog(window_, message.isEmpty() ? title : title + QStringLiteral(" — ") + message);
    dialog->setObjectName(QStringLiteral("exportSaveDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setFileMode(QFileDialog::AnyFile);
    dialog->setNameFilter(filter);
    dialog->setDefaultSuffix(QFileInfo(fileName).suffix());
    dialog->selectFile(fileName);
    dialog_ = dialog;
    const bool pdf = fileName.endsWith(QStringLiteral(".pdf"));
    connect(dialog, &QFileDialog::fileSelected, this, [this, write, pdf](const QString &path) {
        try {
            write(path);
        } catch (const std::exception &failure) {
            showFailure(
                pdf ? failureSentence(QStringLiteral("The PDF could not be created: "), describe(failure),
                                      QStringLiteral(". Your note remains saved in Kestil."))
                    : failureSentence(QStringLiteral("The note could not be exported: "), describe(failure),
                                      QStringLiteral(". Your note remains saved in Kestil.")));
        }
    });
    dialog->open();
}

void NoteExportActions::showFailure(const QString &message)
{
    if (alert_)
        alert_->close();
    alert_ = new QMessageBox(QMessageBox::Warning, QStringLiteral("Export Failed"), message, QMessageBox::Ok,
                             window_);
    alert_->setObjectName(QStringLiteral("exportFailedAlert"));
    alert_->setAttribute(Qt::WA_DeleteOnClose);
    alert_->setWindowModality(Qt::WindowModal);
    alert_->open();
}

} // namespace kestil
