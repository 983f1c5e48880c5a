#include "generation/LlamaLanguageModel.h"

#include "base/ComputeBackends.h"
#include "base/Error.h"
#include "generation/SnapshotChannel.h"

#include <llama.h>

#include <QDateTime>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QtDebug>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <optional>
#include <random>
#include <thread>
#include <vector>

namespace kestil {

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// llama.cpp reports every tensor it loads; only its warnings and errors are
// worth a line in our log, and none of them carries note text.
void logFromLlama(ggml_log_level level, const char *text, void *)
{
    if (level == GGML_LOG_LEVEL_ERROR)
        qWarning("llama.cpp: %s", text);
}

void initialiseBackend()
{
    static std::once_flag once;
    std::call_once(once, [] {
        llama_log_set(logFromLlama, nullptr);
        loadComputeBackends();
        llama_backend_init();
    });
}

// The longest prefix of UTF-8 bytes that ends on a whole character: a token
// may end in the middle of one, and a snapshot never shows half a character.
qsizetype completeUtf8Length(const QByteArray &bytes)
{
    const qsizetype size = bytes.size();
    for (qsizetype back = 1; back <= 4 && back <= size; ++back) {
        const auto byte = uchar(bytes.at(size - back));
        if ((byte & 0xC0) == 0x80)
            continue; // a continuation byte: look further back for its lead
        const int length = byte < 0x80           ? 1
                           : (byte >> 5) == 0x6  ? 2
                           : (byte >> 4) == 0xE  ? 3
                           : (byte >> 3) == 0x1E ? 4
                                                 : 1;
        return back >= length ? size : size - back;
    }
    return size;
}

constexpr int defaultResponseTokens = 4096;
constexpr uint32_t contextCeiling = 4096;
constexpr uint32_t batchTokens = 512;
// Free text is sampled from the 40 most likely tokens.
constexpr int32_t samplingTopK = 40;

// A batch of tokens of several sequences, freed with its scope.
class TokenBatch {
public:
    explicit TokenBatch(int32_t capacity) : batch_(llama_batch_init(capacity, 0, 1)), capacity_(capacity) {}
    ~TokenBatch() { llama_batch_free(batch_); }
    TokenBatch(const TokenBatch &) = delete;
    TokenBatch &operator=(const TokenBatch &) = delete;

    bool full() const { return batch_.n_tokens >= capacity_; }
    int32_t size() const { return batch_.n_tokens; }
    // Adds a token; returns its place, where its logits are read when asked for.
    int32_t add(llama_token token, llama_pos position, llama_seq_id sequence, bool logits)
    {
        const int32_t i = batch_.n_tokens++;
        batch_.token[i] = token;
        batch_.pos[i] = position;
        batch_.n_seq_id[i] = 1;
        batch_.seq_id[i][0] = sequence;
        batch_.logits[i] = logits;
        return i;
    }
    void clear() { batch_.n_tokens = 0; }
    const llama_batch &get() const { return batch_; }

private:
    llama_batch batch_;
    int32_t capacity_;
};

// Whole answers handed from the model's thread to the thread that asked, in
// the order they end. The producer never waits; it learns from deliver that
// the consumer gave up, and stops.
class AnswerChannel {
public:
    struct Answer {
        qsizetype index;
        QString text;
    };

    bool deliver(qsizetype index, const QString &text)
    {
        std::lock_guard lock(mutex_);
        if (stopped_)
            return false;
        answers_.push_back({index, text});
        changed_.notify_all();
        return true;
    }
    void finish(qsizetype answered, std::exception_ptr error = nullptr)
    {
        std::lock_guard lock(mutex_);
        finished_ = true;
        answered_ = answered;
        error_ = error;
        changed_.notify_all();
    }
    // The next answer, or nothing when the producer is done (rethrowing its error).
    std::optional<Answer> next()
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return !answers_.empty() || finished_; });
        if (!answers_.empty()) {
            Answer answer = std::move(answers_.front());
            answers_.pop_front();
            return answer;
        }
        if (error_)
            std::rethrow_exception(error_);
        return std::nullopt;
    }
    bool wanted()
    {
        std::lock_guard lock(mutex_);
        return !stopped_;
    }
    // How many prompts the producer took on; valid once next() gave nothing.
    qsizetype answered()
    {
        std::lock_guard lock(mutex_);
        return answered_;
    }
    // Drops the rest and waits until the producer is done.
    void stop()
    {
        std::unique_lock lock(mutex_);
        stopped_ = true;
        changed_.wait(lock, [this] { return finished_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Answer> answers_;
    bool stopped_ = false;
    bool finished_ = false;
    qsizetype answered_ = 0;
    std::exception_ptr error_;
};

// The moment the model's thread takes a request up, as its caller waits for
// it. A caller whose request is cancelled while it still waits in the queue
// leaves at once, and the model's thread then skips the request: closing a
// window never waits for someone else's long answer.
class RequestTicket {
public:
    // The model's thread: whether to go on (false when the caller has left).
    bool take()
    {
        std::lock_guard lock(mutex_);
        if (abandoned_)
            return false;
        taken_ = true;
        changed_.notify_all();
        return true;
    }
    // The caller: true once the request is taken up; false when it was
    // cancelled before (the request is then left behind).
    bool awaitTaking(const CancellationToken &cancel)
    {
        std::unique_lock lock(mutex_);
        while (!taken_) {
            if (cancel.isCancelled()) {
                abandoned_ = true;
                return false;
            }
            changed_.wait_for(lock, std::chrono::milliseconds(20));
        }
        return true;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool taken_ = false;
    bool abandoned_ = false;
};

// Queues a request's work for the model's thread. A request that finds the
// model busy says that it waits; its time limit starts only when the model
// takes it up. `work` runs only if the caller still waits for it; the caller
// awaits the ticket before anything else.
template <typename Work>
std::shared_ptr<RequestTicket> queueRequest(SerialWorker &worker, const CancellationToken &cancel, Work work,
                                            int requests = 1)
{
    auto ticket = std::make_shared<RequestTicket>();
    const bool waits = worker.isBusy();
    if (waits)
        cancel.setWaiting(true);
    worker.post([ticket, cancel, waits, requests, work = std::move(work)]() mutable {
        if (waits)
            cancel.setWaiting(false);
        if (!ticket->take())
            return;
        cancel.beginWork(requests);
        work();
    });
    return ticket;
}

// Runs a request's work on the model's thread and returns its result.
template <typename Fn>
std::invoke_result_t<Fn> callForRequest(SerialWorker &worker, const CancellationToken &cancel, Fn fn)
{
    using Result = std::invoke_result_t<Fn>;
    if (worker.isWorkerThread()) {
        cancel.beginWork();
        return fn();
    }
    auto promise = std::make_shared<std::promise<Result>>();
    std::future<Result> future = promise->get_future();
    const std::shared_ptr<RequestTicket> ticket = queueRequest(worker, cancel, [promise, &fn] {
        try {
            promise->set_value(fn());
        } catch (...) {
            promise->set_exception(std::current_exception());
        }
    });
    if (!ticket->awaitTaking(cancel))
        throw CancellationError();
    return future.get();
}

} // namespace

class LlamaLanguageModel::Engine {
public:
    Engine(int threads, std::atomic<bool> *prefixReuse) : threads_(threads), prefixReuse_(prefixReuse)
    {
        // Sampling draws a fresh seed for every request, so that Summarize
        // Again can give another wording. KESTIL_LANGUAGE_MODEL_SEED fixes it,
        // which makes a run with a real model repeatable when it is studied.
        bool ok = false;
        const uint seed = qEnvironmentVariable("KESTIL_LANGUAGE_MODEL_SEED").toUInt(&ok);
        if (ok)
            seed_ = seed;
    }
    ~Engine() { unload(); }

    // A prompt read partly from the cache is cut into other batches than one
    // read whole, which changes the last bits of its logits and, now and
    // then, a token. With a fixed seed the same request must give the same
    // answer whatever came before it (a summary continued after a crash
    // included), so every request is then read whole.
    bool reusesPrefixes() const { return prefixReuse_->load() && !seed_; }

    Statistics statistics;

    // Loads the installed model when it is not the one in memory.
    void ensureLoaded(const QString &modelsDirectory)
    {
        const std::optional<GgufModelInfo> installed = LanguageModelFiles::installedModel(modelsDirectory);
        if (!installed)
            throw LocalError(QStringLiteral("No on-device language model is installed any more. Download or "
                                            "import one in Settings; your notes and transcripts remain "
                                            "available."));
        const QFileInfo file(installed->path);
        if (model_ && loadedPath_ == installed->path && loadedModified_ == file.lastModified())
            return;
        unload();
        initialiseBackend();
        const auto start = Clock::now();
        const QByteArray path = QFile::encodeName(installed->path);
        llama_model_params modelParams = llama_model_default_params();
        modelParams.n_gpu_layers = 0;
        model_ = llama_model_load_from_file(path.constData(), modelParams);
        if (!model_)
            throw SystemError(
                QStringLiteral("The on-device language model “%1” could not be loaded; the file may be "
                               "damaged or made for a newer program. Your notes are unchanged.")
                    .arg(file.fileName()));
        vocab_ = llama_model_get_vocab(model_);
        contextLength_ = llama_model_n_ctx_train(model_);
        sequenceTokens_ = uint32_t(qBound<qint64>(256, contextLength_, contextCeiling));
        llama_context_params contextParams = llama_context_default_params();
        // Room for the parallel sequences of a batch, each in a part of the
        // cache of its own at full length, so that attention runs over a
        // sequence's own cells only. A request of its own uses the first part.
        contextParams.n_ctx = sequenceTokens_ * uint32_t(maximumParallelSequences);
        contextParams.n_batch = batchTokens;
        contextParams.n_ubatch = batchTokens;
        contextParams.n_seq_max = uint32_t(maximumParallelSequences);
        contextParams.kv_unified = false;
        contextParams.n_threads = threads_;
        contextParams.n_threads_batch = threads_;
        contextParams.abort_callback = &Engine::shouldAbort;
        contextParams.abort_callback_data = this;
        contextParams.no_perf = true;
        context_ = llama_init_from_model(model_, contextParams);
        if (!context_) {
            unload();
            throw SystemError(
                QStringLiteral("The on-device language model “%1” could not start: there is not "
                               "enough memory for it. Your notes are unchanged.")
                    .arg(file.fileName()));
        }
        chatTemplate_ = installed->chatTemplate.toUtf8();
        loadedPath_ = installed->path;
        loadedModified_ = file.lastModified();
        modelName_ = file.fileName();
        statistics.loadSeconds += secondsSince(start);
    }

    qint64 countTokens(const QString *system, const QString *user, bool addAssistant)
    {
        const auto start = Clock::now();
        const qint64 count = qint64(render(system, user, addAssistant).size());
        statistics.tokenCounts += 1;
        statistics.tokenCountSeconds += secondsSince(start);
        return count;
    }

    // One request: the prompt in a session of its own, then tokens until the
    // end of the answer, the response cap, the end of the context, or until
    // deliver() says stop. Returns the whole text.
    QString generate(const QString &instructions, const QString &prompt, const GenerationOptions &options,
                     const QString &grammar, const CancellationToken &cancel,
                     const std::function<bool(const QString &)> &deliver)
    {
        cancel.checkCancellation();
        cancel_ = &cancel;
        struct Reset {
            Engine *engine;
            ~Reset() { engine->cancel_ = nullptr; }
        } reset{this};
        try {
            return generateUnguarded(instructions, prompt, options, grammar, cancel, deliver);
        } catch (...) {
            // A request that stopped half-way may leave the cache in any state.
            forgetCache();
            throw;
        }
    }

private:
    static bool shouldAbort(void *data)
    {
        auto *engine = static_cast<Engine *>(data);
        return engine->cancel_ && engine->cancel_->isCancelled();
    }

    void unload()
    {
        if (context_)
            llama_free(context_);
        if (model_)
            llama_model_free(model_);
        context_ = nullptr;
        model_ = nullptr;
        vocab_ = nullptr;
        cachedTokens_.clear();
        loadedPath_.clear();
    }

    void forgetCache()
    {
        cachedTokens_.clear();
        if (context_)
            llama_memory_clear(llama_get_memory(context_), true);
    }

    std::vector<llama_token> tokenize(const QByteArray &text, bool addSpecial, bool parseSpecial) const
    {
        if (text.isEmpty() && !addSpecial)
            return {};
        std::vector<llama_token> tokens(size_t(text.size()) + 8);
        int32_t count = llama_tokenize(vocab_, text.constData(), int32_t(text.size()), tokens.data(),
                                       int32_t(tokens.size()), addSpecial, parseSpecial);
        if (count < 0) {
            tokens.resize(size_t(-count));
            count = llama_tokenize(vocab_, text.constData(), int32_t(text.size()), tokens.data(),
                                   int32_t(tokens.size()), addSpecial, parseSpecial);
        }
        if (count < 0)
            throw SystemError(QStringLiteral("The on-device language model could not read the text of this "
                                             "request. Your notes are unchanged."));
        tokens.resize(size_t(count));
        return tokens;
    }

    // The tokens of a session's turns through the model's chat template. Note
    // text is tokenised as plain text, never as control tokens, so that text
    // which spells a template's markers stays data.
    std::vector<llama_token> render(const QString *system, const QString *user, bool addAssistant) const
    {
        static const QByteArray systemMark = QByteArrayLiteral("kestilsystemturnq7x");
        static const QByteArray userMark = QByteArrayLiteral("kestiluserturnq7x");
        std::vector<llama_chat_message> messages;
        if (system)
            messages.push_back({"system", systemMark.constData()});
        if (user)
            messages.push_back({"user", userMark.constData()});
        std::vector<char> buffer(1024);
        int32_t length =
            llama_chat_apply_template(chatTemplate_.constData(), messages.data(), messages.size(),
                                      addAssistant, buffer.data(), int32_t(buffer.size()));
        if (length > int32_t(buffer.size())) {
            buffer.resize(size_t(length));
            length = llama_chat_apply_template(chatTemplate_.constData(), messages.data(), messages.size(),
                                               addAssistant, buffer.data(), int32_t(buffer.size()));
        }
        if (length < 0)
            throw SystemError(
                QStringLiteral("The chat template of the on-device language model “%1” is not one "
                               "Kestil can use. Your notes are unchanged.")
                    .arg(modelName_));
        const QByteArray rendered(buffer.data(), length);

        std::vector<llama_token> tokens;
        qsizetype position = 0;
        bool first = true;
        auto appendTemplate = [&](const QByteArray &piece) {
            const std::vector<llama_token> part = tokenize(piece, first, true);
            tokens.insert(tokens.end(), part.begin(), part.end());
            first = false;
        };
        auto appendContent = [&](const QString &content) {
            if (first)
                appendTemplate(QByteArray());
            const std::vector<llama_token> part = tokenize(content.toUtf8(), false, false);
            tokens.insert(tokens.end(), part.begin(), part.end());
        };
        for (;;) {
            const qsizetype atSystem = system ? rendered.indexOf(systemMark, position) : -1;
            const qsizetype atUser = user ? rendered.indexOf(userMark, position) : -1;
            qsizetype at = -1;
            bool isSystem = false;
            if (atSystem >= 0 && (atUser < 0 || atSystem < atUser)) {
                at = atSystem;
                isSystem = true;
            } else {
                at = atUser;
            }
            if (at < 0)
                break;
            if (at > position)
                appendTemplate(rendered.mid(position, at - position));
            appendContent(isSystem ? *system : *user);
            position = at + (isSystem ? systemMark.size() : userMark.size());
        }
        if (position < rendered.size())
            appendTemplate(rendered.mid(position));
        // Templates that write the BOS marker themselves would get a second one.
        const llama_token bos = llama_vocab_bos(vocab_);
        if (tokens.size() >= 2 && tokens[0] == bos && tokens[1] == bos)
            tokens.erase(tokens.begin());
        return tokens;
    }

    void decode(const llama_token *tokens, size_t count, const CancellationToken &cancel)
    {
        const uint32_t batch = llama_n_batch(context_);
        for (size_t done = 0; done < count;) {
            const auto n = int32_t(std::min<size_t>(batch, count - done));
            const int32_t status =
                llama_decode(context_, llama_batch_get_one(const_cast<llama_token *>(tokens + done), n));
            if (status != 0) {
                if (cancel.isCancelled())
                    throw CancellationError();
                throw SystemError(
                    QStringLiteral("The on-device language model failed while reading this request "
                                   "(llama.cpp status %1). Your notes are unchanged.")
                        .arg(status));
            }
            cachedTokens_.insert(cachedTokens_.end(), tokens + done, tokens + done + n);
            done += size_t(n);
        }
    }

    llama_sampler *makeChain(const GenerationOptions &options, bool constrained) const
    {
        llama_sampler *chain = llama_sampler_chain_init(llama_sampler_chain_default_params());
        const double temperature = options.temperature.value_or(0.7);
        if (temperature <= 0) {
            llama_sampler_chain_add(chain, llama_sampler_init_greedy());
            return chain;
        }
        llama_sampler_chain_add(chain, llama_sampler_init_top_k(samplingTopK));
        // Small models fall into loops; a light penalty on recent tokens keeps
        // free text moving. Structured answers repeat their syntax by design.
        if (!constrained)
            llama_sampler_chain_add(
                chain, llama_sampler_init_penalties(llama_vocab_n_tokens(vocab_), 64, 1.1f, 0.0f, 0.0f));
        llama_sampler_chain_add(chain, llama_sampler_init_top_p(0.95f, 1));
        llama_sampler_chain_add(chain, llama_sampler_init_temp(float(temperature)));
        llama_sampler_chain_add(chain,
                                llama_sampler_init_dist(seed_ ? *seed_ : uint32_t(std::random_device{}())));
        return chain;
    }

    // How many of the most likely tokens the chain of these options can pick
    // from: the one most likely, or the top k.
    static size_t candidatesKept(const GenerationOptions &options)
    {
        return options.temperature.value_or(0.7) <= 0 ? 1 : size_t(samplingTopK);
    }

    // Samples the next token. The chain sees only the tokens it can pick
    // from, found in one pass over the logits: sorting a vocabulary of a
    // hundred thousand tokens for every token would cost as much as a good
    // part of decoding it. With a grammar, the token the chain picks is tried
    // first, and only when the grammar refuses it is the whole vocabulary
    // filtered: far cheaper than filtering every time.
    llama_token sample(llama_sampler *chain, llama_sampler *grammar, size_t kept, int32_t logitIndex = -1)
    {
        const float *logits = llama_get_logits_ith(context_, logitIndex);
        const int32_t vocabSize = llama_vocab_n_tokens(vocab_);
        const auto lower = [](const llama_token_data &a, const llama_token_data &b) {
            return a.logit > b.logit;
        };
        candidates_.clear();
        for (int32_t id = 0; id < vocabSize; ++id) {
            if (candidates_.size() < kept) {
                candidates_.push_back({id, logits[id], 0.0f});
                std::push_heap(candidates_.begin(), candidates_.end(), lower);
            } else if (logits[id] > candidates_.front().logit) {
                std::pop_heap(candidates_.begin(), candidates_.end(), lower);
                candidates_.back() = {id, logits[id], 0.0f};
                std::push_heap(candidates_.begin(), candidates_.end(), lower);
            }
        }
        // In vocabulary order, as the whole vocabulary would be: ties break alike.
        std::sort(candidates_.begin(), candidates_.end(),
                  [](const llama_token_data &a, const llama_token_data &b) { return a.id < b.id; });
        auto fill = [&] {
            candidates_.resize(size_t(vocabSize));
            for (int32_t id = 0; id < vocabSize; ++id)
                candidates_[size_t(id)] = llama_token_data{id, logits[id], 0.0f};
        };
        llama_token_data_array array{candidates_.data(), candidates_.size(), -1, false};
        llama_sampler_apply(chain, &array);
        llama_token token = array.data[array.selected].id;
        if (grammar) {
            llama_token_data single{token, 1.0f, 0.0f};
            llama_token_data_array one{&single, 1, -1, false};
            llama_sampler_apply(grammar, &one);
            if (std::isinf(single.logit) && single.logit < 0) {
                fill();
                llama_token_data_array all{candidates_.data(), candidates_.size(), -1, false};
                llama_sampler_apply(grammar, &all);
                llama_sampler_apply(chain, &all);
                token = all.data[all.selected].id;
            }
            llama_sampler_accept(grammar, token);
        }
        llama_sampler_accept(chain, token);
        return token;
    }

    QString generateUnguarded(const QString &instructions, const QString &prompt,
                              const GenerationOptions &options, const QString &grammarText,
                              const CancellationToken &cancel,
                              const std::function<bool(const QString &)> &deliver)
    {
        const std::vector<llama_token> promptTokens = render(&instructions, &prompt, true);
        checkFits(promptTokens);
        const uint32_t contextTokens = sequenceTokens_;

        // Keep what the cache already holds of this prompt (the instructions
        // and the head of the prompt, typically), at least one token short so
        // that the last one is decoded and yields logits.
        size_t common = 0;
        if (reusesPrefixes()) {
            while (common < cachedTokens_.size() && common < promptTokens.size() &&
                   cachedTokens_[common] == promptTokens[common])
                ++common;
            common = std::min(common, promptTokens.size() - 1);
        }
        llama_memory_t memory = llama_get_memory(context_);
        if (common == 0) {
            llama_memory_clear(memory, true);
            cachedTokens_.clear();
        } else {
            llama_memory_seq_rm(memory, 0, llama_pos(common), -1);
            cachedTokens_.resize(common);
        }

        statistics.requests += 1;
        statistics.promptTokens += qint64(promptTokens.size());
        statistics.reusedPromptTokens += qint64(common);
        const auto promptStart = Clock::now();
        decode(promptTokens.data() + common, promptTokens.size() - common, cancel);
        statistics.promptSeconds += secondsSince(promptStart);

        std::unique_ptr<llama_sampler, decltype(&llama_sampler_free)> chain(
            makeChain(options, !grammarText.isEmpty()), &llama_sampler_free);
        std::unique_ptr<llama_sampler, decltype(&llama_sampler_free)> grammar(nullptr, &llama_sampler_free);
        if (!grammarText.isEmpty()) {
            const QByteArray text = grammarText.toUtf8();
            grammar.reset(llama_sampler_init_grammar(vocab_, text.constData(), "root"));
            if (!grammar)
                throw SystemError(
                    QStringLiteral("Kestil could not prepare the structured answer for the on-device "
                                   "model. Your notes are unchanged."));
        }

        const int cap = options.maximumResponseTokens.value_or(defaultResponseTokens);
        QByteArray bytes;
        QString text;
        qsizetype shownBytes = 0;
        const auto generationStart = Clock::now();
        bool finished = false;
        for (int produced = 0; produced < cap; ++produced) {
            cancel.checkCancellation();
            const llama_token token = sample(chain.get(), grammar.get(), candidatesKept(options));
            if (llama_vocab_is_eog(vocab_, token)) {
                finished = true;
                break;
            }
            char piece[256];
            const int32_t length = llama_token_to_piece(vocab_, token, piece, sizeof piece, 0, false);
            if (length > 0)
                bytes.append(piece, length);
            statistics.generatedTokens += 1;
            const qsizetype complete = completeUtf8Length(bytes);
            if (complete != shownBytes) {
                shownBytes = complete;
                text = QString::fromUtf8(bytes.constData(), complete);
                if (deliver && !deliver(text)) {
                    finished = true;
                    break;
                }
            }
            if (cachedTokens_.size() + 1 >= contextTokens)
                break;
            decode(&token, 1, cancel);
        }
        statistics.generationSeconds += secondsSince(generationStart);
        lastFinished_ = finished;
        return text;
    }

    void checkFits(const std::vector<llama_token> &promptTokens) const
    {
        if (promptTokens.size() + 1 > sequenceTokens_)
            throw SystemError(
                QStringLiteral("This request is longer than the on-device model's context of %1 "
                               "tokens. Your notes are unchanged.")
                    .arg(sequenceTokens_));
    }

    void decodeBatch(const TokenBatch &batch, const CancellationToken &cancel)
    {
        const int32_t status = llama_decode(context_, batch.get());
        if (status != 0) {
            if (cancel.isCancelled())
                throw CancellationError();
            throw SystemError(QStringLiteral("The on-device language model failed while reading this request "
                                             "(llama.cpp status %1). Your notes are unchanged.")
                                  .arg(status));
        }
    }

    // One sequence of a batch while it is answered.
    struct Sequence {
        qsizetype index = 0;
        std::unique_ptr<llama_sampler, decltype(&llama_sampler_free)> chain{nullptr, &llama_sampler_free};
        QByteArray bytes;
        llama_pos position = 0; // where its next token goes
        int32_t logit = 0;      // the place of its logits in the last batch
        int produced = 0;
        bool active = true;
    };

    qsizetype generateTogetherUnguarded(const QString &instructions, const QStringList &prompts,
                                        qsizetype first, int parallel, const GenerationOptions &options,
                                        const CancellationToken &cancel,
                                        const std::function<bool(qsizetype, const QString &)> &deliver,
                                        const std::function<bool()> &wanted)
    {
        // The group: the next prompts, at most `parallel`, each in a part of
        // the cache of its own that holds a whole sequence.
        const int cap = options.maximumResponseTokens.value_or(defaultResponseTokens);
        std::vector<std::vector<llama_token>> tokens;
        for (qsizetype i = first; i < prompts.size() && int(tokens.size()) < parallel; ++i) {
            tokens.push_back(render(&instructions, &prompts.at(i), true));
            checkFits(tokens.back());
        }
        const size_t count = tokens.size();
        cancel.beginWork(int(count));
        if (count == 1) {
            const QString text =
                generateUnguarded(instructions, prompts.at(first), options, QString(), cancel, nullptr);
            deliver(first, text);
            return 1;
        }

        // The head all prompts share is decoded once, in sequence 0 (from the
        // cache where the last request left it), and then copied to the
        // others' parts of the cache; each keeps at least its last token of
        // its own.
        size_t shared = tokens.front().size() - 1;
        for (const std::vector<llama_token> &prompt : tokens) {
            size_t same = 0;
            while (same < shared && same + 1 < prompt.size() && prompt[same] == tokens.front()[same])
                ++same;
            shared = same;
        }
        size_t reused = 0;
        if (reusesPrefixes()) {
            while (reused < cachedTokens_.size() && reused < shared &&
                   cachedTokens_[reused] == tokens.front()[reused])
                ++reused;
        }
        llama_memory_t memory = llama_get_memory(context_);
        if (reused == 0) {
            llama_memory_clear(memory, true);
            cachedTokens_.clear();
        } else {
            llama_memory_seq_rm(memory, 0, llama_pos(reused), -1);
            cachedTokens_.resize(reused);
        }
        statistics.requests += qint64(count);
        statistics.parallelGroups += 1;
        statistics.parallelRequests += qint64(count);
        for (const std::vector<llama_token> &prompt : tokens)
            statistics.promptTokens += qint64(prompt.size());
        statistics.reusedPromptTokens += qint64(reused + shared * (count - 1));

        const auto promptStart = Clock::now();
        decode(tokens.front().data() + reused, shared - reused, cancel);
        for (size_t s = 1; s < count; ++s)
            llama_memory_seq_cp(memory, 0, llama_seq_id(s), -1, -1);
        // Every prompt's own tokens, a sequence at a time in batches as large
        // as a request of its own has; the last token of each comes in one
        // batch with the others', so that their logits are there together.
        TokenBatch batch{int32_t(batchTokens)};
        for (size_t s = 0; s < count; ++s) {
            for (size_t p = shared; p + 1 < tokens[s].size(); ++p) {
                batch.add(tokens[s][p], llama_pos(p), llama_seq_id(s), false);
                if (batch.full() || p + 2 == tokens[s].size()) {
                    decodeBatch(batch, cancel);
                    batch.clear();
                }
            }
        }
        std::vector<Sequence> sequences(count);
        for (size_t s = 0; s < count; ++s) {
            sequences[s].index = first + qsizetype(s);
            sequences[s].chain.reset(makeChain(options, false));
            sequences[s].position = llama_pos(tokens[s].size());
            sequences[s].logit =
                batch.add(tokens[s].back(), llama_pos(tokens[s].size() - 1), llama_seq_id(s), true);
        }
        decodeBatch(batch, cancel);
        statistics.promptSeconds += secondsSince(promptStart);

        // One token of every sequence still answering per batch. A sequence
        // that ends hands its answer over at once and leaves the cache.
        const auto generationStart = Clock::now();
        size_t active = count;
        bool stopped = false;
        while (active > 0 && !stopped) {
            cancel.checkCancellation();
            stopped = !wanted();
            TokenBatch step{int32_t(count)};
            for (size_t s = 0; s < count && !stopped; ++s) {
                Sequence &sequence = sequences[s];
                if (!sequence.active)
                    continue;
                const llama_token token =
                    sample(sequence.chain.get(), nullptr, candidatesKept(options), sequence.logit);
                bool ended = llama_vocab_is_eog(vocab_, token);
                if (!ended) {
                    char piece[256];
                    const int32_t length = llama_token_to_piece(vocab_, token, piece, sizeof piece, 0, false);
                    if (length > 0)
                        sequence.bytes.append(piece, length);
                    statistics.generatedTokens += 1;
                    sequence.produced += 1;
                    ended = sequence.produced >= cap || uint32_t(sequence.position) + 1 >= sequenceTokens_;
                }
                if (!ended) {
                    sequence.logit = step.add(token, sequence.position, llama_seq_id(s), true);
                    sequence.position += 1;
                    continue;
                }
                sequence.active = false;
                active -= 1;
                // Sequence 0 keeps the shared head for the next request.
                llama_memory_seq_rm(memory, llama_seq_id(s), s == 0 ? llama_pos(shared) : -1, -1);
                const QByteArray &bytes = sequence.bytes;
                stopped =
                    !deliver(sequence.index, QString::fromUtf8(bytes.constData(), completeUtf8Length(bytes)));
            }
            if (step.size() > 0 && !stopped)
                decodeBatch(step, cancel);
        }
        statistics.generationSeconds += secondsSince(generationStart);
        if (stopped) {
            forgetCache();
            return qsizetype(count);
        }
        // Between requests the cache holds sequence 0's head alone.
        cachedTokens_.resize(shared);
        return qsizetype(count);
    }

public:
    // Whether the last request ended by itself (end of answer or a stop by the
    // consumer) rather than at the response cap or the end of the context.
    bool lastFinished() const { return lastFinished_; }

    // Whole answers to the prompts from `first` on, as parallel sequences of
    // one batch, at most `parallel`.
    // deliver(index, text) hands each answer over as it ends; when it, or
    // wanted(), says false, the rest is dropped. Returns how many prompts the
    // group took on.
    qsizetype generateTogether(const QString &instructions, const QStringList &prompts, qsizetype first,
                               int parallel, const GenerationOptions &options,
                               const CancellationToken &cancel,
                               const std::function<bool(qsizetype, const QString &)> &deliver,
                               const std::function<bool()> &wanted)
    {
        cancel.checkCancellation();
        cancel_ = &cancel;
        struct Reset {
            Engine *engine;
            ~Reset() { engine->cancel_ = nullptr; }
        } reset{this};
        try {
            return generateTogetherUnguarded(instructions, prompts, first, parallel, options, cancel, deliver,
                                             wanted);
        } catch (...) {
            forgetCache();
            throw;
        }
    }

private:
    int threads_;
    std::atomic<bool> *prefixReuse_;
    std::optional<uint32_t> seed_;
    llama_model *model_ = nullptr;
    llama_context *context_ = nullptr;
    const llama_vocab *vocab_ = nullptr;
    qint64 contextLength_ = 0;
    uint32_t sequenceTokens_ = contextCeiling; // the longest sequence: the context, at most 4096
    QByteArray chatTemplate_;
    QString loadedPath_;
    QDateTime loadedModified_;
    QString modelName_;
    std::vector<llama_token> cachedTokens_;
    std::vector<llama_token_data> candidates_;
    const CancellationToken *cancel_ = nullptr;
    bool lastFinished_ = false;
};

LlamaLanguageModel::LlamaLanguageModel(QString modelsDirectory, int threads)
    : modelsDirectory_(std::move(modelsDirectory))
{
    // One core stays free for the interface and the audio path, which must
    // never wait for the model; ggml's threads spin while they wait for each
    // other, so more threads than free cores make decoding many times slower.
    if (threads <= 0)
        threads = int(std::clamp(std::thread::hardware_concurrency(), 2u, 5u)) - 1;
    engine_ = std::make_unique<Engine>(threads, &prefixReuse_);
}

LlamaLanguageModel::~LlamaLanguageModel()
{
    // The model is freed on the thread that used it.
    worker_.call([this] { engine_.reset(); });
}

LlamaLanguageModel &LlamaLanguageModel::shared()
{
    static LlamaLanguageModel model;
    return model;
}

void LlamaLanguageModel::setEnabled(bool enabled)
{
    enabled_.store(enabled);
}

void LlamaLanguageModel::setPrefixReuse(bool reuse)
{
    prefixReuse_.store(reuse);
}

void LlamaLanguageModel::setParallelSequences(int count)
{
    parallelSequences_.store(std::clamp(count, 1, maximumParallelSequences));
}

LlamaLanguageModel::Statistics LlamaLanguageModel::statistics() const
{
    return const_cast<SerialWorker &>(worker_).call([this] { return engine_->statistics; });
}

void LlamaLanguageModel::resetStatistics()
{
    worker_.call([this] { engine_->statistics = Statistics{}; });
}

bool LlamaLanguageModel::deviceIsEligible()
{
    // Below 2 GiB of memory even a small model would push out everything else.
    static const bool eligible = [] {
        if (!processorRunsComputeBackends())
            return false;
        const long pages = sysconf(_SC_PHYS_PAGES);
        const long pageSize = sysconf(_SC_PAGESIZE);
        return pages <= 0 || pageSize <= 0 || qint64(pages) * pageSize >= (qint64(2) << 30);
    }();
    return eligible;
}

LanguageModel::Availability LlamaLanguageModel::availability() const
{
    if (!deviceIsEligible())
        return LanguageModel::Availability::unavailable(LanguageModel::UnavailableReason::deviceNotEligible);
    if (!enabled_.load())
        return LanguageModel::Availability::unavailable(
            LanguageModel::UnavailableReason::languageModelDisabled);
    if (!LanguageModelFiles::installedModel(modelsDirectory_))
        return LanguageModel::Availability::unavailable(LanguageModel::UnavailableReason::modelNotReady);
    return LanguageModel::Availability::available();
}

bool LlamaLanguageModel::supportsLocale(const QLocale &locale) const
{
    const std::optional<GgufModelInfo> installed = LanguageModelFiles::installedModel(modelsDirectory_);
    if (!installed)
        return false;
    // A model that names no languages is taken to know English only.
    const QStringList languages =
        installed->languages.isEmpty() ? QStringList{QStringLiteral("en")} : installed->languages;
    for (const QString &language : languages) {
        const QLocale known(language);
        if (known.language() != QLocale::C && known.language() == locale.language())
            return true;
    }
    return false;
}

qint64 LlamaLanguageModel::contextSize() const
{
    const std::optional<GgufModelInfo> installed = LanguageModelFiles::installedModel(modelsDirectory_);
    return installed ? installed->contextLength : 0;
}

QString LlamaLanguageModel::identity() const
{
    const std::optional<GgufModelInfo> installed = LanguageModelFiles::installedModel(modelsDirectory_);
    if (!installed)
        return {};
    const QFileInfo file(installed->path);
    return file.fileName() + QLatin1Char(':') + QString::number(file.size());
}

qint64 LlamaLanguageModel::tokenCount(const Instructions &instructions)
{
    return worker_.call([&] {
        engine_->ensureLoaded(modelsDirectory_);
        return engine_->countTokens(&instructions.text, nullptr, false);
    });
}

qint64 LlamaLanguageModel::tokenCount(const Prompt &prompt)
{
    return worker_.call([&] {
        engine_->ensureLoaded(modelsDirectory_);
        return engine_->countTokens(nullptr, &prompt.text, true);
    });
}

QString LlamaLanguageModel::respond(const QString &instructions, const QString &prompt,
                                    const GenerationOptions &options, const CancellationToken &cancel)
{
    return callForRequest(worker_, cancel, [&] {
        engine_->ensureLoaded(modelsDirectory_);
        return engine_->generate(instructions, prompt, options, QString(), cancel, nullptr);
    });
}

QJsonObject LlamaLanguageModel::respond(const QString &instructions, const QString &prompt,
                                        const GenerationSchema &schema, bool includeSchemaInPrompt,
                                        const GenerationOptions &options, const CancellationToken &cancel)
{
    const QString fullPrompt =
        includeSchemaInPrompt ? prompt + QStringLiteral("\n\n") + schema.promptText() : prompt;
    bool finished = false;
    const QString text = callForRequest(worker_, cancel, [&] {
        engine_->ensureLoaded(modelsDirectory_);
        QString answer =
            engine_->generate(instructions, fullPrompt, options, schema.grammar(), cancel, nullptr);
        finished = engine_->lastFinished();
        return answer;
    });
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
    const QJsonObject object = document.isObject() ? schema.validated(document.object()) : QJsonObject();
    if (error.error != QJsonParseError::NoError || object.isEmpty()) {
        if (!finished)
            throw SystemError(
                QStringLiteral("The on-device model's answer was cut off at its length limit before "
                               "it was complete. Your notes are unchanged."));
        throw SystemError(
            QStringLiteral("The on-device model's answer did not have the expected form. Your notes "
                           "are unchanged."));
    }
    return object;
}

void LlamaLanguageModel::streamResponse(const QString &instructions, const QString &prompt,
                                        const GenerationOptions &options, const CancellationToken &cancel,
                                        const SnapshotHandler &onSnapshot)
{
    if (worker_.isWorkerThread())
        throw LocalError(QStringLiteral("A response cannot be streamed from the model's own thread."));
    auto channel = std::make_shared<SnapshotChannel>();
    const std::shared_ptr<RequestTicket> ticket =
        queueRequest(worker_, cancel, [this, channel, instructions, prompt, options, cancel] {
            try {
                engine_->ensureLoaded(modelsDirectory_);
                engine_->generate(instructions, prompt, options, QString(), cancel,
                                  [&](const QString &text) { return channel->deliver(text); });
                channel->finish();
            } catch (...) {
                channel->finish(std::current_exception());
            }
        });
    if (!ticket->awaitTaking(cancel))
        throw CancellationError();
    for (;;) {
        const std::optional<QString> text = channel->next();
        if (!text)
            return;
        bool keepGoing = false;
        try {
            keepGoing = onSnapshot(*text);
        } catch (...) {
            channel->stop();
            throw;
        }
        if (!keepGoing) {
            channel->stop();
            return;
        }
    }
}

void LlamaLanguageModel::respondAll(const QString &instructions, const QStringList &prompts,
                                    const GenerationOptions &options, const CancellationToken &cancel,
                                    const AnswerHandler &onAnswer)
{
    const int parallel = parallelSequences_.load();
    if (parallel <= 1 || prompts.size() <= 1) {
        LanguageModel::respondAll(instructions, prompts, options, cancel, onAnswer);
        return;
    }
    if (worker_.isWorkerThread())
        throw LocalError(QStringLiteral("Answers cannot be awaited on the model's own thread."));
    // One group at a time on the model's thread, so that a request of someone
    // else (a title, a question) waits for one group, not for all of them.
    for (qsizetype first = 0; first < prompts.size();) {
        auto channel = std::make_shared<AnswerChannel>();
        const std::shared_ptr<RequestTicket> ticket = queueRequest(
            worker_, cancel, [this, channel, instructions, prompts, first, parallel, options, cancel] {
                try {
                    engine_->ensureLoaded(modelsDirectory_);
                    const qsizetype answered = engine_->generateTogether(
                        instructions, prompts, first, parallel, options, cancel,
                        [&](qsizetype index, const QString &text) { return channel->deliver(index, text); },
                        [&] { return channel->wanted(); });
                    channel->finish(answered);
                } catch (...) {
                    channel->finish(0, std::current_exception());
                }
            });
        if (!ticket->awaitTaking(cancel))
            throw CancellationError();
        while (const std::optional<AnswerChannel::Answer> answer = channel->next()) {
            try {
                onAnswer(answer->index, answer->text);
            } catch (...) {
                channel->stop();
                throw;
            }
        }
        first += qMax<qsizetype>(channel->answered(), 1);
    }
}

} // namespace kestil
