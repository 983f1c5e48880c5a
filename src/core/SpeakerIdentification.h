#pragma once

#include "core/Note.h"
#include "speech/SpeakerDiarizer.h"

#include <QObject>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

namespace kestil {

class LocalAppModel;

// Who said what in a note: its recorded audio is read on a worker, the
// diarizer finds the speaker turns, and each utterance of the transcript
// gets the speaker whose turn covers most of it. Nothing is written until the
// end, and then only when the note still exists and its transcript is the one
// that was read: a quit, a crash, a cancel or an edit in the meantime leaves
// the note exactly as it was.
//
// One note at a time; state lives on the main thread, the work on a thread of
// its own, and results come back as queued calls.
class SpeakerIdentification : public QObject {
    Q_OBJECT
public:
    // Makes the diarizer for a run; throws Error with a sentence when it
    // cannot (its models are missing).
    using DiarizerFactory = std::function<std::unique_ptr<SpeakerDiarizer>()>;

    SpeakerIdentification(LocalAppModel &app, DiarizerFactory factory, QObject *parent = nullptr);
    // Cancels a running identification and waits for its thread.
    ~SpeakerIdentification() override;

    // Begins with `note`. Returns false, with the reason in lastMessage and
    // finished emitted, when it cannot begin.
    bool start(const NotePtr &note);
    void cancel();

    bool running() const { return static_cast<bool>(shared_); }
    const NotePtr &note() const { return note_; }
    double progress() const { return progress_; }
    const QString &lastMessage() const { return lastMessage_; }

signals:
    void progressChanged();
    // The run ended; `identified` when the note now says who speaks.
    // `message` says what happened and what was kept.
    void finished(bool identified, const QString &message);

private:
    struct Shared;
    bool noteGone() const;
    void end(bool identified, const QString &message);
    void finishWith(bool identified, const QString &message);
    void apply(const std::vector<SpeakerTurn> &turns, const std::optional<QString> &readPayload);

    LocalAppModel &app_;
    DiarizerFactory factory_;
    NotePtr note_;
    double progress_ = 0;
    QString lastMessage_;
    std::shared_ptr<Shared> shared_;
    std::thread worker_;
};

} // namespace kestil
