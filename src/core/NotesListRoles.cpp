#include "core/NotesListRoles.h"

#include "base/Error.h"
#include "core/NotesListViewModel.h"
#include "core/SharedPersistenceController.h"
#include "core/WhenFinished.h"

#include <QPromise>

#include <memory>

namespace kestil {

NotesListRoles::NotesListRoles(QObject *parent) : QObject(parent) {}

NotesListRoles::~NotesListRoles() = default;

void NotesListRoles::setRecordingNotesViewModel(NotesListViewModel *model)
{
    if (recording_ == model)
        return;
    recording_ = model;
    emit recordingNotesViewModelChanged();
}

void NotesListRoles::setActiveNotesViewModel(NotesListViewModel *model)
{
    if (active_ == model)
        return;
    active_ = model;
    emit activeNotesViewModelChanged();
}

QFuture<bool> NotesListRoles::prepareToQuit(SharedPersistenceController *store)
{
    emit forceAllEditorsSave();
    auto promise = std::make_shared<QPromise<bool>>();
    promise->start();
    const QFuture<bool> future = promise->future();

    const QPointer<NotesListViewModel> model = recording_ ? recording_ : active_;
    const QPointer<SharedPersistenceController> target(store);
    const auto saveAndAnswer = [promise, model, target, hadStore = store != nullptr] {
        bool mayQuit = true;
        if (hadStore) {
            try {
                if (!target)
                    throw LocalError(QStringLiteral("Local store is unavailable."));
                target->save();
            } catch (const std::exception &error) {
                // Everything stays in memory and the program stays open, so
                // the user can try again.
                if (model)
                    model->reportFailure(describe(error));
                mayQuit = false;
            }
        }
        promise->addResult(mayQuit);
        promise->finish();
    };
    if (model)
        whenFinished(model->stopTranscription(), this,
                     [saveAndAnswer](const QFuture<void> &) { saveAndAnswer(); });
    else
        saveAndAnswer();
    return future;
}

} // namespace kestil
