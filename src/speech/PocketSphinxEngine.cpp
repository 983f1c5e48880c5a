#include "PocketSphinxEngine.h"

#include "base/Error.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <pocketsphinx.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

namespace kestil {

namespace {

// Audio goes in a tenth of a second at a time, so that an utterance that ends
// inside a long buffer is noticed where it ends.
constexpr std::size_t chunkSamples = 1600;
// The decoder's voice-activity detection starts an utterance this long before
// the frame where it first hears speech.
constexpr double prespeechSeconds = 0.2;

QString acousticModel(const QString &dir)
{
    return dir + QStringLiteral("/en-us");
}
QString languageModel(const QString &dir)
{
    return dir + QStringLiteral("/en-us.lm.bin");
}
QString dictionary(const QString &dir)
{
    return dir + QStringLiteral("/cmudict-en-us.dict");
}

} // namespace

bool PocketSphinxEngine::isModelPresent(const QString &modelDirectory)
{
    return QFileInfo(acousticModel(modelDirectory) + QStringLiteral("/mdef")).isReadable() &&
           QFileInfo(acousticModel(modelDirectory) + QStringLiteral("/feat.params")).isReadable() &&
           QFileInfo(languageModel(modelDirectory)).isReadable() &&
           QFileInfo(dictionary(modelDirectory)).isReadable();
}

PocketSphinxEngine::PocketSphinxEngine(const QString &modelDirectory)
{
    if (!isModelPresent(modelDirectory))
        throw LocalError(QStringLiteral("PocketSphinx's English model is missing from %1. Install the "
                                        "pocketsphinx-en-us package.")
                             .arg(QDir::toNativeSeparators(modelDirectory)));
    const QByteArray hmm = QFile::encodeName(acousticModel(modelDirectory));
    const QByteArray lm = QFile::encodeName(languageModel(modelDirectory));
    const QByteArray dict = QFile::encodeName(dictionary(modelDirectory));
    config_ = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.constData(), "-lm", lm.constData(), "-dict",
                          dict.constData(), "-logfn", "/dev/null", nullptr);
    if (config_)
        decoder_ = ps_init(config_);
    if (!decoder_) {
        if (config_)
            cmd_ln_free_r(config_);
        throw SystemError(QStringLiteral("PocketSphinx could not load its English model from %1.")
                              .arg(QDir::toNativeSeparators(modelDirectory)));
    }
    sampleRate_ = cmd_ln_float32_r(config_, "-samprate");
    framesPerSecond_ = cmd_ln_int32_r(config_, "-frate");
    if (ps_start_utt(decoder_) < 0) {
        ps_free(decoder_);
        cmd_ln_free_r(config_);
        throw SystemError(QStringLiteral("PocketSphinx could not start decoding."));
    }
}

PocketSphinxEngine::~PocketSphinxEngine()
{
    ps_free(decoder_);
    cmd_ln_free_r(config_);
}

std::vector<SpeechResult> PocketSphinxEngine::feed(std::span<const float> samples)
{
    std::vector<SpeechResult> results;
    if (finished_ || aborted_.load())
        return results;
    const auto started = std::chrono::steady_clock::now();
    pending_.insert(pending_.end(), samples.begin(), samples.end());
    std::size_t offset = 0;
    for (; offset + chunkSamples <= pending_.size() && !aborted_.load(); offset += chunkSamples)
        process(std::span<const float>(pending_).subspan(offset, chunkSamples), results);
    pending_.erase(pending_.begin(), pending_.begin() + std::ptrdiff_t(offset));
    if (inUtterance_ && !aborted_.load()) {
        const char *hypothesis = ps_get_hyp(decoder_, nullptr);
        const QString text = QString::fromUtf8(hypothesis ? hypothesis : "").trimmed();
        if (text != partial_) {
            partial_ = text;
            results.push_back(SpeechResult{text, origin_, seconds(fed_), false});
        }
    }
    decodeSeconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    return results;
}

void PocketSphinxEngine::process(std::span<const float> chunk, std::vector<SpeechResult> &results)
{
    int16 converted[chunkSamples];
    for (std::size_t i = 0; i < chunk.size(); ++i)
        converted[i] = int16(std::lround(std::clamp(chunk[i], -1.0f, 1.0f) * 32767.0f));
    const std::int64_t before = fed_;
    if (ps_process_raw(decoder_, converted, chunk.size(), FALSE, FALSE) < 0)
        throw SystemError(QStringLiteral("PocketSphinx could not process the audio."));
    fed_ += std::int64_t(chunk.size());
    const bool inSpeech = ps_get_in_speech(decoder_);
    if (inSpeech && !inUtterance_) {
        inUtterance_ = true;
        origin_ = std::max(lastEnd_, seconds(before) - prespeechSeconds);
    } else if (!inSpeech && inUtterance_) {
        endUtterance(results);
    }
}

void PocketSphinxEngine::endUtterance(std::vector<SpeechResult> &results)
{
    inUtterance_ = false;
    if (ps_end_utt(decoder_) < 0)
        throw SystemError(QStringLiteral("PocketSphinx could not finish an utterance."));
    const char *hypothesis = ps_get_hyp(decoder_, nullptr);
    const QString text = QString::fromUtf8(hypothesis ? hypothesis : "").trimmed();

    // The words' own frames, without the silences and fillers around them.
    int firstFrame = -1;
    int lastFrame = -1;
    for (ps_seg_t *seg = ps_seg_iter(decoder_); seg; seg = ps_seg_next(seg)) {
        const char *word = ps_seg_word(seg);
        if (!word || word[0] == '<' || word[0] == '[' || word[0] == '+')
            continue;
        int start = 0;
        int end = 0;
        ps_seg_frames(seg, &start, &end);
        if (firstFrame < 0)
            firstFrame = start;
        lastFrame = std::max(lastFrame, end + 1);
    }
    // The decoder numbers frames from the start of the whole stream, not of
    // the utterance: a word's frame is its time in the audio fed.
    const double now = seconds(fed_);
    double start = origin_;
    double end = now;
    if (firstFrame >= 0) {
        start = std::clamp(firstFrame / framesPerSecond_, std::min(lastEnd_, now), now);
        end = std::clamp(lastFrame / framesPerSecond_, start, now);
    }
    if (!text.isEmpty()) {
        results.push_back(SpeechResult{text, start, end, true});
        lastEnd_ = end;
    } else if (!partial_.isEmpty()) {
        // The decoder heard noise, not words: the volatile text goes.
        results.push_back(SpeechResult{QString(), start, end, false});
    }
    partial_.clear();
    if (ps_start_utt(decoder_) < 0)
        throw SystemError(QStringLiteral("PocketSphinx could not start decoding."));
}

std::vector<SpeechResult> PocketSphinxEngine::finish()
{
    std::vector<SpeechResult> results;
    if (finished_ || aborted_.load())
        return results;
    finished_ = true;
    if (!pending_.empty())
        process(pending_, results);
    pending_.clear();
    if (!inUtterance_) {
        // Speech the detector had not confirmed yet may still be in the decoder.
        origin_ = std::max(lastEnd_, seconds(fed_) - prespeechSeconds);
    }
    endUtterance(results);
    ps_end_utt(decoder_);
    return results;
}

} // namespace kestil
