#include "generation/LocalSummaryCheckpoint.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <climits>
#include <cmath>

namespace kestil {

namespace {

// A JSON array of strings, or nothing when any element is not a string.
std::optional<QStringList> stringList(const QJsonValue &value)
{
    if (!value.isArray())
        return std::nullopt;
    QStringList list;
    for (const QJsonValue &element : value.toArray()) {
        if (!element.isString())
            return std::nullopt;
        list.append(element.toString());
    }
    return list;
}

// JSON objects have no key order of their own in Qt; the keys are written in
// the order of the record so that the file reads like it.
void appendMember(QByteArray &out, const char *key, const QJsonValue &value)
{
    if (out.size() > 1)
        out.append(',');
    out.append('"').append(key).append("\":");
    const QJsonArray wrapper{value};
    const QByteArray encoded = QJsonDocument(wrapper).toJson(QJsonDocument::Compact);
    out.append(encoded.mid(1, encoded.size() - 2));
}

} // namespace

LocalSummaryCheckpoint::LocalSummaryCheckpoint(const QString &text, LocalSummaryTemplate summaryTemplate)
    : input(text), templateKey(LocalSummaryTemplates::id(summaryTemplate)), source(text)
{
}

QByteArray LocalSummaryCheckpoint::toJson() const
{
    QByteArray out("{");
    appendMember(out, "input", input);
    appendMember(out, "templateKey", templateKey);
    appendMember(out, "source", source);
    appendMember(out, "pass", pass);
    appendMember(out, "facts", QJsonArray::fromStringList(facts));
    if (sections)
        appendMember(out, "sections", QJsonArray::fromStringList(*sections));
    if (result)
        appendMember(out, "result", *result);
    out.append('}');
    return out;
}

std::optional<LocalSummaryCheckpoint> LocalSummaryCheckpoint::fromJson(const QByteArray &json)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();
    const QJsonValue input = object.value(QStringLiteral("input"));
    const QJsonValue templateKey = object.value(QStringLiteral("templateKey"));
    const QJsonValue source = object.value(QStringLiteral("source"));
    const QJsonValue pass = object.value(QStringLiteral("pass"));
    const std::optional<QStringList> facts = stringList(object.value(QStringLiteral("facts")));
    if (!input.isString() || !templateKey.isString() || !source.isString() || !facts)
        return std::nullopt;
    // A pass is a whole number that fits the field.
    const double passNumber = pass.toDouble(std::nan(""));
    if (!pass.isDouble() || std::trunc(passNumber) != passNumber || passNumber < INT_MIN ||
        passNumber > INT_MAX)
        return std::nullopt;

    LocalSummaryCheckpoint checkpoint;
    checkpoint.input = input.toString();
    checkpoint.templateKey = templateKey.toString();
    checkpoint.source = source.toString();
    checkpoint.pass = int(passNumber);
    checkpoint.facts = *facts;
    const QJsonValue sections = object.value(QStringLiteral("sections"));
    if (!sections.isUndefined() && !sections.isNull()) {
        checkpoint.sections = stringList(sections);
        if (!checkpoint.sections)
            return std::nullopt;
    }
    const QJsonValue result = object.value(QStringLiteral("result"));
    if (!result.isUndefined() && !result.isNull()) {
        if (!result.isString())
            return std::nullopt;
        checkpoint.result = result.toString();
    }
    return checkpoint;
}

} // namespace kestil
