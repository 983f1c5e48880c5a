#include "shell/SummaryTab.h"
#include "shell/StructuredSummaryView.h"

#include "core/LocalAppModel.h"
#include "core/NotesListViewModel.h"
#include "generation/LocalSummaryTemplate.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace kestil {

namespace {

void name(QWidget *widget, const QString &identifier)
{
    widget->setObjectName(identifier);
    widget->setAccessibleName(identifier);
}

QPalette mutedPalette(const QWidget *widget, double alpha)
{
    QPalette palette = widget->palette();
    QColor text = palette.color(QPalette::WindowText);
    text.setAlphaF(float(alpha));
    palette.setColor(QPalette::WindowText, text);
    return palette;
}

} // namespace

SummaryTab::SummaryTab(NotesListViewModel &list, QWidget *parent) : QWidget(parent), list_(list)
{
    name(this, QStringLiteral("noteDetailSummaryTab"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 8, 0, 0);
    layout->setSpacing(6);

    // The templates and the button that starts a summary.
    actions_ = new QWidget;
    name(actions_, QStringLiteral("noteDetailSummaryActions"));
    auto *actionRow = new QHBoxLayout(actions_);
    actionRow->setContentsMargins(0, 0, 0, 0);
    auto *pickerLabel = new QLabel(QStringLiteral("Template:"));
    actionRow->addWidget(pickerLabel);
    templatePicker_ = new QComboBox;
    name(templatePicker_, QStringLiteral("noteDetailSummaryTemplatePicker"));
    templatePicker_->setToolTip(QStringLiteral("The kind of summary to write"));
    for (const LocalSummaryTemplate value : LocalSummaryTemplates::allCases)
        templatePicker_->addItem(LocalSummaryTemplates::displayTitle(value),
                                 LocalSummaryTemplates::id(value));
    pickerLabel->setBuddy(templatePicker_);
    actionRow->addWidget(templatePicker_);
    summarizeButton_ = new QPushButton(QStringLiteral("Summarize"));
    name(summarizeButton_, QStringLiteral("noteDetailSummarizeButton"));
    summarizeButton_->setDefault(true);
    connect(summarizeButton_, &QPushButton::clicked, this, &SummaryTab::summarize);
    actionRow->addWidget(summarizeButton_);
    actionRow->addStretch(1);
    layout->addWidget(actions_);

    // Why a summary cannot be made now, and where to fix it.
    auto *gateRow = new QHBoxLayout;
    gateMessage_ = new QLabel;
    name(gateMessage_, QStringLiteral("noteDetailSummaryGateMessage"));
    gateMessage_->setWordWrap(true);
    gateMessage_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    gateRow->addWidget(gateMessage_, 1);
    openSettingsButton_ = new QPushButton(QStringLiteral("Open Settings"));
    name(openSettingsButton_, QStringLiteral("noteDetailSummaryOpenSettingsButton"));
    openSettingsButton_->setToolTip(QStringLiteral("Install or switch on the on-device language model"));
    connect(openSettingsButton_, &QPushButton::clicked, this, &SummaryTab::settingsRequested);
    gateRow->addWidget(openSettingsButton_, 0, Qt::AlignTop);
    layout->addLayout(gateRow);
    busyMessage_ = new QLabel;
    name(busyMessage_, QStringLiteral("noteDetailSummaryBusyMessage"));
    busyMessage_->setWordWrap(true);
    busyMessage_->setPalette(mutedPalette(busyMessage_, 0.6));
    layout->addWidget(busyMessage_);

    pages_ = new QStackedWidget;
    layout->addWidget(pages_, 1);

    emptyPage_ = new QWidget;
    name(emptyPage_, QStringLiteral("noteDetailSummaryEmpty"));
    auto *emptyLayout = new QVBoxLayout(emptyPage_);
    emptyLayout->addStretch(1);
    auto *emptyTitle = new QLabel(QStringLiteral("No summary yet"));
    emptyTitle->setObjectName(QStringLiteral("noteDetailSummaryEmptyTitle"));
    emptyTitle->setAlignment(Qt::AlignCenter);
    QFont titleFont = emptyTitle->font();
    titleFont.setWeight(QFont::DemiBold);
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.15);
    emptyTitle->setFont(titleFont);
    emptyLayout->addWidget(emptyTitle);
    auto *emptyText = new QLabel(
        QStringLiteral("Choose a template and select Summarize to summarize this note's transcript "
                       "on this computer. The transcript is in the Transcript tab."));
    emptyText->setObjectName(QStringLiteral("noteDetailSummaryEmptyMessage"));
    emptyText->setAlignment(Qt::AlignCenter);
    emptyText->setWordWrap(true);
    emptyText->setPalette(mutedPalette(emptyText, 0.6));
    emptyLayout->addWidget(emptyText);
    emptyLayout->addStretch(2);
    pages_->addWidget(emptyPage_);

    generatingPage_ = new QWidget;
    name(generatingPage_, QStringLiteral("noteDetailSummaryGenerating"));
    auto *generatingLayout = new QVBoxLayout(generatingPage_);
    generatingLayout->setContentsMargins(0, 0, 0, 0);
    auto *progressRow = new QHBoxLayout;
    progressLine_ = new QLabel;
    name(progressLine_, QStringLiteral("noteDetailSummaryProgress"));
    progressRow->addWidget(progressLine_, 1);
    cancelButton_ = new QPushButton(QStringLiteral("Cancel"));
    name(cancelButton_, QStringLiteral("noteDetailSummaryCancelButton"));
    cancelButton_->setToolTip(QStringLiteral("Stop this summary; the note stays as it is"));
    connect(cancelButton_, &QPushButton::clicked, &list_, &NotesListViewModel::cancelSummary);
    progressRow->addWidget(cancelButton_);
    generatingLayout->addLayout(progressRow);
    progressBar_ = new QProgressBar;
    name(progressBar_, QStringLiteral("noteDetailSummaryProgressBar"));
    progressBar_->setTextVisible(false);
    progressBar_->setMaximumHeight(6);
    generatingLayout->addWidget(progressBar_);
    streamingText_ = new StructuredSummaryView(QStringLiteral("noteDetailSummaryStreamingText"));
    generatingLayout->addWidget(streamingText_, 1);
    pages_->addWidget(generatingPage_);

    summaryText_ = new StructuredSummaryView(QStringLiteral("noteDetailSummaryText"));
    pages_->addWidget(summaryText_);

    connect(&list_, &NotesListViewModel::summaryStateChanged, this, &SummaryTab::refresh);
    connect(&list_, &NotesListViewModel::streamingSummaryChanged, this, &SummaryTab::refreshStreaming);
    connect(&list_, &NotesListViewModel::operationInProgressChanged, this, &SummaryTab::refresh);
    connect(&list_.appModel(), &LocalAppModel::summaryStatusChanged, this, &SummaryTab::refresh);
    refresh();
}

QString SummaryTab::progressText(const LocalSummaryProgress &progress)
{
    QString line = progress.title() + QStringLiteral("…");
    if (const std::optional<QString> detail = progress.detail())
        line += QLatin1Char(' ') + *detail;
    return line;
}

void SummaryTab::setNote(const NotePtr &note)
{
    if (note != note_) {
        note_ = note;
        // The template the note's summary was made with; the automatic one
        // for a note without.
        const LocalSummaryTemplate chosen =
            LocalSummaryTemplates::fromStored(note_ ? note_->summaryType() : std::nullopt);
        templatePicker_->setCurrentIndex(templatePicker_->findData(LocalSummaryTemplates::id(chosen)));
    }
    refresh();
}

bool SummaryTab::isGeneratingThisNote() const
{
    return note_ && list_.isGeneratingSummary() && list_.generatingSummaryNoteID() == note_->objectId();
}

void SummaryTab::refreshGate()
{
    gate_ = LocalSummary::modelStatus(list_.languageModel(), list_.summaryLocale());
}

void SummaryTab::refresh()
{
    // The model can be installed, removed or switched off at any time; its
    // files are read again at every redraw, never while text streams in.
    refreshGate();
    const bool generatingHere = isGeneratingThisNote();
    const bool hasSummary = note_ && note_->hasSummaryContent();

    if (generatingHere) {
        pages_->setCurrentWidget(generatingPage_);
        refreshStreaming();
    } else if (hasSummary) {
        summaryText_->setMarkdown(note_->summary().value_or(QString()), false);
        pages_->setCurrentWidget(summaryText_);
    } else {
        pages_->setCurrentWidget(emptyPage_);
    }

    actions_->setVisible(note_ && !generatingHere);
    summarizeButton_->setText(hasSummary ? QStringLiteral("Summarize Again") : QStringLiteral("Summarize"));
    summarizeButton_->setToolTip(
        hasSummary ? QStringLiteral("Write a new summary with the chosen template. The current summary stays "
                                    "until the new one is saved.")
                   : QStringLiteral("Summarize this note's transcript with the chosen template"));

    const bool refused = gate_.refusal.has_value();
    gateMessage_->setText(gate_.refusal.value_or(QString()));
    gateMessage_->setVisible(note_ && refused && !generatingHere);
    openSettingsButton_->setVisible(note_ && refused && !generatingHere &&
                                    gate_.state == LocalSummary::ModelStatus::State::unavailableButCurable);

    // The same holds as for a request: one summary at a time, none while a
    // recording starts or stops or the application is busy.
    const bool elsewhere = list_.isGeneratingSummary() && !generatingHere;
    busyMessage_->setText(QStringLiteral("Another note is being summarized. This note can be summarized "
                                         "when that summary has finished."));
    busyMessage_->setVisible(note_ && elsewhere);
    summarizeButton_->setEnabled(note_ && !refused && !list_.isGeneratingSummary() &&
                                 !list_.operationInProgress() && !list_.appModel().busy());
}

void SummaryTab::refreshStreaming()
{
    if (!isGeneratingThisNote())
        return;
    const StreamingSummaryViewModel &streaming = list_.streamingSummaryViewModel();
    const LocalSummaryProgress &progress = streaming.progress();
    progressLine_->setText(progressText(progress));
    if (const std::optional<double> fraction = progress.fraction()) {
        progressBar_->setRange(0, 1000);
        progressBar_->setValue(int(*fraction * 1000));
    } else {
        // No measure of the stage: a busy bar.
        progressBar_->setRange(0, 0);
    }
    cancelButton_->setEnabled(list_.isSummaryJobRunning());
    streamingText_->setMarkdown(streaming.summary(), true);
}

void SummaryTab::summarize()
{
    if (!note_)
        return;
    list_.generateSummary(note_, templatePicker_->currentData().toString());
}

void SummaryTab::showEvent(QShowEvent *event)
{
    // The model may have been installed or switched on meanwhile.
    refresh();
    QWidget::showEvent(event);
}

} // namespace kestil
