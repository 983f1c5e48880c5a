#include "PreferenceFile.h"

#include "base/Error.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QStringList>

#include <cmath>
#include <limits>

namespace kestil {

namespace {

constexpr int currentFormat = 1;

QJsonValue encodeDouble(double d)
{
    if (std::isnan(d))
        return QStringLiteral("nan");
    if (std::isinf(d))
        return d > 0 ? QStringLiteral("inf") : QStringLiteral("-inf");
    // JSON writes -0 as 0, which reads back as a plain zero.
    if (d == 0 && std::signbit(d))
        return QStringLiteral("-0");
    return d;
}

std::optional<double> decodeDouble(const QJsonValue &value)
{
    if (value.isDouble())
        return value.toDouble();
    const QString text = value.toString();
    if (text == QLatin1String("nan"))
        return std::numeric_limits<double>::quiet_NaN();
    if (text == QLatin1String("inf"))
        return std::numeric_limits<double>::infinity();
    if (text == QLatin1String("-inf"))
        return -std::numeric_limits<double>::infinity();
    if (text == QLatin1String("-0"))
        return -0.0;
    return std::nullopt;
}

std::optional<qint64> decodeInteger(const QJsonValue &value)
{
    if (value.isString()) {
        bool ok = false;
        const qint64 n = value.toString().toLongLong(&ok);
        return ok ? std::optional<qint64>(n) : std::nullopt;
    }
    // A hand-edited file may hold a plain number; only an exact integer counts.
    if (value.isDouble()) {
        const double d = value.toDouble();
        if (std::trunc(d) == d && std::abs(d) <= 9007199254740992.0)
            return qint64(d);
    }
    return std::nullopt;
}

QJsonObject encodeEntry(const QVariant &value)
{
    QJsonObject entry;
    switch (value.metaType().id()) {
    case QMetaType::Bool:
        entry[QLatin1String("type")] = QLatin1String("bool");
        entry[QLatin1String("value")] = value.toBool();
        break;
    case QMetaType::LongLong:
        entry[QLatin1String("type")] = QLatin1String("integer");
        entry[QLatin1String("value")] = QString::number(value.toLongLong());
        break;
    case QMetaType::Double:
        entry[QLatin1String("type")] = QLatin1String("double");
        entry[QLatin1String("value")] = encodeDouble(value.toDouble());
        break;
    case QMetaType::QString:
        entry[QLatin1String("type")] = QLatin1String("string");
        entry[QLatin1String("value")] = value.toString();
        break;
    case QMetaType::QStringList:
        entry[QLatin1String("type")] = QLatin1String("stringArray");
        entry[QLatin1String("value")] = QJsonArray::fromStringList(value.toStringList());
        break;
    case QMetaType::QByteArray:
        entry[QLatin1String("type")] = QLatin1String("data");
        entry[QLatin1String("value")] = QString::fromLatin1(value.toByteArray().toBase64());
        break;
    default:
        // The store normalises every value before it keeps it; a caller that
        // fills a PreferenceFile by hand gets a refusal, not a wrong type.
        throw LocalError(QStringLiteral("A setting of type %1 cannot be saved.")
                             .arg(QString::fromLatin1(value.metaType().name())));
    }
    return entry;
}

std::optional<QVariant> decodeEntry(const QJsonValue &json)
{
    if (!json.isObject())
        return std::nullopt;
    const QJsonObject entry = json.toObject();
    const QString type = entry.value(QLatin1String("type")).toString();
    const QJsonValue value = entry.value(QLatin1String("value"));

    if (type == QLatin1String("bool")) {
        if (value.isBool())
            return QVariant(value.toBool());
    } else if (type == QLatin1String("integer")) {
        if (auto n = decodeInteger(value))
            return QVariant::fromValue<qint64>(*n);
    } else if (type == QLatin1String("double")) {
        if (auto d = decodeDouble(value))
            return QVariant(*d);
    } else if (type == QLatin1String("string")) {
        if (value.isString())
            return QVariant(value.toString());
    } else if (type == QLatin1String("stringArray")) {
        if (value.isArray()) {
            QStringList list;
            for (const QJsonValue &item : value.toArray()) {
                if (!item.isString())
                    return std::nullopt;
                list.append(item.toString());
            }
            return QVariant(list);
        }
    } else if (type == QLatin1String("data")) {
        if (value.isString()) {
            const auto decoded = QByteArray::fromBase64Encoding(value.toString().toLatin1(),
                                                                QByteArray::AbortOnBase64DecodingErrors);
            if (decoded)
                return QVariant(*decoded);
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<QVariant> normalizedPreferenceValue(const QVariant &value)
{
    switch (value.metaType().id()) {
    case QMetaType::Bool:
    case QMetaType::QString:
    case QMetaType::QStringList:
    case QMetaType::QByteArray:
    case QMetaType::Double:
        return value;
    case QMetaType::Float:
        return QVariant(double(value.toFloat()));
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::LongLong:
        return QVariant::fromValue<qint64>(value.toLongLong());
    case QMetaType::ULong:
    case QMetaType::ULongLong: {
        const qulonglong n = value.toULongLong();
        if (n > qulonglong(std::numeric_limits<qint64>::max()))
            return std::nullopt;
        return QVariant::fromValue<qint64>(qint64(n));
    }
    default:
        return std::nullopt;
    }
}

PreferenceFile decodePreferenceFile(const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError)
        throw LocalError(QStringLiteral("The settings file is not valid JSON (%1 at byte %2).")
                             .arg(error.errorString())
                             .arg(error.offset));
    if (!document.isObject())
        throw LocalError(QStringLiteral("The settings file holds no settings object."));
    const QJsonValue values = document.object().value(QLatin1String("values"));
    if (!values.isObject())
        throw LocalError(QStringLiteral("The settings file holds no list of settings."));

    PreferenceFile file;
    const QJsonObject entries = values.toObject();
    for (auto it = entries.begin(); it != entries.end(); ++it) {
        if (auto value = decodeEntry(it.value()))
            file.values.insert(it.key(), *value);
        else
            file.unreadableEntries.insert(it.key(), it.value());
    }
    return file;
}

QByteArray encodePreferenceFile(const PreferenceFile &file)
{
    QJsonObject entries = file.unreadableEntries;
    for (auto it = file.values.begin(); it != file.values.end(); ++it)
        entries.insert(it.key(), encodeEntry(it.value()));
    QJsonObject root;
    root[QLatin1String("format")] = currentFormat;
    root[QLatin1String("values")] = entries;
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}

} // namespace kestil
