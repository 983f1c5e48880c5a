#pragma once

#include "core/Note.h"
#include "core/SpeakerIdentification.h"

#include <QObject>

namespace kestil {

class LocalAppModel;
class NotesListViewModel;
class TranscriptTab;

// Who said what, in the window: Identify Speakers on the shown note, its
// progress and Cancel in the transcript tab, renaming a speaker by a click on
// the name, and identification on its own after a recording or an import
// when the speaker models are installed. Outcomes reach the user in the
// window's message line, and a failed save as every action's failure does.
class SpeakerController : public QObject {
    Q_OBJECT
public:
    SpeakerController(LocalAppModel &app, NotesListViewModel &list, TranscriptTab &tab,
                      QObject *parent = nullptr);

    // The note the transcript tab shows; the tab follows it.
    void setShownNote(const NotePtr &note);
    // After a recording or an import: runs when the models are installed and
    // nothing else is being identified, quietly otherwise.
    void identifyAutomatically(const NotePtr &note);
    void identify(const NotePtr &note);
    void rename(qint64 speaker, const QString &currentName);

    SpeakerIdentification &identification() { return identification_; }

signals:
    // The shown note's speakers or their names changed.
    void speakersChanged();

private:
    void showProgress();
    void finish(bool identified, const QString &message);

    LocalAppModel &app_;
    NotesListViewModel &list_;
    TranscriptTab &tab_;
    SpeakerIdentification identification_;
    NotePtr shown_;
};

} // namespace kestil
