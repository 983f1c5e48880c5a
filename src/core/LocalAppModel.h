#pragma once

#include "capture/LocalRecordingManifest.h"
#include "core/Note.h"
#include "core/SharedPersistenceController.h"

#include <QObject>
#include <QString>
#include <QUuid>
#include <QVariant>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <optional>

namespace kestil {

// Whether this computer can run the on-device language model at all.
enum class LanguageModelAvailability {
    available,
    unavailableForGood, // the machine cannot run it: Kestil does not start
    curable,            // not installed yet or switched off: the user can fix it
};

// What the launch reads from outside: the build's information dictionary, the
// sync preference as stored, the data directory override, and the model
// check. The program passes the real ones; tests pass their own.
struct LaunchEnvironment {
    QVariantMap applicationInfo;
    QVariant syncPreference;
    std::optional<QString> root;
    std::function<LanguageModelAvailability()> languageModelAvailability;
    // Repairs interrupted recordings after the notes are loaded; may set the
    // model's message. Unset, the launch runs recoverInterruptedSessions.
    std::function<void(class LocalAppModel &)> recoverInterruptedSessions;
};

// The one application model: opened before the first window, it decides
// whether Kestil can run, opens the store, loads the notes and repairs what a
// crash left behind. User actions live in the notes list model. Main thread.
class LocalAppModel : public QObject {
    Q_OBJECT
public:
    explicit LocalAppModel(const LaunchEnvironment &environment, QObject *parent = nullptr);
    ~LocalAppModel() override;

    const QList<NotePtr> &notes() const { return notes_; }
    const std::optional<QUuid> &selected() const { return selected_; }
    void setSelected(const std::optional<QUuid> &id);
    const QString &message() const { return message_; }
    void setMessage(const QString &message);
    bool busy() const { return busy_; }
    const QString &language() const { return language_; }
    const QString &speechStatus() const { return speechStatus_; }
    void setSpeechStatus(const QString &status);
    const QString &summaryStatus() const { return summaryStatus_; }
    void setSummaryStatus(const QString &status);
    SharedPersistenceController *store() const { return store_.get(); }
    // The store exists and opened; the window shows the library only then.
    bool storeReady() const { return store_ && store_->ready(); }

    void refreshNotes();
    NotePtr selectedNote() const;
    void cancelOperation();
    // The verified absolute folder of a note's audio, inside the data root.
    QString noteAudioDirectory(const Note &note) const;
    // The manifests of a note's recording segments, oldest first.
    QList<std::pair<QString, LocalRecordingManifest>> noteRecordings(const Note &note) const;

    static const QString &unsupportedMachineMessage();

signals:
    void notesChanged();
    void selectedChanged();
    void messageChanged();
    void speechStatusChanged();
    void summaryStatusChanged();

private:
    void bootstrap(const LaunchEnvironment &environment);

    QList<NotePtr> notes_;
    std::optional<QUuid> selected_;
    QString message_;
    bool busy_ = false;
    QString preview_;
    QString language_ = QStringLiteral("en-US");
    QString speechStatus_ = QStringLiteral("Checking installed speech models…");
    QString summaryStatus_;
    std::unique_ptr<SharedPersistenceController> store_;
};

} // namespace kestil
