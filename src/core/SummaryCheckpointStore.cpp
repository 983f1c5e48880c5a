#include "core/SummaryCheckpointStore.h"

#include "base/Error.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace kestil {

namespace {

const QString suffix = QStringLiteral(".json");

QString fileName(const QUuid &noteID)
{
    return noteID.toString(QUuid::WithoutBraces).toUpper() + suffix;
}

// JSON text of a string value, quotes included.
QByteArray quoted(const QString &text)
{
    const QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}

} // namespace

SummaryCheckpointStore::SummaryCheckpointStore(const QString &root)
    : directory_(QDir(root).filePath(QStringLiteral("SummaryCheckpoints")))
{
}

QString SummaryCheckpointStore::path(const QUuid &noteID) const
{
    return QDir(directory_).filePath(fileName(noteID));
}

void SummaryCheckpointStore::save(const StoredSummaryCheckpoint &stored) const
{
    // The checkpoint keeps its own JSON form, key order included, inside the
    // wrapper.
    QByteArray json("{\"version\":");
    json.append(QByteArray::number(StoredSummaryCheckpoint::currentVersion));
    json.append(",\"noteID\":").append(quoted(stored.noteID.toString(QUuid::WithoutBraces).toUpper()));
    json.append(",\"model\":").append(quoted(stored.model));
    json.append(",\"checkpoint\":").append(stored.checkpoint.toJson()).append('}');

    const QString target = path(stored.noteID);
    const auto fail = [&](const QString &reason) {
        throw SystemError(QStringLiteral("Kestil could not write “%1”: %2.").arg(target, reason));
    };
    if (!QDir().mkpath(directory_))
        fail(QStringLiteral("its folder could not be created"));
    QSaveFile file(target);
    if (!file.open(QIODevice::WriteOnly))
        fail(file.errorString());
    if (file.write(json) != json.size()) {
        const QString reason = file.errorString();
        file.cancelWriting();
        fail(reason);
    }
    if (!file.commit())
        fail(file.errorString());
}

SummaryCheckpointStore::Read SummaryCheckpointStore::read(const QUuid &noteID) const
{
    QFile file(path(noteID));
    if (!file.exists())
        return {State::absent, std::nullopt};
    if (!file.open(QIODevice::ReadOnly))
        return {State::unreadable, std::nullopt};
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return {State::unreadable, std::nullopt};
    const QJsonObject object = document.object();
    const QJsonValue version = object.value(QStringLiteral("version"));
    if (!version.isDouble())
        return {State::unreadable, std::nullopt};
    if (version.toDouble() > StoredSummaryCheckpoint::currentVersion)
        return {State::newerVersion, std::nullopt};
    const QUuid storedID(object.value(QStringLiteral("noteID")).toString());
    const QJsonValue model = object.value(QStringLiteral("model"));
    const QJsonValue checkpoint = object.value(QStringLiteral("checkpoint"));
    if (version.toDouble() != StoredSummaryCheckpoint::currentVersion || storedID != noteID ||
        !model.isString() || !checkpoint.isObject())
        return {State::unreadable, std::nullopt};
    std::optional<LocalSummaryCheckpoint> decoded =
        LocalSummaryCheckpoint::fromJson(QJsonDocument(checkpoint.toObject()).toJson(QJsonDocument::Compact));
    if (!decoded)
        return {State::unreadable, std::nullopt};
    return {State::readable, StoredSummaryCheckpoint{noteID, model.toString(), std::move(*decoded)}};
}

void SummaryCheckpointStore::remove(const QUuid &noteID) const
{
    QFile::remove(path(noteID));
}

QList<QUuid> SummaryCheckpointStore::noteIDs() const
{
    QList<QUuid> ids;
    const QStringList names = QDir(directory_).entryList({QStringLiteral("*") + suffix}, QDir::Files);
    for (const QString &name : names) {
        const QUuid id(name.chopped(suffix.size()));
        // Only the files this store writes: a UUID in upper case.
        if (!id.isNull() && fileName(id) == name)
            ids.append(id);
    }
    return ids;
}

void SummaryCheckpointStore::removeLeftovers() const
{
    // A write goes to "<name>.XXXXXX" beside its file and is renamed over it
    // when complete; a crash in between leaves only that temporary file.
    const QStringList names =
        QDir(directory_)
            .entryList({QStringLiteral("*") + suffix + QStringLiteral(".*")}, QDir::Files | QDir::Hidden);
    for (const QString &name : names)
        QFile::remove(QDir(directory_).filePath(name));
}

} // namespace kestil
