#pragma once

// What the recording-session tests drive the recorder with: an event loop to
// wait in, sources that deliver chosen buffers, a clock that moves when told,
// and recording folders written by the real writer.

#include "base/Error.h"
#include "capture/AudioFileSource.h"
#include "capture/DurableAudioWriter.h"
#include "capture/LocalRecordingManifest.h"
#include "capture/ProcessTapRecorder.h"
#include "capture/RecordingFolder.h"
#include "speech/LiveSpeechSession.h"
#include "speech/engines/ScriptedSpeechEngine.h"
#include "support/QtPrinters.h"
#include "support/SoundFiles.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFuture>
#include <QThread>

#include <sndfile.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace kestil::test {

// The process's one application object, for the recorder's event loop.
inline QCoreApplication &application()
{
    static int argc = 1;
    static char name[] = "kestil-tests";
    static char *argv[] = {name, nullptr};
    static QCoreApplication *app = QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
    return app ? *app : *QCoreApplication::instance();
}

// Runs the event loop until the condition holds; false on time-out.
inline bool waitUntil(const std::function<bool()> &condition,
                      std::chrono::milliseconds timeout = std::chrono::seconds(20))
{
    QDeadlineTimer deadline(timeout);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(1);
    }
    return true;
}

template <typename T>
bool waitFor(const QFuture<T> &future, std::chrono::milliseconds timeout = std::chrono::seconds(20))
{
    return waitUntil([&] { return future.isFinished(); }, timeout);
}

// Lets the queued calls that are due run.
inline void settle(std::chrono::milliseconds duration = std::chrono::milliseconds(50))
{
    QDeadlineTimer deadline(duration);
    while (!deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
}

// The text of the exception a finished future holds, or "(no error)".
template <typename T> QString failureOf(QFuture<T> future)
{
    try {
        future.waitForFinished();
        if constexpr (!std::is_void_v<T>)
            (void)future.result();
    } catch (const std::exception &error) {
        return describe(error);
    }
    return QStringLiteral("(no error)");
}

// The segment folders of a note, oldest first.
inline QStringList segmentsOf(const QString &root, const QUuid &noteID)
{
    QDir folder(RecordingFolder::noteFolder(root, noteID));
    QMap<std::pair<double, QString>, QString> found;
    for (const QString &name : folder.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        double createdAt = 0;
        try {
            createdAt = LocalRecordingManifest::read(folder.filePath(name)).createdAt;
        } catch (const std::exception &) {
        }
        found.insert({createdAt, name}, folder.filePath(name));
    }
    return found.values();
}

// A WAV file of a 440 Hz sine at amplitude 0.4.
inline QString writeTone(const QString &path, double seconds, int sampleRate = 16000)
{
    writeSoundFile(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, sampleRate, 1,
                   sine(440, sampleRate, qint64(seconds * sampleRate), 0.4f));
    return path;
}

// A finished segment of `seconds` of silence, written by the real writer.
inline QString writeSegment(const QString &root, const QUuid &noteID, double seconds)
{
    const QString segment = RecordingFolder::newSegmentFolder(root, noteID);
    DurableAudioWriter writer(segment, noteID, 16000);
    writer.append(std::vector<float>(size_t(seconds * 16000), 0.0f));
    writer.complete();
    return segment;
}

// The handlers a scripted source was given, for late calls, and its stops.
struct SourceProbe {
    std::atomic<int> invalidations{0};
    AudioSource::InputBlock block;
    AudioSource::FailureHandler failure;
};

// Delivers a fixed set of buffers, of any encoding, when it runs; or fails
// to prepare or to run as told.
class ScriptedSource : public AudioSource {
public:
    struct Script {
        std::optional<AudioFormat> format;
        QString errorMessage;
        QString runError;
        // Each entry is the bytes of one buffer list of one buffer.
        std::vector<std::vector<unsigned char>> buffers;
        // Before the buffer at this index the source reports that it ended
        // on its own, with this text; the buffers after it still arrive.
        int failureAt = -1;
        QString failure;
    };

    ScriptedSource(Script script, std::shared_ptr<SourceProbe> probe)
        : script_(std::move(script)), probe_(std::move(probe))
    {
    }

    void prepare() override {}
    std::optional<AudioFormat> format() const override { return script_.format; }
    QString errorMessage() const override { return script_.errorMessage; }

    void run(CaptureQueue &queue, InputBlock block, InvalidationHandler, FailureHandler failure) override
    {
        if (!script_.runError.isEmpty())
            throw SystemError(script_.runError);
        probe_->block = block;
        probe_->failure = failure;
        for (int i = 0; i < int(script_.buffers.size()); ++i) {
            if (i == script_.failureAt && failure)
                queue.async([failure, text = script_.failure] { failure(text); });
            queue.async([block, bytes = script_.buffers[size_t(i)]] {
                const AudioBuffer buffer{1, bytes.data(), qint64(bytes.size())};
                block(AudioBufferList(&buffer, 1));
            });
        }
    }

    void invalidate() override { ++probe_->invalidations; }

private:
    Script script_;
    std::shared_ptr<SourceProbe> probe_;
};

// The recorder's surroundings in a test: scripted speech, a source factory,
// and a clock that, when `manualClock` is set, moves only when told.
struct RecorderRig {
    std::shared_ptr<EngineProbe> engine = std::make_shared<EngineProbe>();
    std::function<std::unique_ptr<AudioSource>(bool systemAudio)> makeSource;
    bool access = true;
    // When set, live speech cannot start and says this.
    QString speechFailure;
    // When set, the start of live speech waits for it.
    std::shared_ptr<Latch> speechStartGate;
    std::shared_ptr<std::atomic<int>> speechStarts = std::make_shared<std::atomic<int>>(0);
    bool manualClock = false;
    std::shared_ptr<std::atomic<qint64>> clockNanoseconds = std::make_shared<std::atomic<qint64>>(0);
    // The file sources made so far, newest last.
    std::shared_ptr<std::vector<AudioFileSource *>> fileSources =
        std::make_shared<std::vector<AudioFileSource *>>();

    void advanceClock(double seconds) { *clockNanoseconds += qint64(seconds * 1e9); }

    // Every segment reads the whole file, as fast as the recorder takes it.
    void useFile(const QString &path, AudioFileSource::Pace pace = AudioFileSource::Pace::asFastAsConsumed)
    {
        makeSource = [path, pace, made = fileSources](bool) -> std::unique_ptr<AudioSource> {
            auto source = std::make_unique<AudioFileSource>(path, pace);
            made->push_back(source.get());
            return source;
        };
    }

    void useScript(ScriptedSource::Script script, std::shared_ptr<SourceProbe> probe)
    {
        makeSource = [script, probe](bool) -> std::unique_ptr<AudioSource> {
            return std::make_unique<ScriptedSource>(script, probe);
        };
    }

    // Waits until the newest file source has handed over its whole file.
    bool waitForFileDelivered()
    {
        return !fileSources->empty() && fileSources->back()->waitUntilFinished(std::chrono::seconds(20));
    }

    ProcessTapRecorder::Environment environment() const
    {
        ProcessTapRecorder::Environment environment;
        environment.microphoneAccess = [granted = access] { return granted; };
        environment.makeSource = makeSource;
        environment.startLiveSpeech =
            [probe = engine, failure = speechFailure, gate = speechStartGate, starts = speechStarts](
                const QString &,
                LiveSpeechSession::ResultCallback onResult) -> std::unique_ptr<LiveSpeechSession> {
            ++*starts;
            if (gate)
                gate->wait();
            if (!failure.isEmpty())
                throw LocalError(failure);
            return std::make_unique<LiveSpeechSession>(std::make_unique<ScriptedSpeechEngine>(probe),
                                                       LiveSpeechSession::FailureCallback{},
                                                       std::move(onResult));
        };
        if (manualClock)
            environment.now = [ns = clockNanoseconds] {
                return SessionClock::TimePoint(std::chrono::nanoseconds(ns->load()) + std::chrono::hours(1));
            };
        return environment;
    }
};

} // namespace kestil::test
