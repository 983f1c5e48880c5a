#pragma once

#include "generation/LanguageModelCatalogue.h"
#include "shell/SupportTargets.h"

#include <QDialog>
#include <QList>
#include <QPointer>
#include <QString>
#include <QThread>

#include <atomic>
#include <functional>
#include <memory>

class QCheckBox;
class QComboBox;
class QLabel;
class QProgressBar;
class QPushButton;

namespace kestil {

class SpeakerSettings;

class KestilEngagement;
class KestilSummaryNotifications;
class LanguageModel;
class LocalAppModel;
class PreferenceStore;
class ThemeManager;

// The Settings window. Its "On-device language model" section says in a
// sentence which model is installed, downloads one of the catalogue with
// progress and Cancel, imports a GGUF file, and holds the switch for
// on-device AI. Its "Speech" section shows whether speech is ready for the
// transcription language and runs its set-up with progress, beside the
// recording switches. Downloads, imports and set-ups run on threads of their
// own; the window only shows their progress and their outcome. Every widget
// has an object name that starts with "settings".
class SettingsWindow : public QDialog {
    Q_OBJECT
public:
    struct Environment {
        // The model whose availability the summary status line reports.
        LanguageModel *languageModel = nullptr;
        QString languageModelsDirectory;
        QList<DownloadableLanguageModel> catalogue;
        // The rows for notifications, appearance and support; each is left
        // out when its object is missing.
        KestilSummaryNotifications *summaryNotifications = nullptr;
        ThemeManager *themes = nullptr;
        KestilEngagement *engagement = nullptr;
        SupportTargets support;

        // The program's own: the shared model, Models/language/ under the
        // data folder, and the compiled-in catalogue.
        static Environment standard();
    };

    SettingsWindow(LocalAppModel &app, PreferenceStore &preferences, Environment environment,
                   QWidget *parent = nullptr);
    ~SettingsWindow() override;

    bool languageModelBusy() const { return languageModelWork_ != nullptr; }
    bool speechBusy() const { return speechWork_ != nullptr; }

public slots:
    // Reads the installed model, the switch and speech readiness again.
    void refresh();

signals:
    // A language model was installed or imported, or the switch changed.
    void languageModelChanged();
    // "Export Selected Note…" of the Obsidian section.
    void exportSelectedNoteRequested();
    // "Show Welcome Again".
    void welcomeRequested();

private:
    SpeakerSettings *speakers_ = nullptr;
    QWidget *buildLanguageModelSection();
    QWidget *buildSpeechSection();
    QWidget *buildObsidianSection();
    QWidget *buildLanguagePicker();
    QWidget *buildWelcomeSection();
    void refreshLanguagePicker();
    void refreshObsidian();
    void chooseObsidianFolder();
    const DownloadableLanguageModel *chosenModel() const;
    void downloadLanguageModel();
    void importLanguageModel();
    void setUpSpeech();
    void importSpeechModel();
    void refreshLanguageModel();
    void refreshSpeech();
    void refreshSummaryStatus();
    void showLanguageModelProgress(qint64 received, qint64 total);
    void finishLanguageModelWork(const QString &message);
    void finishSpeechWork(const QString &message);
    // Runs work on a thread of its own and hands its message to done on this
    // window's thread, unless the window is gone by then.
    QThread *runInBackground(std::function<QString()> work, std::function<void(const QString &)> done);

    LocalAppModel &app_;
    PreferenceStore &preferences_;
    Environment environment_;

    QLabel *languageModelStatus_ = nullptr;
    QComboBox *languageModelPicker_ = nullptr;
    QLabel *languageModelDescription_ = nullptr;
    QPushButton *downloadButton_ = nullptr;
    QPushButton *languageModelCancel_ = nullptr;
    QProgressBar *languageModelProgress_ = nullptr;
    QPushButton *importButton_ = nullptr;
    QCheckBox *onDeviceSwitch_ = nullptr;
    QLabel *languageModelMessage_ = nullptr;

    QLabel *speechStatus_ = nullptr;
    QPushButton *speechSetUpButton_ = nullptr;
    QPushButton *speechImportButton_ = nullptr;
    QPushButton *speechCancel_ = nullptr;
    QProgressBar *speechProgress_ = nullptr;
    QLabel *speechMessage_ = nullptr;
    QLabel *speechDiagnostics_ = nullptr;
    QComboBox *languagePicker_ = nullptr;
    QLabel *languageMessage_ = nullptr;
    QCheckBox *systemAudioSwitch_ = nullptr;
    QCheckBox *recordingWidgetSwitch_ = nullptr;

    QLabel *obsidianFolder_ = nullptr;
    QPushButton *obsidianOpenFolder_ = nullptr;
    QPushButton *obsidianChooseFolder_ = nullptr;

    QThread *languageModelWork_ = nullptr;
    QThread *speechWork_ = nullptr;
    std::shared_ptr<std::atomic<bool>> languageModelCancelled_;
    std::shared_ptr<std::atomic<bool>> speechCancelled_;
    QString downloadingName_;
};

} // namespace kestil
