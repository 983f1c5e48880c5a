// What summarising a one-hour meeting costs on the on-device model: a
// transcript of about 9,000 words through the whole pipeline (key points by
// section, condensing passes, the streamed summary), then a title and tags,
// then one Ask AI answer on the same note. The job runs twice, first with the
// sections of a pass read one after the other, then as parallel sequences of
// one batch, and the two are printed side by side. Prints passes, sections,
// tokens, rates and wall times, and what reusing the cached instruction prefix
// and what counting tokens cost.
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

struct Figures {
    qint64 requests = 0;
    qint64 promptTokens = 0;
    qint64 decodedPromptTokens = 0;
    qint64 generatedTokens = 0;
    double promptSeconds = 0;
    double generationSeconds = 0;
    double wall = 0;

    double promptRate() const
    {
        return promptSeconds > 0 ? double(decodedPromptTokens) / promptSeconds : 0.0;
    }
    double generationRate() const
    {
        return generationSeconds > 0 ? double(generatedTokens) / generationSeconds : 0.0;
    }
};

Figures figures(const LlamaLanguageModel::Statistics &before, const LlamaLanguageModel::Statistics &after,
                double wall)
{
    Figures f;
    f.requests = after.requests - before.requests;
    f.promptTokens = after.promptTokens - before.promptTokens;
    f.decodedPromptTokens = f.promptTokens - (after.reusedPromptTokens - before.reusedPromptTokens);
    f.generatedTokens = after.generatedTokens - before.generatedTokens;
    f.promptSeconds = after.promptSeconds - before.promptSeconds;
    f.generationSeconds = after.generationSeconds - before.generationSeconds;
    f.wall = wall;
    return f;
}

void printFigures(const char *label, const Figures &f)
{
    std::printf("%-10s requests %3lld  prompt tokens %6lld (reused %5lld, decoded %6lld)  generated %5lld\n",
                label, f.requests, f.promptTokens, f.promptTokens - f.decodedPromptTokens,
                f.decodedPromptTokens, f.generatedTokens);
    std::printf(
        "%-10s prompt %6.1f tok/s over %6.1f s   generation %5.1f tok/s over %6.1f s   wall %6.1f s\n", "",
        f.promptRate(), f.promptSeconds, f.generationRate(), f.generationSeconds, f.wall);
}

// One summary job as the program runs it: the pipeline, then a title and tags.
struct Job {
    Figures summary;
    Figures title;
    Figures tags;
    double total = 0;
    int passes = 0;
    QList<int> sectionsPerPass;
    QString summaryText;
    QString titleText;
    QStringList tagNames;
    QString failure;
};

Job runJob(LlamaLanguageModel &model, const QString &transcript, const QLocale &english)
{
    Job job;
    QElapsedTimer total;
    total.start();
    QElapsedTimer step;
    step.start();
    auto before = model.statistics();
    try {
        job.summaryText = LocalSummary::generate(
            model, transcript, LocalSummaryTemplate::meeting, english, std::nullopt,
            [&](const LocalSummaryCheckpoint &checkpoint) {
                job.passes = qMax(job.passes, checkpoint.pass);
                if (checkpoint.sections && checkpoint.facts.isEmpty() &&
                    job.sectionsPerPass.size() == checkpoint.pass)
                    job.sectionsPerPass.append(int(checkpoint.sections->size()));
            },
            [](const LocalSummaryProgress &progress) {
                if (progress.stage == LocalSummaryProgress::Stage::reading)
                    std::fprintf(stderr, "  %s: %s\n", qPrintable(progress.title()),
                                 qPrintable(*progress.detail()));
            },
            [](const QString &) {}, {}, std::chrono::hours(1));
    } catch (const std::exception &error) {
        job.failure = describe(error);
        return job;
    }
    job.summary = figures(before, model.statistics(), double(step.elapsed()) / 1000.0);

    step.restart();
    before = model.statistics();
    try {
        job.titleText =
            LocalSummary::generateTitle(model, job.summaryText, english, {}, std::chrono::hours(1));
    } catch (const std::exception &error) {
        job.titleText = QStringLiteral("(none: ") + describe(error) + QLatin1Char(')');
    }
    job.title = figures(before, model.statistics(), double(step.elapsed()) / 1000.0);

    step.restart();
    before = model.statistics();
    try {
        job.tagNames = LocalNoteTags::generate(model, job.summaryText, transcript, {}, english, {});
    } catch (const std::exception &) {
        job.tagNames = LocalNoteTags::completedNames(std::nullopt, transcript, job.summaryText, {});
    }
    job.tags = figures(before, model.statistics(), double(step.elapsed()) / 1000.0);
    job.total = double(total.elapsed()) / 1000.0;
    return job;
}

void printJob(const char *name, const Job &job)
{
    QStringList perPass;
    for (int sections : job.sectionsPerPass)
        perPass.append(QString::number(sections));
    std::printf("-- %s: %d condensing passes; sections per pass: %s\n", name, job.passes,
                qPrintable(perPass.join(QStringLiteral(", "))));
    printFigures("summary", job.summary);
    printFigures("title", job.title);
    printFigures("tags", job.tags);
    std::printf("job total %.1f s (summary, title and tags)\n", job.total);
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

    QElapsedTimer load;
    load.start();
    // Load the model outside the figures of the first request.
    const qint64 overhead = model.tokenCount(LanguageModel::Instructions{LocalSummary::instructions()});
    std::printf("load      %.2f s; instructions %lld tokens; context %lld tokens\n",
                double(load.elapsed()) / 1000.0, static_cast<long long>(overhead),
                static_cast<long long>(model.contextSize()));

    // The same job twice: the sections of a pass one after the other, then
    // as parallel sequences of one batch.
    model.setParallelSequences(1);
    const Job sequential = runJob(model, transcript, english);
    if (!sequential.failure.isEmpty()) {
        std::printf("sequential summary failed: %s\n", qPrintable(sequential.failure));
        return 1;
    }
    printJob("sequential", sequential);
    model.setParallelSequences(LlamaLanguageModel::maximumParallelSequences);
    const Job batched = runJob(model, transcript, english);
    if (!batched.failure.isEmpty()) {
        std::printf("batched summary failed: %s\n", qPrintable(batched.failure));
        return 1;
    }
    printJob("batched", batched);

    std::printf("\n%-28s %12s %12s\n", "", "sequential", "batched");
    const auto row = [](const char *label, double a, double b, const char *unit) {
        std::printf("%-28s %10.1f %-2s %9.1f %-2s\n", label, a, unit, b, unit);
    };
    row("summary wall", sequential.summary.wall, batched.summary.wall, "s");
    row("  prompt decoding", sequential.summary.promptSeconds, batched.summary.promptSeconds, "s");
    row("  prompt rate", sequential.summary.promptRate(), batched.summary.promptRate(), "t/s");
    row("  generation", sequential.summary.generationSeconds, batched.summary.generationSeconds, "s");
    row("  generation rate", sequential.summary.generationRate(), batched.summary.generationRate(), "t/s");
    row("title and tags wall", sequential.title.wall + sequential.tags.wall,
        batched.title.wall + batched.tags.wall, "s");
    row("job total", sequential.total, batched.total, "s");
    std::printf("target: the batched job under 110 s on two threads\n\n");

    QElapsedTimer step;
    step.start();
    const auto before = model.statistics();
    QString answer;
    try {
        answer = LocalNoteChat::answer(model, transcript,
                                       QStringLiteral("What was decided about the storage migration?"), {},
                                       english, [](const QString &) {}, {});
    } catch (const std::exception &error) {
        answer = describe(error);
    }
    printFigures("chat", figures(before, model.statistics(), double(step.elapsed()) / 1000.0));

    const auto whole = model.statistics();
    const double promptRate =
        whole.promptSeconds > 0 ? double(whole.promptTokens - whole.reusedPromptTokens) / whole.promptSeconds
                                : 0.0;
    std::printf(
        "prefix reuse: %lld of %lld prompt tokens came from the cache, about %.1f s of prompt decoding\n",
        static_cast<long long>(whole.reusedPromptTokens), static_cast<long long>(whole.promptTokens),
        promptRate > 0 ? double(whole.reusedPromptTokens) / promptRate : 0.0);
    std::printf("token counting: %lld counts took %.2f s in all (%.1f%% of both jobs)\n",
                static_cast<long long>(whole.tokenCounts), whole.tokenCountSeconds,
                100.0 * whole.tokenCountSeconds / qMax(sequential.total + batched.total, 0.001));
    std::printf("parallel groups: %lld, answering %lld requests\n",
                static_cast<long long>(whole.parallelGroups), static_cast<long long>(whole.parallelRequests));
    std::printf("title: %s\ntags: %s\n", qPrintable(batched.titleText.left(100)),
                qPrintable(batched.tagNames.join(QStringLiteral(", "))));
    return 0;
}
