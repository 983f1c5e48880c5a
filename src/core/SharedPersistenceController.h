#pragma once

#include "core/ManagedObjectContext.h"
#include "core/Note.h"
#include "core/NoteChatMessage.h"
#include "core/NoteSyncMode.h"
#include "generation/LocalChatMessage.h"
#include "generation/LocalTagCandidate.h"

#include <QObject>
#include <QString>
#include <QUuid>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <optional>

namespace kestil {

class SqliteStore;

// The single recording lease: which note is being recorded, and the token
// that releases it.
struct RecordingLease {
    ObjectId noteId;
    QUuid lease;
};

// Owns the notes store: finds the data directory, opens the file, reports
// whether that worked, and carries every operation that changes notes. A
// store that fails to open is never replaced or touched: the user is told
// that it was preserved. Main thread only.
class SharedPersistenceController : public QObject {
    Q_OBJECT
public:
    // root: override of the data directory; inMemory: a throwaway store in a
    // fresh temporary folder; containerIdentifier: the resolved cloud
    // container, if any. Throws when the data directory cannot be made or the
    // file was written by a newer Kestil; a file that cannot be read leaves
    // the controller alive with ready() false and errorMessage() set.
    SharedPersistenceController(const std::optional<QString> &root = std::nullopt, bool inMemory = false,
                                const std::optional<QString> &containerIdentifier = std::nullopt,
                                QObject *parent = nullptr);
    ~SharedPersistenceController() override;

    const QString &root() const { return root_; }
    QString storePath() const;
    const NoteSyncMode &syncMode() const { return syncMode_; }
    bool ready() const { return ready_; }
    const std::optional<QString> &errorMessage() const { return errorMessage_; }
    const std::optional<RecordingLease> &activeRecording() const { return activeRecording_; }
    ManagedObjectContext &context() const;
    SqliteStore *store() const { return store_.get(); }

    // Writes the pending changes of the context in one transaction.
    void save();

    QList<NotePtr> fetchNotes();
    NotePtr createNote(const QString &title, const QString &transcription, const QUuid &id,
                       const QString &noteType);
    // The one way for generated or recovered values to reach a note: keys must
    // be attributes of Note; tags, when given, replace the note's set.
    void applyGeneratedFields(const NotePtr &note, const QVariantMap &fields,
                              const std::optional<QStringList> &tags = std::nullopt);
    QUuid beginRecording(const NotePtr &note);
    void endRecording(const QUuid &lease);
    void deleteNote(const NotePtr &note);
    void restoreDeletedRecordings();
    QList<LocalChatMessage> loadChatMessages(const QUuid &noteId);
    void appendChatMessage(const LocalChatMessage &message, const QUuid &noteId);
    void clearChatMessages(const QUuid &noteId);
    QList<LocalTagCandidate> fetchTagCandidates();

    NotePtr noteWithId(const QUuid &id);

    // Whether a note's transcript contains the trimmed search text by the
    // locale-aware, case-insensitive test of SearchFold. Saved transcripts
    // are answered from the store's index in one query; a transcript changed
    // in memory and not saved yet is tested in memory. The answer is for the
    // notes as they are now. Throws SystemError when the store cannot be read.
    std::function<bool(const Note &)> transcriptSearch(const QString &trimmedQuery);
    // Indexes transcripts that wait for it for up to the given time; returns
    // how many still wait. Nothing is lost when it fails: those notes are
    // read by searches until a later call indexes them.
    qsizetype indexTranscripts(int milliseconds);

    // Folder moves are renames on one volume. Tests replace these to make a
    // move or a removal fail at a chosen moment; the program never does.
    using Mover = std::function<void(const QString &from, const QString &to)>;
    using Remover = std::function<void(const QString &path)>;
    void setMoverForTesting(Mover mover) { mover_ = std::move(mover); }
    void setRemoverForTesting(Remover remover) { remover_ = std::move(remover); }

signals:
    // Emitted after every successful save.
    void didSave();

private:
    void requireReady(const QString &message) const;
    bool isUsable(const NotePtr &note) const;
    void move(const QString &from, const QString &to);
    QList<TagPtr> allTagsWithNotes();

    QString root_;
    NoteSyncMode syncMode_ = NoteSyncMode::localOnly();
    bool inMemory_ = false;
    bool ownsRoot_ = false;
    bool ready_ = false;
    std::optional<QString> errorMessage_;
    std::optional<RecordingLease> activeRecording_;
    std::unique_ptr<SqliteStore> store_;
    std::unique_ptr<ManagedObjectContext> context_;
    Mover mover_;
    Remover remover_;
};

// Moves a file or folder in one rename; throws SystemError with the reason.
void moveItemAtomically(const QString &from, const QString &to);
// Removes a file or a folder with everything in it; throws SystemError.
void removeItem(const QString &path);

} // namespace kestil
