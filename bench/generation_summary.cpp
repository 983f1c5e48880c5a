// What summarising a one-hour meeting costs on the on-device model: a
// transcript of about 9,000 words through the whole pipeline (key points by
// section, condensing passes, the streamed summary), then a title and tags,
// then one Ask AI answer on the same note. Prints passes, sections, tokens,
// rates and wall times, and what reusing the cached instruction prefix and
// what counting tokens cost.
//
//   generation_summary [model.gguf] [threads] [--no-prefix-reuse]
//
// The default model is the benchmark model of scripts/test-models.sh, with
// Qwen2.5-0.5B-Instruct's shape at Q4_K_M and random weights, in
// $KESTIL_TEST_MODELS_DIR (else ~/.cache/kestil/models). Random weights never
// end an answer early: every request runs to its response cap, which makes
// these figures an upper bound for a real model of the same shape.

#include "generation/LlamaLanguageModel.h"
#include "generation/LocalNoteChat.h"
#include "generation/LocalNoteTags.h"
#include "generation/LocalSummary.h"
#include "generation/TextWords.h"

#include "base/Error.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdio>

using namespace kestil;

namespace {

class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    int below(int n)
    {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 7;
        state_ ^= state_ << 17;
        return int(state_ % std::uint64_t(n));
    }

private:
    std::uint64_t state_;
};

// A meeting of about `words` words: speakers taking turns, each turn a few
// sentences built from a meeting's vocabulary.
QString meeting(int words)
{
    const QStringList speakers{"Priya", "Marcus", "Lena", "Tomás", "Aiko", "Daniel"};
    const QStringList subjects{"the release candidate", "the storage migration",  "the hiring plan",
                               "the customer survey",   "the onboarding screens", "the search index",
                               "the billing change",    "the enterprise renewal", "the support queue",
                               "the security review",   "the quarterly budget",   "the mobile crash rate"};
    const QStringList verbs{"is on track for",           "slipped past",
                            "needs a decision before",   "was reviewed on",
                            "depends on the outcome of", "should be finished by",
                            "came up again in",          "was escalated after"};
    const QStringList times{"Monday",
                            "Wednesday",
                            "Friday",
                            "next week",
                            "the end of the month",
                            "the planning meeting",
                            "the board review",
                            "the March renewal"};
    const QStringList asides{"I think we agreed on that last time.",
                             "Let me check the numbers again.",
                             "That matches what the customers told us.",
                             "We should write that down.",
                             "Does anyone disagree?",
                             "Okay, moving on.",
                             "I can take that one.",
                             "The dashboard shows the same trend."};
    Random random(42);
    QString text;
    int count = 0;
    while (count < words) {
        QString turn = speakers.at(random.below(int(speakers.size()))) + QStringLiteral(": ");
        const int sentences = 2 + random.below(4);
        for (int i = 0; i < sentences; ++i) {
            QString sentence =
                QStringLiteral("So %1 %2 %3, and we measured %4 percent against %5. ")
                    .arg(subjects.at(random.below(int(subjects.size()))),
                         verbs.at(random.below(int(verbs.size()))), times.at(random.below(int(times.size()))))
                    .arg(5 + random.below(90))
                    .arg(subjects.at(random.below(int(subjects.size()))));
            if (random.below(3) == 0)
                sentence += asides.at(random.below(int(asides.size()))) + QLatin1Char(' ');
            turn += sentence;
        }
        count += int(TextWords::wordCount(turn));
        text += turn.trimmed() + QStringLiteral("\n\n");
    }
    return text;
}

void printStatistics(const char *label, const LlamaLanguageModel::Statistics &before,
                     const LlamaLanguageModel::Statistics &after, double wall)
{
    const qint64 prompt = after.promptTokens - before.promptTokens;
    const qint64 reused = after.reusedPromptTokens - before.reusedPromptTokens;
    const qint64 generated = after.generatedTokens - before.generatedTokens;
    const double promptSeconds = after.promptSeconds - before.promptSeconds;
    const double generationSeconds = after.generationSeconds - before.generationSeconds;
    std::printf("%-10s requests %3lld  prompt tokens %6lld (reused %5lld, decoded %6lld)  generated %5lld\n",
                label, after.requests - before.requests, prompt, reused, prompt - reused, generated);
    std::printf(
        "%-10s prompt %6.1f tok/s over %6.1f s   generation %5.1f tok/s over %6.1f s   wall %6.1f s\n", "",
        promptSeconds > 0 ? double(prompt - reused) / promptSeconds : 0.0, promptSeconds,
        generationSeconds > 0 ? double(generated) / generationSeconds : 0.0, generationSeconds, wall);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QString modelPath;
    int threads = 2;
    bool reuse = true;
    for (int i = 1; i < argc; ++i) {
        const QString argument = QString::fromLocal8Bit(argv[i]);
        if (argument == QStringLiteral("--no-prefix-reuse"))
            reuse = false;
        else if (argument.endsWith(QStringLiteral(".gguf")))
            modelPath = argument;
        else
            threads = argument.toInt();
    }
    if (modelPath.isEmpty()) {
        QString models = qEnvironmentVariable("KESTIL_TEST_MODELS_DIR");
        if (models.isEmpty())
            models = QDir::homePath() + QStringLiteral("/.cache/kestil/models");
        modelPath = models + QStringLiteral("/qwen2.5-0.5b-shape-q4_k_m.gguf");
    }
    if (!QFileInfo::exists(modelPath)) {
        std::fprintf(stderr, "No model at %s: run scripts/test-models.sh first.\n", qPrintable(modelPath));
        return 1;
    }
    QTemporaryDir folder;
    QFile::link(modelPath, folder.filePath(QFileInfo(modelPath).fileName()));
    LlamaLanguageModel model(folder.path(), threads);
    model.setPrefixReuse(reuse);
    const QLocale english(QStringLiteral("en_US"));

    const QString transcript = meeting(9000);
    std::printf("model %s, %d threads, prefix reuse %s\n", qPrintable(QFileInfo(modelPath).fileName()),
                threads, reuse ? "on" : "off");
    std::printf("transcript: %lld words, %lld bytes\n",
                static_cast<long long>(TextWords::wordCount(transcript)),
                static_cast<long long>(transcript.toUtf8().size()));

    QElapsedTimer total;
    total.start();
    // Load the model outside the figures of the first request.
    const qint64 overhead = model.tokenCount(LanguageModel::Instructions{LocalSummary::instructions()});
    const double loadSeconds = double(total.elapsed()) / 1000.0;
    std::printf("load      %.2f s; instructions %lld tokens; context %lld tokens\n", loadSeconds,
                static_cast<long long>(overhead), static_cast<long long>(model.contextSize()));

    QList<int> sectionsPerPass;
    int passes = 0;
    QElapsedTimer step;
    step.start();
    auto before = model.statistics();
    QString summary;
    try {
        summary = LocalSummary::generate(
            model, transcript, LocalSummaryTemplate::meeting, english, std::nullopt,
            [&](const LocalSummaryCheckpoint &checkpoint) {
                passes = qMax(passes, checkpoint.pass);
                if (checkpoint.sections && checkpoint.facts.isEmpty() &&
                    sectionsPerPass.size() == checkpoint.pass)
                    sectionsPerPass.append(int(checkpoint.sections->size()));
            },
            [](const LocalSummaryProgress &progress) {
                if (progress.stage == LocalSummaryProgress::Stage::reading)
                    std::fprintf(stderr, "  %s: %s\n", qPrintable(progress.title()),
                                 qPrintable(*progress.detail()));
            },
            [](const QString &) {}, {}, std::chrono::hours(1));
    } catch (const std::exception &error) {
        std::printf("summary failed: %s\n", qPrintable(describe(error)));
        return 1;
    }
    const double summarySeconds = double(step.elapsed()) / 1000.0;
    auto after = model.statistics();
    QStringList perPass;
    for (int sections : sectionsPerPass)
        perPass.append(QString::number(sections));
    std::printf("summary   %d condensing passes; sections per pass: %s; %lld token counts in %.2f s\n",
                passes, qPrintable(perPass.join(QStringLiteral(", "))),
                static_cast<long long>(after.tokenCounts - before.tokenCounts),
                after.tokenCountSeconds - before.tokenCountSeconds);
    printStatistics("summary", before, after, summarySeconds);

    step.restart();
    before = model.statistics();
    QString title;
    try {
        title = LocalSummary::generateTitle(model, summary, english, {}, std::chrono::hours(1));
    } catch (const std::exception &error) {
        title = QStringLiteral("(none: ") + describe(error) + QLatin1Char(')');
    }
    printStatistics("title", before, model.statistics(), double(step.elapsed()) / 1000.0);

    step.restart();
    before = model.statistics();
    QStringList tags;
    try {
        tags = LocalNoteTags::generate(model, summary, transcript, {}, english, {});
    } catch (const std::exception &) {
        tags = LocalNoteTags::completedNames(std::nullopt, transcript, summary, {});
    }
    printStatistics("tags", before, model.statistics(), double(step.elapsed()) / 1000.0);
    const double jobSeconds = double(total.elapsed()) / 1000.0 - loadSeconds;
    std::printf("job total %.1f s (summary, title and tags; target under 150 s on two cores)\n", jobSeconds);

    step.restart();
    before = model.statistics();
    QString answer;
    try {
        answer = LocalNoteChat::answer(model, transcript,
                                       QStringLiteral("What was decided about the storage migration?"), {},
                                       english, [](const QString &) {}, {});
    } catch (const std::exception &error) {
        answer = describe(error);
    }
    printStatistics("chat", before, model.statistics(), double(step.elapsed()) / 1000.0);

    const auto whole = model.statistics();
    const double promptRate =
        whole.promptSeconds > 0 ? double(whole.promptTokens - whole.reusedPromptTokens) / whole.promptSeconds
                                : 0.0;
    std::printf(
        "prefix reuse: %lld of %lld prompt tokens came from the cache, about %.1f s of prompt decoding\n",
        static_cast<long long>(whole.reusedPromptTokens), static_cast<long long>(whole.promptTokens),
        promptRate > 0 ? double(whole.reusedPromptTokens) / promptRate : 0.0);
    std::printf("token counting: %lld counts took %.2f s in all (%.1f%% of the job)\n",
                static_cast<long long>(whole.tokenCounts), whole.tokenCountSeconds,
                100.0 * whole.tokenCountSeconds / qMax(jobSeconds, 0.001));
    std::printf("title: %s\ntags: %s\n", qPrintable(title.left(100)),
                qPrintable(tags.join(QStringLiteral(", "))));
    return 0;
}
