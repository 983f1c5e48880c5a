#include "TranscriptTestSupport.h"

#include "speech/TranscriptUtterancesJson.h"

#include <limits>

#include <gtest/gtest.h>

using namespace kestil;

namespace {

QList<TranscriptUtterance> decoded(const char *json)
{
    const auto list = decodeTranscriptUtterances(QString::fromUtf8(json));
    EXPECT_TRUE(list.has_value()) << json;
    return list.value_or(QList<TranscriptUtterance>());
}

bool fails(const char *json)
{
    return !decodeTranscriptUtterances(QString::fromUtf8(json)).has_value();
}

} // namespace

TEST(TranscriptUtterancesJson, WritesKeysInFixedOrderLeavesOutEmptyOptionalsAndEscapesStrings)
{
    EXPECT_EQ(
        encodeTranscriptUtterances({with(utterance("A1", "Hello.", 1.5, 3.0), 2, 0.875, true),
                                    utterance("B2", "Bye."),
                                    with(utterance("C3", "x", std::nullopt, 0.1), -4)}),
        QStringLiteral(R"([{"id":"A1","text":"Hello.","start":1.5,"end":3,"speaker":2,"confidence":0.875,)"
                       R"("isInterim":true},{"id":"B2","text":"Bye.","isInterim":false},)"
                       R"({"id":"C3","text":"x","end":0.1,"speaker":-4,"isInterim":false}])"));
    EXPECT_EQ(encodeTranscriptUtterances({}), "[]");

    // Strings are escaped as a standard encoder does.
    const QString text = QStringLiteral("Say \"hi\" \\ now\n\ttab\r\b\f") + QChar(0x01) + QChar(0x1f) +
                         QStringLiteral(" café / 😀 \u2028");
    const auto json = encodeTranscriptUtterances({utterance("id", text)});
    ASSERT_TRUE(json);
    EXPECT_EQ(*json, QStringLiteral(R"([{"id":"id","text":"Say \"hi\" \\ now\n\ttab\r\b\f\u0001\u001f)") +
                         QStringLiteral(" café / 😀 \u2028\",\"isInterim\":false}]"));
    EXPECT_EQ(decodeTranscriptUtterances(*json)->at(0).text, text);
}

TEST(TranscriptUtterancesJson, FiniteNumbersRoundTripExactly)
{
    const double third = 1.0 / 3.0, largest = std::numeric_limits<double>::max();
    QList<TranscriptUtterance> list;
    for (double v : {0.0, -0.0, 0.1, third, 1e-7, 123456.789, 7200.123456789, 1e21, 9223372036854775808.0,
                     5e-324, 3.0, -2.5, 1e300, largest})
        list.append(with(utterance("n", "n", v, v), {}, v));
    for (qint64 speaker : {std::numeric_limits<qint64>::min(), std::numeric_limits<qint64>::max()})
        list.append(with(utterance("s", "s"), speaker));

    const auto json = encodeTranscriptUtterances(list);
    ASSERT_TRUE(json);
    EXPECT_EQ(decodeTranscriptUtterances(*json), list);

    // Infinities and NaN cannot be written, wherever they are.
    for (double bad : {std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                       std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_FALSE(encodeTranscriptUtterances({utterance("a", "a", bad)}));
        EXPECT_FALSE(encodeTranscriptUtterances({utterance("a", "a", 0.0, bad)}));
        EXPECT_FALSE(encodeTranscriptUtterances({with(utterance("a", "a"), {}, bad)}));
    }
}

TEST(TranscriptUtterancesJson, ReadsNullOrMissingOptionalsAsEmptyAndIgnoresUnknownKeys)
{
    // An integral speaker written with a fraction still reads.
    const auto list = decoded(R"([{"isInterim":false,"text":"t","id":"x","start":null,"end":4,)"
                              R"("speaker":null,"confidence":null,"extra":[1,2]},)"
                              R"({"id":"y","text":"","isInterim":true,"start":3.0,"speaker":1.0},)"
                              R"({"id":"z","text":"","isInterim":false,"speaker":0},)"
                              R"({"id":"w","text":"","isInterim":false,"speaker":-7}])");
    ASSERT_EQ(list.size(), 4);
    EXPECT_EQ(list[0], utterance("x", "t", std::nullopt, 4.0));
    EXPECT_EQ(list[1], with(utterance("y", QString(), 3.0), 1, {}, true));
    EXPECT_EQ(list[2].speaker, 0);
    EXPECT_EQ(list[3].speaker, -7);

    EXPECT_TRUE(decoded("[]").isEmpty());
    EXPECT_TRUE(decoded("  [ ]\n").isEmpty());
}

TEST(TranscriptUtterancesJson, AnyFaultFailsTheWholeList)
{
    const char *good = R"({"id":"a","text":"ok","isInterim":false})";
    ASSERT_FALSE(fails((QByteArray("[") + good + "]").constData()));

    // A required key missing or null, or a value of the wrong type, in any element.
    for (const char *bad :
         {R"({"text":"t","isInterim":false})", R"({"id":"a","isInterim":false})", R"({"id":"a","text":"t"})",
          R"({"id":null,"text":"t","isInterim":false})", R"({"id":"a","text":null,"isInterim":false})",
          R"({"id":"a","text":"t","isInterim":null})", R"({"id":1,"text":"t","isInterim":false})",
          R"({"id":"a","text":["t"],"isInterim":false})", R"({"id":"a","text":"t","isInterim":0})",
          R"({"id":"a","text":"t","isInterim":"false"})",
          R"({"id":"a","text":"t","isInterim":false,"start":"1.5"})",
          R"({"id":"a","text":"t","isInterim":false,"end":true})",
          R"({"id":"a","text":"t","isInterim":false,"speaker":1.5})",
          R"({"id":"a","text":"t","isInterim":false,"speaker":"1"})",
          R"({"id":"a","text":"t","isInterim":false,"speaker":1e30})",
          R"({"id":"a","text":"t","isInterim":false,"confidence":{}})"}) {
        EXPECT_TRUE(fails((QByteArray("[") + good + "," + bad + "]").constData())) << bad;
    }
    // Not a list of objects, or not JSON at all.
    for (const char *bad : {"", "null", "{}", R"({"id":"a","text":"t","isInterim":false})", "[1]", "[[]]",
                            "[null]", "[{]", "[{\"id\":\"a\",\"text\":\"t\",\"isInterim\":false}",
                            "[{\"id\":\"a\",\"text\":\"t\",\"isInterim\":false}] x", "Hello there."}) {
        EXPECT_TRUE(fails(bad)) << bad;
    }
}
