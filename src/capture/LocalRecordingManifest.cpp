#include "capture/LocalRecordingManifest.h"

#include "base/Error.h"
#include "capture/RecordingFolder.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

#include <charconv>
#include <chrono>
#include <cmath>

namespace kestil {

namespace {

const QString manifestName = QString::fromLatin1(RecordingFolder::manifestFileName);

SystemError damaged(const QString &detail)
{
    return SystemError(
        QStringLiteral("The recording manifest “%1” is damaged: %2").arg(manifestName, detail));
}

// The shortest text that reads back as the same double, as JSON writes it.
QByteArray jsonNumber(double value, const char *key)
{
    if (!std::isfinite(value))
        throw SystemError(
            QStringLiteral("The recording manifest could not be written: “%1” is not a finite number")
                .arg(QLatin1String(key)));
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return QByteArray(text, int(result.ptr - text));
}

QJsonValue required(const QJsonObject &object, const char *key)
{
    const auto value = object.value(QLatin1String(key));
    if (value.isUndefined())
        throw damaged(QStringLiteral("the key “%1” is missing").arg(QLatin1String(key)));
    return value;
}

double requiredNumber(const QJsonObject &object, const char *key)
{
    const auto value = required(object, key);
    if (!value.isDouble())
        throw damaged(QStringLiteral("“%1” is not a number").arg(QLatin1String(key)));
    return value.toDouble();
}

} // namespace

double LocalRecordingManifest::referenceSecondsNow()
{
    using namespace std::chrono;
    const auto micros = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    return double(micros) / 1e6 - referenceDateOffset;
}

QDateTime LocalRecordingManifest::createdAtDate() const
{
    return QDateTime::fromMSecsSinceEpoch(qint64(std::llround((createdAt + referenceDateOffset) * 1000.0)),
                                          Qt::UTC);
}

bool LocalRecordingManifest::hasValidSampleRate() const
{
    return std::isfinite(sampleRate) && sampleRate > 0;
}

QByteArray LocalRecordingManifest::encode() const
{
    QByteArray json;
    json.reserve(128);
    json += "{\"noteID\":\"";
    json += RecordingFolder::uuidText(noteID).toLatin1();
    json += "\",\"createdAt\":";
    json += jsonNumber(createdAt, "createdAt");
    json += ",\"sampleRate\":";
    json += jsonNumber(sampleRate, "sampleRate");
    json += ",\"complete\":";
    json += complete ? "true" : "false";
    json += '}';
    return json;
}

LocalRecordingManifest LocalRecordingManifest::decode(const QByteArray &json)
{
    QJsonParseError error;
    const auto document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError)
        throw damaged(QStringLiteral("%1 at byte %2").arg(error.errorString()).arg(error.offset));
    if (!document.isObject())
        throw damaged(QStringLiteral("it does not hold a JSON object"));
    const auto object = document.object();

    LocalRecordingManifest manifest;
    const auto noteID = required(object, "noteID");
    if (!noteID.isString())
        throw damaged(QStringLiteral("“noteID” is not a string"));
    const QString noteText = noteID.toString();
    manifest.noteID = QUuid::fromString(noteText);
    // A UUID string is exactly 36 characters (QUuid also takes braces, which
    // no manifest ever held); the nil UUID is a UUID too.
    const bool nilText = noteText == QLatin1String("00000000-0000-0000-0000-000000000000");
    if (noteText.size() != 36 || (manifest.noteID.isNull() && !nilText))
        throw damaged(QStringLiteral("“noteID” is not a UUID"));
    manifest.createdAt = requiredNumber(object, "createdAt");
    manifest.sampleRate = requiredNumber(object, "sampleRate");
    const auto complete = required(object, "complete");
    if (!complete.isBool())
        throw damaged(QStringLiteral("“complete” is not a boolean"));
    manifest.complete = complete.toBool();
    return manifest;
}

LocalRecordingManifest LocalRecordingManifest::read(const QString &segment)
{
    return decode(RecordingFolder::readSmallFile(RecordingFolder::manifestPath(segment)));
}

void LocalRecordingManifest::write(const QString &segment) const
{
    RecordingFolder::writeFileAtomically(RecordingFolder::manifestPath(segment), encode());
}

} // namespace kestil
