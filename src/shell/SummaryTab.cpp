#include "shell/SummaryTab.h"
#include "shell/StructuredSummaryView.h"
#include "shell/WidgetNames.h"

#include "core/LocalAppModel.h"
#include "core/NotesListViewModel.h"
#include "documents/ParsedNoteMarkdown.h"
#include "generation/LocalSummaryTemplate.h"
#include "shell/ModelStatusText.h"

#include <QActionGroup>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QProgressBar>
#include <QPushButton>
#include <QShortcut>
#include <QStackedWidget>
#include <QTabWidget>
#include <QToolButton>
#include <QVBoxLayout>

namespace kestil {

namespace {

QPalette mutedPalette(const QWidget *widget, double alpha)
{
    QPalette palette = widget->palette();
    QColor text = palette.color(QPalette::WindowText);
    text.setAlphaF(float(alpha));
    palette.setColor(QPalette::WindowText, text);
    return palette;
}

// Four-pointed sparkles, a large one and a small one: the templates that
// the on-device model writes with.
QIcon sparklesIcon(const QColor &color)
{
    QPixmap pixmap(32, 32);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    const auto sparkle = [&](QPointF centre, double radius) {
        const double waist = radius * 0.08;
        QPainterPath path;
        path.moveTo(centre.x(), centre.y() - radius);
        path.quadTo(centre.x() + waist, centre.y() - waist, centre.x() + radius, centre.y());
        path.quadTo(centre.x() + waist, centre.y() + waist, centre.x(), centre.y() + radius);
        path.quadTo(centre.x() - waist, centre.y() + waist, centre.x() - radius, centre.y());
        path.quadTo(centre.x() - waist, centre.y() - waist, centre.x(), centre.y() - radius);
        painter.drawPath(path);
    };
    sparkle({13, 18}, 12);
    sparkle({25, 7}, 6);
    return QIcon(pixmap);
}

} // namespace

SummaryTab::SummaryTab(NotesListViewModel &list, QWidget *parent) : QWidget(parent), list_(list)
{
    named(this, QStringLiteral("noteDetailSummaryTab"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 8, 0, 0);
    layout->setSpacing(6);

    // The templates: choosing one starts a summary with it.
    actions_ = new QWidget;
    named(actions_, QStringLiteral("noteDetailSummaryActions"));
    auto *actionRow = new QHBoxLayout(actions_);
    actionRow->setContentsMargins(0, 0, 0, 0);
    templatesButton_ = new QToolButton;
    named(templatesButton_, QStringLiteral("noteDetailTemplatesButton"));
    templatesButton_->setToolTip(
        QStringLiteral("Choose a template to summarize this note's transcript (Ctrl+T)"));
    templatesButton_->setIcon(sparklesIcon(palette().color(QPalette::ButtonText)));
    templatesButton_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    templatesButton_->setPopupMode(QToolButton::InstantPopup);
    templatesMenu_ = new QMenu(templatesButton_);
    templatesMenu_->setObjectName(QStringLiteral("noteDetailTemplatesMenu"));
    auto *rows = new QActionGroup(templatesMenu_);
    rows->setExclusive(true);
    for (const LocalSummaryTemplate value : LocalSummaryTemplates::allCases) {
        const QString key = LocalSummaryTemplates::id(value);
        QAction *row = templatesMenu_->addAction(LocalSummaryTemplates::displayTitle(value));
        row->setObjectName(QStringLiteral("noteTemplate-") + key);
        row->setCheckable(true);
        row->setData(key);
        rows->addAction(row);
        connect(row, &QAction::triggered, this, [this, key] { summarize(key); });
    }
    templatesButton_->setMenu(templatesMenu_);
    actionRow->addWidget(templatesButton_);
    actionRow->addStretch(1);
    layout->addWidget(actions_);

    // A summary that stopped before it was saved, and the two ways on.
    resumeOffer_ = new QWidget;
    named(resumeOffer_, QStringLiteral("noteDetailSummaryResumeOffer"));
    auto *offerRow = new QHBoxLayout(resumeOffer_);
    offerRow->setContentsMargins(0, 0, 0, 0);
    resumeText_ = new QLabel;
    named(resumeText_, QStringLiteral("noteDetailSummaryResumeText"));
    resumeText_->setWordWrap(true);
    offerRow->addWidget(resumeText_, 1);
    continueButton_ = new QPushButton(QStringLiteral("Continue Summary"));
    named(continueButton_, QStringLiteral("noteDetailContinueSummaryButton"));
    continueButton_->setShortcut(QKeySequence(Qt::ALT | Qt::Key_C));
    continueButton_->setToolTip(QStringLiteral("Go on from the first unfinished section (Alt+C)"));
    connect(continueButton_, &QPushButton::clicked, this, [this] {
        if (note_)
            list_.continueSummary(note_);
    });
    offerRow->addWidget(continueButton_, 0, Qt::AlignTop);
    summarizeAgainButton_ = new QPushButton(QStringLiteral("Summarize Again"));
    named(summarizeAgainButton_, QStringLiteral("noteDetailSummarizeAgainButton"));
    summarizeAgainButton_->setShortcut(QKeySequence(Qt::ALT | Qt::Key_A));
    summarizeAgainButton_->setToolTip(
        QStringLiteral("Start this summary anew; what was done so far is discarded (Alt+A)"));
    connect(summarizeAgainButton_, &QPushButton::clicked, this, [this] {
        if (note_)
            list_.summarizeAgain(note_);
    });
    offerRow->addWidget(summarizeAgainButton_, 0, Qt::AlignTop);
    layout->addWidget(resumeOffer_);

    // Why a summary cannot be made now, and where to fix it.
    auto *gateRow = new QHBoxLayout;
    gateMessage_ = new QLabel;
    named(gateMessage_, QStringLiteral("noteDetailSummaryGateMessage"));
    gateMessage_->setWordWrap(true);
    gateMessage_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    gateRow->addWidget(gateMessage_, 1);
    openSettingsButton_ = new QPushButton(QStringLiteral("Open Settings"));
    named(openSettingsButton_, QStringLiteral("noteDetailSummaryOpenSettingsButton"));
    openSettingsButton_->setToolTip(QStringLiteral("Install or switch on the on-device language model"));
    connect(openSettingsButton_, &QPushButton::clicked, this, &SummaryTab::settingsRequested);
    gateRow->addWidget(openSettingsButton_, 0, Qt::AlignTop);
    layout->addLayout(gateRow);
    busyMessage_ = new QLabel;
    named(busyMessage_, QStringLiteral("noteDetailSummaryBusyMessage"));
    busyMessage_->setWordWrap(true);
    busyMessage_->setPalette(mutedPalette(busyMessage_, 0.6));
    layout->addWidget(busyMessage_);

    pages_ = new QStackedWidget;
    layout->addWidget(pages_, 1);

    emptyPage_ = new QWidget;
    named(emptyPage_, QStringLiteral("noteDetailSummaryEmpty"));
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
        QStringLiteral("Choose a template from the Templates menu to summarize this note's transcript "
                       "on this computer. The transcript is in the Transcript tab."));
    emptyText->setObjectName(QStringLiteral("noteDetailSummaryEmptyMessage"));
    emptyText->setAlignment(Qt::AlignCenter);
    emptyText->setWordWrap(true);
    emptyText->setPalette(mutedPalette(emptyText, 0.6));
    emptyLayout->addWidget(emptyText);
    emptyLayout->addStretch(2);
    pages_->addWidget(emptyPage_);

    generatingPage_ = new QWidget;
    named(generatingPage_, QStringLiteral("noteDetailSummaryGenerating"));
    auto *generatingLayout = new QVBoxLayout(generatingPage_);
    generatingLayout->setContentsMargins(0, 0, 0, 0);
    auto *progressRow = new QHBoxLayout;
    progressLine_ = new QLabel;
    named(progressLine_, QStringLiteral("noteDetailSummaryProgress"));
    progressRow->addWidget(progressLine_, 1);
    cancelButton_ = new QPushButton(QStringLiteral("Cancel"));
    named(cancelButton_, QStringLiteral("noteDetailSummaryCancelButton"));
    cancelButton_->setToolTip(QStringLiteral("Stop this summary; the note stays as it is"));
    connect(cancelButton_, &QPushButton::clicked, &list_, &NotesListViewModel::cancelSummary);
    progressRow->addWidget(cancelButton_);
    generatingLayout->addLayout(progressRow);
    progressBar_ = new QProgressBar;
    named(progressBar_, QStringLiteral("noteDetailSummaryProgressBar"));
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

QString SummaryTab::waitingText()
{
    return QStringLiteral("Waiting for the on-device model to finish another request…");
}

QString SummaryTab::resumeText(const NotesListViewModel::SummaryResumeOffer &offer)
{
    const QString head =
        QStringLiteral("An unfinished “") +
        LocalSummaryTemplates::displayTitle(LocalSummaryTemplates::fromStored(offer.templateKey)) +
        QStringLiteral("” summary can be continued");
    if (offer.written)
        return head + QStringLiteral(": the summary is written, its title and tags are left.");
    // One section left means that the key points fit: what remains is
    // writing the summary from them.
    if (offer.total == 1)
        return head + QStringLiteral(": %1only the summary itself is left to write.")
                          .arg(offer.pass > 0 ? QStringLiteral("the transcript is read and ") : QString());
    if (offer.total > 1)
        return head + QStringLiteral(" where it stopped: %1 of %2 sections %3.")
                          .arg(offer.completed)
                          .arg(offer.total)
                          .arg(offer.pass == 0 ? QStringLiteral("reviewed")
                                               : QStringLiteral("of key points combined"));
    return head + QStringLiteral(" where it stopped%1.")
                      .arg(offer.pass > 0 ? QStringLiteral(": the transcript is read") : QString());
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
    note_ = note;
    refresh();
}

void SummaryTab::refreshTemplates()
{
    // The template the note's summary was made with; the automatic one for a
    // note without.
    const LocalSummaryTemplate current =
        LocalSummaryTemplates::fromStored(note_ ? note_->summaryType() : std::nullopt);
    templatesButton_->setText(LocalSummaryTemplates::displayTitle(current));
    const QString key = LocalSummaryTemplates::id(current);
    for (QAction *row : templatesMenu_->actions())
        row->setChecked(row->data().toString() == key);
}

bool SummaryTab::event(QEvent *event)
{
    // Ctrl+T works wherever the note's detail is in view, also on another
    // tab: the shortcut belongs to the widget that holds this tab.
    if (event->type() == QEvent::ParentChange) {
        delete templatesShortcut_;
        templatesShortcut_ = nullptr;
        if (QWidget *holder = parentWidget()) {
            templatesShortcut_ = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_T), holder);
            connect(templatesShortcut_, &QShortcut::activated, this, &SummaryTab::openTemplatesMenu);
        }
    }
    return QWidget::event(event);
}

void SummaryTab::openTemplatesMenu()
{
    if (!note_ || !templatesButton_->isEnabled())
        return;
    for (QWidget *widget = parentWidget(); widget && !isVisible(); widget = widget->parentWidget()) {
        if (auto *tabs = qobject_cast<QTabWidget *>(widget))
            tabs->setCurrentWidget(this);
    }
    if (!templatesButton_->isVisible())
        return;
    // From the keyboard the menu opens at the note's template, so that Return
    // summarises with it again.
    QAction *current = nullptr;
    for (QAction *row : templatesMenu_->actions())
        current = row->isChecked() ? row : current;
    templatesMenu_->popup(templatesButton_->mapToGlobal(QPoint(0, templatesButton_->height())));
    if (current)
        templatesMenu_->setActiveAction(current);
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
    refreshTemplates();

    const bool refused = gate_.refusal.has_value();
    // A sentence that says what to do, not the model's internal reason.
    gateMessage_->setText(
        refused
            ? summaryRefusalSentence(list_.languageModel(), list_.summaryLocale()).value_or(*gate_.refusal)
            : QString());
    gateMessage_->setVisible(note_ && refused && !generatingHere);
    openSettingsButton_->setVisible(note_ && refused && !generatingHere &&
                                    gate_.state == LocalSummary::ModelStatus::State::unavailableButCurable);

    // The same holds as for a request: one summary at a time, none while a
    // recording starts or stops or the application is busy.
    const bool elsewhere = list_.isGeneratingSummary() && !generatingHere;
    busyMessage_->setText(QStringLiteral("Another note is being summarized. This note can be summarized "
                                         "when that summary has finished."));
    busyMessage_->setVisible(note_ && elsewhere);
    const bool canStart = note_ && !refused && !list_.isGeneratingSummary() && !list_.operationInProgress() &&
                          !list_.appModel().busy();
    templatesButton_->setEnabled(canStart);

    // The offer is read after everything else: telling the user that a kept
    // summary had to be discarded may open an alert.
    const std::optional<NotesListViewModel::SummaryResumeOffer> offer =
        note_ && !generatingHere ? list_.summaryResumeOffer(note_) : std::nullopt;
    resumeOffer_->setVisible(offer.has_value());
    if (offer)
        resumeText_->setText(resumeText(*offer));
    continueButton_->setEnabled(offer && canStart);
    summarizeAgainButton_->setEnabled(offer && canStart);
}

void SummaryTab::refreshStreaming()
{
    if (!isGeneratingThisNote())
        return;
    const StreamingSummaryViewModel &streaming = list_.streamingSummaryViewModel();
    const LocalSummaryProgress &progress = streaming.progress();
    progressLine_->setText(streaming.waitingForModel() ? waitingText() : progressText(progress));
    if (const std::optional<double> fraction = progress.fraction();
        fraction && !streaming.waitingForModel()) {
        progressBar_->setRange(0, 1000);
        progressBar_->setValue(int(*fraction * 1000));
    } else {
        // No measure of the stage: a busy bar.
        progressBar_->setRange(0, 0);
    }
    cancelButton_->setEnabled(list_.isSummaryJobRunning());
    streamingText_->setMarkdown(streaming.summary(), true);
}

void SummaryTab::summarize(const QString &templateKey)
{
    if (!note_)
        return;
    list_.generateSummary(note_, templateKey);
}

void SummaryTab::showEvent(QShowEvent *event)
{
    // The model may have been installed or switched on meanwhile.
    refresh();
    QWidget::showEvent(event);
}

} // namespace kestil
