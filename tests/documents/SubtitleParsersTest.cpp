// The subtitle files as other programs read them: the SRT and WebVTT written
// for a note are parsed by the Python packages `srt` and `webvtt-py`, which
// must find the same cues. Without a Python that has both, the test is
// skipped and says so.
#include "DocumentsTestSupport.h"

#include "documents/NoteExport.h"
#include "documents/Subtitles.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

TranscriptUtterance said(const QString &text, double start, double end)
{
    return TranscriptUtterance{newTranscriptUtteranceId(), text, start, end, {}, {}, false};
}

TEST(SubtitleParsers, ReadTheSameCuesFromTheSrtAndWebVttFiles)
{
    // KESTIL_SUBTITLE_PYTHON, the project's cached environment, or the one on the path.
    std::optional<QString> python;
    for (const QString &candidate :
         {qEnvironmentVariable("KESTIL_SUBTITLE_PYTHON"),
          QDir::homePath() + u"/.cache/kestil/subtitle-parsers/bin/python3"_s, u"python3"_s}) {
        if (python || candidate.isEmpty())
            continue;
        QProcess probe;
        probe.start(candidate, {u"-c"_s, u"import srt, webvtt"_s});
        if (probe.waitForFinished(30000) && probe.exitStatus() == QProcess::NormalExit &&
            probe.exitCode() == 0)
            python = candidate;
    }
    if (!python)
        GTEST_SKIP() << "no Python with the srt and webvtt-py packages (pip install srt webvtt-py into "
                        "~/.cache/kestil/subtitle-parsers, or set KESTIL_SUBTITLE_PYTHON)";

    const QList<SubtitleCue> cues = Subtitles::cues(
        {said(u"Fish & chips <cheap> --> tonight, said the café in 東京."_s, 0.25, 3.5),
         said(u"Then a long stretch of talk about the launch schedule that runs on well past what "
              "a single subtitle can hold on two lines of text."_s,
              4.0, 13.0),
         said(u"An hour later: 42"_s, 3725.125, 3727.0), said(u"1"_s, 3730.0, 3730.5)});
    ASSERT_GE(cues.size(), 5);
    QTemporaryDir dir;
    NoteExport::writeTextAtomically(dir.filePath(u"note.srt"_s), Subtitles::srt(cues));
    NoteExport::writeTextAtomically(dir.filePath(u"note.vtt"_s), Subtitles::webVtt(cues));
    QProcess parse;
    parse.start(*python, {QStringLiteral(KESTIL_SOURCE_DIR "/tests/documents/subtitle_parsers.py"),
                          dir.filePath(u"note.srt"_s), dir.filePath(u"note.vtt"_s)});
    ASSERT_TRUE(parse.waitForFinished(60000));
    ASSERT_EQ(parse.exitCode(), 0) << parse.readAllStandardError().toStdString();
    const QJsonObject found = QJsonDocument::fromJson(parse.readAllStandardOutput()).object();

    EXPECT_TRUE(found.value(u"srtRoundTrip"_s).toBool());
    for (const QString &format : {u"srt"_s, u"vtt"_s}) {
        const QJsonArray parsed = found.value(format).toArray();
        ASSERT_EQ(parsed.size(), cues.size()) << format.toStdString();
        for (qsizetype i = 0; i < cues.size(); ++i) {
            SCOPED_TRACE(format.toStdString() + " cue " + std::to_string(i));
            const QJsonArray cue = parsed[i].toArray();
            EXPECT_EQ(cue[0].toInteger(), std::llround(cues[i].start * 1000));
            EXPECT_EQ(cue[1].toInteger(), std::llround(cues[i].end * 1000));
            EXPECT_EQ(cue[2].toString(), cues[i].text);
        }
    }
}

} // namespace
