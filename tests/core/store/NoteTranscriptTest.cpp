#include "core/CoreTestSupport.h"

#include "core/NoteTranscript.h"

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;

namespace {

TranscriptUtterance utterance(const QString &text, double start, double end)
{
    TranscriptUtterance u;
    u.id = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    u.text = text;
    u.start = start;
    u.end = end;
    return u;
}

TEST(NoteTranscriptTest, UtterancesSurviveASaveAndCachedReadsDoNotDecodeAgain)
{
    TempRoot root;
    QUuid id;
    {
        auto controller = root.open();
        auto note = controller->createNote({}, {}, QUuid::createUuid(), u"transcription"_s);
        id = *note->id();
        note->setValue(u"transcription"_s, u"Good morning everyone. Let us begin."_s);
        setTranscriptUtterances(*note, {utterance(u"Good morning everyone."_s, 0.0, 1.5),
                                        utterance(u"Let us begin."_s, 1.6, 2.4)});
        controller->save();
        const auto first = transcriptUtterances(*note);
        const auto second = transcriptUtterances(*note);
        EXPECT_EQ(first.constData(), second.constData()) << "an unchanged note is served from the cache";
    }
    auto controller = root.open();
    auto note = controller->noteWithId(id);
    ASSERT_TRUE(note);
    const auto list = transcriptUtterances(*note);
    ASSERT_FALSE(list.isEmpty());
    EXPECT_EQ(list.first().start, 0.0);
    EXPECT_EQ(list.last().end, 2.4);

    // A changed transcription invalidates the cached list.
    note->setValue(u"transcription"_s, u"Other text"_s);
    const auto after = transcriptUtterances(*note);
    EXPECT_NE(after.constData(), list.constData());
}

TEST(NoteTranscriptTest, EmptyListClearsTheAttributeAndPlainEditsDropTiming)
{
    SharedPersistenceController controller(std::nullopt, true);
    auto note = controller.createNote({}, {}, QUuid::createUuid(), u"transcription"_s);
    setTranscriptUtterances(*note, {utterance(u"Hello."_s, 0, 1)});
    EXPECT_TRUE(note->transcriptUtterancesJSON().has_value());
    setTranscriptUtterances(*note, {});
    EXPECT_FALSE(note->transcriptUtterancesJSON().has_value());

    setTranscriptFromPlainText(*note, u"First paragraph.\n\nSecond paragraph."_s);
    EXPECT_EQ(note->transcription(), u"First paragraph.\n\nSecond paragraph."_s);
    const auto list = transcriptUtterances(*note);
    ASSERT_EQ(list.size(), 2);
    EXPECT_FALSE(list[0].start.has_value());
    EXPECT_EQ(list[1].text, u"Second paragraph."_s);
}

} // namespace
