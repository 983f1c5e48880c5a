// The on-device model on llama.cpp, run on the generated tiny chat model:
// random weights, so these tests check the model's machinery, never its words;
// and downloading a model of the catalogue from a loopback server, the tiny
// model under a catalogue entry with its real size and checksum.
#include "generation/LlamaLanguageModel.h"
#include "generation/GeneratedNoteTags.h"
#include "generation/GeneratedNoteTitle.h"
#include "generation/LanguageModelInstall.h"
#include "generation/LanguageModelPreference.h"
#include "generation/LocalSummary.h"
#include "support/FileBytes.h"

#include "ModelFolder.h"
#include "base/Error.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "support/CoreApplicationEnvironment.h"
#include "support/LoopbackModelServer.h"
#include "support/QtPrinters.h"
#include "support/TmpfsMount.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <llama.h>

#include <atomic>
#include <cmath>
#include <map>
#include <mutex>
#include <thread>

using namespace kestil;
using Availability = LanguageModel::Availability;
using Reason = LanguageModel::UnavailableReason;

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

DownloadableLanguageModel entryFor(const QByteArray &content)
{
    return {"Tiny chat",
            "tiny-chat.gguf",
            "tiny-chat.gguf",
            content.size(),
            QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex(),
            {"en", "fr"},
            "A model with random weights.",
            "MIT"};
}

class LanguageModelInstall : public ::testing::Test {
protected:
    void SetUp() override
    {
        KESTIL_REQUIRE_MODEL("tiny-llama-chat.gguf");
        server_.setFile("tiny-chat.gguf", tiny_);
    }

    QString failureOf(const char *mode, const DownloadableLanguageModel &entry, const QString &directory = {})
    {
        try {
            installLanguageModel(entry, QUrl(server_.baseAddress(mode)), {},
                                 directory.isEmpty() ? folder_.directory() : directory);
        } catch (const Error &e) {
            return e.localizedDescription();
        }
        return {};
    }
    QString install()
    {
        return installLanguageModel(entry_, QUrl(server_.baseAddress("good")), {}, folder_.directory());
    }
    QStringList files() const { return QDir(folder_.directory()).entryList(QDir::Files); }
    QString installed() const { return LanguageModelFiles::installedModel(folder_.directory())->path; }

    ModelFolder folder_;
    QString target_ = folder_.directory() + "/tiny-chat.gguf";
    test::LoopbackModelServer server_;
    QByteArray tiny_ = test::fileBytes(ModelFolder::cached("tiny-llama-chat.gguf"));
    DownloadableLanguageModel entry_ = entryFor(tiny_);
};

} // namespace

TEST_F(TinyLlama, AvailabilityFollowsTheInstalledModelAndThePreference)
{
    ASSERT_TRUE(LlamaLanguageModel::deviceIsEligible());
    EXPECT_EQ(model.availability(), Availability::available());
    EXPECT_EQ(model.contextSize(), 2048);
    // The header's languages, "en" and "de", whatever the region.
    EXPECT_TRUE(model.supportsLocale(QLocale("de_AT")));
    EXPECT_FALSE(model.supportsLocale(QLocale("fr_FR")));

    // The switch for on-device AI, read at once and followed as it changes.
    QTemporaryDir config;
    PreferenceStore preferences(config.path());
    settings::setOnDeviceLanguageModelEnabled(preferences, false);
    followLanguageModelSwitch(preferences, model);
    EXPECT_EQ(model.availability(), Availability::unavailable(Reason::languageModelDisabled));
    settings::setOnDeviceLanguageModelEnabled(preferences, true);
    EXPECT_EQ(model.availability(), Availability::available());
    settings::setOnDeviceLanguageModelEnabled(preferences, false);
    // A missing key is the default: on.
    preferences.remove(QString(settings::keys::kestilOnDeviceLanguageModelEnabled));
    EXPECT_EQ(model.availability(), Availability::available());
}

TEST(LlamaLanguageModel, RefusesDamagedAndUnsuitableFiles)
{
    KESTIL_REQUIRE_MODEL("tiny-llama-chat.gguf");
    KESTIL_REQUIRE_MODEL("tiny-llama-no-template.gguf");
    ModelFolder folder;
    QTemporaryDir scratch;
    const auto write = [&](const QString &name, const QByteArray &bytes) {
        QFile file(scratch.filePath(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
        return file.fileName();
    };
    QFile whole(ModelFolder::cached(tiny));
    ASSERT_TRUE(whole.open(QIODevice::ReadOnly));
    const QString truncated = write("truncated.gguf", whole.read(whole.size() / 2));
    const std::pair<QString, QString> rows[] = {
        {truncated,
         "“truncated.gguf” is incomplete: the file ends before its model data does. Nothing was installed."},
        {write("notes.gguf", "These are my notes, not a model.\n"),
         "“notes.gguf” is not a GGUF language model file. Nothing was installed."},
        {ModelFolder::cached("tiny-llama-no-template.gguf"),
         "“tiny-llama-no-template.gguf” has no chat template, so it cannot be used for summaries and Ask AI. "
         "Choose an instruct model in GGUF format. Nothing was installed."}};
    for (const auto &[path, expected] : rows) {
        try {
            LanguageModelFiles::importModel(path, folder.directory());
            ADD_FAILURE() << "imported " << path.toStdString();
        } catch (const LocalError &error) {
            EXPECT_EQ(error.message(), expected);
        }
    }
    EXPECT_TRUE(QDir(folder.directory()).isEmpty());

    // Files put in the folder by hand are passed over, never loaded; a good import is used at once.
    QFile::copy(truncated, folder.directory() + "/truncated.gguf");
    folder.install("tiny-llama-no-template.gguf");
    LlamaLanguageModel model(folder.directory());
    EXPECT_EQ(model.availability(), Availability::unavailable(Reason::modelNotReady));
    EXPECT_TRUE(LanguageModelFiles::importModel(ModelFolder::cached(tiny), folder.directory())
                    .endsWith("/tiny-llama-chat.gguf"));
    EXPECT_EQ(model.availability(), Availability::available());
    EXPECT_FALSE(model.respond("Write.", "Go.", options(0, 3), {}).isNull());
}

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

TEST_F(TinyLlama, CountsTokensWithTheModelsTokenizerAndReadsBrokenTextAsText)
{
    // The template's own turn markers count; note text that spells the
    // beginning-of-text marker is text, not a marker.
    const qint64 emptyPrompt = model.tokenCount(LanguageModel::Prompt{QString()});
    EXPECT_GT(emptyPrompt, 2);
    EXPECT_GT(model.tokenCount(LanguageModel::Prompt{"<s>"}) - emptyPrompt, 1);
    // Invalid UTF-8 decoded the way notes are read, a lone surrogate, a NUL and control characters.
    const QString broken = QString::fromUtf8("Budget \xff\xfe review \xc3 ok") + QChar(0xD800) + " end" +
                           QChar(0) + "\x01\x1b[31m red";
    EXPECT_GT(model.tokenCount(LanguageModel::Prompt{broken}), emptyPrompt);
    EXPECT_NO_THROW(model.respond("Summarize.", broken, options(0, 4), {}));
}

TEST_F(TinyLlama, StreamsReusesTheCachedPrefixAndKeepsToAGrammar)
{
    QStringList snapshots;
    model.streamResponse("Summarize.", "Source:\nWe met.", options(0.2, 40), {}, [&](const QString &text) {
        snapshots.append(text);
        return true;
    });
    // Each snapshot holds the whole text so far.
    ASSERT_GE(snapshots.size(), 10);
    for (qsizetype i = 1; i < snapshots.size(); ++i) {
        EXPECT_TRUE(snapshots.at(i).startsWith(snapshots.at(i - 1))) << i;
        EXPECT_NE(snapshots.at(i), snapshots.at(i - 1));
    }
    // Returning false drops the stream at once.
    int seen = 0;
    model.streamResponse("Summarize.", "Source:\nWe met.", options(0.2, 200), {},
                         [&](const QString &) { return ++seen < 3; });
    EXPECT_EQ(seen, 3);
    EXPECT_LE(model.statistics().generatedTokens, 40 + 3 + 2);

    // The same request again finds everything but its last prompt token in the cache, and answers the same.
    const QString instructions = "Summarize only the supplied source.";
    const QString first = model.respond(instructions, "Source:\nAlpha beta.", options(0, 24), {});
    const auto before = model.statistics();
    EXPECT_EQ(model.respond(instructions, "Source:\nAlpha beta.", options(0, 24), {}), first);
    const auto after = model.statistics();
    EXPECT_EQ(after.reusedPromptTokens - before.reusedPromptTokens,
              after.promptTokens - before.promptTokens - 1);
    LlamaLanguageModel fresh(folder.directory());
    fresh.setPrefixReuse(false);
    EXPECT_EQ(fresh.respond(instructions, "Source:\nAlpha beta.", options(0, 24), {}), first);

    // A random model fills every string to its longest; the caps leave room for that.
    const GeneratedNoteTags tags = GeneratedNoteTags::fromJson(model.respond(
        "Tag the note.", "NOTE SUMMARY:\nBudget.", GeneratedNoteTags::schema(), true, options(0, 500), {}));
    EXPECT_GE(tags.tags.size(), 1);
    EXPECT_LE(tags.tags.size(), 5);
    for (const QString &tag : tags.tags)
        EXPECT_LE(tag.size(), GeneratedNoteTags::schema().properties.first().maximumLength);
    EXPECT_FALSE(
        GeneratedNoteTitle::fromJson(model.respond("Title the note.", "Budget.", GeneratedNoteTitle::schema(),
                                                   true, options(0.2, 400), {}))
            .title.isEmpty());
    // An answer that the cap cuts off is an error, not half a record.
    try {
        model.respond("Title the note.", "Budget.", GeneratedNoteTitle::schema(), true, options(0, 4), {});
        FAIL() << "a cut-off answer was accepted";
    } catch (const SystemError &error) {
        EXPECT_TRUE(error.localizedDescription().contains("cut off"));
    }
}

TEST_F(TinyLlama, ARequestQueuedBehindAnotherKeepsItsTimeAndCancellingOneStopsItAtOnce)
{
    model.respond("Warm up.", "x", options(0, 2), {});

    // An answer read slowly keeps the model busy for 0.6 s.
    std::atomic<bool> streaming{false};
    std::thread other([&] {
        QElapsedTimer busy;
        busy.start();
        model.streamResponse("Write.", "Go on.", options(0.5, 1900), {}, [&](const QString &) {
            streaming = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(8));
            return busy.elapsed() < 600;
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

    // Cancellation stops a request within a token or two (a time limit is a cancellation).
    CancellationToken cancel;
    std::thread canceller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        cancel.cancel();
    });
    timer.restart();
    EXPECT_THROW(model.respond("Write.", "Go on.", options(0.5, 1900), cancel), CancellationError);
    canceller.join();
    EXPECT_LT(timer.elapsed(), 1500);
    // The model is still usable afterwards.
    EXPECT_NO_THROW(model.respond("Write.", "Again.", options(0, 4), {}));
}

TEST_F(TinyLlama, ALongTranscriptIsReadInSectionsSizedByTheRealTokenizerAndAnsweredTogether)
{
    const QString sentence = "Priya said the release candidate ships on Friday after two fixes. ";
    const QString transcript = sentence.repeated(8000 / sentence.size());
    // The first pass only: what random weights write as key points is of no interest.
    QList<LocalSummaryProgress> progress;
    QList<LocalSummaryCheckpoint> checkpoints;
    CancellationToken cancel;
    EXPECT_THROW(LocalSummary::generate(
                     model, transcript, LocalSummaryTemplate::meeting, QLocale("en_US"), std::nullopt,
                     [&](const LocalSummaryCheckpoint &checkpoint) { checkpoints.append(checkpoint); },
                     [&](const LocalSummaryProgress &value) {
                         progress.append(value);
                         if (value.stage == LocalSummaryProgress::Stage::reading &&
                             value.completed == value.total)
                             cancel.cancel();
                     },
                     [](const QString &) {}, cancel),
                 CancellationError);
    ASSERT_FALSE(checkpoints.isEmpty());
    const QStringList sections = *checkpoints.first().sections;
    const int count = int(sections.size());
    EXPECT_GE(count, 2);
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
    // All sections were answered, as parallel sequences of a batch.
    EXPECT_EQ(progress.last(), LocalSummaryProgress::reading(count, count, 0));
    EXPECT_EQ(checkpoints.last().facts.size(), count);
    EXPECT_GE(model.statistics().parallelGroups, 1);
}

TEST_F(LanguageModelInstall, AServedModelIsInstalledInOneRenameAndTakesOverFromTheModelInUse)
{
    folder_.install("tiny-llama-chat.gguf", "older.gguf");
    LlamaLanguageModel model(folder_.directory());
    model.respond("Be brief.", "Hello", GenerationOptions{0.0, 2}, {});
    const double firstLoad = model.statistics().loadSeconds;
    ASSERT_GT(firstLoad, 0);
    std::vector<std::pair<qint64, qint64>> progress;
    DownloadObserver observer;
    observer.progress = [&](qint64 received, qint64 total) {
        progress.emplace_back(received, total);
        // While bytes arrive the model counts as downloading and not installed.
        EXPECT_TRUE(isLanguageModelDownloading(entry_, folder_.directory()));
        EXPECT_FALSE(QFile::exists(target_));
    };
    EXPECT_EQ(installLanguageModel(entry_, QUrl(server_.baseAddress("good")), observer, folder_.directory()),
              target_);
    EXPECT_EQ(test::fileBytes(target_), tiny_);
    EXPECT_EQ(files(), (QStringList{"older.gguf", "tiny-chat.gguf", "tiny-chat.gguf.languages.json"}))
        << "no part left";
    EXPECT_FALSE(isLanguageModelDownloading(entry_, folder_.directory()));
    ASSERT_FALSE(progress.empty());
    EXPECT_EQ(progress.back(), std::make_pair(qint64(tiny_.size()), qint64(tiny_.size())));

    // The newest install is the model, for the next request, without a restart.
    EXPECT_EQ(installed(), target_);
    model.respond("Be brief.", "Hello", GenerationOptions{0.0, 2}, {});
    EXPECT_GT(model.statistics().loadSeconds, firstLoad);
    // The catalogue's languages stand in for the header's ("en" and "de").
    EXPECT_TRUE(model.supportsLocale(QLocale("fr_FR")));
    EXPECT_FALSE(model.supportsLocale(QLocale("de_DE")));
    // Installing the same model again needs no download.
    const qsizetype requests = server_.requests().size();
    install();
    EXPECT_EQ(server_.requests().size(), requests);

    // An import under the same name keeps none of the catalogue's languages.
    QTemporaryDir elsewhere;
    const QString copy = elsewhere.filePath("tiny-chat.gguf");
    ASSERT_TRUE(QFile::copy(ModelFolder::cached("tiny-llama-chat.gguf"), copy));
    LanguageModelFiles::importModel(copy, folder_.directory());
    EXPECT_EQ(LanguageModelFiles::installedModel(folder_.directory())->languages, (QStringList{"en", "de"}));
}

// A served file that is no usable model is refused as an import is (RefusesDamagedAndUnsuitableFiles).
TEST_F(LanguageModelInstall, AFileThatFailsItsChecksumIsDeletedAndTheInstalledOneStays)
{
    folder_.install("tiny-llama-chat.gguf", "older.gguf");
    DownloadableLanguageModel wrong = entry_;
    wrong.sha256 = QByteArray(64, 'a');
    EXPECT_EQ(failureOf("good", wrong), "The downloaded language model “tiny-chat.gguf” did not match its "
                                        "published checksum, so it was deleted. Models already installed are "
                                        "unchanged; try the download again.");
    EXPECT_EQ(files(), QStringList{"older.gguf"});
    EXPECT_EQ(installed(), folder_.directory() + "/older.gguf");
}

TEST_F(LanguageModelInstall, ACutOffDownloadKeepsItsPartAndAFullDiskIsToldBeforeTheFirstByte)
{
    // Resuming is the download's own business (tests/base); here the part must not count as a model.
    EXPECT_TRUE(failureOf("drop", entry_)
                    .endsWith("received so far are kept, and the next download continues from there."));
    EXPECT_GT(partialLanguageModelDownload(entry_, folder_.directory()), 0);
    EXPECT_EQ(files(), QStringList{"tiny-chat.gguf.part"})
        << "half a model is never under a name that counts";
    EXPECT_FALSE(isLanguageModelDownloading(entry_, folder_.directory()));
    EXPECT_EQ(LlamaLanguageModel(folder_.directory()).availability(),
              Availability::unavailable(Reason::modelNotReady));

    test::TmpfsMount small(4 * 1024 * 1024);
    KESTIL_REQUIRE_MOUNT(small);
    const qsizetype requests = server_.requests().size();
    const QString full = failureOf("good", entry_, small.path() + "/Models/language");
    EXPECT_TRUE(full.startsWith("There is not enough free space for “Tiny chat”: it needs "))
        << full.toStdString();
    EXPECT_TRUE(full.endsWith("Nothing was downloaded, and models already installed are unchanged."));
    EXPECT_EQ(server_.requests().size(), requests);
    EXPECT_TRUE(QDir(small.path() + "/Models/language").entryList(QDir::Files).isEmpty());
}
