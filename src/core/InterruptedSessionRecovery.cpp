#include "core/InterruptedSessionRecovery.h"

#include "base/Error.h"
#include "capture/DurableAudioWriter.h"
#include "capture/LocalRecordingManifest.h"
#include "capture/RecordingFolder.h"
#include "core/LocalAppModel.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <filesystem>
#include <vector>

namespace kestil {

namespace {

namespace fs = std::filesystem;

QByteArray encoded(const QString &path)
{
    return QFile::encodeName(path);
}

struct FolderEntry {
    QString path;
    bool link = false;
};

// The entries of a folder in the order the file system lists them, with
// whether each is a symbolic link (known from the listing itself).
std::vector<FolderEntry> listFolder(const QString &folder)
{
    std::error_code error;
    fs::directory_iterator entries(fs::path(encoded(folder).toStdString()), error);
    std::vector<FolderEntry> children;
    for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
        std::error_code ignored;
        children.push_back({QFile::decodeName(entries->path().c_str()), entries->is_symlink(ignored)});
    }
    if (error)
        throw SystemError(
            QStringLiteral("Could not list “%1”: %2")
                .arg(QFileInfo(folder).fileName(), QString::fromLocal8Bit(error.message().c_str())));
    return children;
}

// An entry of a folder inside the root is inside the root too, unless it is
// a link: only links are resolved, which keeps a large library's scan short.
bool staysInside(const FolderEntry &entry, const QString &root)
{
    return !entry.link || RecordingFolder::resolvesInside(entry.path, root);
}

// A folder name that is a UUID in text, such as every note folder has.
std::optional<QUuid> folderUUID(const QString &folder)
{
    return RecordingFolder::uuidFromName(QFileInfo(folder).fileName());
}

LocalError outsideDataRoot(const QString &folder)
{
    return LocalError(QStringLiteral("The recording folder “%1” leads outside the Kestil data folder")
                          .arg(QFileInfo(folder).fileName()));
}

// An "audio.caf" that opens and matches the raw file is kept as it is: the
// session may have died after building it and before marking the manifest.
bool finalAudioIsGood(const QString &segment, const LocalRecordingManifest &manifest)
{
    try {
        return DurableAudioWriter::hasValidFinalAudio(segment, manifest);
    } catch (const Error &) {
        return false;
    }
}

// Temporary files of a build that a crash cut short. No build runs during
// launch, so whatever is left of one is garbage.
void removeStaleBuilds(const QString &segment)
{
    const QDir folder(segment);
    const auto stale =
        folder.entryList({QLatin1String(RecordingFolder::temporaryAudioPrefix) + QStringLiteral("*.caf")},
                         QDir::Files | QDir::Hidden | QDir::System);
    for (const QString &name : stale)
        QFile::remove(folder.filePath(name));
}

void markComplete(const QString &segment)
{
    auto manifest = LocalRecordingManifest::read(segment);
    manifest.complete = true;
    manifest.write(segment);
}

} // namespace

void scanInterruptedSessions(LocalAppModel &model)
{
    SharedPersistenceController *store = model.store();
    if (!store || !store->ready())
        return;
    const QString root = store->root();
    const QString recordings = QDir(root).filePath(QLatin1String(RecordingFolder::recordingsDirectoryName));
    if (!QFileInfo::exists(recordings))
        return;
    if (!RecordingFolder::resolvesInside(recordings, root))
        throw outsideDataRoot(recordings);

    auto reportFailure = [&model](const std::exception &error) {
        model.setMessage(QStringLiteral("Some audio needs recovery: ") + describe(error) +
                         QStringLiteral(". Original files were preserved."));
    };

    int recovered = 0;
    for (const FolderEntry &noteEntry : listFolder(recordings)) {
        const QString &noteFolder = noteEntry.path;
        const auto noteID = folderUUID(noteFolder);
        if (!noteID)
            continue;
        // A link that leads out of the data root is never written through:
        // its folders are reported and left alone.
        if (!staysInside(noteEntry, root)) {
            reportFailure(outsideDataRoot(noteFolder));
            continue;
        }

        QStringList repaired;
        for (const FolderEntry &segmentEntry : listFolder(noteFolder)) {
            const QString &segment = segmentEntry.path;
            try {
                // Only folders holding a manifest are sessions.
                const auto manifestBytes =
                    RecordingFolder::readSmallFileIfPresent(RecordingFolder::manifestPath(segment));
                if (!manifestBytes)
                    continue;
                if (!staysInside(segmentEntry, root))
                    throw outsideDataRoot(segment);
                const auto manifest = LocalRecordingManifest::decode(*manifestBytes);
                if (manifest.complete)
                    continue;
                if (!finalAudioIsGood(segment, manifest))
                    DurableAudioWriter::rebuildFinalAudio(segment);
                removeStaleBuilds(segment);
                repaired.append(segment);
            } catch (const std::exception &error) {
                reportFailure(error);
            }
        }
        if (repaired.isEmpty())
            continue;

        // The note learns where its audio is before any manifest is marked:
        // a failure here leaves the folders to the next launch, which finds
        // good audio and finishes.
        for (const NotePtr &note : store->fetchNotes()) {
            if (note->id() == *noteID) {
                store->applyGeneratedFields(note,
                                            {{QStringLiteral("sourceURL"),
                                              QLatin1String(RecordingFolder::recordingsDirectoryName) +
                                                  QLatin1Char('/') + RecordingFolder::uuidText(*noteID)}});
                ++recovered;
                break;
            }
        }
        for (const QString &segment : repaired)
            markComplete(segment);
    }

    model.refreshNotes();
    if (recovered > 0)
        model.setMessage(
            QStringLiteral("Recovered %1 interrupted transcription session(s). Select a note to continue.")
                .arg(recovered));
}

void recoverInterruptedSessions(LocalAppModel &model)
{
    try {
        scanInterruptedSessions(model);
    } catch (const std::exception &error) {
        model.setMessage(describe(error));
    }
}

} // namespace kestil
