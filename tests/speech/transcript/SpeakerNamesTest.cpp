#include "TranscriptTestSupport.h"

#include "speech/SpeakerNames.h"

#include "base/Error.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

TranscriptUtterance said(const QString &text, std::optional<qint64> speaker)
{
    return with(utterance(newTranscriptUtteranceId(), text), speaker);
}

TEST(SpeakerNamesTest, StoredNamesSurviveAndMalformedOnesAreDropped)
{
    const SpeakerNames names{{0, "Ada"}, {3, "Grace Hopper"}};
    EXPECT_EQ(decodeSpeakerNames(encodeSpeakerNames(names)), names);
    EXPECT_FALSE(encodeSpeakerNames({}));
    EXPECT_FALSE(encodeSpeakerNames({{2, "   "}}));
    const struct {
        const char *json;
        SpeakerNames expected;
    } rows[] = {
        {"", {}},
        {"not json", {}},
        {"[1,2]", {}},
        {R"({"x":"Ada","-1":"Bob","2":7,"4":"  Cy  "})", {{4, "Cy"}}},
    };
    for (const auto &row : rows)
        EXPECT_EQ(decodeSpeakerNames(QString::fromUtf8(row.json)), row.expected) << row.json;
}

TEST(SpeakerNamesTest, RenamingGivesANameOrTheNumberBackAndRefusesAnotherSpeakersName)
{
    const SpeakerNames names{{0, "Ada"}};
    const QList<qint64> speakers{0, 1, 2};
    EXPECT_EQ(renamedSpeaker(names, speakers, 1, "  Bob   Marley ").value(1), "Bob Marley");
    EXPECT_FALSE(renamedSpeaker(names, speakers, 0, "   ").contains(0));
    // Renaming a speaker to its own name is no conflict.
    EXPECT_EQ(renamedSpeaker(names, speakers, 0, "ada").value(0), "ada");
    for (const QString &taken : QStringList{"ADA", "Speaker 3"})
        EXPECT_THROW(renamedSpeaker(names, speakers, 1, taken), LocalError) << taken.toStdString();
}

TEST(SpeakerNamesTest, TextForExportsAndPromptsNamesEachTurnOnceAndOnlyForSeveralVoices)
{
    const SpeakerNames names{{1, "Ada"}};
    const QList<TranscriptUtterance> two{said("Hello.", 0), said("Go on.", 0), said("Thanks.", 1),
                                         said("Bye.", 0), said("Untold.", std::nullopt)};
    EXPECT_EQ(transcriptTextWithSpeakers(two, names),
              "Speaker 1: Hello.\n\nGo on.\n\nAda: Thanks.\n\nSpeaker 1: Bye.\n\nUntold.");
    EXPECT_EQ(transcriptSpeakers(two), (QList<qint64>{0, 1}));
    const QList<TranscriptUtterance> one{said("Alone.", 0), said("Still.", 0)};
    EXPECT_EQ(transcriptTextWithSpeakers(one, names), "Alone.\n\nStill.");
}

} // namespace
