#pragma once

#include "generation/LocalSummaryCheckpoint.h"

#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

namespace kestil {

// The latest checkpoint of a note's summary run, as it is kept between
// launches: with the note and the model it belongs to. The checkpoint itself
// names its template and holds the text the run began with.
struct StoredSummaryCheckpoint {
    // The form of the file; a file of a higher version is not read.
    static constexpr int currentVersion = 1;

    QUuid noteID;
    QString model; // the identity of the model that began the run
    LocalSummaryCheckpoint checkpoint;

    friend bool operator==(const StoredSummaryCheckpoint &, const StoredSummaryCheckpoint &) = default;
};

// The unfinished summaries of the notes, one file per note beside the note
// store: SummaryCheckpoints/<note UUID>.json, a JSON object with "version",
// "noteID", "model" and "checkpoint" (the checkpoint's own JSON form). Each
// write replaces the file in one step, so that a crash during a write leaves
// the one before. Nothing here is on the audio path; the summary job writes
// from its own thread.
class SummaryCheckpointStore {
public:
    enum class State { absent, readable, unreadable, newerVersion };
    struct Read {
        State state = State::absent;
        std::optional<StoredSummaryCheckpoint> stored; // when readable
    };

    // The folder under a data root.
    explicit SummaryCheckpointStore(const QString &root);

    const QString &directory() const { return directory_; }
    QString path(const QUuid &noteID) const;

    // Replaces the note's file. Throws SystemError naming the file and the
    // system's reason; the file before stays as it was.
    void save(const StoredSummaryCheckpoint &stored) const;
    Read read(const QUuid &noteID) const;
    // Removes the note's file; a missing one is no failure.
    void remove(const QUuid &noteID) const;
    // The notes that have a file.
    QList<QUuid> noteIDs() const;
    // Removes the temporary files of writes that a crash cut short.
    void removeLeftovers() const;

private:
    QString directory_;
};

} // namespace kestil
