#include "TranscriptParagraphsView.h"

#include "speech/TranscriptNormalization.h"

#include <cmath>
#include <limits>

namespace kestil {

std::optional<QString> timestampLabel(double start)
{
    // The rounded value must fit a signed 64-bit integer; 2^63 itself does not.
    constexpr double limit = 9223372036854775808.0;
    if (!std::isfinite(start))
        return std::nullopt;
    const double rounded = std::round(start);
    if (rounded >= limit || rounded < -limit)
        return std::nullopt;
    const qint64 seconds = std::max<qint64>(0, qint64(rounded));
    return QString::asprintf("%lld:%02lld", static_cast<long long>(seconds / 60),
                             static_cast<long long>(seconds % 60));
}

QList<TimestampedUtterance> timestampedUtterances(const QList<TranscriptUtterance> &list,
                                                  const TranscriptParagraphsView &view)
{
    QList<TimestampedUtterance> result;
    result.reserve(list.size());
    if (!view.isRecordingActive) {
        for (const auto &u : list)
            result.append({u, u.start ? timestampLabel(*u.start) : std::nullopt});
        return result;
    }
    double lastLabelled = 0;
    bool labelled = false;
    for (const auto &u : list) {
        std::optional<QString> label;
        if (u.start && *u.start >= view.minimumDisplayTimestampStart &&
            (!labelled || *u.start - lastLabelled >= view.liveRecordingTimestampInterval)) {
            label = timestampLabel(*u.start);
            if (label) {
                lastLabelled = *u.start;
                labelled = true;
            }
        }
        result.append({u, label});
    }
    return result;
}

QList<TranscriptParagraph> transcriptParagraphs(const TranscriptParagraphsView &view)
{
    QList<TranscriptUtterance> list = view.utterances.isEmpty() ? utterancesFromPlainText(view.transcript)
                                                                : cleanedUtterances(view.utterances);
    TranscriptParagraphsView labelling = view;
    if (view.isRecordingActive) {
        list = normalizedUtterances(list, transcriptMinimumWords, transcriptMaximumWords,
                                    transcriptMaximumSentences, transcriptMaximumDuration);
        // A gathered paragraph is already up to twelve seconds of speech:
        // thinned out by ten seconds more, most paragraphs of a recording
        // would show no time until it stops. Each shows its start, as it will
        // once saved; only the first second stays unlabelled.
        labelling.liveRecordingTimestampInterval = 0;
    }

    QList<TranscriptParagraph> paragraphs;
    paragraphs.reserve(list.size() + 2);
    const bool speakers = showsSpeakers(list);
    std::optional<qint64> turn;
    for (const auto &t : timestampedUtterances(list, labelling)) {
        TranscriptParagraph paragraph{TranscriptParagraph::Kind::utterance, t.utterance.id, t.utterance.text,
                                      t.timestampLabel.value_or(QString())};
        if (speakers && t.utterance.speaker && t.utterance.speaker != turn) {
            turn = t.utterance.speaker;
            paragraph.speaker = turn;
            paragraph.speakerLabel = speakerName(view.speakerNames, *turn);
        }
        paragraphs.append(paragraph);
    }
    const QString interim = view.interimText.trimmed();
    if (!interim.isEmpty())
        paragraphs.append({TranscriptParagraph::Kind::interim, QStringLiteral("interim"), interim, {}});
    if (view.showEllipsis)
        paragraphs.append({TranscriptParagraph::Kind::ellipsis, QStringLiteral("ellipsis"), {}, {}});
    return paragraphs;
}

} // namespace kestil
