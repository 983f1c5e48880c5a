#include "generation/LlamaLanguageModel.h"
#include "generation/GeneratedNoteTags.h"
#include "generation/GeneratedNoteTitle.h"
#include "generation/LocalSummary.h"

#include "ModelFolder.h"
#include "PipelineRun.h"
#include "base/Error.h"
#include "support/QtPrinters.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

#include <llama.h>

#include <atomic>
#include <cmath>
#include <map>
#include <mutex>
#include <thread>

using namespace kestil;

namespace {

const QString tiny = "tiny-llama-chat.gguf";

GenerationOptions options(double temperature, int cap)
{
    return GenerationOptions{temperature, cap};
}

// The tiny chat model installed in a folder of its own, and a model over it.
class TinyLlama : public ::testing::Test {
protected:
    void SetUp() override { KESTIL_REQUIRE_MODEL("tiny-llama-chat.gguf"); }

    ModelFolder folder;
    QString installed = folder.install(tiny);
    LlamaLanguageModel model{folder.directory()};
};

} // namespace

TEST(LlamaLanguageModel, AvailabilityFollowsTheInstalledModelAndTheSwitch)
{
    KESTIL_REQUIRE_MODEL("tiny-llama-chat.gguf");
    ModelFolder folder;
    LlamaLanguageModel model(folder.directory());
    ASSERT_TRUE(LlamaLanguageModel::deviceIsEligible());
    EXPECT_EQ(model.availability(),
              LanguageModel::Availability::unavailable(LanguageModel::UnavailableReason::modelNotReady));
    EXPECT_FALSE(model.supportsLocale(QLocale("en_US")));

    folder.install(tiny);
    EXPECT_EQ(model.availability(), LanguageModel::Availability::available());
    EXPECT_EQ(model.contextSize(), 2048);
    EXPECT_TRUE(model.supportsLocale(QLocale("en_US")));
    EXPECT_TRUE(model.supportsLocale(QLocale("de_AT")));
    EXPECT_FALSE(model.supportsLocale(QLocale("fr_FR")));

    model.setEnabled(false);
    EXPECT_EQ(model.availability(), LanguageModel::Availability::unavailable(
                                        LanguageModel::UnavailableReason::languageModelDisabled));
}

TEST_F(TinyLlama, CountsTokensWithTheModelsTokenizerAndReadsBrokenTextAsText)
{
    const qint64 emptyPrompt = model.tokenCount(LanguageModel::Prompt{QString()});
    const qint64 hello = model.tokenCount(LanguageModel::Prompt{"Hello world"});
    // The template's own turn markers plus the two words of the SentencePiece vocabulary.
    EXPECT_GT(emptyPrompt, 2);
    EXPECT_EQ(hello - emptyPrompt, 2);
    EXPECT_GT(model.tokenCount(LanguageModel::Instructions{"Be brief."}), 3);
    // Note text that spells the beginning-of-text marker is text, not a marker.
    EXPECT_GT(model.tokenCount(LanguageModel::Prompt{"<s>"}) - emptyPrompt, 1);

    const QString longText =
        QStringLiteral("The quarterly budget review covers hiring and travel. ").repeated(40);
    const qint64 longCount = model.tokenCount(LanguageModel::Prompt{longText});
    EXPECT_GT(longCount, 400);
    EXPECT_LT(longCount, 1000);

    // Invalid UTF-8 decoded the way notes are read, a lone surrogate, a NUL and control characters.
    const QString broken = QString::fromUtf8("Budget \xff\xfe review \xc3 ok") + QChar(0xD800) + " end" +
                           QChar(0) + "\x01\x1b[31m red";
    EXPECT_GT(model.tokenCount(LanguageModel::Prompt{broken}), emptyPrompt);
    PipelineRun run;
    const QString summary = run.generate(model, broken);
    EXPECT_FALSE(summary.trimmed().isEmpty());
    EXPECT_EQ(run.checkpoints.first().sections, QStringList{broken});
}

TEST_F(TinyLlama, StreamsSnapshotsThatHoldTheWholeTextSoFar)
{
    QStringList snapshots;
    model.streamResponse("Summarize.", "Source:\nWe met.", options(0.2, 40), CancellationToken(),
                         [&](const QString &text) {
                             snapshots.append(text);
                             return true;
                         });
    ASSERT_GE(snapshots.size(), 10);
    for (qsizetype i = 1; i < snapshots.size(); ++i) {
        EXPECT_TRUE(snapshots.at(i).startsWith(snapshots.at(i - 1))) << i;
        EXPECT_NE(snapshots.at(i), snapshots.at(i - 1));
    }

    // Returning false drops the stream at once.
    int seen = 0;
    model.streamResponse("Summarize.", "Source:\nWe met.", options(0.2, 200), CancellationToken(),
                         [&](const QString &) { return ++seen < 3; });
    EXPECT_EQ(seen, 3);
    const auto stats = model.statistics();
    EXPECT_LE(stats.generatedTokens, 40 + 3 + 2);
}

TEST_F(TinyLlama, PrefixReuseKeepsTheSameAnswer)
{
    const QString instructions = "Summarize only the supplied source.";
    const QString first = model.respond(instructions, "Source:\nAlpha beta.", options(0, 24), {});
    const QString again = model.respond(instructions, "Source:\nAlpha beta.", options(0, 24), {});
    EXPECT_EQ(first, again);
    const auto stats = model.statistics();
    EXPECT_EQ(stats.requests, 2);
    // The second request found everything but its last prompt token in the cache.
    EXPECT_EQ(stats.reusedPromptTokens, stats.promptTokens / 2 - 1);

    LlamaLanguageModel fresh(folder.directory());
    fresh.setPrefixReuse(false);
    EXPECT_EQ(fresh.respond(instructions, "Source:\nAlpha beta.", options(0, 24), {}), first);
}

TEST_F(TinyLlama, GrammarConstrainedAnswersParse)
{
    // A random model fills every string to its longest; the caps leave room for that.
    const QJsonObject tags = model.respond("Tag the note.", "NOTE SUMMARY:\nBudget.",
                                           GeneratedNoteTags::schema(), true, options(0, 500), {});
    const GeneratedNoteTags parsedTags = GeneratedNoteTags::fromJson(tags);
    EXPECT_GE(parsedTags.tags.size(), 1);
    EXPECT_LE(parsedTags.tags.size(), 5);
    for (const QString &tag : parsedTags.tags)
        EXPECT_LE(tag.size(), GeneratedNoteTags::schema().properties.first().maximumLength);

    const QJsonObject title = model.respond("Title the note.", "Budget.", GeneratedNoteTitle::schema(), true,
                                            options(0.2, 400), {});
    EXPECT_FALSE(GeneratedNoteTitle::fromJson(title).title.isEmpty());

    // An answer that the cap cuts off is an error, not half a record.
    try {
        model.respond("Title the note.", "Budget.", GeneratedNoteTitle::schema(), true, options(0, 4), {});
        FAIL() << "a cut-off answer was accepted";
    } catch (const SystemError &error) {
        EXPECT_TRUE(error.localizedDescription().contains("cut off"));
    }
}

namespace {

// Whether a grammar admits a text as a whole answer, fed to it character by
// character through the single-character pieces of a real vocabulary.
bool admits(const QString &grammar, const QByteArray &text)
{
    llama_backend_init();
    llama_model_params params = llama_model_default_params();
    params.vocab_only = true;
    std::unique_ptr<llama_model, decltype(&llama_model_free)> model(
        llama_model_load_from_file(QFile::encodeName(ModelFolder::cached(tiny)).constData(), params),
        &llama_model_free);
    const llama_vocab *vocab = llama_model_get_vocab(model.get());
    std::map<char, llama_token> pieces;
    for (llama_token token = 0; token < llama_vocab_n_tokens(vocab); ++token) {
        char piece[8];
        if (llama_token_to_piece(vocab, token, piece, sizeof piece, 0, true) == 1)
            pieces.emplace(piece[0], token);
    }
    const QByteArray rules = grammar.toUtf8();
    std::unique_ptr<llama_sampler, decltype(&llama_sampler_free)> sampler(
        llama_sampler_init_grammar(vocab, rules.constData(), "root"), &llama_sampler_free);
    const auto allowed = [&](llama_token token) {
        llama_token_data candidate{token, 1.0f, 0.0f};
        llama_token_data_array one{&candidate, 1, -1, false};
        llama_sampler_apply(sampler.get(), &one);
        return !std::isinf(candidate.logit);
    };
    for (const char c : text) {
        if (!pieces.count(c) || !allowed(pieces.at(c)))
            return false;
        llama_sampler_accept(sampler.get(), pieces.at(c));
    }
    return allowed(llama_vocab_eos(vocab));
}

} // namespace

TEST(LlamaLanguageModel, TitlesMayHoldQuotationMarks)
{
    KESTIL_REQUIRE_MODEL("tiny-llama-chat.gguf");
    const QString grammar = GeneratedNoteTitle::schema().grammar();
    EXPECT_TRUE(admits(grammar, R"({"title": "Budget for the \"Atlas\" launch"})"));
    EXPECT_TRUE(admits(grammar, R"({"title": "Plain title"})"));
    // A bare quotation mark would end the string: what follows is no JSON.
    EXPECT_FALSE(admits(grammar, R"({"title": "Budget for the "Atlas" launch"})"));
    EXPECT_FALSE(admits(grammar, "{\"title\": \"Two\nlines\"}"));
}

TEST_F(TinyLlama, ARequestQueuedBehindAnotherKeepsItsTimeAndCancellingOneStopsItAtOnce)
{
    model.respond("Warm up.", "x", options(0, 2), {});

    // An answer read slowly keeps the model busy for well over a second.
    std::atomic<bool> streaming{false};
    std::thread other([&] {
        model.streamResponse("Write.", "Go on.", options(0.5, 200), {}, [&](const QString &) {
            streaming = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(8));
            return true;
        });
    });
    while (!streaming)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));

    std::mutex mutex;
    QList<bool> waits;
    const CancellationToken job = CancellationToken().watchingWaits([&](bool waiting) {
        std::lock_guard lock(mutex);
        waits.append(waiting);
    });
    QElapsedTimer timer;
    timer.start();
    const QString answer = LocalSummary::withTimeLimit(
        std::chrono::milliseconds(300), "Stopped at the limit.", job, [&](const CancellationToken &limited) {
            return model.respond("Title.", "x", options(0, 3), limited);
        });
    const qint64 waited = timer.elapsed();
    other.join();
    EXPECT_GT(waited, 300) << "the request waited longer than its limit, and still had its time";
    EXPECT_FALSE(answer.isNull());
    EXPECT_EQ(waits, (QList<bool>{true, false}));

    // Cancellation or the time limit stops a request within a token or two.
    CancellationToken cancel;
    std::thread canceller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        cancel.cancel();
    });
    timer.restart();
    EXPECT_THROW(model.respond("Write.", "Go on.", options(0.5, 1900), cancel), CancellationError);
    canceller.join();
    EXPECT_LT(timer.elapsed(), 1500);

    // A request's time limit stops it the same way, in the limit's own words.
    timer.restart();
    try {
        LocalSummary::withTimeLimit(std::chrono::milliseconds(300), "Stopped at the limit.",
                                    CancellationToken(), [&](const CancellationToken &limited) {
                                        return model.respond("Write.", "Go on.", options(0.5, 1900), limited);
                                    });
        FAIL() << "a generation of 1900 tokens finished within 300 ms";
    } catch (const LocalError &error) {
        EXPECT_EQ(error.message(), "Stopped at the limit.");
    }
    EXPECT_LT(timer.elapsed(), 1500);

    // The model is still usable afterwards.
    EXPECT_NO_THROW(model.respond("Write.", "Again.", options(0, 4), {}));
}

TEST(LlamaLanguageModel, RefusesDamagedAndUnsuitableFiles)
{
    KESTIL_REQUIRE_MODEL("tiny-llama-chat.gguf");
    KESTIL_REQUIRE_MODEL("tiny-llama-no-template.gguf");
    ModelFolder folder;
    const QString scratch = folder.directory() + "/../scratch";
    QDir().mkpath(scratch);

    const auto write = [&](const QString &name, const QByteArray &bytes) {
        QFile file(scratch + "/" + name);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
        return file.fileName();
    };
    QFile whole(ModelFolder::cached(tiny));
    ASSERT_TRUE(whole.open(QIODevice::ReadOnly));
    const QString truncated = write("truncated.gguf", whole.read(whole.size() / 2));
    const QString notes = write("notes.gguf", "These are my notes, not a model.\n");

    auto importMessage = [&](const QString &path) {
        try {
            LanguageModelFiles::importModel(path, folder.directory());
        } catch (const LocalError &error) {
            return error.message();
        }
        return QString();
    };
    EXPECT_EQ(
        importMessage(truncated),
        "“truncated.gguf” is incomplete: the file ends before its model data does. Nothing was installed.");
    EXPECT_EQ(importMessage(notes), "“notes.gguf” is not a GGUF language model file. Nothing was installed.");
    EXPECT_EQ(
        importMessage(ModelFolder::cached("tiny-llama-no-template.gguf")),
        "“tiny-llama-no-template.gguf” has no chat template, so it cannot be used for summaries and Ask AI. "
        "Choose an instruct model in GGUF format. Nothing was installed.");
    EXPECT_TRUE(QDir(folder.directory()).isEmpty());

    // Files put in the folder by hand are passed over, never loaded.
    QFile::copy(truncated, folder.directory() + "/truncated.gguf");
    folder.install("tiny-llama-no-template.gguf");
    LlamaLanguageModel model(folder.directory());
    EXPECT_EQ(model.availability(),
              LanguageModel::Availability::unavailable(LanguageModel::UnavailableReason::modelNotReady));

    // A good import is used at once.
    const QString installed = LanguageModelFiles::importModel(ModelFolder::cached(tiny), folder.directory());
    EXPECT_TRUE(installed.endsWith("/tiny-llama-chat.gguf"));
    EXPECT_EQ(model.availability(), LanguageModel::Availability::available());
    EXPECT_FALSE(model.respond("Write.", "Go.", options(0, 3), {}).isNull());
}

TEST_F(TinyLlama, ALongTranscriptIsReadInSectionsSizedByTheRealTokenizer)
{
    const QString sentence = "Priya said the release candidate ships on Friday after two fixes. ";
    const QString transcript = sentence.repeated(12000 / sentence.size());

    PipelineRun run;
    QString outcome;
    try {
        outcome = run.generate(model, transcript);
    } catch (const LocalError &error) {
        // Random weights write key points of random length: they may not condense.
        outcome = error.message();
        EXPECT_EQ(outcome,
                  "The on-device model could not condense this note. Generation stopped; your existing "
                  "content is preserved.");
    }
    ASSERT_FALSE(run.checkpoints.isEmpty());
    const QStringList sections = *run.checkpoints.first().sections;
    EXPECT_GE(sections.size(), 3);
    EXPECT_EQ(sections.join(QString()), transcript);
    // Every section, carried by either prompt, fits the 2048 tokens of the model with room for the answer.
    const qint64 overhead = model.tokenCount(LanguageModel::Instructions{LocalSummary::instructions()});
    for (const QString &section : sections) {
        const qint64 prompt =
            qMax(model.tokenCount(LanguageModel::Prompt{
                     LocalSummary::finalPrompt(section, LocalSummaryTemplate::meeting)}),
                 model.tokenCount(LanguageModel::Prompt{LocalSummary::keyPointPrompt(section)}));
        EXPECT_LE(overhead + prompt + 512 + 256, 2048);
    }
    EXPECT_EQ(run.progress.at(1), LocalSummaryProgress::reading(0, int(sections.size()), 0));
    EXPECT_EQ(run.progress.at(int(sections.size()) + 1),
              LocalSummaryProgress::reading(int(sections.size()), int(sections.size()), 0));
    EXPECT_FALSE(outcome.trimmed().isEmpty());
}
