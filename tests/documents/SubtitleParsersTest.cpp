// The subtitle files as other programs read them: the SRT and WebVTT written
// for a note are parsed by the Python packages `srt` and `webvtt-py`, which
// must find the same cues. Without a Python that has both, the test is
// skipped and says so.
#include "DocumentsTestSupport.h"

#include "documents/NoteExport.h"
#include "documents/Subtitles.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

// A Python that imports both parsers: KESTIL_SUBTITLE_PYTHON, the project's
// cached environment, or the one on the path.
std::optional<QString> parserPython()
{
    QStringList candidates;
    if (const QString chosen = qEnvironmentVariable("KESTIL_SUBTITLE_PYTHON"); !chosen.isEmpty())
        candidates << chosen;
    candidates << QDir::homePath() + u"/.cache/kestil/subtitle-parsers/bin/python3"_s;
    if (const QString onPath = QStandardPaths::findExecutable(u"python3"_s); !onPath.isEmpty())
        candidates << onPath;
    for (const QString &python : candidates) {
        QProcess probe;
        probe.start(python, {u"-c"_s, u"import srt, webvtt"_s});
        if (probe.waitForFinished(30000) && probe.exitStatus() == QProcess::NormalExit &&
            probe.exitCode() == 0)
            return python;
    }
    return std::nullopt;
}

TranscriptUtterance said(const QString &text, double start, double end)
{
    return TranscriptUtterance{newTranscriptUtteranceId(), text, start, end, {}, {}, false};
}

TEST(SubtitleParsers, ReadTheSameCuesFromTheSrtAndWebVttFiles)
{
    const std::optional<QString> python = parserPython();
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
    ASSERT_TRUE(dir.isValid());
    const QString srtPath = dir.filePath(u"note.srt"_s);
    const QString vttPath = dir.filePath(u"note.vtt"_s);
    NoteExport::writeTextAtomically(srtPath, Subtitles::srt(cues));
    NoteExport::writeTextAtomically(vttPath, Subtitles::webVtt(cues));

    QProcess parse;
    parse.start(*python,
                {QStringLiteral(KESTIL_SOURCE_DIR "/tests/documents/subtitle_parsers.py"), srtPath, vttPath});
    ASSERT_TRUE(parse.waitForFinished(60000));
    ASSERT_EQ(parse.exitCode(), 0) << parse.readAllStandardError().toStdString();
    const QJsonObject found = QJsonDocument::fromJson(parse.readAllStandardOutput()).object();

    EXPECT_TRUE(found.value(u"srtRoundTrip"_s).toBool());
    for (const QString &format : {u"srt"_s, u"vtt"_s}) {
        SCOPED_TRACE(format.toStdString());
        const QJsonArray parsed = found.value(format).toArray();
        ASSERT_EQ(parsed.size(), cues.size());
        for (qsizetype i = 0; i < cues.size(); ++i) {
            const QJsonArray cue = parsed[i].toArray();
            EXPECT_EQ(cue[0].toInteger(), std::llround(cues[i].start * 1000)) << i;
            EXPECT_EQ(cue[1].toInteger(), std::llround(cues[i].end * 1000)) << i;
            EXPECT_EQ(cue[2].toString(), cues[i].text) << i;
        }
    }
}

} // namespace
