#include "WhisperFileEngine.h"

#include "base/Error.h"

#include <whisper.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

namespace kestil {

namespace {

struct Progress {
    const std::function<void(double)> *report;
    double start;
    double length;
};

void reportProgress(whisper_context *, whisper_state *, int percent, void *data)
{
    const auto *progress = static_cast<const Progress *>(data);
    if (*progress->report)
        (*progress->report)(progress->start + progress->length * std::clamp(percent, 0, 100) / 100.0);
}

bool isAborted(void *data)
{
    return static_cast<std::atomic<bool> *>(data)->load();
}

} // namespace

WhisperFileEngine::WhisperFileEngine(const QString &modelPath, Options options)
    : options_(std::move(options)), model_(modelPath, options_.language),
      prompt_(options_.initialPrompt.toUtf8()), threads_(WhisperContext::threads(options_.threads)),
      voiceActivity_(rate, options_.voiceActivity), frameLength_(std::size_t(voiceActivity_.frameLength()))
{
}

std::vector<SpeechResult> WhisperFileEngine::feed(std::span<const float> samples)
{
    std::vector<SpeechResult> results;
    if (finished_ || aborted_.load() || samples.empty())
        return results;
    pending_.insert(pending_.end(), samples.begin(), samples.end());
    classifyNewFrames();
    const auto chunk = std::size_t(options_.chunkSeconds * rate);
    while (pending_.size() >= chunk && !aborted_.load())
        decodeChunk(cutFrame(), results);
    return results;
}

std::vector<SpeechResult> WhisperFileEngine::finish()
{
    std::vector<SpeechResult> results;
    if (finished_ || aborted_.load())
        return results;
    finished_ = true;
    // The last partial frame counts too; the zeros that complete it are
    // never reported as audio.
    const std::size_t real = pending_.size();
    if (real % frameLength_ != 0) {
        pending_.resize((real / frameLength_ + 1) * frameLength_, 0.0f);
        classifyNewFrames();
        pending_.resize(real);
    }
    if (!pending_.empty() && !aborted_.load())
        decodeChunk(speech_.size(), results);
    return results;
}

void WhisperFileEngine::classifyNewFrames()
{
    const std::size_t complete = pending_.size() / frameLength_;
    for (std::size_t i = speech_.size(); i < complete; ++i) {
        const bool speech =
            voiceActivity_.isSpeech(std::span<const float>(pending_).subspan(i * frameLength_, frameLength_));
        speech_.push_back(speech ? 1 : 0);
        levels_.push_back(float(voiceActivity_.lastLevelDb()));
    }
}

std::size_t WhisperFileEngine::cutFrame() const
{
    const auto limit = std::min(speech_.size(), std::size_t(options_.chunkSeconds * rate) / frameLength_);
    const auto search = std::size_t(options_.cutSearchSeconds * rate) / frameLength_;
    const std::size_t from = limit > search ? limit - search : 1;
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

void WhisperFileEngine::decodeChunk(std::size_t frames, std::vector<SpeechResult> &results)
{
    frames = std::min(frames, speech_.size());
    const std::size_t samples = frames == speech_.size() && finished_
                                    ? pending_.size()
                                    : std::min(pending_.size(), frames * frameLength_);
    const double chunkStart = seconds(pendingStart_);
    const double chunkLength = double(samples) / rate;
    const auto minimumFrames =
        std::size_t(std::ceil(options_.minimumSpeechSeconds * rate / double(frameLength_)));
    const auto speechIn = [&](std::size_t from, std::size_t to) {
        to = std::min(to, frames);
        return from >= to ? std::size_t(0)
                          : std::size_t(std::count(speech_.begin() + std::ptrdiff_t(from),
                                                   speech_.begin() + std::ptrdiff_t(to), 1));
    };

    if (speechIn(0, frames) >= minimumFrames) {
        std::vector<float> audio(pending_.begin(), pending_.begin() + std::ptrdiff_t(samples));
        // whisper.cpp skips input shorter than a second; silence after the
        // words changes nothing.
        audio.resize(std::max(audio.size(), std::size_t(rate * 1.05)), 0.0f);

        whisper_full_params params = model_.greedyParams(threads_);
        // Each chunk reads on from the text of the one before, as whisper
        // does from one 30-second window to the next.
        params.no_context = false;
        params.initial_prompt = firstChunk_ && !prompt_.isEmpty() ? prompt_.constData() : nullptr;
        Progress progress{&options_.progress, chunkStart, chunkLength};
        params.progress_callback = reportProgress;
        params.progress_callback_user_data = &progress;
        params.abort_callback = isAborted;
        params.abort_callback_user_data = &aborted_;

        whisper_context *context = model_.get();
        const auto started = std::chrono::steady_clock::now();
        const int status = whisper_full(context, params, audio.data(), int(audio.size()));
        decodeSeconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        if (aborted_.load())
            return;
        if (status != 0)
            throw SystemError(
                QStringLiteral("Whisper could not transcribe the audio (error %1).").arg(status));
        firstChunk_ = false;

        const int segments = whisper_full_n_segments(context);
        for (int i = 0; i < segments; ++i) {
            const QString text = QString::fromUtf8(whisper_full_get_segment_text(context, i)).trimmed();
            if (text.isEmpty() || WhisperContext::isSoundMarker(text))
                continue;
            // Segment times are in hundredths of a second from the chunk's start.
            const auto first =
                std::size_t(std::max<std::int64_t>(0, whisper_full_get_segment_t0(context, i))) *
                std::size_t(rate / 100) / frameLength_;
            const auto last =
                std::size_t(std::max<std::int64_t>(0, whisper_full_get_segment_t1(context, i))) *
                    std::size_t(rate / 100) / frameLength_ +
                1;
            if (speechIn(first, last) < minimumFrames)
                continue;
            std::size_t speechStart = first;
            while (speechStart < frames && !speech_[speechStart])
                ++speechStart;
            std::size_t speechEnd = std::min(last, frames);
            while (speechEnd > speechStart && !speech_[speechEnd - 1])
                --speechEnd;
            const double start =
                std::max(lastEnd_, chunkStart + seconds(std::int64_t(speechStart * frameLength_)));
            const double end =
                std::max(start, std::min(chunkStart + chunkLength,
                                         chunkStart + seconds(std::int64_t(speechEnd * frameLength_))));
            results.push_back(SpeechResult{text, start, end, true});
            lastEnd_ = end;
        }
    }

    pending_.erase(pending_.begin(), pending_.begin() + std::ptrdiff_t(samples));
    speech_.erase(speech_.begin(), speech_.begin() + std::ptrdiff_t(frames));
    levels_.erase(levels_.begin(), levels_.begin() + std::ptrdiff_t(frames));
    pendingStart_ += std::int64_t(samples);
    if (options_.progress)
        options_.progress(seconds(pendingStart_));
}

} // namespace kestil
