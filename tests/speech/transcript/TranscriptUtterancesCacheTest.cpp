#include "TranscriptTestSupport.h"

#include "speech/TranscriptNormalization.h"
#include "speech/TranscriptUtterancesCache.h"
#include "speech/TranscriptUtterancesJson.h"

#include <limits>

#include <gtest/gtest.h>

using namespace kestil;

namespace {

const QString noteKey = "kestil://notes/Note/p1";
const QString shortText = "Good morning everyone.";

QList<TranscriptUtterance> timedList()
{
    return {utterance("A", "Good morning everyone.", 0.0, 1.5),
            utterance("B", "Let us start with the budget review today.", 1.6, 4.0),
            utterance("C", "Sounds good.", 4.2, 5.0)};
}

class TranscriptUtterancesCacheTest : public ::testing::Test {
protected:
    void SetUp() override { cache().removeAll(); }
    void TearDown() override { cache().removeAll(); }

    static TranscriptUtterancesCache &cache() { return transcriptUtterancesCache(); }
    static bool cached(const QString &key) { return cache().object(key) != nullptr; }
};

} // namespace

TEST_F(TranscriptUtterancesCacheTest, AnEmptyInterimOnlyOrUnwritableListClearsTheAttributeAndTheEntry)
{
    const TranscriptUtterance interim = with(utterance("I", "and so", 5.0, 6.0), {}, {}, true);
    auto unwritable = timedList();
    unwritable[2].end = std::numeric_limits<double>::infinity();
    for (const QList<TranscriptUtterance> &list :
         {QList<TranscriptUtterance>(), {interim, interim}, unwritable}) {
        ASSERT_TRUE(writeTranscriptUtterances(noteKey, timedList(), shortText));
        ASSERT_TRUE(cached(noteKey));
        EXPECT_EQ(writeTranscriptUtterances(noteKey, list, shortText), std::nullopt);
        EXPECT_FALSE(cached(noteKey));
        EXPECT_EQ(cache().count(), 0);
    }
}

TEST_F(TranscriptUtterancesCacheTest, WriteStoresNormalisedJsonForAHitAndReadNormalisesWithoutRewritingIt)
{
    const QString transcription =
        "Good morning everyone. Let us start with the budget review today. Sounds good.";
    const auto json = writeTranscriptUtterances(noteKey, timedList(), transcription);
    ASSERT_TRUE(json);
    const auto normalized = normalizedUtterances(timedList());
    EXPECT_EQ(decodeTranscriptUtterances(*json), normalized);
    EXPECT_EQ(*json, *encodeTranscriptUtterances(normalized));

    const auto first = readTranscriptUtterances(noteKey, json, transcription);
    const auto second = readTranscriptUtterances(noteKey, json, transcription);
    EXPECT_EQ(first, normalized);
    // Both come from the entry the write stored: no decoding, no normalising.
    EXPECT_EQ(first.constData(), second.constData());
    EXPECT_EQ(first.constData(), cache().object(noteKey)->utterances.constData());

    // A stored list that was never normalised: an interim record and a repeat.
    QList<TranscriptUtterance> raw = timedList();
    raw.insert(1, raw[0]);
    raw[1].id = "REPEAT";
    const QString rawJson =
        *encodeTranscriptUtterances(raw << with(utterance("T", "maybe", 5.0, 5.5), {}, {}, true));
    EXPECT_EQ(readTranscriptUtterances("raw", rawJson, QString()), normalizedUtterances(timedList()));
    EXPECT_EQ(cache().object("raw")->payload, rawJson);
}

TEST_F(TranscriptUtterancesCacheTest, EntryIsUsedOnlyWhileBothTextsAreUnchanged)
{
    const auto json = writeTranscriptUtterances(noteKey, timedList(), shortText);
    ASSERT_TRUE(json);
    const auto hit = readTranscriptUtterances(noteKey, json, shortText);

    // The same JSON again, but a changed transcription: decoded and normalised
    // afresh. Normalising the stored paragraphs once more merges them further,
    // which shows that the entry was not used.
    const auto changedText = readTranscriptUtterances(noteKey, json, shortText + '!');
    EXPECT_EQ(changedText, normalizedUtterances(hit));
    EXPECT_NE(changedText, hit);

    // A changed payload: decoded afresh, and the new content shows.
    auto other = timedList();
    other[0].text = "Good evening everyone.";
    const QString otherJson = *encodeTranscriptUtterances(other);
    EXPECT_TRUE(
        readTranscriptUtterances(noteKey, otherJson, shortText + '!')[0].text.startsWith("Good evening"));
}

TEST_F(TranscriptUtterancesCacheTest,
       AnEmptyCorruptOrMissingListFallsBackToParagraphsWithNewIdsOnEachUncachedRead)
{
    const QString text = "First paragraph of the note.\n\nSecond one.";
    for (const std::optional<QString> &payload : QList<std::optional<QString>>{
             std::nullopt, "", "[]", R"([{"id":"a","text":"lost"}])", "not json at all"}) {
        cache().removeAll();
        const auto list = readTranscriptUtterances(noteKey, payload, text);
        ASSERT_EQ(list.size(), 2) << payload.value_or("nothing").toStdString();
        EXPECT_EQ(list[0], utterance(list[0].id, "First paragraph of the note."));
        EXPECT_EQ(list[1].text, "Second one.");
        EXPECT_EQ(readTranscriptUtterances(noteKey, payload, text)[0].id, list[0].id) << "a cached read";
        cache().removeAll();
        EXPECT_NE(readTranscriptUtterances(noteKey, payload, text)[0].id, list[0].id) << "an uncached one";
    }
    // Nothing at all to read: an empty list, still cached.
    EXPECT_TRUE(readTranscriptUtterances(noteKey, std::nullopt, std::nullopt).isEmpty());
    EXPECT_TRUE(cached(noteKey));
}

TEST_F(TranscriptUtterancesCacheTest, PlainTextEditIsEncodedWithoutNormalisation)
{
    EXPECT_EQ(encodePlainTextEdit("  \n\n "), std::optional<QString>("[]"));

    // 25 words in one paragraph would be cut by normalisation; an edit keeps it whole.
    const QString text = words(25, ".") + QStringLiteral("\n\nSecond paragraph.");
    const auto json = encodePlainTextEdit(text);
    ASSERT_TRUE(json);
    const auto stored = decodeTranscriptUtterances(*json);
    ASSERT_TRUE(stored);
    ASSERT_EQ(stored->size(), 2);
    EXPECT_EQ(stored->at(0), utterance(stored->at(0).id, words(25, ".")));
    EXPECT_TRUE(json->contains("\"isInterim\":false"));
    EXPECT_FALSE(json->contains("\"start\""));

    // Read back, the note shows it cut into reading-sized pieces.
    const auto read = readTranscriptUtterances(noteKey, json, text);
    ASSERT_EQ(read.size(), 3);
    EXPECT_EQ(read[0].id, stored->at(0).id + QStringLiteral("-0"));
}

TEST_F(TranscriptUtterancesCacheTest, EvictsTheLeastRecentlyReadBeyondSixtyFourNotesOrEightMebibytes)
{
    for (int i = 0; i < 65; ++i)
        readTranscriptUtterances(QStringLiteral("note-%1").arg(i), std::nullopt, shortText);
    EXPECT_EQ(cache().count(), 64);
    EXPECT_FALSE(cached("note-0"));
    EXPECT_TRUE(cached("note-1"));
    EXPECT_TRUE(cached("note-64"));
    // A read keeps an entry fresh: note-1 survives the next insertion, note-2 does not.
    readTranscriptUtterances("note-1", std::nullopt, shortText);
    readTranscriptUtterances("note-65", std::nullopt, shortText);
    EXPECT_TRUE(cached("note-1"));
    EXPECT_FALSE(cached("note-2"));

    // Paragraphs of about 1 KiB each, all different.
    const auto paragraphs = [](int count) {
        QStringList list;
        for (int i = 0; i < count; ++i)
            list << QStringLiteral("%1 ").arg(i, 8, 10, QLatin1Char('0')) + QString(1014, QLatin1Char('x'));
        return list.join("\n\n");
    };
    // Each note weighs about 2.9 MiB: its transcription, the same text again in
    // its utterances, and 96 bytes for each of them. Three exceed 8 MiB.
    cache().removeAll();
    const QString big = paragraphs(1400);
    for (int i = 0; i < 3; ++i)
        readTranscriptUtterances(QStringLiteral("big-%1").arg(i), std::nullopt, big);
    EXPECT_FALSE(cached("big-0"));
    EXPECT_TRUE(cached("big-1"));
    EXPECT_TRUE(cached("big-2"));
    const qint64 entryCost = cache().object("big-1")->cost();
    EXPECT_GT(entryCost, 2 * 1400 * 1024);
    EXPECT_EQ(cache().totalCost(), 2 * entryCost);
    EXPECT_LE(cache().totalCost(), transcriptUtterancesCacheCostLimit);

    // A list too large for the whole cache is returned but not kept.
    EXPECT_EQ(readTranscriptUtterances("huge", std::nullopt, paragraphs(9 * 1024)).size(), 9 * 1024);
    EXPECT_FALSE(cached("huge"));
}
