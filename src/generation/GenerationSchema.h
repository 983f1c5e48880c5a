#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>

namespace kestil {

// The shape of a record that the model fills by constrained decoding: an object
// whose properties are strings or arrays of strings. The schema yields a GBNF
// grammar that admits exactly such JSON, and a sketch of the form for the prompt.
struct GenerationSchema {
    enum class Kind { string, stringArray };

    struct Property {
        QString name;
        QString description;
        Kind kind = Kind::string;
        int minimumCount = 0;   // arrays: fewest elements
        int maximumCount = -1;  // arrays: most elements, -1 for no limit
        int maximumLength = -1; // characters of each string, -1 for no limit
    };

    QList<Property> properties;

    // A GBNF grammar whose start symbol "root" admits the JSON of this record.
    QString grammar() const;
    // The record's form as the model reads it at the end of a prompt.
    QString promptText() const;
    // The object when it has every property with the right type, else an empty object.
    QJsonObject validated(const QJsonObject &object) const;
};

} // namespace kestil
