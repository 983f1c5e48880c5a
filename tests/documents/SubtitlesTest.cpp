// Subtitles from a note's timed utterances: how cues are cut (lines, seven
// seconds, pauses), and the two file formats.
#include "DocumentsTestSupport.h"

#include "documents/Subtitles.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

TranscriptUtterance said(const QString &text, std::optional<double> start, std::optional<double> end,
                         bool interim = false)
{
    return TranscriptUtterance{newTranscriptUtteranceId(), text, start, end, {}, {}, interim};
}

// "wd00 wd01 …": words of four characters, so each takes five with its blank.
QString words(int from, int to)
{
    QStringList list;
    for (int i = from; i < to; ++i)
        list << u"wd%1"_s.arg(i, 2, 10, QLatin1Char('0'));
    return list.join(QLatin1Char(' '));
}

const QString longWord =
    u"Donaudampfschifffahrtselektrizitaetenhauptbetriebswerkbauunterbeamtengesellschaft"_s;

TEST(SubtitleCues, AreCutByLinesTimeAndPauses)
{
    const struct {
        const char *row;
        QList<TranscriptUtterance> utterances;
        QList<SubtitleCue> expected;
    } rows[] = {{"a pause ends a cue",
                 {said(u"We move the launch."_s, 0.5, 2.0), said(u"Sam writes."_s, 3.5, 4.5)},
                 {{0.5, 2.0, u"We move the launch."_s}, {3.5, 4.5, u"Sam writes."_s}}},
                {"a breath does not",
                 {said(u"Yes."_s, 1.0, 1.4), said(u"Of  course.\n"_s, 1.5, 2.3)},
                 {{1.0, 2.3, u"Yes. Of course."_s}}},
                {"interim and untimed are left out, the rest ordered",
                 {said(u"Second."_s, 5, 6), said(u"maybe"_s, 0, 1, true),
                  said(u"no times"_s, std::nullopt, std::nullopt), said(u"half"_s, 2.0, std::nullopt),
                  said(u"First."_s, 1, 2)},
                 {{1, 2, u"First."_s}, {5, 6, u"Second."_s}}},
                // 0.05 s a character: two lines of eight words fill the first cue.
                {"two lines of 42 at most",
                 {said(words(0, 20), 0, 4.95)},
                 {{0, 3.95, words(0, 8) + QLatin1Char('\n') + words(8, 16)}, {4.0, 4.95, words(16, 20)}}},
                // 0.1 s a character: the fifteenth word would end the cue after 7 s.
                {"seven seconds at most",
                 {said(words(0, 20), 0, 9.9)},
                 {{0, 6.9, words(0, 8) + QLatin1Char('\n') + words(8, 14)}, {7.0, 9.9, words(14, 20)}}},
                {"a word longer than a line stays whole",
                 // 91 characters, 0.05 s each.
                 {said(u"See "_s + longWord + u" today"_s, 0, 4.55)},
                 {{0, 4.25, u"See\n"_s + longWord}, {4.3, 4.55, u"today"_s}}},
                {"overlapping utterances never overlap as cues",
                 {said(u"Both"_s, 1.0, 2.0), said(u"talk"_s, 1.5, 1.5), said(u"Later."_s, 2.5, 2.5)},
                 {{1.0, 2.0, u"Both talk"_s}, {2.5, 2.501, u"Later."_s}}}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.row);
        const QList<SubtitleCue> cues = Subtitles::cues(row.utterances);
        ASSERT_EQ(cues.size(), row.expected.size());
        for (qsizetype i = 0; i < cues.size(); ++i) {
            EXPECT_NEAR(cues[i].start, row.expected[i].start, 0.0005) << i;
            EXPECT_NEAR(cues[i].end, row.expected[i].end, 0.0005) << i;
            EXPECT_EQ(cues[i].text, row.expected[i].text) << i;
        }
    }
}

TEST(SubtitleFormats, SrtAndWebVttWriteTheSameCues)
{
    const QList<SubtitleCue> cues = {{0.5, 2, u"We move\nthe launch."_s},
                                     {3723.004, 3725.5, u"Fish & <chips> --> now"_s}};
    EXPECT_EQ(Subtitles::srt(cues), u"1\n00:00:00,500 --> 00:00:02,000\nWe move\nthe launch.\n\n"
                                    "2\n01:02:03,004 --> 01:02:05,500\nFish & <chips> --> now\n\n"_s);
    EXPECT_EQ(Subtitles::webVtt(cues),
              u"WEBVTT\n\n00:00:00.500 --> 00:00:02.000\nWe move\nthe launch.\n\n"
              "01:02:03.004 --> 01:02:05.500\nFish &amp; &lt;chips&gt; --&gt; now\n"_s);
    // Only timed final words make subtitles.
    EXPECT_FALSE(Subtitles::hasTimedUtterances({}));
    EXPECT_FALSE(Subtitles::hasTimedUtterances({said(u"maybe"_s, 0, 1, true),
                                                said(u"no times"_s, std::nullopt, std::nullopt),
                                                said(u" "_s, 0, 1), said(u"broken"_s, 0, std::nan(""))}));
    EXPECT_TRUE(Subtitles::hasTimedUtterances({said(u"Yes."_s, 0, 1)}));
}

} // namespace
