#include "shell/SettingsWindow.h"

#include "shell/SpeakerSettings.h"
#include "shell/WidgetNames.h"

#include "base/CancellationError.h"
#include "base/Error.h"
#include "core/LocalAppModel.h"
#include "generation/LanguageModelFiles.h"
#include "generation/LanguageModelInstall.h"
#include "generation/LlamaLanguageModel.h"
#include "generation/LocalSummary.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "shell/AppearanceSettings.h"
#include "shell/KestilSummaryNotificationSettings.h"
#include "shell/ModelStatusText.h"
#include "shell/SupportSettings.h"
#include "speech/LocalSpeech.h"
#include "speech/SpeechPaths.h"
#include "speech/WhisperModelImport.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDesktopServices>
#include <QDir>
#include <QElapsedTimer>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

namespace kestil {

namespace {

QLabel *sentenceLabel(const QString &name)
{
    auto *label = new QLabel;
    label->setObjectName(name);
    label->setAccessibleName(name);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

// A download reports every piece that arrives, thousands a second on a fast
// line; the window needs a few a second, and the last one.
std::function<void(qint64, qint64)> throttled(std::function<void(qint64, qint64)> report)
{
    auto clock = std::make_shared<QElapsedTimer>();
    return [report = std::move(report), clock](qint64 received, qint64 total) {
        if (clock->isValid() && clock->elapsed() < 100 && received != total)
            return;
        clock->start();
        report(received, total);
    };
}

} // namespace

SettingsWindow::Environment SettingsWindow::Environment::standard()
{
    return Environment{&LlamaLanguageModel::shared(), LanguageModelFiles::modelsDirectory(),
                       languageModelCatalogue()};
}

SettingsWindow::SettingsWindow(LocalAppModel &app, PreferenceStore &preferences, Environment environment,
                               QWidget *parent)
    : QDialog(parent), app_(app), preferences_(preferences), environment_(std::move(environment))
{
    setObjectName(QStringLiteral("settingsWindow"));
    setWindowTitle(QStringLiteral("Settings"));
    setModal(false);
    auto *layout = new QVBoxLayout;
    layout->addWidget(buildLanguageModelSection());
    layout->addWidget(buildSpeechSection());
    speakers_ = new SpeakerSettings;
    layout->addWidget(speakers_);
    layout->addWidget(buildObsidianSection());
    if (environment_.summaryNotifications)
        layout->addWidget(
            new KestilSummaryNotificationSettings(*environment_.summaryNotifications, preferences_));
    if (environment_.themes)
        layout->addWidget(new AppearanceSettings(*environment_.themes));
    if (environment_.engagement)
        layout->addWidget(new SupportSettings(*environment_.engagement, environment_.support));
    layout->addWidget(buildWelcomeSection());
    layout->addStretch(1);
    // More sections than a laptop screen is tall: the window scrolls.
    auto *content = new QWidget;
    content->setLayout(layout);
    auto *scroll = new QScrollArea;
    scroll->setObjectName(QStringLiteral("settingsScrollArea"));
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidget(content);
    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(scroll);
    resize(600, std::min(content->sizeHint().height() + 4, 720));

    connect(&preferences_, &PreferenceStore::changed, this, [this](const QString &key) {
        if (key == settings::keys::kestilOnDeviceLanguageModelEnabled) {
            refreshLanguageModel();
            refreshSummaryStatus();
        } else if (key == settings::keys::recordSystemAudio || key == settings::keys::showRecordingWidget ||
                   key == settings::keys::transcriptionLanguage ||
                   key == settings::keys::localSpeechLastFailure) {
            refresh();
        } else if (key == settings::keys::kestilObsidianSyncFolderBookmark) {
            refreshObsidian();
        }
    });
    refresh();
}

SettingsWindow::~SettingsWindow()
{
    // A download stops at the next poll and keeps its part; an import or a
    // set-up in its last step finishes first. Either way no thread outlives
    // the window's state.
    for (auto *cancelled : {languageModelCancelled_.get(), speechCancelled_.get()}) {
        if (cancelled)
            cancelled->store(true);
    }
    for (QThread *thread : {languageModelWork_, speechWork_}) {
        if (thread) {
            thread->wait();
            delete thread;
        }
    }
}

QWidget *SettingsWindow::buildLanguageModelSection()
{
    auto *box = named(new QGroupBox(QStringLiteral("On-device language model")),
                      QStringLiteral("settingsLanguageModelSection"));
    auto *layout = new QVBoxLayout(box);

    languageModelStatus_ = sentenceLabel(QStringLiteral("settingsLanguageModelStatus"));
    layout->addWidget(languageModelStatus_);

    auto *pickRow = new QHBoxLayout;
    languageModelPicker_ = named(new QComboBox, QStringLiteral("settingsLanguageModelPicker"));
    for (const DownloadableLanguageModel &model : environment_.catalogue) {
        languageModelPicker_->addItem(model.name + QStringLiteral(" · ") + fileSizeText(model.size),
                                      model.fileName);
        languageModelPicker_->setItemData(languageModelPicker_->count() - 1, model.description,
                                          Qt::ToolTipRole);
    }
    pickRow->addWidget(languageModelPicker_, 1);
    downloadButton_ = named(new QPushButton(QStringLiteral("Download")),
                            QStringLiteral("settingsLanguageModelDownloadButton"));
    pickRow->addWidget(downloadButton_);
    layout->addLayout(pickRow);

    languageModelDescription_ = sentenceLabel(QStringLiteral("settingsLanguageModelDescription"));
    layout->addWidget(languageModelDescription_);

    auto *progressRow = new QHBoxLayout;
    languageModelProgress_ = named(new QProgressBar, QStringLiteral("settingsLanguageModelProgress"));
    languageModelProgress_->setVisible(false);
    progressRow->addWidget(languageModelProgress_, 1);
    languageModelCancel_ =
        named(new QPushButton(QStringLiteral("Cancel")), QStringLiteral("settingsLanguageModelCancelButton"));
    languageModelCancel_->setVisible(false);
    progressRow->addWidget(languageModelCancel_);
    layout->addLayout(progressRow);

    importButton_ = named(new QPushButton(QStringLiteral("Import a model file…")),
                          QStringLiteral("settingsLanguageModelImportButton"));
    auto *importRow = new QHBoxLayout;
    importRow->addWidget(importButton_);
    importRow->addStretch(1);
    layout->addLayout(importRow);

    languageModelMessage_ = sentenceLabel(QStringLiteral("settingsLanguageModelMessage"));
    layout->addWidget(languageModelMessage_);

    onDeviceSwitch_ =
        named(new QCheckBox(QStringLiteral("Use on-device AI for summaries, titles, tags and Ask AI")),
              QStringLiteral("settingsOnDeviceAISwitch"));
    layout->addWidget(onDeviceSwitch_);

    connect(languageModelPicker_, &QComboBox::currentIndexChanged, this, [this] {
        const DownloadableLanguageModel *model = chosenModel();
        languageModelDescription_->setText(model ? model->description : QString());
    });
    connect(downloadButton_, &QPushButton::clicked, this, &SettingsWindow::downloadLanguageModel);
    connect(importButton_, &QPushButton::clicked, this, &SettingsWindow::importLanguageModel);
    connect(languageModelCancel_, &QPushButton::clicked, this, [this] {
        if (languageModelCancelled_)
            languageModelCancelled_->store(true);
        languageModelCancel_->setEnabled(false);
    });
    connect(onDeviceSwitch_, &QCheckBox::toggled, this, [this](bool on) {
        settings::setOnDeviceLanguageModelEnabled(preferences_, on);
        emit languageModelChanged();
    });
    const DownloadableLanguageModel *first = chosenModel();
    languageModelDescription_->setText(first ? first->description : QString());
    return box;
}

QWidget *SettingsWindow::buildSpeechSection()
{
    auto *box = named(new QGroupBox(QStringLiteral("Speech")), QStringLiteral("settingsSpeechSection"));
    auto *layout = new QVBoxLayout(box);
    layout->addWidget(buildLanguagePicker());
    speechStatus_ = sentenceLabel(QStringLiteral("settingsSpeechStatus"));
    layout->addWidget(speechStatus_);

    auto *setUpRow = new QHBoxLayout;
    speechSetUpButton_ = named(new QPushButton(QStringLiteral("Set Up On-Device Speech")),
                               QStringLiteral("settingsSpeechSetUpButton"));
    setUpRow->addWidget(speechSetUpButton_);
    // A whisper.cpp file or a faster-whisper folder the user already has.
    speechImportButton_ = named(new QPushButton(QStringLiteral("Import a speech model…")),
                                QStringLiteral("settingsSpeechImportButton"));
    setUpRow->addWidget(speechImportButton_);
    speechProgress_ = named(new QProgressBar, QStringLiteral("settingsSpeechProgress"));
    speechProgress_->setVisible(false);
    setUpRow->addWidget(speechProgress_, 1);
    speechCancel_ =
        named(new QPushButton(QStringLiteral("Cancel")), QStringLiteral("settingsSpeechCancelButton"));
    speechCancel_->setVisible(false);
    setUpRow->addWidget(speechCancel_);
    layout->addLayout(setUpRow);

    speechMessage_ = sentenceLabel(QStringLiteral("settingsSpeechMessage"));
    layout->addWidget(speechMessage_);
    // What readiness found, and the last set-up failure: plain text to read
    // out or copy when asking for help.
    // They stay behind "Details": the sentences above are what a user reads.
    speechDiagnostics_ = sentenceLabel(QStringLiteral("settingsSpeechDiagnostics"));
    speechDiagnostics_->setStyleSheet(QStringLiteral("color: palette(mid);"));
    speechDiagnostics_->setVisible(false);
    auto *details = named(new QToolButton, QStringLiteral("settingsSpeechDetailsButton"));
    details->setText(QStringLiteral("Details"));
    details->setCheckable(true);
    details->setAutoRaise(true);
    details->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    details->setArrowType(Qt::RightArrow);
    connect(details, &QToolButton::toggled, this, [this, details](bool open) {
        details->setArrowType(open ? Qt::DownArrow : Qt::RightArrow);
        speechDiagnostics_->setVisible(open);
    });
    layout->addWidget(details, 0, Qt::AlignLeft);
    layout->addWidget(speechDiagnostics_);

    systemAudioSwitch_ = named(new QCheckBox(QStringLiteral("Record system audio")),
                               QStringLiteral("settingsRecordSystemAudioSwitch"));
    layout->addWidget(systemAudioSwitch_);
    recordingWidgetSwitch_ =
        named(new QCheckBox(QStringLiteral("Show the recording widget during a recording")),
              QStringLiteral("settingsShowRecordingWidgetSwitch"));
    layout->addWidget(recordingWidgetSwitch_);

    connect(speechSetUpButton_, &QPushButton::clicked, this, &SettingsWindow::setUpSpeech);
    connect(speechImportButton_, &QPushButton::clicked, this, &SettingsWindow::importSpeechModel);
    connect(speechCancel_, &QPushButton::clicked, this, [this] {
        if (speechCancelled_)
            speechCancelled_->store(true);
        speechCancel_->setEnabled(false);
    });
    connect(systemAudioSwitch_, &QCheckBox::toggled, this,
            [this](bool on) { settings::setRecordSystemAudio(preferences_, on); });
    connect(recordingWidgetSwitch_, &QCheckBox::toggled, this,
            [this](bool on) { settings::setShowRecordingWidget(preferences_, on); });
    return box;
}

QWidget *SettingsWindow::buildObsidianSection()
{
    auto *box = named(new QGroupBox(QStringLiteral("Obsidian")), QStringLiteral("settingsObsidianSection"));
    auto *layout = new QVBoxLayout(box);
    obsidianFolder_ = sentenceLabel(QStringLiteral("settingsObsidianFolder"));
    layout->addWidget(obsidianFolder_);
    auto *buttons = new QHBoxLayout;
    obsidianChooseFolder_ = named(new QPushButton, QStringLiteral("settingsObsidianChooseFolderButton"));
    buttons->addWidget(obsidianChooseFolder_);
    obsidianOpenFolder_ = named(new QPushButton(QStringLiteral("Open sync folder in your file manager")),
                                QStringLiteral("settingsObsidianOpenFolderButton"));
    buttons->addWidget(obsidianOpenFolder_);
    auto *exportButton = named(new QPushButton(QStringLiteral("Export Selected Note…")),
                               QStringLiteral("settingsObsidianExportButton"));
    exportButton->setToolTip(
        QStringLiteral("Write the selected note and copies of its audio into a folder you "
                       "choose"));
    buttons->addWidget(exportButton);
    buttons->addStretch(1);
    layout->addLayout(buttons);
    auto *heading = new QLabel(QStringLiteral("Setup"));
    QFont headingFont = heading->font();
    headingFont.setWeight(QFont::DemiBold);
    heading->setFont(headingFont);
    layout->addWidget(heading);
    for (const QString &line :
         {QStringLiteral("1. Create a folder anywhere inside your Obsidian vault."),
          QStringLiteral("2. In Kestil, select that folder as your Obsidian sync folder."),
          QStringLiteral("3. Kestil creates `YYYY-MM-DD` subfolders inside that sync folder "
                         "and writes notes into the matching date folder.")}) {
        auto *help = new QLabel(line);
        help->setWordWrap(true);
        layout->addWidget(help);
    }
    connect(obsidianChooseFolder_, &QPushButton::clicked, this, &SettingsWindow::chooseObsidianFolder);
    connect(obsidianOpenFolder_, &QPushButton::clicked, this, [this] {
        if (const auto bookmark = settings::obsidianSyncFolderBookmark(preferences_))
            QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromUtf8(*bookmark)));
    });
    connect(exportButton, &QPushButton::clicked, this, &SettingsWindow::exportSelectedNoteRequested);
    return box;
}

void SettingsWindow::refreshObsidian()
{
    // A folder that has gone since it was chosen counts as none.
    const auto bookmark = settings::obsidianSyncFolderBookmark(preferences_);
    const QString folder = bookmark ? QString::fromUtf8(*bookmark) : QString();
    const bool present = !folder.isEmpty() && QFileInfo(folder).isDir();
    obsidianFolder_->setText(present ? QStringLiteral("Current Sync Folder: ") + folder
                                     : QStringLiteral("No Obsidian sync folder selected."));
    obsidianOpenFolder_->setVisible(present);
    obsidianChooseFolder_->setText(present ? QStringLiteral("Change Sync Folder")
                                           : QStringLiteral("Select Obsidian Sync Folder"));
}

void SettingsWindow::chooseObsidianFolder()
{
    auto *dialog = new QFileDialog(this, QStringLiteral("Select Obsidian Sync Folder"));
    dialog->setObjectName(QStringLiteral("settingsObsidianFolderDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    connect(dialog, &QFileDialog::fileSelected, this, [this](const QString &folder) {
        if (QFileInfo(folder).isDir())
            settings::setObsidianSyncFolderBookmark(preferences_, QDir(folder).absolutePath().toUtf8());
    });
    dialog->open();
}

QWidget *SettingsWindow::buildLanguagePicker()
{
    auto *row = new QWidget;
    auto *layout = new QFormLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    languagePicker_ = named(new QComboBox, QStringLiteral("settingsLanguagePicker"));
    languagePicker_->setPlaceholderText(QStringLiteral("Choose a language"));
    for (const LocalSpeech::Language &language : LocalSpeech::languages())
        languagePicker_->addItem(LocalSpeech::displayName(language), language.id);
    layout->addRow(QStringLiteral("Transcription language"), languagePicker_);
    languageMessage_ = sentenceLabel(QStringLiteral("settingsLanguageMessage"));
    layout->addRow(languageMessage_);
    connect(languagePicker_, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (index >= 0)
            settings::setTranscriptionLanguage(preferences_, languagePicker_->itemData(index).toString());
    });
    return row;
}

void SettingsWindow::refreshLanguagePicker()
{
    // Speech, summaries and Ask AI follow the stored language. One that Kestil
    // cannot transcribe (written by hand or by another version) is shown as no
    // choice, with a sentence, and left as it is until the user picks one.
    const QString language = settings::transcriptionLanguage(preferences_);
    const std::optional<QString> key = LocalSpeech::languageKey(language);
    int index = -1;
    for (int i = 0; key && i < languagePicker_->count(); ++i) {
        if (LocalSpeech::languageKey(languagePicker_->itemData(i).toString()) == key)
            index = i;
    }
    const QSignalBlocker block(languagePicker_);
    languagePicker_->setCurrentIndex(index);
    languagePicker_->setEnabled(!speechBusy());
    languageMessage_->setText(index < 0 ? QStringLiteral("The language in your settings (“%1”) cannot be "
                                                         "transcribed on this computer. Choose one above.")
                                              .arg(language)
                                        : QString());
    languageMessage_->setVisible(index < 0);
}

QWidget *SettingsWindow::buildWelcomeSection()
{
    auto *box = named(new QGroupBox(QStringLiteral("Welcome")), QStringLiteral("settingsWelcomeSection"));
    auto *layout = new QHBoxLayout(box);
    auto *text =
        new QLabel(QStringLiteral("Walk through the first steps again: model, language, microphone and "
                                  "system audio."));
    text->setWordWrap(true);
    layout->addWidget(text, 1);
    auto *again = named(new QPushButton(QStringLiteral("Show Welcome Again")),
                        QStringLiteral("settingsShowWelcomeButton"));
    connect(again, &QPushButton::clicked, this, &SettingsWindow::welcomeRequested);
    layout->addWidget(again);
    return box;
}

void SettingsWindow::refresh()
{
    refreshLanguagePicker();
    refreshLanguageModel();
    refreshSpeech();
    refreshObsidian();
    const QSignalBlocker systemAudio(systemAudioSwitch_);
    const QSignalBlocker widget(recordingWidgetSwitch_);
    systemAudioSwitch_->setChecked(settings::recordSystemAudio(preferences_));
    recordingWidgetSwitch_->setChecked(settings::showRecordingWidget(preferences_));
}

const DownloadableLanguageModel *SettingsWindow::chosenModel() const
{
    const int index = languageModelPicker_->currentIndex();
    if (index < 0 || index >= environment_.catalogue.size())
        return nullptr;
    return &environment_.catalogue[index];
}

void SettingsWindow::refreshLanguageModel()
{
    const bool enabled = settings::onDeviceLanguageModelEnabled(preferences_);
    {
        const QSignalBlocker block(onDeviceSwitch_);
        onDeviceSwitch_->setChecked(enabled);
    }
    const bool busy = languageModelBusy();
    downloadButton_->setEnabled(!busy && chosenModel());
    importButton_->setEnabled(!busy);
    languageModelPicker_->setEnabled(!busy);
    if (busy && !downloadingName_.isEmpty())
        return; // the progress keeps the sentence up to date

    QString text;
    const auto installed = LanguageModelFiles::installedModel(environment_.languageModelsDirectory);
    if (installed) {
        const QFileInfo file(installed->path);
        QString name = file.fileName();
        for (const DownloadableLanguageModel &model : environment_.catalogue) {
            if (model.fileName == file.fileName())
                name = model.name;
        }
        text = QStringLiteral("Installed: “%1” (%2). Summaries, titles, tags and Ask AI use it.")
                   .arg(name, fileSizeText(file.size()));
    } else {
        text = QStringLiteral("No on-device language model is installed. Download one or import a GGUF file "
                              "to use summaries, titles, tags and Ask AI.");
    }
    if (environment_.languageModel) {
        const auto availability = environment_.languageModel->availability();
        if (!availability.isAvailable &&
            availability.reason == LanguageModel::UnavailableReason::deviceNotEligible)
            text += QStringLiteral(" This computer cannot run the on-device language model.");
    }
    if (!enabled)
        text += QStringLiteral(" On-device AI is switched off.");
    languageModelStatus_->setText(text);
}

void SettingsWindow::refreshSpeech()
{
    const QString locale = settings::transcriptionLanguage(preferences_);
    const LocalSpeech::Readiness readiness = LocalSpeech::readiness(locale, preferences_);
    QString text = LocalSpeech::message(readiness);
    if (readiness.configuration && readiness.status == LocalSpeech::Readiness::Status::installed)
        text += QStringLiteral(" (") + LocalSpeech::engineName(readiness.configuration->engine) +
                QStringLiteral(" · ") + readiness.configuration->locale + QLatin1Char(')');
    speechStatus_->setText(text);
    speechSetUpButton_->setEnabled(!speechBusy() && readiness.configuration.has_value());
    speechImportButton_->setEnabled(!speechBusy());
    QString diagnostics = readiness.details;
    if (const auto failure = settings::localSpeechLastFailure(preferences_))
        diagnostics += QStringLiteral("\n\nLast set-up failure:\n") + *failure;
    speechDiagnostics_->setText(diagnostics);
}

void SettingsWindow::refreshSummaryStatus()
{
    if (environment_.languageModel)
        app_.setSummaryStatus(summaryStatusSentence(*environment_.languageModel, QLocale(app_.language())));
}

QThread *SettingsWindow::runInBackground(std::function<QString()> work,
                                         std::function<void(const QString &)> done)
{
    auto *thread = QThread::create([this, work = std::move(work), done = std::move(done)] {
        const QString message = work();
        // The window waits for this thread before it goes, so it is there to
        // receive the result; a result still queued when it goes is dropped.
        QMetaObject::invokeMethod(
            this, [done, message] { done(message); }, Qt::QueuedConnection);
    });
    thread->start();
    return thread;
}

void SettingsWindow::showLanguageModelProgress(qint64 received, qint64 total)
{
    if (!languageModelBusy())
        return;
    showProgress(languageModelProgress_, received, total);
    languageModelStatus_->setText(
        total > 0
            ? QStringLiteral("Downloading “%1”: %2 of %3.")
                  .arg(downloadingName_, fileSizeText(received), fileSizeText(total))
            : QStringLiteral("Downloading “%1”: %2 so far.").arg(downloadingName_, fileSizeText(received)));
}

void SettingsWindow::downloadLanguageModel()
{
    const DownloadableLanguageModel *chosen = chosenModel();
    if (languageModelBusy() || !chosen)
        return;
    const DownloadableLanguageModel model = *chosen;
    QUrl base;
    try {
        base = languageModelBaseAddress(preferences_);
    } catch (const std::exception &e) {
        languageModelMessage_->setText(describe(e));
        return;
    }
    languageModelMessage_->clear();
    downloadingName_ = model.name;
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    languageModelCancelled_ = cancelled;
    languageModelProgress_->setVisible(true);
    languageModelCancel_->setVisible(true);
    languageModelCancel_->setEnabled(true);
    showProgress(languageModelProgress_,
                 partialLanguageModelDownload(model, environment_.languageModelsDirectory), model.size);
    languageModelStatus_->setText(QStringLiteral("Downloading “%1”…").arg(model.name));

    const QString directory = environment_.languageModelsDirectory;
    languageModelWork_ = runInBackground(
        [this, model, base, cancelled, directory] {
            DownloadObserver observer;
            observer.progress = throttled([this](qint64 received, qint64 total) {
                QMetaObject::invokeMethod(
                    this, [this, received, total] { showLanguageModelProgress(received, total); },
                    Qt::QueuedConnection);
            });
            observer.isCancelled = [cancelled] { return cancelled->load(); };
            try {
                installLanguageModel(model, base, observer, directory);
                return QStringLiteral(
                           "“%1” is installed. Summaries, titles, tags and Ask AI use it from now on.")
                    .arg(model.name);
            } catch (const CancellationError &) {
                return QStringLiteral("The download of “%1” was cancelled. What arrived is kept for the next "
                                      "download, and models already installed are unchanged.")
                    .arg(model.name);
            } catch (const std::exception &e) {
                return describe(e);
            }
        },
        [this](const QString &message) { finishLanguageModelWork(message); });
    refreshLanguageModel();
}

void SettingsWindow::importLanguageModel()
{
    if (languageModelBusy())
        return;
    QFileDialog dialog(this, QStringLiteral("Import a Language Model"), QDir::homePath(),
                       QStringLiteral("GGUF models (*.gguf)"));
    dialog.setObjectName(QStringLiteral("settingsImportDialog"));
    dialog.setFileMode(QFileDialog::ExistingFile);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return;
    const QString source = dialog.selectedFiles().constFirst();
    languageModelMessage_->setText(QStringLiteral("Importing “%1”…").arg(QFileInfo(source).fileName()));
    downloadingName_.clear();
    languageModelCancelled_.reset();
    languageModelProgress_->setVisible(true);
    languageModelProgress_->setRange(0, 0);
    const QString directory = environment_.languageModelsDirectory;
    languageModelWork_ = runInBackground(
        [source, directory] {
            try {
                const QString installed = LanguageModelFiles::importModel(source, directory);
                return QStringLiteral(
                           "“%1” is installed. Summaries, titles, tags and Ask AI use it from now on.")
                    .arg(QFileInfo(installed).fileName());
            } catch (const std::exception &e) {
                return describe(e);
            }
        },
        [this](const QString &message) { finishLanguageModelWork(message); });
    refreshLanguageModel();
}

void SettingsWindow::finishLanguageModelWork(const QString &message)
{
    if (languageModelWork_) {
        languageModelWork_->wait();
        delete languageModelWork_;
        languageModelWork_ = nullptr;
    }
    languageModelCancelled_.reset();
    downloadingName_.clear();
    languageModelProgress_->setVisible(false);
    languageModelCancel_->setVisible(false);
    languageModelMessage_->setText(message);
    refreshLanguageModel();
    refreshSummaryStatus();
    emit languageModelChanged();
}

void SettingsWindow::setUpSpeech()
{
    if (speechBusy())
        return;
    const QString locale = settings::transcriptionLanguage(preferences_);
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    speechCancelled_ = cancelled;
    speechMessage_->setText(QStringLiteral("Setting up on-device speech…"));
    speechProgress_->setVisible(true);
    speechProgress_->setRange(0, 0);
    speechCancel_->setVisible(true);
    speechCancel_->setEnabled(true);
    PreferenceStore *preferences = &preferences_;
    speechWork_ = runInBackground(
        [this, locale, cancelled, preferences] {
            LocalSpeech::SetUpOptions options;
            options.download.progress = throttled([this](qint64 received, qint64 total) {
                QMetaObject::invokeMethod(
                    this, [this, received, total] { showProgress(speechProgress_, received, total); },
                    Qt::QueuedConnection);
            });
            options.download.isCancelled = [cancelled] { return cancelled->load(); };
            try {
                LocalSpeech::setUp(locale, *preferences, options);
                return LocalSpeech::message(LocalSpeech::readiness(locale, *preferences));
            } catch (const CancellationError &) {
                return QStringLiteral("Speech set-up was cancelled. What was downloaded is kept for the next "
                                      "set-up, and speech works as it did before.");
            } catch (const std::exception &e) {
                return describe(e);
            }
        },
        [this](const QString &message) { finishSpeechWork(message); });
    refreshSpeech();
    refreshLanguagePicker();
}

void SettingsWindow::importSpeechModel()
{
    if (speechBusy())
        return;
    // One dialog for both kinds: a faster-whisper folder is chosen by its
    // model.bin, which stands for the folder.
    QFileDialog dialog(this, QStringLiteral("Import a Speech Model"), QDir::homePath(),
                       QStringLiteral("Whisper models (ggml-*.bin model.bin);;All files (*)"));
    dialog.setObjectName(QStringLiteral("settingsSpeechImportDialog"));
    dialog.setFileMode(QFileDialog::ExistingFile);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return;
    const QString source = dialog.selectedFiles().constFirst();
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    speechCancelled_ = cancelled;
    speechMessage_->setText(QStringLiteral("Importing “%1”…").arg(QFileInfo(source).fileName()));
    speechProgress_->setVisible(true);
    speechProgress_->setRange(0, 0);
    speechCancel_->setVisible(true);
    speechCancel_->setEnabled(true);
    const QString directory = speechModelsDirectory();
    speechWork_ = runInBackground(
        [this, source, directory, cancelled] {
            DownloadObserver observer;
            observer.progress = throttled([this](qint64 done, qint64 total) {
                QMetaObject::invokeMethod(
                    this, [this, done, total] { showProgress(speechProgress_, done, total); },
                    Qt::QueuedConnection);
            });
            observer.isCancelled = [cancelled] { return cancelled->load(); };
            try {
                const ImportedWhisperModel model = importWhisperModel(source, directory, observer);
                return QStringLiteral(
                           "The speech model “%1” is installed. Transcription uses it from now on.")
                    .arg(model.model.name);
            } catch (const CancellationError &) {
                return QStringLiteral(
                    "The import was cancelled. Nothing was installed, and speech works as it "
                    "did before.");
            } catch (const std::exception &e) {
                return describe(e);
            }
        },
        [this](const QString &message) { finishSpeechWork(message); });
    refreshSpeech();
    refreshLanguagePicker();
}

void SettingsWindow::finishSpeechWork(const QString &message)
{
    if (speechWork_) {
        speechWork_->wait();
        delete speechWork_;
        speechWork_ = nullptr;
    }
    speechCancelled_.reset();
    speechProgress_->setVisible(false);
    speechCancel_->setVisible(false);
    speechMessage_->setText(message);
    refreshSpeech();
    refreshLanguagePicker();
    // The launch's status line, in the same words; read without recording a
    // failure, so that the one set-up just recorded stays.
    const LocalSpeech::Readiness readiness =
        LocalSpeech::readiness(settings::transcriptionLanguage(preferences_), preferences_);
    app_.setSpeechStatus(LocalSpeech::statusLine(readiness));
}

} // namespace kestil
