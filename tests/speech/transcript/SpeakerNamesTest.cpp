#include "speech/SpeakerNames.h"

#include "base/Error.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

TranscriptUtterance said(const QString &text, std::optional<qint64> speaker)
{
    TranscriptUtterance u;
    u.id = newTranscriptUtteranceId();
    u.text = text;
    u.speaker = speaker;
    return u;
}

TEST(SpeakerNamesTest, StoredNamesSurviveAndMalformedOnesAreDropped)
{
    const SpeakerNames names{{0, QStringLiteral("Ada")}, {3, QStringLiteral("Grace Hopper")}};
    EXPECT_EQ(decodeSpeakerNames(encodeSpeakerNames(names)), names);
    EXPECT_FALSE(encodeSpeakerNames({}));
    EXPECT_FALSE(encodeSpeakerNames({{2, QStringLiteral("   ")}}));
    const struct {
        const char *json;
        SpeakerNames expected;
    } rows[] = {
        {"", {}},
        {"not json", {}},
        {"[1,2]", {}},
        {R"({"x":"Ada","-1":"Bob","2":7,"4":"  Cy  "})", {{4, QStringLiteral("Cy")}}},
    };
    for (const auto &row : rows)
        EXPECT_EQ(decodeSpeakerNames(QString::fromUtf8(row.json)), row.expected) << row.json;
}

TEST(SpeakerNamesTest, RenamingGivesANameOrTheNumberBackAndRefusesAnotherSpeakersName)
{
    const SpeakerNames names{{0, QStringLiteral("Ada")}};
    const QList<qint64> speakers{0, 1, 2};
    EXPECT_EQ(renamedSpeaker(names, speakers, 1, QStringLiteral("  Bob   Marley ")).value(1),
              QStringLiteral("Bob Marley"));
    EXPECT_FALSE(renamedSpeaker(names, speakers, 0, QStringLiteral("   ")).contains(0));
    // Renaming a speaker to its own name is no conflict.
    EXPECT_EQ(renamedSpeaker(names, speakers, 0, QStringLiteral("ada")).value(0), QStringLiteral("ada"));
    for (const QString &taken : {QStringLiteral("ADA"), QStringLiteral("Speaker 3")})
        EXPECT_THROW(renamedSpeaker(names, speakers, 1, taken), LocalError) << taken.toStdString();
}

TEST(SpeakerNamesTest, TextForExportsAndPromptsNamesEachTurnOnceAndOnlyForSeveralVoices)
{
    const SpeakerNames names{{1, QStringLiteral("Ada")}};
    const QList<TranscriptUtterance> two{said(QStringLiteral("Hello."), 0), said(QStringLiteral("Go on."), 0),
                                         said(QStringLiteral("Thanks."), 1), said(QStringLiteral("Bye."), 0),
                                         said(QStringLiteral("Untold."), std::nullopt)};
    EXPECT_EQ(transcriptTextWithSpeakers(two, names),
              QStringLiteral("Speaker 1: Hello.\n\nGo on.\n\nAda: Thanks.\n\nSpeaker 1: Bye.\n\nUntold."));
    EXPECT_EQ(transcriptSpeakers(two), (QList<qint64>{0, 1}));
    const QList<TranscriptUtterance> one{said(QStringLiteral("Alone."), 0),
                                         said(QStringLiteral("Still."), 0)};
    EXPECT_EQ(transcriptTextWithSpeakers(one, names), QStringLiteral("Alone.\n\nStill."));
}

} // namespace
