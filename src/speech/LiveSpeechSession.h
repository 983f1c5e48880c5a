#pragma once

#include "BoundedAudioQueue.h"
#include "LocalTranscript.h"
#include "SpeechEngine.h"
#include "StreamResampler.h"

#include "base/Error.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace kestil {

class PreferenceStore;

// Turns the recorder's mono float audio into a growing LocalTranscript while
// capture runs. It sits beside the audio path, never in it: append() copies,
// converts and queues a buffer and returns without waiting for the engine,
// which runs on the session's own worker thread. When the engine cannot keep
// up, the bounded input refuses a buffer and the session stops taking audio on
// purpose; finish() then says why. Safe to call from any thread.
class LiveSpeechSession {
public:
    // Called with each new transcript, on the session's worker thread; the
    // receiver hops to its own thread. It must not call back into the session.
    using ResultCallback = std::function<void(const LocalTranscript &)>;
    // Called once with the first failure, at the moment it happens, on the
    // thread that met it, while the session holds its lock: it must not call
    // back into the session.
    using FailureCallback = std::function<void(const Error &)>;

    // The number of buffers that may wait for the engine: at 4096-frame
    // buffers, about 11 seconds of audio at 48 kHz.
    static constexpr std::size_t inputLimit = 128;

    // Gets the speech configuration for the locale (LocalSpeech), loads its
    // engine and starts the worker. Throws with the reason when speech cannot
    // start; a failed preparation is recorded under "localSpeechLastFailure",
    // a good start removes that preference.
    static std::unique_ptr<LiveSpeechSession> start(const QString &locale, FailureCallback failure,
                                                    ResultCallback onResult);
    static std::unique_ptr<LiveSpeechSession> start(const QString &locale, FailureCallback failure,
                                                    ResultCallback onResult, PreferenceStore &preferences);

    // A running session over an engine that is ready.
    LiveSpeechSession(std::unique_ptr<SpeechEngine> engine, FailureCallback failure, ResultCallback onResult);
    // Cancels a session that was neither finished nor cancelled.
    ~LiveSpeechSession();

    LiveSpeechSession(const LiveSpeechSession &) = delete;
    LiveSpeechSession &operator=(const LiveSpeechSession &) = delete;

    // `bytes` bytes of 32-bit floats, one channel, at `sampleRate`. Reports
    // nothing to the caller: a failure is kept for finish() (and told to the
    // failure callback), and from then on audio is dropped here, since it is
    // on disk already.
    void append(const void *data, qsizetype bytes, double sampleRate);
    void append(const QByteArray &data, double sampleRate)
    {
        append(data.constData(), data.size(), sampleRate);
    }

    // Ends the input, lets the engine work through everything queued, turns
    // volatile text final and returns the final transcript. Blocks until then.
    // Throws the first failure of the feed if there was one (it wins over any
    // later error), otherwise the engine's error.
    LocalTranscript finish();

    // Abandons everything now. Never fails.
    void cancel();

    // The sample rate of the audio the engine takes.
    double format() const { return format_; }

private:
    void appendLocked(const void *data, qsizetype bytes, double sampleRate);
    void failLocked(std::exception_ptr error);
    void pushLocked(std::vector<float> &&buffer);
    void run();
    void deliver(const std::vector<SpeechResult> &results);

    std::unique_ptr<SpeechEngine> engine_;
    const double format_;
    const FailureCallback failure_;
    const ResultCallback onResult_;
    BoundedAudioQueue queue_{inputLimit};

    // Guards converter_, inputRate_ and conversionError_, and makes appends
    // one at a time.
    std::mutex lock_;
    std::unique_ptr<StreamResampler> converter_;
    double inputRate_ = 0;
    std::exception_ptr conversionError_;

    // What the worker is told once the input has ended.
    std::mutex controlMutex_;
    std::condition_variable control_;
    bool finalize_ = false;
    bool cancelled_ = false;

    // Written by the worker only; read after it has been joined.
    LocalTranscript transcript_;
    std::exception_ptr analysisError_;

    std::thread worker_;
    std::atomic<bool> ended_{false};
};

} // namespace kestil
