#pragma once

#include "SpeechEngine.h"

#include <QString>

#include <atomic>
#include <cstdint>

struct cmd_ln_s;
struct ps_decoder_s;

namespace kestil {

// Streaming English recognition with PocketSphinx and Debian's en-us model.
// The decoder's own voice-activity detection splits the audio into
// utterances: while one runs, its partial hypothesis is the volatile result;
// when it ends, its hypothesis is final, timed by the words' frames, which
// the decoder counts from the start of the audio.
class PocketSphinxEngine : public SpeechEngine {
public:
    // The folder that holds en-us/ (the acoustic model), en-us.lm.bin and
    // cmudict-en-us.dict. Throws LocalError when the model is missing and
    // SystemError when PocketSphinx cannot load it.
    explicit PocketSphinxEngine(const QString &modelDirectory);
    ~PocketSphinxEngine() override;
    PocketSphinxEngine(const PocketSphinxEngine &) = delete;
    PocketSphinxEngine &operator=(const PocketSphinxEngine &) = delete;

    // Whether the folder holds every file the engine needs.
    static bool isModelPresent(const QString &modelDirectory);

    double sampleRate() const override { return sampleRate_; }
    std::vector<SpeechResult> feed(std::span<const float> samples) override;
    std::vector<SpeechResult> finish() override;
    void abort() override { aborted_.store(true); }

    // Wall time spent inside PocketSphinx so far, in seconds.
    double decodeSeconds() const { return decodeSeconds_; }

private:
    void process(std::span<const float> chunk, std::vector<SpeechResult> &results);
    void endUtterance(std::vector<SpeechResult> &results);
    double seconds(std::int64_t samples) const { return double(samples) / sampleRate_; }

    cmd_ln_s *config_ = nullptr;
    ps_decoder_s *decoder_ = nullptr;
    double sampleRate_ = 16000.0;
    double framesPerSecond_ = 100.0;
    // Samples short of a whole chunk, waiting for the next feed: the decoder
    // sees the same chunks however the audio was cut into buffers.
    std::vector<float> pending_;
    std::int64_t fed_ = 0;
    bool inUtterance_ = false;
    double origin_ = 0;  // where the running utterance began to be heard, in seconds
    double lastEnd_ = 0; // end of the last final
    QString partial_;
    bool finished_ = false;
    std::atomic<bool> aborted_{false};
    double decodeSeconds_ = 0;
};

} // namespace kestil
