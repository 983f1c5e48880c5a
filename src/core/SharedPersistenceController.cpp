#include "core/SharedPersistenceController.h"

#include "base/Error.h"
#include "capture/RecordingFolder.h"
#include "core/LocalPaths.h"
#include "core/SqliteStore.h"
#include "core/TranscriptSearchIndex.h"
#include "generation/LocalNoteTags.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTimeZone>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace kestil {

namespace {

const QString storeUnavailable = QStringLiteral("Local store is unavailable.");
const QString noteUnavailable = QStringLiteral("This note is unavailable.");

QString recordingsPath(const QString &root, const QUuid &id)
{
    return root + QStringLiteral("/Recordings/") + id.toString(QUuid::WithoutBraces).toUpper();
}

QString stagedPath(const QString &root, const QUuid &id)
{
    return root + QStringLiteral("/DeletedRecordings/") + id.toString(QUuid::WithoutBraces).toUpper();
}

// What a chat row without a time sorts as.
QDateTime distantPast()
{
    return QDateTime(QDate(1, 1, 1), QTime(0, 0), Qt::UTC);
}

} // namespace

void removeItem(const QString &path)
{
    QFileInfo info(path);
    bool ok = info.isDir() && !info.isSymLink() ? QDir(path).removeRecursively() : QFile::remove(path);
    if (!ok)
        throw SystemError(QStringLiteral("%1 could not be removed").arg(path));
}

void moveItemAtomically(const QString &from, const QString &to)
{
    if (QFileInfo::exists(to))
        throw SystemError(
            QStringLiteral("%1 could not be moved to %2 because an item with that name already exists")
                .arg(from, to));
    if (std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) != 0) {
        const int error = errno;
        throw SystemError(QStringLiteral("%1 could not be moved to %2 (%3)")
                              .arg(from, to, QString::fromLocal8Bit(strerror(error))));
    }
}

SharedPersistenceController::SharedPersistenceController(const std::optional<QString> &root, bool inMemory,
                                                         const std::optional<QString> &containerIdentifier,
                                                         QObject *parent)
    : QObject(parent), inMemory_(inMemory), mover_(moveItemAtomically), remover_(removeItem)
{
    const std::optional<QString> identifier = inMemory ? std::nullopt : containerIdentifier;
    syncMode_ = identifier ? NoteSyncMode::privateCloud(*identifier) : NoteSyncMode::localOnly();

    if (root) {
        root_ = QDir::cleanPath(QDir(*root).absolutePath());
    } else if (inMemory) {
        root_ = QDir::cleanPath(QStandardPaths::writableLocation(QStandardPaths::TempLocation) +
                                QStringLiteral("/KestilPreview-") +
                                QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper());
        ownsRoot_ = true;
    } else {
        root_ = LocalPaths::rootDirectory();
    }
    if (!QDir().mkpath(root_))
        throw SystemError(QStringLiteral("The folder %1 could not be created.").arg(root_));

    // A malformed identifier in a build is refused before any store opens.
    if (identifier && !LocalPaths::validatedContainerIdentifier(
                          {{QLatin1String(LocalPaths::containerInfoKey), *identifier}}))
        throw LocalError(QStringLiteral("The cloud container identifier is invalid. No store was opened."));

    try {
        store_ = inMemory ? SqliteStore::openInMemory() : SqliteStore::open(storePath());
        errorMessage_.reset();
        ready_ = true;
    } catch (const StoreLoadError &e) {
        errorMessage_ = QStringLiteral("Unable to open local notes: ") + e.localizedDescription() +
                        QStringLiteral(". The store was preserved.");
        ready_ = false;
        // The context still exists so that callers never meet a null one;
        // nothing it holds can be saved while the store is not ready.
        store_ = SqliteStore::openInMemory();
    }
    context_ = std::make_unique<ManagedObjectContext>(*store_);

    if (ready_ && !inMemory_)
        restoreDeletedRecordings();
}

SharedPersistenceController::~SharedPersistenceController()
{
    context_.reset();
    store_.reset();
    // A preview's folder holds nothing that outlives it.
    if (ownsRoot_)
        QDir(root_).removeRecursively();
}

QString SharedPersistenceController::storePath() const
{
    return root_ + QStringLiteral("/KestilNotes.sqlite");
}

ManagedObjectContext &SharedPersistenceController::context() const
{
    return *context_;
}

void SharedPersistenceController::save()
{
    if (!ready_)
        throw LocalError(QStringLiteral("Local store is unavailable; no changes were saved."));
    if (!context_->hasChanges())
        return;
    context_->save();
    emit didSave();
}

void SharedPersistenceController::requireReady(const QString &message) const
{
    if (!ready_)
        throw LocalError(message);
}

bool SharedPersistenceController::isUsable(const NotePtr &note) const
{
    return note && note->managedObjectContext() == context_.get() && !note->isDeleted();
}

void SharedPersistenceController::move(const QString &from, const QString &to)
{
    mover_(from, to);
}

QList<NotePtr> SharedPersistenceController::fetchNotes()
{
    if (!ready_)
        throw LocalError(errorMessage_.value_or(QString()).isEmpty() ? storeUnavailable : *errorMessage_);
    FetchRequest request;
    request.sortKey = QStringLiteral("timestamp");
    request.ascending = false;
    return context_->fetch<Note>(request);
}

NotePtr SharedPersistenceController::noteWithId(const QUuid &id)
{
    FetchRequest request;
    request.equals = std::make_pair(QStringLiteral("id"), QVariant(id));
    request.limit = 1;
    const auto notes = context_->fetch<Note>(request);
    return notes.isEmpty() ? nullptr : notes.first();
}

std::function<bool(const Note &)> SharedPersistenceController::transcriptSearch(const QString &trimmedQuery)
{
    if (trimmedQuery.isEmpty())
        return [](const Note &) { return true; };
    const TranscriptSearchIndex &index = store_->transcriptSearch();
    const SearchFold fold = index.isOpen() ? index.fold() : SearchFold();
    const QString folded = fold.fold(trimmedQuery);
    const QSet<qint64> stored = ready_ ? index.notesContaining(folded) : QSet<qint64>();
    const bool indexed = ready_ && index.isOpen();
    return [stored, folded, fold, indexed](const Note &note) {
        static const QString key = QStringLiteral("transcription");
        if (!indexed || note.hasUnsavedValue(key)) {
            const auto text = note.transcription();
            return text && SearchFold::foldedContains(fold.fold(*text), folded);
        }
        return stored.contains(note.objectId().primaryKey);
    };
}

qsizetype SharedPersistenceController::indexTranscripts(int milliseconds)
{
    if (!ready_)
        return 0;
    return store_->transcriptSearch().indexSome(milliseconds);
}

NotePtr SharedPersistenceController::createNote(const QString &title, const QString &transcription,
                                                const QUuid &id, const QString &noteType)
{
    requireReady(storeUnavailable);
    auto note = context_->insert<Note>();
    note->setValue(QStringLiteral("id"), id);
    note->setValue(QStringLiteral("timestamp"), QDateTime::currentDateTimeUtc());
    note->setValue(QStringLiteral("title"), title);
    note->setValue(QStringLiteral("transcription"), transcription);
    note->setValue(QStringLiteral("noteType"), noteType);
    try {
        save();
    } catch (...) {
        // A caller never holds a half-saved note.
        context_->deleteObject(note);
        throw;
    }
    return note;
}

QList<TagPtr> SharedPersistenceController::allTagsWithNotes()
{
    // Every note is brought into memory first, so that each tag's notes are
    // all counted.
    context_->fetch<Note>(FetchRequest{});
    return context_->fetch<Tag>(FetchRequest{});
}

void SharedPersistenceController::applyGeneratedFields(const NotePtr &note, const QVariantMap &fields,
                                                       const std::optional<QStringList> &tags)
{
    if (!ready_ || !isUsable(note))
        throw LocalError(noteUnavailable);
    for (auto it = fields.begin(); it != fields.end(); ++it) {
        if (!Note::entityDescription().hasAttribute(it.key()))
            throw LocalError(QStringLiteral("Generated content contains an unsupported note field."));
    }

    QHash<QString, QVariant> snapshot;
    for (auto it = fields.begin(); it != fields.end(); ++it)
        snapshot.insert(it.key(), note->value(it.key()));
    std::optional<QList<TagPtr>> tagSnapshot;
    QList<TagPtr> created;

    try {
        if (tags) {
            QList<TagPtr> rows = allTagsWithNotes();
            QHash<const Tag *, qsizetype> counts;
            for (const auto &t : rows)
                counts.insert(t.get(), t->notes().size());
            std::stable_sort(rows.begin(), rows.end(), [&](const TagPtr &a, const TagPtr &b) {
                const auto ca = counts.value(a.get()), cb = counts.value(b.get());
                if (ca != cb)
                    return ca > cb;
                return a->objectId().uriString() < b->objectId().uriString();
            });
            QList<LocalTagCandidate> library;
            for (const auto &t : rows) {
                const QString name = t->name().value_or(QString());
                if (!name.isEmpty())
                    library.append(LocalTagCandidate{name, counts.value(t.get())});
            }
            const QStringList finalNames = LocalNoteTags::resolvedNames(*tags, library);

            QList<TagPtr> chosen;
            for (const auto &name : finalNames) {
                const QString wanted = LocalNoteTags::key(name);
                TagPtr match;
                for (const auto &t : rows) {
                    if (LocalNoteTags::key(t->name().value_or(QString())) == wanted) {
                        match = t;
                        break;
                    }
                }
                if (!match) {
                    match = context_->insert<Tag>();
                    match->setValue(QStringLiteral("id"), QUuid::createUuid());
                    match->setValue(QStringLiteral("name"), name);
                    match->setValue(QStringLiteral("canonicalName"), canonicalTagName(name));
                    match->setValue(QStringLiteral("createdAt"), QDateTime::currentDateTimeUtc());
                    created.append(match);
                    rows.append(match);
                }
                chosen.append(match);
            }
            tagSnapshot = note->tags();
            note->setTags(chosen);
        }
        for (auto it = fields.begin(); it != fields.end(); ++it)
            note->setValue(it.key(), it.value());
        save();
    } catch (...) {
        // The note in memory is what it was, and no orphan tag remains.
        for (auto it = snapshot.begin(); it != snapshot.end(); ++it)
            note->setValue(it.key(), it.value());
        if (tagSnapshot)
            note->setTags(*tagSnapshot);
        for (const auto &t : created)
            context_->deleteObject(t);
        throw;
    }
}

QUuid SharedPersistenceController::beginRecording(const NotePtr &note)
{
    if (!ready_ || !isUsable(note))
        throw LocalError(noteUnavailable);
    if (activeRecording_)
        throw LocalError(QStringLiteral("Finish the current transcription first."));
    context_->obtainPermanentId(note);
    const QUuid lease = QUuid::createUuid();
    activeRecording_ = RecordingLease{note->objectId(), lease};
    return lease;
}

void SharedPersistenceController::endRecording(const QUuid &lease)
{
    if (activeRecording_ && activeRecording_->lease == lease)
        activeRecording_.reset();
}

void SharedPersistenceController::deleteNote(const NotePtr &note)
{
    if (!isUsable(note))
        throw LocalError(noteUnavailable);
    if (activeRecording_ && activeRecording_->noteId == note->objectId())
        throw LocalError(QStringLiteral("Stop this transcription before deleting its note."));
    // Pending changes are written first: a failure below rolls the context back.
    save();

    const std::optional<QUuid> id = note->id();
    FetchRequest chatRequest;
    chatRequest.equals = std::make_pair(QStringLiteral("noteId"), QVariant(id.value_or(QUuid::createUuid())));
    const auto chat = context_->fetch<NoteChatMessage>(chatRequest);

    QString live, staged;
    bool didStage = false;
    if (id) {
        live = recordingsPath(root_, *id);
        staged = stagedPath(root_, *id);
    }
    // Audio moves first, rows go second, audio is destroyed last: a crash at
    // any point leaves something the next launch can finish.
    if (!live.isEmpty() && QFileInfo::exists(live)) {
        const QString parent = QFileInfo(staged).absolutePath();
        if (!QDir().mkpath(parent))
            throw SystemError(QStringLiteral("The folder %1 could not be created.").arg(parent));
        move(live, staged);
        didStage = true;
    }

    for (const auto &m : chat)
        context_->deleteObject(m);
    context_->deleteObject(note);
    try {
        save();
    } catch (const std::exception &saveError) {
        context_->rollback();
        if (didStage) {
            try {
                move(staged, live);
            } catch (const std::exception &moveError) {
                throw LocalError(
                    QStringLiteral("Note deletion failed. Its audio is preserved in local recovery "
                                   "storage and will be restored on launch: ") +
                    describe(moveError));
            }
        }
        throw;
    }

    if (didStage) {
        try {
            remover_(staged);
        } catch (const std::exception &removeError) {
            throw LocalError(
                QStringLiteral("The note was deleted. Audio cleanup remains pending locally and will "
                               "retry on launch: ") +
                describe(removeError));
        }
    }
}

void SharedPersistenceController::restoreDeletedRecordings()
{
    const QDir deleted(root_ + QStringLiteral("/DeletedRecordings"));
    if (!deleted.exists())
        return;
    const QStringList children = deleted.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
    for (const QString &child : children) {
        const std::optional<QUuid> name = RecordingFolder::uuidFromName(child);
        if (!name || name->isNull())
            continue; // not ours to judge: kept for review
        const QUuid id = *name;
        const QString from = deleted.filePath(child);
        if (noteWithId(id)) {
            // The delete did not go through: the audio belongs back.
            const QString target = recordingsPath(root_, id);
            if (QFileInfo::exists(target))
                throw LocalError(
                    QStringLiteral("Transcription recovery found two audio copies for one note. Both "
                                   "were preserved for review."));
            const QString parent = QFileInfo(target).absolutePath();
            if (!QDir().mkpath(parent))
                throw SystemError(QStringLiteral("The folder %1 could not be created.").arg(parent));
            move(from, target);
        } else {
            remover_(from);
        }
    }
}

QList<LocalChatMessage> SharedPersistenceController::loadChatMessages(const QUuid &noteId)
{
    requireReady(storeUnavailable);
    FetchRequest request;
    request.equals = std::make_pair(QStringLiteral("noteId"), QVariant(noteId));
    request.sortKey = QStringLiteral("timestamp");
    QList<LocalChatMessage> messages;
    for (const auto &row : context_->fetch<NoteChatMessage>(request)) {
        const auto id = row->id();
        const auto role = row->role();
        const auto content = row->content();
        if (!id || !role || !content ||
            (*role != QLatin1String("user") && *role != QLatin1String("assistant")))
            continue;
        messages.append(LocalChatMessage{*id, *role, *content, row->timestamp().value_or(distantPast())});
    }
    return messages;
}

void SharedPersistenceController::appendChatMessage(const LocalChatMessage &message, const QUuid &noteId)
{
    const QString refusal = QStringLiteral("This note is unavailable. The answer was not saved.");
    if (!ready_ || (message.role != QLatin1String("user") && message.role != QLatin1String("assistant")) ||
        message.content.isEmpty() || !noteWithId(noteId))
        throw LocalError(refusal);

    FetchRequest latestRequest;
    latestRequest.equals = std::make_pair(QStringLiteral("noteId"), QVariant(noteId));
    latestRequest.sortKey = QStringLiteral("timestamp");
    latestRequest.ascending = false;
    latestRequest.limit = 1;
    const auto latest = context_->fetch<NoteChatMessage>(latestRequest);

    // Two messages of one note never share a time, so sorting keeps their order.
    QDateTime stored = message.timestamp;
    if (!latest.isEmpty()) {
        if (const auto t = latest.first()->timestamp())
            stored = std::max(stored, t->addMSecs(1));
    }
    auto row = context_->insert<NoteChatMessage>();
    row->setValue(QStringLiteral("id"), message.id);
    row->setValue(QStringLiteral("noteId"), noteId);
    row->setValue(QStringLiteral("role"), message.role);
    row->setValue(QStringLiteral("content"), message.content);
    row->setValue(QStringLiteral("timestamp"), stored);
    try {
        save();
    } catch (...) {
        context_->deleteObject(row);
        throw;
    }
}

void SharedPersistenceController::clearChatMessages(const QUuid &noteId)
{
    save();
    try {
        FetchRequest request;
        request.equals = std::make_pair(QStringLiteral("noteId"), QVariant(noteId));
        for (const auto &row : context_->fetch<NoteChatMessage>(request))
            context_->deleteObject(row);
        save();
    } catch (...) {
        context_->rollback();
        throw;
    }
}

QList<LocalTagCandidate> SharedPersistenceController::fetchTagCandidates()
{
    requireReady(storeUnavailable);
    QList<LocalTagCandidate> candidates;
    for (const auto &t : allTagsWithNotes()) {
        const QString name = t->name().value_or(QString());
        if (!name.isEmpty())
            candidates.append(LocalTagCandidate{name, t->notes().size()});
    }
    return candidates;
}

} // namespace kestil
