#pragma once

#include "core/Note.h"
#include "speech/LocalTranscript.h"

#include <QObject>
#include <QString>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>

namespace kestil {

class LocalAppModel;
class PreferenceStore;

// What an audio file must be for an import to begin, checked before anything
// is written: readable audio, and room for its copy on the disk.
struct AudioFileCheck {
    QString fileName; // for sentences
    QString title;    // the note's: the file name without its extension
    double seconds = 0;
    double sampleRate = 0;       // of the file
    double storedSampleRate = 0; // of the copy: the file's, at most 48 kHz
    qint64 bytesNeeded = 0;      // the raw copy and its playable file
};

// Opens the file with libsndfile (WAV, FLAC, Ogg Vorbis and Opus, MP3 where
// the system's libsndfile reads it, CAF, ...) and checks it against the free
// space under `root`. Throws LocalError with a sentence for the user that
// says nothing was imported.
AudioFileCheck checkAudioFile(const QString &path, const QString &root);

// Turns an audio file into a note, in the order that loses nothing: the
// note is made first; the audio is decoded to mono and written durably into
// Recordings/<NOTE>/<SEGMENT>/ exactly as a recording is (raw samples synced
// once a second beside a manifest that says "not complete" until the last
// sample is down), and its playable audio.caf built; then the copy is
// transcribed with the offline, full-context reading of the engine that
// LocalSpeech chooses, and every piece of text that comes is saved to the
// note at once. A crash while copying leaves an interrupted recording that
// the next launch's recovery repairs; a crash while transcribing leaves the
// note with all its audio and the text saved so far.
//
// One import at a time; state lives on the main thread, the work on a thread
// of its own, and results come back as queued calls.
class AudioFileImport : public QObject {
    Q_OBJECT
public:
    enum class Stage { idle, copying, transcribing };

    AudioFileImport(LocalAppModel &app, PreferenceStore &preferences, QObject *parent = nullptr);
    // Cancels a running import and waits for its thread.
    ~AudioFileImport() override;

    // Begins importing the file in the transcription language of the
    // preferences. Returns false, with the reason in lastMessage and
    // finished emitted, when it cannot begin.
    bool start(const QString &path);
    // Stops the running import soon. While copying, the new note and its
    // audio are removed; while transcribing, the note keeps all its audio
    // and the text so far.
    void cancel();

    bool running() const { return stage_ != Stage::idle; }
    Stage stage() const { return stage_; }
    // The share of the present stage done, 0 to 1.
    double progress() const { return progress_; }
    const QString &fileName() const { return check_.fileName; }
    double seconds() const { return check_.seconds; }
    const NotePtr &note() const { return note_; }
    const QString &lastMessage() const { return lastMessage_; }

signals:
    void noteCreated(const kestil::NotePtr &note);
    void progressChanged();
    // The import ended; `transcribed` when the note holds the whole file's
    // transcript. `message` says what happened and what was kept.
    void finished(bool transcribed, const QString &message);

private:
    struct Shared;
    void run(std::shared_ptr<Shared> shared, QString path, QString root, QString locale);
    void receiveProgress(Stage stage, double fraction);
    void receiveTranscript(const LocalTranscript &transcript);
    void end(bool transcribed, const QString &message, bool removeNote);
    void saveTranscript(const LocalTranscript &transcript);

    LocalAppModel &app_;
    PreferenceStore &preferences_;
    Stage stage_ = Stage::idle;
    double progress_ = 0;
    AudioFileCheck check_;
    NotePtr note_;
    QString lastMessage_;
    std::shared_ptr<Shared> shared_;
    std::thread worker_;
};

} // namespace kestil
