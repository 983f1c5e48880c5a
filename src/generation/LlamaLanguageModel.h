#pragma once

#include "generation/LanguageModel.h"
#include "generation/LanguageModelFiles.h"
#include "generation/SerialWorker.h"

#include <QMutex>

#include <atomic>
#include <memory>

namespace kestil {

// The on-device language model on llama.cpp: the model installed last under
// Models/language/, loaded on first use and kept between requests, with all
// of its work on one worker thread. Availability and languages come from the
// installed file's header and never wait for the worker.
class LlamaLanguageModel final : public LanguageModel {
public:
    struct Statistics {
        qint64 requests = 0;
        qint64 promptTokens = 0;       // prompt tokens of all requests
        qint64 reusedPromptTokens = 0; // of those, found already in the cache
        qint64 generatedTokens = 0;
        double promptSeconds = 0;     // decoding prompts
        double generationSeconds = 0; // sampling and decoding answers
        qint64 parallelGroups = 0;    // groups of respondAll's prompts decoded together
        qint64 parallelRequests = 0;  // requests answered in those groups
        qint64 tokenCounts = 0;       // tokenCount calls
        double tokenCountSeconds = 0;
        double loadSeconds = 0;
    };

    // threads: 0 picks one less than the machine's cores, at least one and at most four.
    explicit LlamaLanguageModel(QString modelsDirectory = LanguageModelFiles::modelsDirectory(),
                                int threads = 0);
    ~LlamaLanguageModel() override;

    // The program's model: the one installed under the data folder, created on
    // first use and kept for the life of the process.
    static LlamaLanguageModel &shared();

    // The user's switch for on-device AI; off reads as languageModelDisabled.
    void setEnabled(bool enabled);
    // Whether a request may start from the cached keys and values of the
    // previous request's common prefix (on by default; off for measurements).
    void setPrefixReuse(bool reuse);
    // How many of respondAll's prompts are decoded together as parallel
    // sequences of one batch: 1 asks for them one after the other (for
    // measurements and comparisons); at most maximumParallelSequences.
    void setParallelSequences(int count);
    static constexpr int maximumParallelSequences = 4;
    Statistics statistics() const;
    void resetStatistics();

    // Whether this machine can run the model at all.
    static bool deviceIsEligible();

    Availability availability() const override;
    bool supportsLocale(const QLocale &locale) const override;
    qint64 contextSize() const override;
    // The installed file's name and size.
    QString identity() const override;
    qint64 tokenCount(const Instructions &instructions) override;
    qint64 tokenCount(const Prompt &prompt) override;
    QString respond(const QString &instructions, const QString &prompt, const GenerationOptions &options,
                    const CancellationToken &cancel) override;
    QJsonObject respond(const QString &instructions, const QString &prompt, const GenerationSchema &schema,
                        bool includeSchemaInPrompt, const GenerationOptions &options,
                        const CancellationToken &cancel) override;
    void streamResponse(const QString &instructions, const QString &prompt, const GenerationOptions &options,
                        const CancellationToken &cancel, const SnapshotHandler &onSnapshot) override;
    // The prompts in groups of parallel sequences: each group as one batch,
    // its common head (the instructions and the start of the prompt) decoded
    // once and copied to every sequence. Other requests may run
    // between two groups.
    void respondAll(const QString &instructions, const QStringList &prompts, const GenerationOptions &options,
                    const CancellationToken &cancel, const AnswerHandler &onAnswer) override;

private:
    class Engine;

    QString modelsDirectory_;
    std::atomic<bool> enabled_{true};
    std::atomic<bool> prefixReuse_{true};
    std::atomic<int> parallelSequences_{maximumParallelSequences};
    std::unique_ptr<Engine> engine_; // touched only on worker_
    SerialWorker worker_;
};

} // namespace kestil
