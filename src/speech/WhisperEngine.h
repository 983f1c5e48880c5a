#pragma once

#include "SpeechEngine.h"
#include "VoiceActivity.h"
#include "WhisperContext.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

struct whisper_context;

namespace kestil {

// Live transcription with whisper.cpp over a sliding window of the audio fed
// so far, at 16 kHz mono.
//
// Audio collects in a window until a stretch of it settles: when a pause
// follows speech, or when the window reaches its limit (then it is cut at its
// quietest moment). A settled stretch is decoded once more, with whisper's
// full context, and reported final, timed by where speech began and ended in
// it. Between settlements the unsettled tail is decoded quickly each time
// about a second of new audio has come in, and reported volatile. No decode
// ever yields a phrase twice: a decoder that loops is cut off where the
// repetition begins. When speech resumes after only a short pause, the new
// stretch is read together with the previous one and the result replaces that
// previous final: the same start time, longer text — whisper reads a sentence
// better whole than in halves.
//
// Whisper invents words on silent or noisy input, so nothing is decoded that
// the voice-activity measure does not call speech, and a decode whose
// no-speech probability is high yields nothing. A mostly silent system-audio
// stream thus adds no phantom sentences.
class WhisperEngine : public SpeechEngine {
public:
    struct Options {
        // whisper.cpp's language code ("en", "de", "zh", ...).
        QString language = QStringLiteral("en");
        // Text that steers the decoder, such as the script of Chinese.
        QString initialPrompt;
        // Decoder threads; 0 chooses as WhisperContext::threads does.
        int threads = 0;
        // Whether to report volatile text at all; a whole file needs finals only.
        bool volatileResults = true;
        // New audio between two volatile decodes, at least.
        double stepSeconds = 1.0;
        // The share of real time volatile decodes may take: after a decode
        // that took d seconds, the next waits for d / volatileShare seconds
        // of audio. On a slow machine the text thus comes in larger steps
        // instead of the engine falling behind the microphone.
        double volatileShare = 0.25;
        // Silence after speech that settles a stretch.
        double pauseSeconds = 0.6;
        // The window never grows beyond this; whisper reads at most 30 s.
        double maxWindowSeconds = 10.0;
        // A pause no longer than this lets the next stretch revise the last final.
        double mergeGapSeconds = 1.5;
        // Only a final this short is revised: a fragment is where whisper
        // gains most from reading on, and a long one would be costly to read again.
        double revisableSeconds = 4.0;
        // Speech shorter than this in a stretch is a click, not words.
        double minimumSpeechSeconds = 0.2;
        // Audio kept before the first speech frame and after the last one.
        double paddingSeconds = 0.2;
        // A decode with a higher no-speech probability gives no text.
        double noSpeechThreshold = 0.8;
        // Decoding stops after this many tokens per second of audio (plus a
        // few): real speech stays well below it, while a decoder caught in a
        // loop of repeated words does not.
        double tokensPerSecond = 6.0;
        VoiceActivity::Options voiceActivity;
    };

    static constexpr double rate = 16000.0;

    // Checks and loads the model file; throws kestil::Error naming the file
    // when it is missing, damaged or not a whisper model.
    WhisperEngine(const QString &modelPath, Options options);
    ~WhisperEngine() override;
    WhisperEngine(const WhisperEngine &) = delete;
    WhisperEngine &operator=(const WhisperEngine &) = delete;

    double sampleRate() const override { return rate; }
    std::vector<SpeechResult> feed(std::span<const float> samples) override;
    std::vector<SpeechResult> finish() override;
    void abort() override { aborted_.store(true); }

    // Time spent inside whisper.cpp so far, in seconds: on the clock, and on
    // the processor by the decoding thread (all of it with one decoder
    // thread). The two differ by the time other programs held the cores.
    double decodeSeconds() const { return decodeSeconds_; }
    double decodeProcessorSeconds() const { return decodeProcessorSeconds_; }

    // How much of whisper's 30-second context a decode reads: `full`, as the
    // model was trained, for every final; `quick`, only as far as the audio
    // goes and several times cheaper, for volatile text.
    enum class Context { quick, full };

    // Decodes a piece of audio once, with the no-speech gate, a phrase the
    // decoder repeats cut off; empty when it holds no words. Exposed for
    // set-up, which proves a model this way.
    QString decode(std::span<const float> samples, Context context = Context::full);

private:
    struct PreviousFinal {
        std::vector<float> audio; // from its decode start up to where the window begins now
        std::int64_t start = 0;   // first speech sample
        std::int64_t speechEnd = 0;
        bool revisable = false;
    };

    void classifyNewFrames();
    void settle(std::size_t cutFrame, bool atPause, std::vector<SpeechResult> &results);
    void dropLeadingSilence();
    void keepForRevision(std::span<const float> audio);
    std::size_t limitCutFrame() const;
    void eraseFrames(std::size_t frames);
    std::optional<std::size_t> firstSpeechFrame(std::size_t end) const;
    std::optional<std::size_t> lastSpeechFrame(std::size_t end) const;
    std::size_t speechFrames(std::size_t end) const;
    double seconds(std::int64_t sample) const { return double(sample) / rate; }

    Options options_;
    WhisperContext model_;
    whisper_context *context_ = nullptr;
    QByteArray prompt_;
    int threads_ = 1;
    std::atomic<bool> aborted_{false};
    double decodeSeconds_ = 0;
    double decodeProcessorSeconds_ = 0;

    VoiceActivity voiceActivity_;
    const std::size_t frameLength_;
    std::vector<float> window_;        // audio not settled yet
    std::int64_t windowStart_ = 0;     // absolute sample of window_[0]
    std::vector<std::uint8_t> speech_; // one flag per complete frame of window_
    std::vector<float> levels_;        // the level of each frame, in dB
    std::int64_t fed_ = 0;
    std::int64_t nextVolatileAt_ = 0;
    bool tentativeShown_ = false;
    std::optional<PreviousFinal> previous_;
    bool finished_ = false;
};

} // namespace kestil
