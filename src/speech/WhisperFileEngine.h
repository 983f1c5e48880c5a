#pragma once

#include "SpeechEngine.h"
#include "VoiceActivity.h"
#include "WhisperContext.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

namespace kestil {

// Transcribes a whole recording with whisper.cpp as it was trained to read:
// 30-second windows with full context, each window conditioned on the text
// before it, times from whisper's own timestamps. Unlike the live engine
// nothing is read twice, which makes it several times faster than real time.
//
// Audio collects until a chunk is full (cut at its quietest moment near the
// end, most likely between two words) or input ends; each chunk is decoded
// once and its segments are reported final. Times are refined by the
// voice-activity measure to where speech begins and ends inside each segment,
// and a segment with no speech under it is dropped: whisper invents words on
// silence and noise, and the measure does not. A chunk without speech is not
// decoded at all.
class WhisperFileEngine : public SpeechEngine {
public:
    struct Options {
        // whisper.cpp's language code.
        QString language = QStringLiteral("en");
        QString initialPrompt;
        // Decoder threads; 0 chooses as WhisperContext::threads does.
        int threads = 0;
        // The longest stretch decoded in one call.
        double chunkSeconds = 120.0;
        // How far back from a full chunk's end to look for its quietest moment.
        double cutSearchSeconds = 5.0;
        // Speech shorter than this under a segment is a click, not words.
        double minimumSpeechSeconds = 0.2;
        VoiceActivity::Options voiceActivity;
        // Seconds of audio transcribed so far, called from the decoding
        // thread while a chunk is decoded and after each.
        std::function<void(double seconds)> progress;
    };

    static constexpr double rate = 16000.0;

    WhisperFileEngine(const QString &modelPath, Options options);

    double sampleRate() const override { return rate; }
    std::vector<SpeechResult> feed(std::span<const float> samples) override;
    std::vector<SpeechResult> finish() override;
    void abort() override { aborted_.store(true); }

    // Wall time spent inside whisper.cpp so far, in seconds.
    double decodeSeconds() const { return decodeSeconds_; }

private:
    void classifyNewFrames();
    std::size_t cutFrame() const;
    void decodeChunk(std::size_t frames, std::vector<SpeechResult> &results);
    double seconds(std::int64_t sample) const { return double(sample) / rate; }

    Options options_;
    WhisperContext model_;
    QByteArray prompt_;
    int threads_ = 1;
    VoiceActivity voiceActivity_;
    const std::size_t frameLength_;
    std::vector<float> pending_;       // audio not decoded yet
    std::int64_t pendingStart_ = 0;    // absolute sample of pending_[0]
    std::vector<std::uint8_t> speech_; // one flag per complete frame of pending_
    std::vector<float> levels_;        // the level of each frame, in dB
    double lastEnd_ = 0;               // end of the last result, in seconds
    bool firstChunk_ = true;
    bool finished_ = false;
    std::atomic<bool> aborted_{false};
    double decodeSeconds_ = 0;
};

} // namespace kestil
