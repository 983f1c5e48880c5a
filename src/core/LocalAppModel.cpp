#include "core/LocalAppModel.h"

#include "base/Error.h"
#include "core/InterruptedSessionRecovery.h"
#include "core/LocalPaths.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace kestil {

const QString &LocalAppModel::unsupportedMachineMessage()
{
    static const QString text =
        QStringLiteral("Kestil requires a computer that can run the on-device language model. This computer "
                       "cannot run the on-device language model.");
    return text;
}

LocalAppModel::LocalAppModel(const LaunchEnvironment &environment, QObject *parent) : QObject(parent)
{
    bootstrap(environment);
}

LocalAppModel::~LocalAppModel() = default;

void LocalAppModel::bootstrap(const LaunchEnvironment &environment)
{
    // Everything here finishes before the first window, so that no view sees a
    // note whose audio is about to be repaired.
    if (environment.languageModelAvailability &&
        environment.languageModelAvailability() == LanguageModelAvailability::unavailableForGood) {
        setMessage(unsupportedMachineMessage());
        return;
    }

    const std::optional<QString> identifier =
        LocalPaths::resolveContainerIdentifier(environment.applicationInfo, environment.syncPreference);
    try {
        store_ = std::make_unique<SharedPersistenceController>(environment.root, false, identifier);
    } catch (const std::exception &e) {
        setMessage(describe(e));
        return;
    }
    if (store_->errorMessage())
        setMessage(*store_->errorMessage());

    try {
        refreshNotes();
    } catch (const std::exception &e) {
        const QString text = describe(e);
        setMessage(text.isEmpty() ? QStringLiteral("Local store is unavailable.") : text);
        return;
    }
    if (environment.recoverInterruptedSessions)
        environment.recoverInterruptedSessions(*this);
    else
        recoverInterruptedSessions(*this);
}

void LocalAppModel::setSelected(const std::optional<QUuid> &id)
{
    if (selected_ == id)
        return;
    selected_ = id;
    emit selectedChanged();
}

void LocalAppModel::setMessage(const QString &message)
{
    if (message_ == message)
        return;
    message_ = message;
    emit messageChanged();
}

void LocalAppModel::setSpeechStatus(const QString &status)
{
    speechStatus_ = status;
    emit speechStatusChanged();
}

void LocalAppModel::setSummaryStatus(const QString &status)
{
    summaryStatus_ = status;
    emit summaryStatusChanged();
}

void LocalAppModel::refreshNotes()
{
    QList<NotePtr> fetched;
    if (store_)
        fetched = store_->fetchNotes();
    notes_ = fetched;
    emit notesChanged();
    // A selection is adopted only when none is set; a stale one stays.
    if (!selected_ && !notes_.isEmpty()) {
        if (auto id = notes_.first()->id())
            setSelected(*id);
    }
}

NotePtr LocalAppModel::selectedNote() const
{
    if (!selected_)
        return nullptr;
    for (const auto &note : notes_) {
        if (note->id() == selected_)
            return note;
    }
    return nullptr;
}

void LocalAppModel::cancelOperation()
{
    // No model-level operation runs yet that could be cancelled here; the
    // summary job cancels through its own handle.
}

QString LocalAppModel::noteAudioDirectory(const Note &note) const
{
    if (!store_)
        throw LocalError(QStringLiteral("Local storage is unavailable."));
    const QString source = note.value(QStringLiteral("sourceURL")).toString();
    if (source.isEmpty() || source.startsWith(QLatin1Char('/')) || source.contains(QLatin1Char(':')))
        throw LocalError(QStringLiteral("This note has no local audio."));
    const QString root = QDir::cleanPath(store_->root());
    const QString path = QDir::cleanPath(root + QLatin1Char('/') + source);
    // A synced or tampered path must never reach outside the data root.
    if (!path.startsWith(root + QLatin1Char('/')))
        throw LocalError(QStringLiteral("Audio path is outside the local store."));
    return path;
}

QList<std::pair<QString, LocalRecordingManifest>> LocalAppModel::noteRecordings(const Note &note) const
{
    const QDir folder(noteAudioDirectory(note));
    QList<std::pair<QString, LocalRecordingManifest>> recordings;
    for (const QString &child : folder.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QString segment = folder.filePath(child);
        if (!QFileInfo::exists(segment + QStringLiteral("/recording.json")))
            continue;
        recordings.append({segment, LocalRecordingManifest::read(segment)});
    }
    std::stable_sort(recordings.begin(), recordings.end(),
                     [](const auto &a, const auto &b) { return a.second.createdAt < b.second.createdAt; });
    return recordings;
}

} // namespace kestil
