#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QString>
#include <QVariant>

#include <optional>

namespace kestil {

// The contents of preferences.json, decoded. The file is a JSON object
//
//   { "format": 1, "values": { "<key>": { "type": "<type>", "value": <value> } } }
//
// where type is one of "bool", "integer" (a decimal string, exact to 64 bits),
// "double" (a number, or "nan", "inf", "-inf", "-0"), "string", "stringArray"
// and "data" (base64). The type travels with each value so that a reload gives
// back exactly what was stored.
struct PreferenceFile {
    QHash<QString, QVariant> values;
    // Entries that are not in this form (written by a newer version, or edited
    // by hand): not readable as values, but written back unchanged.
    QJsonObject unreadableEntries;
};

// The value in the form the store keeps it: qint64 for every integer type,
// double for float, and bool, QString, QStringList or QByteArray as they are.
// Nothing for any other type, an invalid QVariant included.
std::optional<QVariant> normalizedPreferenceValue(const QVariant &value);

// Throws LocalError, a sentence saying why, when the bytes are not a
// preferences file at all; single entries that cannot be read end up in
// unreadableEntries.
PreferenceFile decodePreferenceFile(const QByteArray &json);
// Throws LocalError for a value that is not in normalised form.
QByteArray encodePreferenceFile(const PreferenceFile &file);

} // namespace kestil
