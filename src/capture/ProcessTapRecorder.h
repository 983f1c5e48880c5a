#pragma once

#include "capture/AudioSource.h"
#include "capture/CaptureQueue.h"
#include "capture/SessionClock.h"
#include "speech/LiveSpeechSession.h"
#include "speech/LocalTranscript.h"
#include "speech/TranscriptUtterance.h"

#include <QFuture>
#include <QList>
#include <QObject>
#include <QPromise>
#include <QString>
#include <QThreadPool>
#include <QTimer>
#include <QUuid>

#include <functional>
#include <memory>
#include <optional>

namespace kestil {

class DurableAudioWriter;

// One recording session: the audio source, the durable writer of the current
// segment, the live speech session, the session clock and the audio level,
// moved through start, pause, resume and stop in an order that never loses
// audio. Audio comes first: a live transcription that cannot start is a
// warning and capture goes on; a capture that fails stops the session and
// keeps everything written.
//
// One instance lives for the whole run of the program. Its state and every
// transition belong to the main thread. Each buffer is handled on the capture
// queue ("kestil.local.capture"): mixed to mono, written to disk, handed to
// live speech, measured; the level and any failure reach the main thread as
// queued calls that do nothing once the recorder is gone. Nothing on that
// path waits for the main thread.
//
// start() and stop() are asynchronous. The waits (the sound server check,
// the live session getting ready, the live session finishing) run on the
// recorder's own worker threads, and the rest of each operation continues on
// the main thread when they end, so the event loop keeps running meanwhile.
// While one waits, the flags `starting` and `finishing` refuse what must not
// overlap. The returned futures finish on the main thread; observe them with
// a QFutureWatcher (never block the main thread on them).
class ProcessTapRecorder : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool recording READ recording NOTIFY recordingChanged)
    Q_PROPERTY(bool paused READ paused NOTIFY pausedChanged)
    Q_PROPERTY(bool starting READ starting NOTIFY startingChanged)
    Q_PROPERTY(bool finishing READ finishing NOTIFY finishingChanged)
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY errorMessageChanged)
    Q_PROPERTY(double elapsed READ elapsed NOTIFY elapsedChanged)
    Q_PROPERTY(QString transcription READ transcription NOTIFY transcriptionChanged)
    Q_PROPERTY(float currentAudioLevel READ currentAudioLevel NOTIFY currentAudioLevelChanged)

public:
    // Called with every transcript update, on the main thread.
    using TranscriptCallback = std::function<void(const LocalTranscript &)>;

    // What the recorder takes from outside. The program uses system(): the
    // sound server and on-device speech; tests put a file source and a
    // scripted engine here.
    struct Environment {
        // Whether this computer offers a source that can be recorded at all.
        // Linux has no microphone permission; a sound server that cannot be
        // reached, or one without any input, takes its place. Runs on a
        // worker thread.
        std::function<bool()> microphoneAccess;
        // A new, unprepared source for one segment: the microphone alone, or
        // the microphone together with what the computer plays. Called on the
        // main thread.
        std::function<std::unique_ptr<AudioSource>(bool systemAudio)> makeSource;
        // A running live session for the locale, ready for audio; throws with
        // the reason when on-device speech cannot start. Runs on a worker
        // thread; the callback is called on the session's own thread.
        std::function<std::unique_ptr<LiveSpeechSession>(const QString &locale,
                                                         LiveSpeechSession::ResultCallback onResult)>
            startLiveSpeech;
        // The time of the session clock; the steady clock when empty.
        SessionClock::Now now;

        // The sound server's default source (or that source with the default
        // output's monitor) and LiveSpeechSession::start.
        static Environment system();
    };

    explicit ProcessTapRecorder(QObject *parent = nullptr);
    explicit ProcessTapRecorder(Environment environment, QObject *parent = nullptr);
    // A session still running is cut off as a crash would cut it: the source
    // stops, the raw audio stays with its manifest incomplete, and the next
    // launch recovers it.
    ~ProcessTapRecorder() override;

    ProcessTapRecorder(const ProcessTapRecorder &) = delete;
    ProcessTapRecorder &operator=(const ProcessTapRecorder &) = delete;

    // Observable state.
    // Capture is running, also while paused.
    bool recording() const { return recording_; }
    // Audio is not flowing; `recording` stays true.
    bool paused() const { return paused_; }
    // Between a start request and the end of start.
    bool starting() const { return starting_; }
    // Between a stop request and the return of the final text.
    bool finishing() const { return finishing_; }
    // What went wrong, for the user; empty when nothing did.
    const QString &errorMessage() const { return errorMessage_; }
    // Seconds on the session clock; restarts at 0 with each session.
    double elapsed() const { return elapsed_; }
    // The full text (final and tentative) of this session's latest transcript.
    const QString &transcription() const { return transcription_; }
    // Peak of the latest buffer, 0 to about 1.
    float currentAudioLevel() const { return currentAudioLevel_; }
    // This session's latest transcript, timed from the start of its audio.
    const LocalTranscript &transcriptValue() const { return transcriptValue_; }

    // The session's context, as the last start stored it.
    const QString &root() const { return root_; }
    const std::optional<QUuid> &noteID() const { return noteID_; }
    bool systemAudio() const { return systemAudio_; }
    // Seconds added to this session's utterance times: the note's earlier
    // audio or the end of its last utterance, whichever is later.
    double transcriptTimeOffset() const { return transcriptTimeOffset_; }
    // The text that errorMessage holds when live speech could not start.
    const QString &speechWarning() const { return speechWarning_; }

    // Set by the owner of the session before start.
    // The note's text before this session.
    void setExistingTranscript(const QString &text) { existingTranscript_ = text; }
    const QString &existingTranscript() const { return existingTranscript_; }
    // The note's utterances before this session.
    void setExistingUtterances(const QList<TranscriptUtterance> &utterances)
    {
        existingUtterances_ = utterances;
    }
    const QList<TranscriptUtterance> &existingUtterances() const { return existingUtterances_; }
    // Language of live speech, "en-US" until set.
    void setSpeechLocale(const QString &locale) { speechLocale_ = locale; }
    const QString &speechLocale() const { return speechLocale_; }
    void setOnTranscript(TranscriptCallback callback) { onTranscript_ = std::move(callback); }
    // What a capture failure runs to end the session: the owner's own stop,
    // so that its note gets the transcript saved in the ordinary way. Without
    // one, the recorder stops itself.
    void setStopAction(std::function<void()> action) { stopAction_ = std::move(action); }

    // The note's earlier text and this session's final text, each left out
    // when empty, joined by one blank.
    QString fullTranscript() const;
    // The note's earlier utterances followed by this session's final ones,
    // moved onto the note's timeline by transcriptTimeOffset.
    QList<TranscriptUtterance> combinedUtterances() const;
    // Whether errorMessage is the live-speech warning rather than a failure.
    bool errorIsSpeechWarning() const;

    // Starts a session recording into <root>/Recordings/<NOTE UUID>/: live
    // speech first and ready, then capture of the first segment. The future
    // fails with the reason when nothing could be started ("A transcription
    // session is already in progress." outside the idle state).
    QFuture<void> start(const QString &root, const QUuid &noteID, bool systemAudio);

    // Pauses (the segment is completed) or resumes (a new segment begins).
    // Does nothing unless recording and neither starting nor finishing.
    // Throws when the segment could not be completed or capture could not
    // restart; in the latter case the session stays paused.
    void togglePause();

    // Stops capture, completes the segment, lets live speech finish and the
    // playable audio of the session's segments be built, and gives the final
    // text. Never fails: failures land in errorMessage. A stop while
    // another runs gives the current text at once; a stop while starting
    // waits for the start to end, then stops what it started.
    QFuture<QString> stop();

signals:
    void recordingChanged(bool recording);
    void pausedChanged(bool paused);
    void startingChanged(bool starting);
    void finishingChanged(bool finishing);
    void errorMessageChanged(const QString &errorMessage);
    void elapsedChanged(double elapsed);
    void transcriptionChanged(const QString &transcription);
    void currentAudioLevelChanged(float level);
    void transcriptValueChanged();
    // A session has become active, or has ended.
    void processTapRecordingStateChanged(kestil::ProcessTapRecorder *recorder);

private:
    // What one start asked for.
    struct StartRequest {
        QString root;
        QUuid noteID;
        bool systemAudio = false;
    };

    void continueStart(const std::shared_ptr<QPromise<void>> &promise, const StartRequest &request,
                       bool accessGranted);
    void finishStart(const std::shared_ptr<QPromise<void>> &promise,
                     std::shared_ptr<LiveSpeechSession> session, std::exception_ptr speechError);
    void failStart(const std::shared_ptr<QPromise<void>> &promise, std::exception_ptr error);
    void runStopsAskedWhileStarting();
    void startCapture();
    std::exception_ptr stopCapture();
    void runStop(const std::shared_ptr<QPromise<QString>> &promise);
    void finishStop(const std::shared_ptr<QPromise<QString>> &promise, std::optional<LocalTranscript> final,
                    std::exception_ptr speechError);
    void captureFailure(const QString &description, quint64 session);
    void applyTranscript(const LocalTranscript &transcript);
    void tick();
    template <typename Work, typename Done> void runInBackground(Work work, Done done);
    void buildFinalAudioLater(const QString &segment);

    void setRecording(bool value);
    void setPaused(bool value);
    void setStarting(bool value);
    void setFinishing(bool value);
    void setErrorMessage(const QString &value);
    void setElapsed(double value);
    void setCurrentAudioLevel(float value);

    Environment environment_;
    QThreadPool workers_;
    // Builds the playable audio of each completed segment, one at a time, off
    // the audio path and apart from the waits of start and stop.
    QThreadPool finalAudioBuilds_;
    CaptureQueue queue_;

    // Observable.
    bool recording_ = false;
    bool paused_ = false;
    bool starting_ = false;
    bool finishing_ = false;
    QString errorMessage_;
    double elapsed_ = 0;
    QString transcription_;
    float currentAudioLevel_ = 0;

    // The present segment: its source and writer.
    std::unique_ptr<AudioSource> source_;
    std::shared_ptr<DurableAudioWriter> writer_;

    QString root_;
    std::optional<QUuid> noteID_;
    bool systemAudio_ = false;
    std::unique_ptr<QTimer> timer_;
    SessionClock clock_;
    std::shared_ptr<LiveSpeechSession> liveSpeech_;
    QString speechWarning_;
    QString existingTranscript_;
    double transcriptTimeOffset_ = 0;
    TranscriptCallback onTranscript_;
    std::function<void()> stopAction_;
    QString speechLocale_ = QStringLiteral("en-US");
    QList<TranscriptUtterance> existingUtterances_;
    LocalTranscript transcriptValue_;

    // Counts sessions, so that a late transcript or failure of an earlier
    // session never reaches the present one.
    quint64 session_ = 0;
    // Stops asked for while starting; they run once the start has ended.
    QList<std::shared_ptr<QPromise<QString>>> stopsAfterStart_;
};

} // namespace kestil
