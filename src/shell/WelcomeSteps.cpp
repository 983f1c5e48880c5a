#include "shell/WelcomeSteps.h"
#include "shell/WidgetNames.h"

#include "base/CancellationError.h"
#include "base/Error.h"
#include "generation/LanguageModelFiles.h"
#include "generation/LanguageModelInstall.h"
#include "generation/LlamaLanguageModel.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "shell/BackgroundTask.h"
#include "shell/MicrophoneLevelMonitor.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace kestil {

namespace {

QLabel *sentence(const QString &name, const QString &text = {})
{
    auto *label = named(new QLabel(text), name);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

QString languageOf(PreferenceStore &preferences)
{
    return settings::transcriptionLanguage(preferences);
}

} // namespace

WelcomeEnvironment WelcomeEnvironment::standard()
{
    return WelcomeEnvironment{
        &LlamaLanguageModel::shared(), LanguageModelFiles::modelsDirectory(), languageModelCatalogue(), {}};
}

WelcomeStep::WelcomeStep(const QString &identifier, const QString &title, const QString &text,
                         QWidget *parent)
    : QWidget(parent)
{
    named(this, identifier);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
    auto *heading = named(new QLabel(title), identifier + QStringLiteral("Title"));
    QFont font = heading->font();
    font.setPointSizeF(font.pointSizeF() * 1.7);
    font.setWeight(QFont::Bold);
    heading->setFont(font);
    heading->setWordWrap(true);
    layout->addWidget(heading);
    auto *intro = sentence(identifier + QStringLiteral("Text"), text);
    QFont introFont = intro->font();
    introFont.setPointSizeF(introFont.pointSizeF() * 1.08);
    intro->setFont(introFont);
    layout->addWidget(intro);
    layout->addSpacing(6);
    body_ = new QVBoxLayout;
    body_->setSpacing(8);
    layout->addLayout(body_);
    layout->addStretch(1);
}

// --- On-device intelligence ------------------------------------------------

WelcomeIntelligenceStep::WelcomeIntelligenceStep(PreferenceStore &preferences,
                                                 const WelcomeEnvironment &environment, QWidget *parent)
    : WelcomeStep(
          QStringLiteral("welcomeStepIntelligence"), QStringLiteral("On-device intelligence"),
          QStringLiteral("Summaries, titles, tags and answers to your questions are written by a "
                         "language model that runs on this computer. Nothing you say or write is sent "
                         "anywhere. The model is a one-time download; you can also skip this and add "
                         "one later in Settings."),
          parent),
      preferences_(preferences), environment_(environment), task_(new BackgroundTask(this))
{
    status_ = sentence(QStringLiteral("welcomeModelStatus"));
    body()->addWidget(status_);

    auto *row = new QHBoxLayout;
    picker_ = named(new QComboBox, QStringLiteral("welcomeModelPicker"));
    for (const DownloadableLanguageModel &model : environment_.catalogue) {
        picker_->addItem(model.name + QStringLiteral(" · ") + fileSizeText(model.size));
        picker_->setItemData(picker_->count() - 1, model.description, Qt::ToolTipRole);
    }
    row->addWidget(picker_, 1);
    download_ =
        named(new QPushButton(QStringLiteral("&Download")), QStringLiteral("welcomeModelDownloadButton"));
    row->addWidget(download_);
    body()->addLayout(row);

    auto *progressRow = new QHBoxLayout;
    progress_ = named(new QProgressBar, QStringLiteral("welcomeModelProgress"));
    progress_->setVisible(false);
    progressRow->addWidget(progress_, 1);
    cancel_ = named(new QPushButton(QStringLiteral("Cancel")), QStringLiteral("welcomeModelCancelButton"));
    cancel_->setVisible(false);
    progressRow->addWidget(cancel_);
    body()->addLayout(progressRow);

    import_ = named(new QPushButton(QStringLiteral("Import a model file…")),
                    QStringLiteral("welcomeModelImportButton"));
    auto *importRow = new QHBoxLayout;
    importRow->addWidget(import_);
    importRow->addStretch(1);
    body()->addLayout(importRow);

    message_ = sentence(QStringLiteral("welcomeModelMessage"));
    body()->addWidget(message_);

    chooseFile_ = [this] {
        return QFileDialog::getOpenFileName(this, QStringLiteral("Import a Language Model"), QDir::homePath(),
                                            QStringLiteral("GGUF models (*.gguf)"));
    };
    connect(download_, &QPushButton::clicked, this, &WelcomeIntelligenceStep::download);
    connect(import_, &QPushButton::clicked, this, &WelcomeIntelligenceStep::import);
    connect(cancel_, &QPushButton::clicked, this, [this] {
        task_->cancel();
        cancel_->setEnabled(false);
    });
    connect(task_, &BackgroundTask::progress, this, [this](qint64 received, qint64 total) {
        showProgress(progress_, received, total);
        if (!downloading_.isEmpty())
            status_->setText(total > 0 ? QStringLiteral("Downloading “%1”: %2 of %3.")
                                             .arg(downloading_, fileSizeText(received), fileSizeText(total))
                                       : QStringLiteral("Downloading “%1”: %2 so far.")
                                             .arg(downloading_, fileSizeText(received)));
    });
    connect(task_, &BackgroundTask::finished, this, &WelcomeIntelligenceStep::finish);
    refresh();
}

bool WelcomeIntelligenceStep::busy() const
{
    return task_->running();
}

bool WelcomeIntelligenceStep::modelInstalled() const
{
    return LanguageModelFiles::installedModel(environment_.languageModelsDirectory).has_value();
}

void WelcomeIntelligenceStep::setShown(bool shown)
{
    if (shown)
        refresh();
}

void WelcomeIntelligenceStep::refresh()
{
    const bool running = busy();
    download_->setEnabled(!running && !environment_.catalogue.isEmpty());
    import_->setEnabled(!running);
    picker_->setEnabled(!running);
    if (running && !downloading_.isEmpty())
        return; // the progress keeps the sentence current
    const auto installed = LanguageModelFiles::installedModel(environment_.languageModelsDirectory);
    if (installed) {
        QString name = QFileInfo(installed->path).fileName();
        for (const DownloadableLanguageModel &model : environment_.catalogue) {
            if (model.fileName == name)
                name = model.name;
        }
        status_->setText(QStringLiteral("“%1” is installed. Summaries and Ask AI are ready.").arg(name));
    } else {
        status_->setText(
            QStringLiteral("No language model is installed yet. Choose one to download, or import "
                           "a GGUF model file you already have."));
    }
    emit changed();
}

void WelcomeIntelligenceStep::download()
{
    const int index = picker_->currentIndex();
    if (busy() || index < 0 || index >= environment_.catalogue.size())
        return;
    const DownloadableLanguageModel model = environment_.catalogue[index];
    QUrl base;
    try {
        base = languageModelBaseAddress(preferences_);
    } catch (const std::exception &error) {
        message_->setText(describe(error));
        return;
    }
    message_->clear();
    downloading_ = model.name;
    progress_->setVisible(true);
    cancel_->setVisible(true);
    cancel_->setEnabled(true);
    const QString directory = environment_.languageModelsDirectory;
    showProgress(progress_, partialLanguageModelDownload(model, directory), model.size);
    status_->setText(QStringLiteral("Downloading “%1”…").arg(model.name));
    task_->start([model, base, directory](const DownloadObserver &observer) {
        try {
            installLanguageModel(model, base, observer, directory);
            return QString(); // the status line says what is installed
        } catch (const CancellationError &) {
            return QStringLiteral("The download of “%1” was cancelled. What arrived is kept for the next "
                                  "download, and models already installed are unchanged.")
                .arg(model.name);
        } catch (const std::exception &error) {
            return describe(error);
        }
    });
    refresh();
}

void WelcomeIntelligenceStep::import()
{
    if (busy())
        return;
    const QString source = chooseFile_ ? chooseFile_() : QString();
    if (source.isEmpty())
        return;
    downloading_.clear();
    message_->setText(QStringLiteral("Importing “%1”…").arg(QFileInfo(source).fileName()));
    progress_->setVisible(true);
    progress_->setRange(0, 0);
    const QString directory = environment_.languageModelsDirectory;
    task_->start([source, directory](const DownloadObserver &) {
        try {
            LanguageModelFiles::importModel(source, directory);
            return QString(); // the status line says what is installed
        } catch (const std::exception &error) {
            return describe(error);
        }
    });
    refresh();
}

// `message` is empty when the model was installed: the status line then says
// so, and saying it twice would only repeat it.
void WelcomeIntelligenceStep::finish(const QString &message)
{
    downloading_.clear();
    progress_->setVisible(false);
    cancel_->setVisible(false);
    message_->setText(message);
    refresh();
}

// --- Language ---------------------------------------------------------------

WelcomeLanguageStep::WelcomeLanguageStep(PreferenceStore &preferences, const WelcomeEnvironment &environment,
                                         QWidget *parent)
    : WelcomeStep(QStringLiteral("welcomeStepLanguage"), QStringLiteral("Language"),
                  QStringLiteral("Choose the language you will speak. Kestil transcribes it live, on this "
                                 "computer, and writes summaries in it. Some languages need a speech model, "
                                 "downloaded once."),
                  parent),
      preferences_(preferences), environment_(environment), task_(new BackgroundTask(this))
{
    picker_ = named(new QListWidget, QStringLiteral("welcomeLanguagePicker"));
    picker_->setMinimumHeight(180);
    for (const LocalSpeech::Language &language : LocalSpeech::languages()) {
        auto *item = new QListWidgetItem(LocalSpeech::displayName(language), picker_);
        item->setData(Qt::UserRole, language.id);
    }
    body()->addWidget(picker_);

    status_ = sentence(QStringLiteral("welcomeSpeechStatus"));
    body()->addWidget(status_);

    auto *row = new QHBoxLayout;
    setUp_ = named(new QPushButton, QStringLiteral("welcomeSpeechSetUpButton"));
    row->addWidget(setUp_);
    progress_ = named(new QProgressBar, QStringLiteral("welcomeSpeechProgress"));
    progress_->setVisible(false);
    row->addWidget(progress_, 1);
    cancel_ = named(new QPushButton(QStringLiteral("Cancel")), QStringLiteral("welcomeSpeechCancelButton"));
    cancel_->setVisible(false);
    row->addWidget(cancel_);
    row->addStretch(0);
    body()->addLayout(row);

    message_ = sentence(QStringLiteral("welcomeSpeechMessage"));
    body()->addWidget(message_);

    connect(picker_, &QListWidget::currentItemChanged, this, [this](QListWidgetItem *item) {
        if (!item || busy())
            return;
        settings::setTranscriptionLanguage(preferences_, item->data(Qt::UserRole).toString());
        message_->clear();
        refresh();
    });
    connect(setUp_, &QPushButton::clicked, this, &WelcomeLanguageStep::setUp);
    connect(cancel_, &QPushButton::clicked, this, [this] {
        task_->cancel();
        cancel_->setEnabled(false);
    });
    connect(task_, &BackgroundTask::progress, this,
            [this](qint64 received, qint64 total) { showProgress(progress_, received, total); });
    connect(task_, &BackgroundTask::finished, this, [this](const QString &message) {
        progress_->setVisible(false);
        cancel_->setVisible(false);
        message_->setText(message);
        refresh();
    });
    refresh();
}

bool WelcomeLanguageStep::busy() const
{
    return task_->running();
}

void WelcomeLanguageStep::setShown(bool shown)
{
    if (shown)
        refresh();
}

void WelcomeLanguageStep::refresh()
{
    const QString language = languageOf(preferences_);
    const std::optional<QString> key = LocalSpeech::languageKey(language);
    int row = -1;
    for (int i = 0; i < picker_->count(); ++i) {
        if (key && LocalSpeech::languageKey(picker_->item(i)->data(Qt::UserRole).toString()) == key)
            row = i;
    }
    {
        const QSignalBlocker block(picker_);
        picker_->setCurrentRow(row);
    }
    picker_->setEnabled(!busy());
    if (row < 0) {
        // A language saved by hand or by another version that Kestil does not
        // transcribe: it is left as it is until the user picks one.
        status_->setText(QStringLiteral("The language in your settings (“%1”) cannot be transcribed on this "
                                        "computer. Choose one of the languages above.")
                             .arg(language));
        setUp_->setVisible(false);
        emit changed();
        return;
    }
    const QString name = picker_->item(row)->text();
    const LocalSpeech::Readiness readiness = LocalSpeech::readiness(language, preferences_);
    // The fallback engine is named as such, with set-up offered for Whisper.
    const bool fallback = readiness.configuration &&
                          readiness.configuration->engine == LocalSpeech::Engine::dictation &&
                          readiness.whisperOffered;
    status_->setText(readiness.status == LocalSpeech::Readiness::Status::installed && !fallback
                         ? QStringLiteral("Speech in %1 is ready. Transcription works offline.").arg(name)
                         : LocalSpeech::message(readiness));
    setUp_->setText(QStringLiteral("Set Up Speech for %1").arg(name));
    setUp_->setVisible(readiness.configuration &&
                       (fallback || readiness.status != LocalSpeech::Readiness::Status::installed));
    setUp_->setEnabled(!busy());
    emit changed();
}

void WelcomeLanguageStep::setUp()
{
    if (busy())
        return;
    const QString locale = languageOf(preferences_);
    message_->setText(QStringLiteral("Setting up on-device speech…"));
    progress_->setVisible(true);
    progress_->setRange(0, 0);
    cancel_->setVisible(true);
    cancel_->setEnabled(true);
    PreferenceStore *preferences = &preferences_;
    const QList<WhisperModel> catalogue = environment_.speechCatalogue;
    task_->start([locale, preferences, catalogue](const DownloadObserver &observer) {
        LocalSpeech::SetUpOptions options;
        options.download = observer;
        options.catalogue = catalogue;
        try {
            LocalSpeech::setUp(locale, *preferences, options);
            return LocalSpeech::message(LocalSpeech::readiness(locale, *preferences));
        } catch (const CancellationError &) {
            return QStringLiteral(
                "Speech set-up was cancelled. What was downloaded is kept for the next set-up, "
                "and speech works as it did before.");
        } catch (const std::exception &error) {
            return describe(error);
        }
    });
    refresh();
}

// --- Microphone -------------------------------------------------------------

WelcomeMicrophoneStep::WelcomeMicrophoneStep(QWidget *parent)
    : WelcomeStep(QStringLiteral("welcomeStepMicrophone"), QStringLiteral("Microphone"),
                  QStringLiteral("Kestil records your system's default microphone. Say a few words: the bar "
                                 "below moves when it hears you. Nothing is recorded here."),
                  parent),
      monitor_(new MicrophoneLevelMonitor(this))
{
    name_ = sentence(QStringLiteral("welcomeMicrophoneName"));
    QFont font = name_->font();
    font.setWeight(QFont::DemiBold);
    name_->setFont(font);
    body()->addWidget(name_);
    level_ = named(new QProgressBar, QStringLiteral("welcomeMicrophoneLevel"));
    level_->setRange(0, 100);
    level_->setTextVisible(false);
    level_->setFixedHeight(14);
    body()->addWidget(level_);
    problem_ = sentence(QStringLiteral("welcomeMicrophoneProblem"));
    body()->addWidget(problem_);
    connect(monitor_, &MicrophoneLevelMonitor::levelChanged, this,
            [this](float level) { level_->setValue(int(level * 100.0f + 0.5f)); });
    connect(monitor_, &MicrophoneLevelMonitor::stateChanged, this, &WelcomeMicrophoneStep::refresh);
    refresh();
}

void WelcomeMicrophoneStep::setShown(bool shown)
{
    if (shown)
        monitor_->start();
    else
        monitor_->stop();
}

void WelcomeMicrophoneStep::refresh()
{
    const QString name = monitor_->sourceName();
    if (!name.isEmpty())
        heard_ = name;
    else if (!monitor_->problem().isEmpty())
        heard_.clear();
    name_->setText(!name.isEmpty()                 ? QStringLiteral("Listening to “%1”").arg(name)
                   : monitor_->problem().isEmpty() ? QStringLiteral("Looking for your microphone…")
                                                   : QStringLiteral("No microphone"));
    problem_->setText(monitor_->problem());
    problem_->setVisible(!monitor_->problem().isEmpty());
    emit changed();
}

// --- System audio -----------------------------------------------------------

WelcomeSystemAudioStep::WelcomeSystemAudioStep(PreferenceStore &preferences, QWidget *parent)
    : WelcomeStep(QStringLiteral("welcomeStepSystemAudio"), QStringLiteral("System audio"),
                  QStringLiteral("In a call or a video, the other voices come out of your speakers, not into "
                                 "your microphone. With system audio on, Kestil records what your computer "
                                 "plays together with your microphone, so both sides are transcribed. It is "
                                 "recorded only while a transcription runs, and only to this computer."),
                  parent),
      preferences_(preferences)
{
    switch_ = named(new QCheckBox(QStringLiteral("Record system audio")),
                    QStringLiteral("welcomeSystemAudioSwitch"));
    body()->addWidget(switch_);
    body()->addWidget(sentence(QStringLiteral("welcomeSystemAudioNote"),
                               QStringLiteral("You can change this at any time in Settings.")));
    connect(switch_, &QCheckBox::toggled, this, [this](bool on) {
        settings::setRecordSystemAudio(preferences_, on);
        emit changed();
    });
    setShown(true);
}

void WelcomeSystemAudioStep::setShown(bool shown)
{
    if (!shown)
        return;
    const QSignalBlocker block(switch_);
    switch_->setChecked(settings::recordSystemAudio(preferences_));
}

// --- Readiness --------------------------------------------------------------

WelcomeReadinessStep::WelcomeReadinessStep(QWidget *parent)
    : WelcomeStep(
          QStringLiteral("welcomeStepReady"), QStringLiteral("You're ready"),
          QStringLiteral("Here is what Kestil found. Anything not ready yet can be finished in Settings; "
                         "recording works either way."),
          parent)
{
    card_ = named(new QWidget, QStringLiteral("welcomeReadinessCard"));
    card_->setAttribute(Qt::WA_StyledBackground, true);
    card_->setStyleSheet(
        QStringLiteral("#welcomeReadinessCard { background: palette(base); border: 1px solid "
                       "palette(midlight); border-radius: 10px; }"));
    new QGridLayout(card_);
    body()->addWidget(card_);
}

void WelcomeReadinessStep::showItems(const QList<WelcomeReadinessItem> &items)
{
    items_ = items;
    auto *grid = static_cast<QGridLayout *>(card_->layout());
    while (QLayoutItem *item = grid->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    grid->setContentsMargins(16, 14, 16, 14);
    grid->setHorizontalSpacing(12);
    grid->setVerticalSpacing(10);
    grid->setColumnStretch(1, 1);
    int row = 0;
    for (const WelcomeReadinessItem &item : items) {
        const QString base = QStringLiteral("welcomeReadiness-") + item.identifier;
        auto *mark = named(new QLabel(item.ready ? QStringLiteral("✓") : QStringLiteral("!")),
                           base + QStringLiteral("Mark"));
        mark->setAlignment(Qt::AlignCenter);
        mark->setFixedSize(24, 24);
        mark->setToolTip(item.ready ? QStringLiteral("Ready") : QStringLiteral("Not ready yet"));
        mark->setStyleSheet(item.ready
                                ? QStringLiteral("color: white; background: #2e7d32; border-radius: 12px; "
                                                 "font-weight: bold;")
                                : QStringLiteral("color: white; background: #d35400; border-radius: 12px; "
                                                 "font-weight: bold;"));
        grid->addWidget(mark, row, 0, 2, 1, Qt::AlignTop);
        auto *title = named(new QLabel(item.title), base + QStringLiteral("Title"));
        QFont font = title->font();
        font.setWeight(QFont::DemiBold);
        title->setFont(font);
        grid->addWidget(title, row, 1);
        grid->addWidget(sentence(base, item.sentence), row + 1, 1);
        row += 2;
    }
}

} // namespace kestil
