#include "generation/GenerationSchema.h"

#include <QJsonArray>

namespace kestil {

namespace {

QString literal(const QString &text)
{
    // A GBNF string literal of a JSON key: the key's own quotes escaped.
    QString escaped = text;
    escaped.replace(QLatin1Char('\\'), QStringLiteral("\\\\"))
        .replace(QLatin1Char('"'), QStringLiteral("\\\""));
    return QStringLiteral("\"\\\"") + escaped + QStringLiteral("\\\"\"");
}

QString repeat(const QString &item, int least, int most)
{
    if (most < 0)
        return least == 0 ? QStringLiteral("(%1)*").arg(item)
                          : QStringLiteral("(%1){%2,}").arg(item).arg(least);
    return QStringLiteral("(%1){%2,%3}").arg(item).arg(least).arg(most);
}

} // namespace

QString GenerationSchema::grammar() const
{
    // Strings leave out control characters, and a quotation mark or a
    // backslash comes escaped, so that every admitted answer is valid JSON
    // and a title keeps the quotation marks the model wrote. Whitespace
    // between tokens is bounded: a small model must not be able to loop on
    // blanks.
    QStringList rules;
    QStringList members;
    for (qsizetype i = 0; i < properties.size(); ++i) {
        const Property &property = properties.at(i);
        const QString value = QStringLiteral("value%1").arg(i);
        const QString text = QStringLiteral("text%1").arg(i);
        rules.append(QStringLiteral("%1 ::= \"\\\"\" %2 \"\\\"\"")
                         .arg(text, repeat(QStringLiteral("char"), 1, property.maximumLength)));
        if (property.kind == Kind::string) {
            rules.append(QStringLiteral("%1 ::= %2").arg(value, text));
        } else {
            const int least = qMax(0, property.minimumCount);
            const int most = property.maximumCount;
            const QString more = repeat(QStringLiteral("ws \",\" ws %1").arg(text), qMax(0, least - 1),
                                        most < 0 ? -1 : qMax(0, most - 1));
            const QString items = QStringLiteral("%1 %2").arg(text, more);
            rules.append(QStringLiteral("%1 ::= \"[\" ws %2 ws \"]\"")
                             .arg(value, least == 0 ? QStringLiteral("(%1)?").arg(items) : items));
        }
        members.append(QStringLiteral("%1 ws \":\" ws %2").arg(literal(property.name), value));
    }
    const QString root =
        QStringLiteral("root ::= \"{\" ws %1 ws \"}\"").arg(members.join(QStringLiteral(" ws \",\" ws ")));
    rules.prepend(root);
    rules.append(QStringLiteral("char ::= [^\"\\\\\\x00-\\x1F\\x7F] | \"\\\\\" [\"\\\\]"));
    rules.append(QStringLiteral("ws ::= [ \\t\\n]{0,8}"));
    return rules.join(QLatin1Char('\n')) + QLatin1Char('\n');
}

QString GenerationSchema::promptText() const
{
    // A one-line sketch of the object with each field's description as a
    // comment. Small models copy the description out of a full JSON Schema
    // into the answer; a sketch reads as a form to fill in, so they don't.
    QStringList fields;
    for (const Property &property : properties) {
        const QString type =
            property.kind == Kind::string ? QStringLiteral("string") : QStringLiteral("[string, ...]");
        QStringList notes;
        if (property.kind == Kind::stringArray) {
            if (property.minimumCount > 0 && property.maximumCount >= 0)
                notes.append(
                    QStringLiteral("%1 to %2 items").arg(property.minimumCount).arg(property.maximumCount));
            else if (property.maximumCount >= 0)
                notes.append(QStringLiteral("at most %1 items").arg(property.maximumCount));
            else if (property.minimumCount > 0)
                notes.append(QStringLiteral("at least %1 items").arg(property.minimumCount));
        }
        if (!property.description.isEmpty())
            notes.append(property.description);
        QString field = QStringLiteral("\"%1\": %2").arg(property.name, type);
        if (!notes.isEmpty())
            field += QStringLiteral(" // ") + notes.join(QStringLiteral(". "));
        fields.append(field);
    }
    return QStringLiteral("Respond with JSON in this form:\n{") + fields.join(QStringLiteral(",\n ")) +
           QStringLiteral("}");
}

QJsonObject GenerationSchema::validated(const QJsonObject &object) const
{
    for (const Property &property : properties) {
        const QJsonValue value = object.value(property.name);
        if (property.kind == Kind::string) {
            if (!value.isString())
                return {};
            continue;
        }
        if (!value.isArray())
            return {};
        const QJsonArray array = value.toArray();
        if (array.size() < property.minimumCount ||
            (property.maximumCount >= 0 && array.size() > property.maximumCount))
            return {};
        for (const QJsonValue &element : array) {
            if (!element.isString())
                return {};
        }
    }
    return object;
}

} // namespace kestil
