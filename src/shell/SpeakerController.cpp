#include "SpeakerController.h"

#include "core/LocalAppModel.h"
#include "core/NoteTranscript.h"
#include "core/NotesListViewModel.h"
#include "core/SharedPersistenceController.h"
#include "shell/TranscriptTab.h"

#include "base/Error.h"
#include "speech/DiarisationModels.h"
#include "speech/SherpaSpeakerDiarizer.h"
#include "speech/SpeakerNames.h"

#include <QInputDialog>
#include <QLineEdit>
#include <QMessageBox>

namespace kestil {

namespace {

std::unique_ptr<SpeakerDiarizer> installedDiarizer()
{
    const QString directory = diarisationModelsDirectory();
    if (!diarisationModelsInstalled(directory))
        throw LocalError(QStringLiteral("Identifying speakers needs its two models. Import them in Settings, "
                                        "under Speakers; your notes are unchanged."));
    SherpaSpeakerDiarizer::Options options;
    options.segmentationModel = diarisationModelPath(directory, diarisationModels()[0]);
    options.embeddingModel = diarisationModelPath(directory, diarisationModels()[1]);
    return std::make_unique<SherpaSpeakerDiarizer>(options);
}

} // namespace

SpeakerController::SpeakerController(LocalAppModel &app, NotesListViewModel &list, TranscriptTab &tab,
                                     QObject *parent)
    : QObject(parent), app_(app), list_(list), tab_(tab), identification_(app, &installedDiarizer)
{
    connect(&tab_, &TranscriptTab::identifySpeakersRequested, this, [this] { identify(shown_); });
    connect(&tab_, &TranscriptTab::identifySpeakersCancelled, &identification_,
            &SpeakerIdentification::cancel);
    connect(&tab_, &TranscriptTab::renameSpeakerRequested, this, &SpeakerController::rename);
    connect(&identification_, &SpeakerIdentification::progressChanged, this,
            &SpeakerController::showProgress);
    connect(&identification_, &SpeakerIdentification::finished, this, &SpeakerController::finish);
}

void SpeakerController::setShownNote(const NotePtr &note)
{
    shown_ = note;
    showProgress();
}

void SpeakerController::identifyAutomatically(const NotePtr &note)
{
    if (note && !identification_.running() && diarisationModelsInstalled())
        identify(note);
}

void SpeakerController::identify(const NotePtr &note)
{
    if (note)
        identification_.start(note);
}

void SpeakerController::rename(qint64 speaker, const QString &currentName)
{
    const NotePtr note = shown_;
    if (!note)
        return;
    QInputDialog dialog(tab_.window());
    dialog.setObjectName(QStringLiteral("renameSpeakerDialog"));
    dialog.setWindowTitle(QStringLiteral("Rename Speaker"));
    dialog.setLabelText(QStringLiteral("Name for %1 throughout this note (leave empty for “Speaker %2”):")
                            .arg(currentName)
                            .arg(speaker + 1));
    dialog.setTextValue(currentName.startsWith(QStringLiteral("Speaker ")) ? QString() : currentName);
    if (dialog.exec() != QDialog::Accepted)
        return;
    SharedPersistenceController *store = app_.store();
    if (!store)
        return;
    const std::optional<QString> before = note->speakerNamesJSON();
    try {
        const SpeakerNames names =
            renamedSpeaker(decodeSpeakerNames(before), transcriptSpeakers(transcriptUtterances(*note)),
                           speaker, dialog.textValue());
        const std::optional<QString> json = encodeSpeakerNames(names);
        note->setValue(QStringLiteral("speakerNamesJSON"), json ? QVariant(*json) : QVariant());
        store->save();
    } catch (const LocalError &error) {
        QMessageBox::information(tab_.window(), QStringLiteral("Rename Speaker"),
                                 error.localizedDescription());
        return;
    } catch (const std::exception &error) {
        note->setValue(QStringLiteral("speakerNamesJSON"), before ? QVariant(*before) : QVariant());
        list_.reportFailure(QStringLiteral("The speaker's new name could not be saved: %1 The note is "
                                           "unchanged.")
                                .arg(describe(error)));
        return;
    }
    emit speakersChanged();
}

void SpeakerController::showProgress()
{
    const bool here = identification_.running() && shown_ && identification_.note() == shown_;
    if (here)
        tab_.showSpeakerProgress(identification_.progress(), QStringLiteral("Identifying speakers…"));
    else
        tab_.showSpeakerProgress(std::nullopt);
    tab_.setIdentifySpeakersEnabled(!identification_.running(),
                                    identification_.running()
                                        ? QStringLiteral("Speakers are being identified in another note.")
                                        : QString());
}

void SpeakerController::finish(bool identified, const QString &message)
{
    showProgress();
    if (identified)
        emit speakersChanged();
    app_.setMessage(message);
}

} // namespace kestil
