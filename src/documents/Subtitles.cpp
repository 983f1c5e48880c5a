#include "documents/Subtitles.h"

#include "documents/DocumentText.h"

#include <QTextBoundaryFinder>

#include <algorithm>
#include <cmath>

namespace kestil::Subtitles {

namespace {

// What a reader takes in at a glance: two lines of about 42 characters,
// shown for at most seven seconds.
constexpr qsizetype maximumLineLength = 42;
constexpr qsizetype maximumLines = 2;
constexpr double maximumCueSeconds = 7.0;
// A silence this long between two utterances is a pause, and a cue ends
// there; shorter ones are the breath between two phrases of one thought.
constexpr double pauseSeconds = 0.2;

bool isTimed(const TranscriptUtterance &utterance)
{
    return !utterance.isInterim && utterance.start && utterance.end && std::isfinite(*utterance.start) &&
           std::isfinite(*utterance.end) && !utterance.text.trimmed().isEmpty();
}

// A stretch of an utterance between two places where a line may break (a
// word with its punctuation, or one ideograph), timed by where its
// characters stand in the utterance.
struct Piece {
    QString text;
    double start = 0;
    double end = 0;
    // Whether a blank separates it from the next piece.
    bool blankAfter = false;
    // Whether the speaker paused before it.
    bool pauseBefore = false;
};

QList<Piece> piecesOf(const QList<TranscriptUtterance> &utterances)
{
    QList<const TranscriptUtterance *> timed;
    for (const TranscriptUtterance &utterance : utterances)
        if (isTimed(utterance))
            timed << &utterance;
    std::stable_sort(timed.begin(), timed.end(),
                     [](const auto *a, const auto *b) { return *a->start < *b->start; });

    QList<Piece> pieces;
    double spokenUntil = -INFINITY;
    for (const TranscriptUtterance *utterance : timed) {
        const QString text = utterance->text.simplified();
        const double start = *utterance->start;
        const double span = std::max(*utterance->end, start) - start;
        const auto timeAt = [&](qsizetype position) { return start + span * double(position) / text.size(); };
        const bool paused = start - spokenUntil >= pauseSeconds;
        spokenUntil = std::max(spokenUntil, start + span);

        QTextBoundaryFinder breaks(QTextBoundaryFinder::Line, text);
        qsizetype from = 0;
        while (from < text.size()) {
            qsizetype to = breaks.toNextBoundary();
            if (to < 0 || to > text.size())
                to = text.size();
            qsizetype visible = to;
            while (visible > from && text.at(visible - 1).isSpace())
                --visible;
            if (visible > from)
                pieces.append(Piece{text.mid(from, visible - from), timeAt(from), timeAt(visible),
                                    visible < to || to == text.size(), paused && from == 0});
            from = to;
        }
    }
    return pieces;
}

// A cue being filled, piece by piece.
struct OpenCue {
    QStringList lines;
    double start = 0;
    double end = 0;
    bool blankAfter = false;

    // Adds the piece when it fits within the lines and the time of one cue.
    bool take(const Piece &piece)
    {
        if (lines.isEmpty()) {
            lines << piece.text;
            start = piece.start;
            end = piece.end;
            blankAfter = piece.blankAfter;
            return true;
        }
        if (piece.pauseBefore || piece.end - start > maximumCueSeconds)
            return false;
        const QString joined = lines.last() + (blankAfter ? QStringLiteral(" ") : QString()) + piece.text;
        if (DocumentText::characterCount(joined, maximumLineLength) <= maximumLineLength)
            lines.last() = joined;
        else if (lines.size() < maximumLines)
            lines << piece.text;
        else
            return false;
        end = std::max(end, piece.end);
        blankAfter = piece.blankAfter;
        return true;
    }
};

qint64 milliseconds(double seconds)
{
    return std::llround(seconds * 1000);
}

// Times as players read them: whole milliseconds, never before zero, each
// cue after the one before it and lasting at least a millisecond.
QList<SubtitleCue> ordered(QList<SubtitleCue> cues)
{
    qint64 previousEnd = 0;
    for (SubtitleCue &cue : cues) {
        const qint64 start = std::max(milliseconds(cue.start), previousEnd);
        const qint64 end =
            std::clamp(milliseconds(cue.end), start + 1, start + milliseconds(maximumCueSeconds));
        cue.start = double(start) / 1000;
        cue.end = double(end) / 1000;
        previousEnd = end;
    }
    return cues;
}

QString timeText(double seconds, QChar fractionSeparator)
{
    const qint64 total = milliseconds(seconds);
    return QStringLiteral("%1:%2:%3%4%5")
        .arg(total / 3600000, 2, 10, QLatin1Char('0'))
        .arg(total / 60000 % 60, 2, 10, QLatin1Char('0'))
        .arg(total / 1000 % 60, 2, 10, QLatin1Char('0'))
        .arg(fractionSeparator)
        .arg(total % 1000, 3, 10, QLatin1Char('0'));
}

QString timing(const SubtitleCue &cue, QChar fractionSeparator)
{
    return timeText(cue.start, fractionSeparator) + QStringLiteral(" --> ") +
           timeText(cue.end, fractionSeparator);
}

} // namespace

QList<SubtitleCue> cues(const QList<TranscriptUtterance> &utterances)
{
    QList<SubtitleCue> result;
    OpenCue open;
    const auto close = [&] {
        if (open.lines.isEmpty())
            return;
        result.append(SubtitleCue{open.start, open.end, open.lines.join(QLatin1Char('\n'))});
        open = OpenCue{};
    };
    for (const Piece &piece : piecesOf(utterances)) {
        if (!open.take(piece)) {
            close();
            open.take(piece);
        }
    }
    close();
    return ordered(std::move(result));
}

bool hasTimedUtterances(const QList<TranscriptUtterance> &utterances)
{
    return std::any_of(utterances.begin(), utterances.end(), isTimed);
}

QString srt(const QList<SubtitleCue> &cues)
{
    QString text;
    for (qsizetype i = 0; i < cues.size(); ++i)
        text += QString::number(i + 1) + QLatin1Char('\n') + timing(cues[i], QLatin1Char(',')) +
                QLatin1Char('\n') + cues[i].text + QStringLiteral("\n\n");
    return text;
}

QString webVtt(const QList<SubtitleCue> &cues)
{
    QString text = QStringLiteral("WEBVTT\n");
    for (const SubtitleCue &cue : cues) {
        // Cue text is markup in WebVTT: spoken "<", ">" and "&" are escaped,
        // which also keeps a spoken "-->" from reading as a timing line.
        QString payload = cue.text;
        payload.replace(QLatin1Char('&'), QStringLiteral("&amp;"))
            .replace(QLatin1Char('<'), QStringLiteral("&lt;"))
            .replace(QLatin1Char('>'), QStringLiteral("&gt;"));
        text += QLatin1Char('\n') + timing(cue, QLatin1Char('.')) + QLatin1Char('\n') + payload +
                QLatin1Char('\n');
    }
    return text;
}

} // namespace kestil::Subtitles
