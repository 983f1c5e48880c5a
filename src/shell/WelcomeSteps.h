#pragma once

#include "generation/LanguageModelCatalogue.h"
#include "shell/WelcomeReadiness.h"
#include "speech/WhisperModel.h"

#include <QList>
#include <QString>
#include <QWidget>

#include <functional>

class QCheckBox;
class QComboBox;
class QLabel;
class QListWidget;
class QProgressBar;
class QPushButton;
class QVBoxLayout;

namespace kestil {

class BackgroundTask;
class LanguageModel;
class MicrophoneLevelMonitor;
class PreferenceStore;

// What the welcome flow installs into, and from where: the program's own in
// standard(); tests pass a model, folders and catalogues of their own.
struct WelcomeEnvironment {
    LanguageModel *languageModel = nullptr;
    QString languageModelsDirectory;
    QList<DownloadableLanguageModel> catalogue;
    // The whisper models speech set-up may install; empty means the
    // compiled-in catalogue.
    QList<WhisperModel> speechCatalogue;

    static WelcomeEnvironment standard();
};

// A page of the welcome flow: a title, a sentence, and what the step holds.
class WelcomeStep : public QWidget {
    Q_OBJECT

public:
    WelcomeStep(const QString &identifier, const QString &title, const QString &text,
                QWidget *parent = nullptr);

    // Something of the step still runs (a download, a set-up).
    virtual bool busy() const { return false; }
    // The step is shown (true) or left (false).
    virtual void setShown(bool) {}
    // Where the step's own widgets go, under its sentence.
    QVBoxLayout *body() const { return body_; }

signals:
    void changed();

private:
    QVBoxLayout *body_ = nullptr;
};

// On-device intelligence: which language model is installed, and a download
// (with progress and Cancel) or an import of one. Skippable: everything but
// summaries and Ask AI works without a model.
class WelcomeIntelligenceStep : public WelcomeStep {
    Q_OBJECT

public:
    WelcomeIntelligenceStep(PreferenceStore &preferences, const WelcomeEnvironment &environment,
                            QWidget *parent = nullptr);
    bool busy() const override;
    bool modelInstalled() const;
    void setShown(bool shown) override;
    // Picks a file in the import dialog; tests replace it.
    void setFileChooser(std::function<QString()> chooser) { chooseFile_ = std::move(chooser); }

private:
    void refresh();
    void download();
    void import();
    void finish(const QString &message);

    PreferenceStore &preferences_;
    WelcomeEnvironment environment_;
    BackgroundTask *task_ = nullptr;
    std::function<QString()> chooseFile_;
    QString downloading_;
    QLabel *status_ = nullptr;
    QComboBox *picker_ = nullptr;
    QPushButton *download_ = nullptr;
    QPushButton *import_ = nullptr;
    QProgressBar *progress_ = nullptr;
    QPushButton *cancel_ = nullptr;
    QLabel *message_ = nullptr;
};

// The transcription language: the languages on-device speech offers, the
// readiness of the chosen one, and the set-up of its speech model.
class WelcomeLanguageStep : public WelcomeStep {
    Q_OBJECT

public:
    WelcomeLanguageStep(PreferenceStore &preferences, const WelcomeEnvironment &environment,
                        QWidget *parent = nullptr);
    bool busy() const override;
    void setShown(bool shown) override;

private:
    void refresh();
    void setUp();

    PreferenceStore &preferences_;
    WelcomeEnvironment environment_;
    BackgroundTask *task_ = nullptr;
    QListWidget *picker_ = nullptr;
    QLabel *status_ = nullptr;
    QPushButton *setUp_ = nullptr;
    QProgressBar *progress_ = nullptr;
    QPushButton *cancel_ = nullptr;
    QLabel *message_ = nullptr;
};

// The microphone: the default source's name and its live level, listened to
// only while the step is shown; nothing is recorded.
class WelcomeMicrophoneStep : public WelcomeStep {
    Q_OBJECT

public:
    explicit WelcomeMicrophoneStep(QWidget *parent = nullptr);
    void setShown(bool shown) override;
    // The name of the last source heard, kept after the step is left.
    const QString &sourceName() const { return heard_; }
    MicrophoneLevelMonitor &monitor() const { return *monitor_; }

private:
    void refresh();

    MicrophoneLevelMonitor *monitor_ = nullptr;
    QString heard_;
    QLabel *name_ = nullptr;
    QProgressBar *level_ = nullptr;
    QLabel *problem_ = nullptr;
};

// System audio: the recordSystemAudio switch, and what it records.
class WelcomeSystemAudioStep : public WelcomeStep {
    Q_OBJECT

public:
    WelcomeSystemAudioStep(PreferenceStore &preferences, QWidget *parent = nullptr);
    void setShown(bool shown) override;

private:
    PreferenceStore &preferences_;
    QCheckBox *switch_ = nullptr;
};

// The readiness card: one row for each of transcription, summaries,
// microphone and system audio, marked ready or not, with its sentence.
class WelcomeReadinessStep : public WelcomeStep {
    Q_OBJECT

public:
    WelcomeReadinessStep(QWidget *parent = nullptr);
    void showItems(const QList<WelcomeReadinessItem> &items);
    const QList<WelcomeReadinessItem> &items() const { return items_; }

private:
    QWidget *card_ = nullptr;
    QList<WelcomeReadinessItem> items_;
};

} // namespace kestil
