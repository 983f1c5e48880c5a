#include "prefs/PreferenceFile.h"
#include "base/Error.h"

#include <QDate>
#include <QJsonDocument>
#include <QJsonObject>

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

#include <limits>

using namespace kestil;

namespace {

QByteArray fileWith(const char *entries)
{
    return QByteArray(R"({"format": 1, "values": {)") + entries + "}}";
}

TEST(PreferenceFile, ValuesAreNormalisedToTheKeptTypes)
{
    EXPECT_EQ(normalizedPreferenceValue(short(3))->metaType().id(), QMetaType::LongLong);
    EXPECT_EQ(normalizedPreferenceValue(3u)->metaType().id(), QMetaType::LongLong);
    EXPECT_EQ(normalizedPreferenceValue(QVariant::fromValue(3l))->metaType().id(), QMetaType::LongLong);
    EXPECT_EQ(*normalizedPreferenceValue(QVariant::fromValue<quint64>(std::numeric_limits<qint64>::max())),
              QVariant::fromValue(std::numeric_limits<qint64>::max()));
    EXPECT_FALSE(normalizedPreferenceValue(QVariant::fromValue<quint64>(quint64(1) << 63)));
    EXPECT_EQ(normalizedPreferenceValue(0.25f)->metaType().id(), QMetaType::Double);
    EXPECT_FALSE(normalizedPreferenceValue(QVariant()));
    EXPECT_FALSE(normalizedPreferenceValue(QChar('x')));
    EXPECT_FALSE(normalizedPreferenceValue(QDate::currentDate()));
}

TEST(PreferenceFile, HandWrittenValuesAreReadWhenTheyFitTheirType)
{
    const PreferenceFile file = decodePreferenceFile(fileWith(R"(
        "plainNumber": {"type": "integer", "value": 12},
        "negative": {"type": "integer", "value": "-7"},
        "fraction": {"type": "integer", "value": 1.5},
        "overflow": {"type": "integer", "value": "9223372036854775808"},
        "wholeDouble": {"type": "double", "value": 2},
        "textDouble": {"type": "double", "value": "2.5"},
        "boolAsText": {"type": "bool", "value": "true"},
        "mixedList": {"type": "stringArray", "value": ["a", 1]},
        "badBase64": {"type": "data", "value": "***"},
        "goodBase64": {"type": "data", "value": "AP8="},
        "noType": {"value": true},
        "notAnEntry": 5
    )"));
    EXPECT_EQ(file.values.value("plainNumber"), QVariant::fromValue<qint64>(12));
    EXPECT_EQ(file.values.value("negative"), QVariant::fromValue<qint64>(-7));
    EXPECT_EQ(file.values.value("wholeDouble"), QVariant(2.0));
    EXPECT_EQ(file.values.value("goodBase64"), QVariant(QByteArray("\x00\xff", 2)));

    QStringList unreadable = file.unreadableEntries.keys();
    unreadable.sort();
    EXPECT_EQ(unreadable, (QStringList{"badBase64", "boolAsText", "fraction", "mixedList", "noType",
                                       "notAnEntry", "overflow", "textDouble"}));
}

TEST(PreferenceFile, AFileThatIsNoPreferencesFileIsRefusedWithASentence)
{
    const QByteArray refused[] = {"", "not json", "[]", "\"text\"", R"({"format": 1})", R"({"values": []})"};
    for (const QByteArray &bytes : refused) {
        try {
            decodePreferenceFile(bytes);
            ADD_FAILURE() << "accepted " << bytes.constData();
        } catch (const LocalError &error) {
            EXPECT_TRUE(error.message().startsWith("The settings file")) << error.message().toStdString();
            EXPECT_TRUE(error.message().endsWith('.')) << error.message().toStdString();
        }
    }
    // A later format that keeps the same entries still reads.
    EXPECT_EQ(decodePreferenceFile(R"({"format": 7, "values": {"a": {"type": "bool", "value": true}}})")
                  .values.value("a"),
              QVariant(true));
}

TEST(PreferenceFile, EncodingRefusesValuesOutsideTheKeptTypes)
{
    PreferenceFile file;
    file.values.insert("date", QDate(2024, 1, 1));
    EXPECT_THROW(encodePreferenceFile(file), LocalError);

    file.values.clear();
    file.values.insert("n", QVariant::fromValue<qint64>(5));
    const QJsonObject root = QJsonDocument::fromJson(encodePreferenceFile(file)).object();
    EXPECT_EQ(root.value("format").toInt(), 1);
    EXPECT_EQ(root.value("values").toObject().value("n").toObject().value("value").toString(), "5");
}

} // namespace
