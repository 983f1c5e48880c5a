#include "capture/ProcessTapRecorder.h"

#include "base/Error.h"
#include "capture/CapturedBuffer.h"
#include "capture/DurableAudioWriter.h"
#include "capture/MicrophoneSource.h"
#include "capture/PulseConnection.h"
#include "capture/RecordingFolder.h"
#include "capture/SystemAudioSource.h"

#include <QMetaObject>
#include <QPointer>

#include <algorithm>
#include <atomic>
#include <utility>

#include <sys/resource.h>
#include <unistd.h>

namespace kestil {

namespace {

const QString inProgressText = QStringLiteral("A transcription session is already in progress.");
// Linux has no microphone permission: this is the text for a computer whose
// sound server cannot be reached or offers no input.
const QString accessDeniedText =
    QStringLiteral("Microphone access was denied. Enable it in your system's sound settings.");
const QString noSessionText = QStringLiteral("No transcription session.");
const QString noMicrophoneText = QStringLiteral("No microphone input is available.");
const QString systemAudioUnavailableText = QStringLiteral("System audio capture is unavailable.");

constexpr int clockIntervalMilliseconds = 250;

// Whether the sound server answers and has an input with a usable format.
bool soundServerOffersInput()
{
    try {
        PulseConnection connection;
        connection.connect();
        const PulseServerInfo server = connection.serverInfo();
        if (server.defaultSourceName.isEmpty())
            return false;
        const auto source = connection.sourceInfo(server.defaultSourceName);
        return source && source->sampleSpec.rate > 0 && source->sampleSpec.channels > 0;
    } catch (const std::exception &) {
        return false;
    }
}

// Runs `call` on the recorder's thread, later, unless the recorder is gone by
// then. Used from the audio path, which must never wait for the main thread.
template <typename Call> void post(const QPointer<ProcessTapRecorder> &recorder, Call call)
{
    if (ProcessTapRecorder *target = recorder.data())
        QMetaObject::invokeMethod(
            target,
            [recorder, call = std::move(call)]() mutable {
                if (recorder)
                    call(*recorder);
            },
            Qt::QueuedConnection);
}

} // namespace

ProcessTapRecorder::Environment ProcessTapRecorder::Environment::system()
{
    Environment environment;
    environment.microphoneAccess = soundServerOffersInput;
    environment.makeSource = [](bool systemAudio) -> std::unique_ptr<AudioSource> {
        if (systemAudio)
            return std::make_unique<SystemAudioSource>();
        return std::make_unique<MicrophoneSource>();
    };
    environment.startLiveSpeech = [](const QString &locale, LiveSpeechSession::ResultCallback onResult) {
        // No failure callback: a feed failure is told by finish(), at stop.
        return LiveSpeechSession::start(locale, {}, std::move(onResult));
    };
    return environment;
}

ProcessTapRecorder::ProcessTapRecorder(QObject *parent) : ProcessTapRecorder(Environment::system(), parent) {}

ProcessTapRecorder::ProcessTapRecorder(Environment environment, QObject *parent)
    : QObject(parent), environment_(std::move(environment)), clock_(environment_.now)
{
    // One wait of a start and one of a stop can overlap, never more.
    workers_.setMaxThreadCount(2);
    finalAudioBuilds_.setMaxThreadCount(1);
}

ProcessTapRecorder::~ProcessTapRecorder()
{
    timer_.reset();
    if (source_)
        source_->invalidate();
    queue_.sync();
    workers_.waitForDone();
    // Builds not yet begun are dropped (an export builds what it needs); the
    // one under way ends first, so that no thread outlives the recorder.
    finalAudioBuilds_.clear();
    finalAudioBuilds_.waitForDone();
    if (liveSpeech_)
        liveSpeech_->cancel();
    liveSpeech_.reset();
    source_.reset();
    // The writer closes its raw file without marking the segment complete:
    // the next launch recovers it like any interrupted recording.
    writer_.reset();
}

template <typename Work, typename Done> void ProcessTapRecorder::runInBackground(Work work, Done done)
{
    // The destructor waits for the workers, so `this` outlives every job; a
    // continuation posted after the recorder died is dropped with it.
    workers_.start([this, work = std::move(work), done = std::move(done)]() mutable {
        auto result = work();
        QMetaObject::invokeMethod(
            this, [done = std::move(done), result = std::move(result)]() mutable { done(std::move(result)); },
            Qt::QueuedConnection);
    });
}

void ProcessTapRecorder::buildFinalAudioLater(const QString &segment)
{
    finalAudioBuilds_.start([segment] {
        // Behind the capture and the interface on a busy computer.
        ::setpriority(PRIO_PROCESS, id_t(::gettid()), 10);
        try {
            DurableAudioWriter::finalAudioURL(segment);
        } catch (const std::exception &error) {
            // The raw audio is the recording and stays whole; whoever needs
            // the playable file builds it again.
            qWarning("The playable audio of a finished segment could not be built: %s", error.what());
        }
    });
}

QString ProcessTapRecorder::fullTranscript() const
{
    QStringList parts;
    if (!existingTranscript_.isEmpty())
        parts << existingTranscript_;
    const QString finalized = transcriptValue_.finalizedText();
    if (!finalized.isEmpty())
        parts << finalized;
    return parts.join(QLatin1Char(' '));
}

QList<TranscriptUtterance> ProcessTapRecorder::combinedUtterances() const
{
    return combinedTranscriptUtterances(existingUtterances_, transcriptValue_.utterances,
                                        transcriptTimeOffset_);
}

bool ProcessTapRecorder::errorIsSpeechWarning() const
{
    return !errorMessage_.isEmpty() && errorMessage_ == speechWarning_;
}

QFuture<void> ProcessTapRecorder::start(const QString &root, const QUuid &noteID, bool systemAudio)
{
    auto promise = std::make_shared<QPromise<void>>();
    promise->start();
    QFuture<void> future = promise->future();
    if (recording_ || starting_ || finishing_) {
        promise->setException(std::make_exception_ptr(LocalError(inProgressText)));
        promise->finish();
        return future;
    }
    setStarting(true);
    runInBackground([access = environment_.microphoneAccess] { return access ? access() : true; },
                    [this, promise, request = StartRequest{root, noteID, systemAudio}](bool granted) {
                        continueStart(promise, request, granted);
                    });
    return future;
}

void ProcessTapRecorder::continueStart(const std::shared_ptr<QPromise<void>> &promise,
                                       const StartRequest &request, bool accessGranted)
{
    if (!accessGranted) {
        failStart(promise, std::make_exception_ptr(LocalError(accessDeniedText)));
        return;
    }
    root_ = request.root;
    noteID_ = request.noteID;
    systemAudio_ = request.systemAudio;

    double recorded = 0;
    try {
        recorded = DurableAudioWriter::recordedDuration(RecordingFolder::noteFolder(root_, *noteID_));
    } catch (const std::exception &) {
        failStart(promise, std::current_exception());
        return;
    }
    // A continued note's new words come after its earlier audio, even where
    // the earlier audio and transcript disagree.
    double lastEnd = 0;
    for (const TranscriptUtterance &utterance : std::as_const(existingUtterances_))
        if (utterance.end)
            lastEnd = std::max(lastEnd, *utterance.end);
    transcriptTimeOffset_ = std::max(recorded, lastEnd);

    clock_.reset();
    setElapsed(0);
    setErrorMessage({});
    speechWarning_.clear();
    const quint64 session = ++session_;
    applyTranscript(LocalTranscript{});

    // Live speech first, ready before the first buffer: capture never begins
    // before the engine can take what it hears.
    runInBackground(
        [self = QPointer<ProcessTapRecorder>(this), start = environment_.startLiveSpeech,
         locale = speechLocale_, session] {
            std::pair<std::shared_ptr<LiveSpeechSession>, std::exception_ptr> result;
            if (!start)
                return result;
            auto onResult = [self, session](const LocalTranscript &transcript) {
                post(self, [session, transcript](ProcessTapRecorder &recorder) {
                    if (recorder.session_ == session)
                        recorder.applyTranscript(transcript);
                });
            };
            try {
                result.first = std::shared_ptr<LiveSpeechSession>(start(locale, std::move(onResult)));
            } catch (...) {
                result.second = std::current_exception();
            }
            return result;
        },
        [this, promise](std::pair<std::shared_ptr<LiveSpeechSession>, std::exception_ptr> result) {
            finishStart(promise, std::move(result.first), result.second);
        });
}

void ProcessTapRecorder::finishStart(const std::shared_ptr<QPromise<void>> &promise,
                                     std::shared_ptr<LiveSpeechSession> session,
                                     std::exception_ptr speechError)
{
    if (speechError || !session) {
        QString reason = QStringLiteral("On-device speech did not start.");
        if (speechError) {
            try {
                std::rethrow_exception(speechError);
            } catch (const std::exception &error) {
                reason = describe(error);
            }
        }
        speechWarning_ = QStringLiteral("Live transcription unavailable: ") + reason +
                         QStringLiteral(" Captured audio remains available locally.");
        setErrorMessage(speechWarning_);
    } else {
        liveSpeech_ = std::move(session);
    }

    try {
        startCapture();
    } catch (const std::exception &) {
        const std::exception_ptr error = std::current_exception();
        if (auto speech = std::exchange(liveSpeech_, nullptr))
            speech->cancel();
        failStart(promise, error);
        return;
    }

    setRecording(true);
    setPaused(false);
    emit processTapRecordingStateChanged(this);

    timer_ = std::make_unique<QTimer>();
    timer_->setInterval(clockIntervalMilliseconds);
    connect(timer_.get(), &QTimer::timeout, this, &ProcessTapRecorder::tick);
    timer_->start();

    setStarting(false);
    promise->finish();
    runStopsAskedWhileStarting();
}

void ProcessTapRecorder::failStart(const std::shared_ptr<QPromise<void>> &promise, std::exception_ptr error)
{
    setStarting(false);
    promise->setException(error);
    promise->finish();
    runStopsAskedWhileStarting();
}

void ProcessTapRecorder::runStopsAskedWhileStarting()
{
    const auto waiting = std::exchange(stopsAfterStart_, {});
    for (const auto &promise : waiting) {
        if (finishing_) {
            promise->addResult(transcription_);
            promise->finish();
        } else {
            runStop(promise);
        }
    }
}

void ProcessTapRecorder::startCapture()
{
    if (root_.isEmpty() || !noteID_)
        throw LocalError(noSessionText);
    const QString segment = RecordingFolder::newSegmentFolder(root_, *noteID_);

    // Replacing the previous source (if a failed start left one) ends it.
    source_ = environment_.makeSource ? environment_.makeSource(systemAudio_) : nullptr;
    if (!source_)
        throw LocalError(systemAudio_ ? systemAudioUnavailableText : noMicrophoneText);
    source_->prepare();
    const std::optional<AudioFormat> format = source_->format();
    if (!format || !(format->sampleRate > 0) || format->channelCount <= 0) {
        const QString reason = source_->errorMessage();
        if (!reason.isEmpty())
            throw LocalError(reason);
        throw LocalError(systemAudio_ ? systemAudioUnavailableText : noMicrophoneText);
    }

    // A writer left by a failed start closes its file here, incomplete.
    writer_ = std::make_shared<DurableAudioWriter>(segment, *noteID_, format->sampleRate);

    // The block holds the recorder weakly and the writer and live session
    // strongly: both are safe from any thread. After the first failure it
    // takes no more audio, so the raw file never gets a gap.
    const QPointer<ProcessTapRecorder> self(this);
    const quint64 session = session_;
    auto failed = std::make_shared<std::atomic<bool>>(false);
    auto fail = [self, session, failed](const QString &description) {
        if (failed->exchange(true))
            return;
        post(self, [description, session](ProcessTapRecorder &recorder) {
            recorder.captureFailure(description, session);
        });
    };
    auto block = [self, session, fail, failed, writer = writer_, speech = liveSpeech_, format = *format,
                  scratch = std::make_shared<std::vector<float>>()](AudioBufferList buffers) {
        if (failed->load())
            return;
        CapturedBuffer captured;
        try {
            // Audio reaches the disk before anything else sees it.
            captured = captureBuffer(buffers, format.sampleFormat, *writer, *scratch);
        } catch (const std::exception &error) {
            fail(describe(error));
            return;
        }
        if (speech && !captured.mono.empty())
            speech->append(captured.mono.data(), qsizetype(captured.mono.size_bytes()), format.sampleRate);
        post(self, [peak = captured.peak, session](ProcessTapRecorder &recorder) {
            if (recorder.session_ == session && recorder.recording_ && !recorder.paused_)
                recorder.setCurrentAudioLevel(peak);
        });
    };
    source_->run(queue_, std::move(block), {}, fail);
    clock_.beginStretch();
}

std::exception_ptr ProcessTapRecorder::stopCapture()
{
    if (clock_.running())
        setElapsed(clock_.endStretch());
    // Source off, then one pass through the capture queue: every buffer in
    // flight has reached the writer, and none comes after completion.
    if (source_) {
        source_->invalidate();
        source_.reset();
    }
    queue_.sync();
    std::exception_ptr result;
    if (writer_) {
        try {
            writer_->complete();
            buildFinalAudioLater(writer_->directory());
        } catch (const std::exception &error) {
            setErrorMessage(QStringLiteral("Audio could not be finalized: ") + describe(error) +
                            QStringLiteral(". Raw capture was retained."));
            result = std::current_exception();
        }
    }
    writer_.reset();
    return result;
}

void ProcessTapRecorder::togglePause()
{
    if (!recording_ || starting_ || finishing_)
        return;
    if (!paused_) {
        const std::exception_ptr error = stopCapture();
        clock_.setPreviousElapsed(elapsed_);
        setPaused(true);
        // The live session stays and simply hears nothing: its times run on
        // in audio, without a gap.
        if (error)
            std::rethrow_exception(error);
    } else {
        startCapture();
        setPaused(false);
    }
}

QFuture<QString> ProcessTapRecorder::stop()
{
    auto promise = std::make_shared<QPromise<QString>>();
    promise->start();
    QFuture<QString> future = promise->future();
    if (finishing_) {
        promise->addResult(transcription_);
        promise->finish();
        return future;
    }
    if (starting_) {
        stopsAfterStart_.append(promise);
        return future;
    }
    runStop(promise);
    return future;
}

void ProcessTapRecorder::runStop(const std::shared_ptr<QPromise<QString>> &promise)
{
    setFinishing(true);
    // Its message is in errorMessage already.
    (void)stopCapture();

    timer_.reset();
    const bool wasRecording = recording_;
    setRecording(false);
    setPaused(false);
    if (wasRecording)
        emit processTapRecordingStateChanged(this);

    const std::shared_ptr<LiveSpeechSession> speech = std::exchange(liveSpeech_, nullptr);
    if (!speech && finalAudioBuilds_.activeThreadCount() == 0) {
        finishStop(promise, std::nullopt, nullptr);
        return;
    }
    runInBackground(
        [speech, builds = &finalAudioBuilds_] {
            std::pair<std::optional<LocalTranscript>, std::exception_ptr> result;
            if (speech) {
                try {
                    result.first = speech->finish();
                } catch (...) {
                    result.second = std::current_exception();
                }
            }
            // The session's folders are final when the stop ends: what comes
            // next (a delete that moves them away, an export) never meets a
            // build under way.
            builds->waitForDone();
            return result;
        },
        [this, promise](std::pair<std::optional<LocalTranscript>, std::exception_ptr> result) {
            finishStop(promise, std::move(result.first), result.second);
        });
}

void ProcessTapRecorder::finishStop(const std::shared_ptr<QPromise<QString>> &promise,
                                    std::optional<LocalTranscript> final, std::exception_ptr speechError)
{
    if (final) {
        applyTranscript(*final);
    } else if (speechError) {
        QString reason;
        try {
            std::rethrow_exception(speechError);
        } catch (const std::exception &error) {
            reason = describe(error);
        }
        setErrorMessage(QStringLiteral("Live transcription could not finish: ") + reason +
                        QStringLiteral(". Audio is saved for retry."));
    }
    setCurrentAudioLevel(0);
    const QString text = transcription_;
    setFinishing(false);
    promise->addResult(text);
    promise->finish();
}

void ProcessTapRecorder::captureFailure(const QString &description, quint64 session)
{
    if (session != session_ || !recording_)
        return;
    setErrorMessage(QStringLiteral("Capture stopped: ") + description +
                    QStringLiteral(". Captured audio was preserved."));
    // The owner's stop saves the note's transcript the ordinary way.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (stopAction_)
                stopAction_();
            else
                stop();
        },
        Qt::QueuedConnection);
}

void ProcessTapRecorder::applyTranscript(const LocalTranscript &transcript)
{
    const QString text = transcript.fullText();
    if (transcription_ != text) {
        transcription_ = text;
        emit transcriptionChanged(transcription_);
    }
    transcriptValue_ = transcript;
    emit transcriptValueChanged();
    if (onTranscript_)
        onTranscript_(transcript);
}

void ProcessTapRecorder::tick()
{
    if (clock_.running() && !paused_)
        setElapsed(clock_.reading());
}

void ProcessTapRecorder::setRecording(bool value)
{
    if (recording_ == value)
        return;
    recording_ = value;
    emit recordingChanged(value);
}

void ProcessTapRecorder::setPaused(bool value)
{
    if (paused_ == value)
        return;
    paused_ = value;
    emit pausedChanged(value);
}

void ProcessTapRecorder::setStarting(bool value)
{
    if (starting_ == value)
        return;
    starting_ = value;
    emit startingChanged(value);
}

void ProcessTapRecorder::setFinishing(bool value)
{
    if (finishing_ == value)
        return;
    finishing_ = value;
    emit finishingChanged(value);
}

void ProcessTapRecorder::setErrorMessage(const QString &value)
{
    if (errorMessage_ == value)
        return;
    errorMessage_ = value;
    emit errorMessageChanged(value);
}

void ProcessTapRecorder::setElapsed(double value)
{
    if (elapsed_ == value)
        return;
    elapsed_ = value;
    emit elapsedChanged(value);
}

void ProcessTapRecorder::setCurrentAudioLevel(float value)
{
    if (currentAudioLevel_ == value)
        return;
    currentAudioLevel_ = value;
    emit currentAudioLevelChanged(value);
}

} // namespace kestil
