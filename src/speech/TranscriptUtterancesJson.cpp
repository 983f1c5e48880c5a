#include "TranscriptUtterancesJson.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

#include <charconv>
#include <cmath>

namespace kestil {

namespace {

void appendJsonString(QString &out, const QString &text)
{
    static constexpr char hex[] = "0123456789abcdef";
    out.append(QLatin1Char('"'));
    for (QChar c : text) {
        const char16_t u = c.unicode();
        switch (u) {
        case u'"':
            out.append(QLatin1String("\\\""));
            break;
        case u'\\':
            out.append(QLatin1String("\\\\"));
            break;
        case u'\b':
            out.append(QLatin1String("\\b"));
            break;
        case u'\f':
            out.append(QLatin1String("\\f"));
            break;
        case u'\n':
            out.append(QLatin1String("\\n"));
            break;
        case u'\r':
            out.append(QLatin1String("\\r"));
            break;
        case u'\t':
            out.append(QLatin1String("\\t"));
            break;
        default:
            if (u < 0x20) {
                const char escaped[] = {'\\', 'u', '0', '0', hex[u >> 4], hex[u & 0xf]};
                out.append(QLatin1String(escaped, sizeof escaped));
            } else {
                out.append(c);
            }
        }
    }
    out.append(QLatin1Char('"'));
}

// Shortest text that reads back as the same double; integral values come out
// without a fraction ("3").
bool appendJsonNumber(QString &out, double value)
{
    if (!std::isfinite(value))
        return false;
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(QLatin1String(buffer, result.ptr - buffer));
    return true;
}

void appendJsonInteger(QString &out, qint64 value)
{
    char buffer[24];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(QLatin1String(buffer, result.ptr - buffer));
}

// An optional number: missing or null is empty; anything but a number fails.
bool readOptionalDouble(const QJsonObject &object, QLatin1String key, std::optional<double> &into)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isDouble())
        return false;
    into = value.toDouble();
    return true;
}

bool readOptionalInteger(const QJsonObject &object, QLatin1String key, std::optional<qint64> &into)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isDouble())
        return false;
    // toInteger answers its default for a fraction or a value out of range;
    // asking with two different defaults tells that case from a real 0 or 1.
    const qint64 asZero = value.toInteger(0);
    if (asZero == 0 && value.toInteger(1) == 1)
        return false;
    into = asZero;
    return true;
}

std::optional<TranscriptUtterance> readUtterance(const QJsonValue &element)
{
    if (!element.isObject())
        return std::nullopt;
    const QJsonObject object = element.toObject();
    const QJsonValue id = object.value(QLatin1String("id"));
    const QJsonValue text = object.value(QLatin1String("text"));
    const QJsonValue isInterim = object.value(QLatin1String("isInterim"));
    if (!id.isString() || !text.isString() || !isInterim.isBool())
        return std::nullopt;

    TranscriptUtterance utterance;
    utterance.id = id.toString();
    utterance.text = text.toString();
    utterance.isInterim = isInterim.toBool();
    if (!readOptionalDouble(object, QLatin1String("start"), utterance.start) ||
        !readOptionalDouble(object, QLatin1String("end"), utterance.end) ||
        !readOptionalInteger(object, QLatin1String("speaker"), utterance.speaker) ||
        !readOptionalDouble(object, QLatin1String("confidence"), utterance.confidence))
        return std::nullopt;
    return utterance;
}

} // namespace

std::optional<QString> encodeTranscriptUtterances(const QList<TranscriptUtterance> &utterances)
{
    QString out;
    qsizetype textSize = 0;
    for (const auto &u : utterances)
        textSize += u.text.size() + u.id.size();
    out.reserve(2 + textSize + utterances.size() * 96);

    out.append(QLatin1Char('['));
    bool first = true;
    for (const TranscriptUtterance &u : utterances) {
        if (!first)
            out.append(QLatin1Char(','));
        first = false;
        out.append(QLatin1String("{\"id\":"));
        appendJsonString(out, u.id);
        out.append(QLatin1String(",\"text\":"));
        appendJsonString(out, u.text);
        if (u.start) {
            out.append(QLatin1String(",\"start\":"));
            if (!appendJsonNumber(out, *u.start))
                return std::nullopt;
        }
        if (u.end) {
            out.append(QLatin1String(",\"end\":"));
            if (!appendJsonNumber(out, *u.end))
                return std::nullopt;
        }
        if (u.speaker) {
            out.append(QLatin1String(",\"speaker\":"));
            appendJsonInteger(out, *u.speaker);
        }
        if (u.confidence) {
            out.append(QLatin1String(",\"confidence\":"));
            if (!appendJsonNumber(out, *u.confidence))
                return std::nullopt;
        }
        out.append(u.isInterim ? QLatin1String(",\"isInterim\":true}")
                               : QLatin1String(",\"isInterim\":false}"));
    }
    out.append(QLatin1Char(']'));
    return out;
}

std::optional<QList<TranscriptUtterance>> decodeTranscriptUtterances(QStringView json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !document.isArray())
        return std::nullopt;

    const QJsonArray array = document.array();
    QList<TranscriptUtterance> utterances;
    utterances.reserve(array.size());
    for (const QJsonValue &element : array) {
        auto utterance = readUtterance(element);
        if (!utterance)
            return std::nullopt;
        utterances.append(std::move(*utterance));
    }
    return utterances;
}

} // namespace kestil
