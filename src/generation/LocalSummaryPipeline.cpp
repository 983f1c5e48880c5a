// The summary pipeline: passes of key points until the source fits, then one
// streamed summary.
#include "generation/LocalSummary.h"

#include "base/Error.h"
#include "documents/ParsedNoteMarkdown.h"

#include <QSet>

#include <chrono>
#include <map>

namespace kestil::LocalSummary {

namespace {

const QString stalledMessage = QStringLiteral(
    "The on-device model stopped making progress on a section. Your existing note is preserved.");
const QString tooLongMessage = QStringLiteral("This note is too long to summarize in one result. Generation "
                                              "stopped; your existing content is preserved.");

constexpr int minimumRepeatWords = 24;
constexpr int shortestRepeatBlock = 8;
constexpr int longestRepeatBlock = 96;
constexpr int leastDistinctRepeatWords = 4;

GenerationOptions requestOptions()
{
    return GenerationOptions{0.2, int(answerReserve)};
}

// The key points of a whole response.
QString keyPoints(const QString &response)
{
    const QString text = stripOuterCodeFence(response);
    if (text.trimmed().isEmpty())
        throw LocalError(
            QStringLiteral("The on-device model returned no key points. Existing note content was "
                           "preserved."));
    return text;
}

QString finalRequest(LanguageModel &model, const QString &prompt, const SnapshotHandler &snapshot,
                     const CancellationToken &cancel)
{
    using Clock = std::chrono::steady_clock;
    QString latest;
    QString lastSent;
    std::optional<Clock::time_point> lastSentAt;
    model.streamResponse(instructions(), prompt, requestOptions(), cancel, [&](const QString &content) {
        cancel.checkCancellation();
        const QString text = stripOuterCodeFence(content);
        if (std::optional<QString> cut = repeatCut(text)) {
            latest = *cut;
            return false;
        }
        const Clock::time_point now = Clock::now();
        if (text != lastSent && (!lastSentAt || now - *lastSentAt >= snapshotSpacing)) {
            snapshot(text);
            lastSent = text;
            lastSentAt = now;
        }
        latest = text;
        return true;
    });
    cancel.checkCancellation();
    if (latest.trimmed().isEmpty())
        throw LocalError(QStringLiteral("The on-device model returned no summary. Existing note content was "
                                        "preserved."));
    if (latest != lastSent)
        snapshot(latest);
    return latest;
}

QString withSource(const QString &head, const QString &source)
{
    return head + QStringLiteral("\nSource:\n") + source;
}

bool rebuilds(const QStringList &sections, const QString &source)
{
    return !sections.isEmpty() && sections.join(QString()) == source;
}

} // namespace

std::optional<QString> repeatCut(const QString &text)
{
    struct Word {
        qsizetype start;
        QString lower;
    };
    QList<Word> words;
    for (qsizetype i = 0; i < text.size();) {
        while (i < text.size() && text.at(i).isSpace())
            ++i;
        const qsizetype start = i;
        while (i < text.size() && !text.at(i).isSpace())
            ++i;
        if (i > start)
            words.append({start, text.mid(start, i - start).toLower()});
    }
    const qsizetype n = words.size();
    if (n < minimumRepeatWords)
        return std::nullopt;
    const qsizetype longest = qMin<qsizetype>(n / 3, longestRepeatBlock);
    for (qsizetype length = shortestRepeatBlock; length <= longest; ++length) {
        const qsizetype a = n - 3 * length;
        const qsizetype b = n - 2 * length;
        const qsizetype c = n - length;
        QSet<QString> distinct;
        for (qsizetype i = a; i < b; ++i)
            distinct.insert(words.at(i).lower);
        if (distinct.size() < leastDistinctRepeatWords)
            continue;
        bool same = true;
        for (qsizetype i = 0; i < length && same; ++i)
            same = words.at(a + i).lower == words.at(b + i).lower &&
                   words.at(a + i).lower == words.at(c + i).lower;
        if (same)
            return text.left(words.at(b).start).trimmed();
    }
    return std::nullopt;
}

QString generate(LanguageModel &model, const QString &text, LocalSummaryTemplate summaryTemplate,
                 const QLocale &locale, const std::optional<LocalSummaryCheckpoint> &resuming,
                 const CheckpointHandler &checkpoint, const ProgressHandler &progress,
                 const SnapshotHandler &snapshot, const CancellationToken &cancel,
                 std::chrono::milliseconds requestLimit)
{
    cancel.checkCancellation();
    if (const std::optional<QString> refusal = readiness(model, locale))
        throw LocalError(*refusal);
    const qint64 overhead = model.tokenCount(LanguageModel::Instructions{instructions()});
    const qint64 tokenBudget = budget(model);
    if (text.trimmed().isEmpty())
        throw LocalError(QStringLiteral("Transcribe some spoken words first."));
    progress(LocalSummaryProgress::preparing());

    LocalSummaryCheckpoint state(text, summaryTemplate);
    if (resuming && resuming->input == text && resuming->templateKey == state.templateKey) {
        if (resuming->result) {
            snapshot(*resuming->result);
            return *resuming->result;
        }
        if (resuming->pass >= passLimit)
            throw LocalError(tooLongMessage);
        state.source = resuming->source;
        state.pass = resuming->pass;
        state.facts = resuming->facts;
        state.sections = resuming->sections;
    }

    for (;;) {
        cancel.checkCancellation();
        if (!state.sections || !rebuilds(*state.sections, state.source)) {
            state.facts.clear();
            state.sections =
                makeSections(model, state.source, summaryTemplate, overhead, tokenBudget, cancel);
        }
        const QStringList sections = *state.sections;
        if (!rebuilds(sections, state.source))
            throw LocalError(
                QStringLiteral("Summary sections do not contain the complete source. Your note was "
                               "preserved."));
        checkpoint(state);
        if (sections.size() == 1)
            break;

        if (state.facts.size() > sections.size())
            throw LocalError(QStringLiteral("Summary recovery data does not match this transcript."));
        const int total = int(sections.size());
        progress(LocalSummaryProgress::reading(int(state.facts.size()), total, state.pass));
        // The sections still to read are independent requests: the model may
        // answer several at once. Their key points join the checkpoint in
        // section order, each as soon as those before it are in.
        const qsizetype start = state.facts.size();
        QStringList prompts;
        for (qsizetype index = start; index < sections.size(); ++index)
            prompts.append(withSource(keyPointHead(), sections.at(index)));
        std::map<qsizetype, QString> waiting;
        cancel.checkCancellation();
        withTimeLimit(requestLimit, stalledMessage, cancel, [&](const CancellationToken &limited) {
            model.respondAll(
                instructions(), prompts, requestOptions(), limited,
                [&](qsizetype index, const QString &response) {
                    cancel.checkCancellation();
                    waiting[start + index] = keyPoints(response);
                    while (!waiting.empty() && waiting.begin()->first == state.facts.size()) {
                        state.facts.append(waiting.begin()->second);
                        waiting.erase(waiting.begin());
                        checkpoint(state);
                        progress(LocalSummaryProgress::reading(int(state.facts.size()), total, state.pass));
                    }
                });
            return QString();
        });
        cancel.checkCancellation();

        const QString joined = state.facts.join(QStringLiteral("\n\n"));
        if (joined.trimmed().isEmpty() || joined.toUtf8().size() >= state.source.toUtf8().size())
            throw LocalError(
                QStringLiteral("The on-device model could not condense this note. Generation stopped; "
                               "your existing content is preserved."));
        state.source = joined;
        state.pass += 1;
        state.facts.clear();
        state.sections.reset();
        checkpoint(state);
        if (state.pass >= passLimit)
            throw LocalError(tooLongMessage);
    }

    progress(LocalSummaryProgress::writing());
    const QString head = LocalSummaryTemplates::finalPromptHead(summaryTemplate);
    const QString result =
        withTimeLimit(requestLimit, stalledMessage, cancel, [&](const CancellationToken &limited) {
            return finalRequest(model, withSource(head, state.source), snapshot, limited);
        });
    cancel.checkCancellation();
    state.result = result;
    checkpoint(state);
    return result;
}

} // namespace kestil::LocalSummary
