#include "WhisperEngine.h"

#include "TextRepetition.h"
#include "WhisperContext.h"

#include "base/Error.h"

#include <QFileInfo>
#include <QStringList>
#include <QtGlobal>

#include <whisper.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <limits>
#include <mutex>
#include <thread>

namespace kestil {

namespace {

struct TokenBudget {
    int limit;
    whisper_token endOfText;
    int vocabulary;
};

// Past the budget, only the end-of-text token may follow.
void limitTokens(whisper_context *, whisper_state *, const whisper_token_data *, int tokens, float *logits,
                 void *data)
{
    const auto *budget = static_cast<const TokenBudget *>(data);
    if (tokens < budget->limit)
        return;
    for (int i = 0; i < budget->vocabulary; ++i) {
        if (i != budget->endOfText)
            logits[i] = -std::numeric_limits<float>::infinity();
    }
}

double threadProcessorSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

bool isAborted(void *data)
{
    return static_cast<std::atomic<bool> *>(data)->load();
}

} // namespace

WhisperEngine::WhisperEngine(const QString &modelPath, Options options)
    : options_(std::move(options)), model_(modelPath, options_.language), context_(model_.get()),
      voiceActivity_(rate, options_.voiceActivity), frameLength_(std::size_t(voiceActivity_.frameLength()))
{
    prompt_ = options_.initialPrompt.toUtf8();
    threads_ = WhisperContext::threads(options_.threads);
}

WhisperEngine::~WhisperEngine() = default;

QString WhisperEngine::decode(std::span<const float> samples, Context context)
{
    if (aborted_.load())
        return {};
    // whisper.cpp skips input shorter than a second; silence after the words
    // changes nothing.
    std::vector<float> padded;
    const auto minimum = std::size_t(rate * 1.05);
    if (samples.size() < minimum) {
        padded.assign(samples.begin(), samples.end());
        padded.resize(minimum, 0.0f);
        samples = padded;
    }
    const double duration = double(samples.size()) / rate;

    whisper_full_params params = model_.greedyParams(threads_);
    params.no_context = true;
    params.no_timestamps = true;
    params.single_segment = true;
    params.temperature = 0.0f;
    // No second pass at a higher temperature: a live note needs the answer now.
    params.temperature_inc = 0.0f;
    params.initial_prompt = prompt_.isEmpty() ? nullptr : prompt_.constData();
    // A quick reading encodes only as much context as the audio fills (50
    // positions per second), which makes a short window much cheaper than 30
    // seconds. Whisper was trained on whole 30-second windows, though, and
    // without the silence that follows the words it loses track of where they
    // end: it reads a sentence twice or loops. So what is kept is read in
    // full.
    if (context == Context::quick) {
        int audioContext = int(std::ceil(double(samples.size()) / 320.0)) + 32;
        audioContext = (audioContext + 63) / 64 * 64;
        params.audio_ctx = std::clamp(audioContext, 256, whisper_model_n_audio_ctx(context_));
    }
    TokenBudget budget{int(std::ceil(duration * options_.tokensPerSecond)) + 8, whisper_token_eot(context_),
                       whisper_n_vocab(context_)};
    params.logits_filter_callback = limitTokens;
    params.logits_filter_callback_user_data = &budget;
    params.abort_callback = isAborted;
    params.abort_callback_user_data = &aborted_;

    const auto started = std::chrono::steady_clock::now();
    const double processorStarted = threadProcessorSeconds();
    const int status = whisper_full(context_, params, samples.data(), int(samples.size()));
    decodeSeconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    decodeProcessorSeconds_ += threadProcessorSeconds() - processorStarted;
    if (aborted_.load())
        return {};
    if (status != 0)
        throw SystemError(QStringLiteral("Whisper could not transcribe the audio (error %1).").arg(status));

    QStringList parts;
    const int segments = whisper_full_n_segments(context_);
    for (int i = 0; i < segments; ++i) {
        if (whisper_full_get_segment_no_speech_prob(context_, i) > options_.noSpeechThreshold)
            continue;
        const QString text = QString::fromUtf8(whisper_full_get_segment_text(context_, i)).trimmed();
        if (text.isEmpty() || WhisperContext::isSoundMarker(text))
            continue;
        parts << text;
    }
    return withoutRepeatedPhrases(parts.join(QLatin1Char(' ')));
}

std::vector<SpeechResult> WhisperEngine::feed(std::span<const float> samples)
{
    std::vector<SpeechResult> results;
    if (finished_ || aborted_.load() || samples.empty())
        return results;
    window_.insert(window_.end(), samples.begin(), samples.end());
    fed_ += std::int64_t(samples.size());
    classifyNewFrames();

    const auto pauseFrames = std::size_t(std::ceil(options_.pauseSeconds * rate / double(frameLength_)));
    const auto paddingFrames =
        std::size_t(std::lround(options_.paddingSeconds * rate / double(frameLength_)));
    const auto maxWindow = std::size_t(options_.maxWindowSeconds * rate);
    for (;;) {
        if (aborted_.load())
            return results;
        dropLeadingSilence();
        const std::size_t frames = speech_.size();
        const auto last = lastSpeechFrame(frames);
        if (!last)
            break;
        if (frames - (*last + 1) >= pauseFrames) {
            settle(std::min(frames, *last + 1 + paddingFrames), true, results);
            continue;
        }
        if (window_.size() >= maxWindow) {
            settle(limitCutFrame(), false, results);
            continue;
        }
        break;
    }

    const auto step = std::int64_t(options_.stepSeconds * rate);
    if (!options_.volatileResults || fed_ < nextVolatileAt_)
        return results;
    const std::size_t frames = speech_.size();
    const auto minimumFrames =
        std::size_t(std::ceil(options_.minimumSpeechSeconds * rate / double(frameLength_)));
    const auto first = firstSpeechFrame(frames);
    const auto last = lastSpeechFrame(frames);
    if (!first || speechFrames(frames) < minimumFrames) {
        nextVolatileAt_ = fed_ + step;
        return results;
    }
    const std::size_t begin = *first > paddingFrames ? (*first - paddingFrames) * frameLength_ : 0;
    const auto started = std::chrono::steady_clock::now();
    const QString text = decode(std::span<const float>(window_).subspan(begin), Context::quick);
    if (aborted_.load())
        return results;
    const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    nextVolatileAt_ =
        fed_ + std::int64_t(std::max(options_.stepSeconds, took / options_.volatileShare) * rate);
    const double start = seconds(windowStart_ + std::int64_t(*first * frameLength_));
    const double end = seconds(std::min(fed_, windowStart_ + std::int64_t((*last + 1) * frameLength_)));
    if (!text.isEmpty()) {
        results.push_back(SpeechResult{text, start, end, false});
        tentativeShown_ = true;
    } else if (tentativeShown_) {
        results.push_back(SpeechResult{QString(), start, end, false});
        tentativeShown_ = false;
    }
    return results;
}

std::vector<SpeechResult> WhisperEngine::finish()
{
    std::vector<SpeechResult> results;
    if (finished_ || aborted_.load())
        return results;
    finished_ = true;
    // The last partial frame counts too; the zeros that complete it are
    // never reported as audio.
    if (window_.size() % frameLength_ != 0) {
        window_.resize((window_.size() / frameLength_ + 1) * frameLength_, 0.0f);
        classifyNewFrames();
    }
    if (lastSpeechFrame(speech_.size()))
        settle(speech_.size(), true, results);
    else if (tentativeShown_)
        results.push_back(SpeechResult{QString(), seconds(fed_), seconds(fed_), false});
    tentativeShown_ = false;
    return results;
}

void WhisperEngine::classifyNewFrames()
{
    const std::size_t complete = window_.size() / frameLength_;
    for (std::size_t i = speech_.size(); i < complete; ++i) {
        const bool speech =
            voiceActivity_.isSpeech(std::span<const float>(window_).subspan(i * frameLength_, frameLength_));
        speech_.push_back(speech ? 1 : 0);
        levels_.push_back(float(voiceActivity_.lastLevelDb()));
    }
}

void WhisperEngine::settle(std::size_t cutFrame, bool atPause, std::vector<SpeechResult> &results)
{
    cutFrame = std::min(cutFrame, speech_.size());
    const std::size_t cutSample = std::min(window_.size(), cutFrame * frameLength_);
    const auto minimumFrames =
        std::size_t(std::ceil(options_.minimumSpeechSeconds * rate / double(frameLength_)));
    const auto paddingFrames =
        std::size_t(std::lround(options_.paddingSeconds * rate / double(frameLength_)));
    const auto first = firstSpeechFrame(cutFrame);
    const auto last = lastSpeechFrame(cutFrame);

    if (!first || speechFrames(cutFrame) < minimumFrames) {
        // A click or a breath: nothing to read.
        if (tentativeShown_) {
            results.push_back(SpeechResult{QString(), seconds(windowStart_),
                                           seconds(windowStart_ + std::int64_t(cutSample)), false});
            tentativeShown_ = false;
        }
        keepForRevision(std::span<const float>(window_).first(cutSample));
        eraseFrames(cutFrame);
        nextVolatileAt_ = fed_ + std::int64_t(options_.stepSeconds * rate);
        return;
    }

    const std::int64_t speechStart = windowStart_ + std::int64_t(*first * frameLength_);
    const std::int64_t speechEnd = std::min(fed_, windowStart_ + std::int64_t((*last + 1) * frameLength_));
    const std::size_t begin = *first > paddingFrames ? (*first - paddingFrames) * frameLength_ : 0;
    const auto mergeGap = std::int64_t(options_.mergeGapSeconds * rate);
    const auto maxWindow = std::size_t(options_.maxWindowSeconds * rate);
    const bool revising = previous_ && previous_->revisable &&
                          speechStart - previous_->speechEnd <= mergeGap &&
                          previous_->audio.size() + cutSample <= maxWindow;

    std::vector<float> audio;
    if (revising) {
        audio.reserve(previous_->audio.size() + cutSample);
        audio = previous_->audio;
        audio.insert(audio.end(), window_.begin(), window_.begin() + std::ptrdiff_t(cutSample));
    } else {
        audio.assign(window_.begin() + std::ptrdiff_t(begin), window_.begin() + std::ptrdiff_t(cutSample));
    }
    const QString text = decode(audio, Context::full);
    if (aborted_.load())
        return;

    if (!text.isEmpty()) {
        const std::int64_t start = revising ? previous_->start : speechStart;
        results.push_back(SpeechResult{text, seconds(start), seconds(speechEnd), true});
        const bool revisable = atPause && double(audio.size()) <= options_.revisableSeconds * rate;
        previous_ = PreviousFinal{std::move(audio), start, speechEnd, revisable};
    } else {
        if (tentativeShown_)
            results.push_back(SpeechResult{QString(), seconds(speechStart), seconds(speechEnd), false});
        // Whatever final came before stays as it is.
        previous_.reset();
    }
    tentativeShown_ = false;
    eraseFrames(cutFrame);
    nextVolatileAt_ = fed_ + std::int64_t(options_.stepSeconds * rate);
}

void WhisperEngine::dropLeadingSilence()
{
    const auto paddingFrames =
        std::size_t(std::lround(options_.paddingSeconds * rate / double(frameLength_)));
    const std::size_t frames = speech_.size();
    const auto first = firstSpeechFrame(frames);
    const std::size_t keepFrom = first ? *first : frames;
    if (keepFrom <= paddingFrames)
        return;
    const std::size_t drop = keepFrom - paddingFrames;
    keepForRevision(std::span<const float>(window_).first(drop * frameLength_));
    eraseFrames(drop);
}

void WhisperEngine::keepForRevision(std::span<const float> audio)
{
    if (!previous_ || !previous_->revisable)
        return;
    const auto mergeGap = std::int64_t(options_.mergeGapSeconds * rate);
    const auto maxWindow = std::size_t(options_.maxWindowSeconds * rate);
    const std::int64_t gap = windowStart_ + std::int64_t(audio.size()) - previous_->speechEnd;
    if (gap > mergeGap || previous_->audio.size() + audio.size() > maxWindow) {
        previous_->revisable = false;
        previous_->audio = {};
        return;
    }
    previous_->audio.insert(previous_->audio.end(), audio.begin(), audio.end());
}

std::size_t WhisperEngine::limitCutFrame() const
{
    // Cut where the last few seconds before the limit are quietest, most
    // likely between two words.
    const auto limit = std::min(speech_.size(), std::size_t(options_.maxWindowSeconds * rate) / frameLength_);
    const auto searchFrames = std::size_t(3.0 * rate) / frameLength_;
    const std::size_t from = limit > searchFrames ? limit - searchFrames : 1;
    std::size_t best = limit;
    float quietest = std::numeric_limits<float>::infinity();
    for (std::size_t i = from; i < limit; ++i) {
        if (levels_[i] < quietest) {
            quietest = levels_[i];
            best = i;
        }
    }
    return std::max<std::size_t>(1, best);
}

void WhisperEngine::eraseFrames(std::size_t frames)
{
    frames = std::min(frames, speech_.size());
    const std::size_t samples = std::min(window_.size(), frames * frameLength_);
    window_.erase(window_.begin(), window_.begin() + std::ptrdiff_t(samples));
    speech_.erase(speech_.begin(), speech_.begin() + std::ptrdiff_t(frames));
    levels_.erase(levels_.begin(), levels_.begin() + std::ptrdiff_t(frames));
    windowStart_ += std::int64_t(samples);
}

std::optional<std::size_t> WhisperEngine::firstSpeechFrame(std::size_t end) const
{
    for (std::size_t i = 0; i < end && i < speech_.size(); ++i) {
        if (speech_[i])
            return i;
    }
    return std::nullopt;
}

std::optional<std::size_t> WhisperEngine::lastSpeechFrame(std::size_t end) const
{
    for (std::size_t i = std::min(end, speech_.size()); i > 0; --i) {
        if (speech_[i - 1])
            return i - 1;
    }
    return std::nullopt;
}

std::size_t WhisperEngine::speechFrames(std::size_t end) const
{
    return std::size_t(
        std::count(speech_.begin(), speech_.begin() + std::ptrdiff_t(std::min(end, speech_.size())), 1));
}

} // namespace kestil
