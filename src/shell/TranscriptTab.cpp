#include "shell/TranscriptTab.h"

#include "shell/Icons.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QStackedWidget>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextCursor>
#include <QUrl>
#include <QVBoxLayout>

namespace kestil {

namespace {

enum Page { paragraphsPage, emptyPage, loadingPage };

// Within this many pixels of the end counts as at the bottom.
constexpr int bottomSlack = 6;

QColor muted(const QPalette &palette, double alpha)
{
    QColor c = palette.color(QPalette::Text);
    c.setAlphaF(float(alpha));
    return c;
}

const QString &ellipsisFrame(int step)
{
    static const QString frames[] = {QStringLiteral("•"), QStringLiteral("• •"), QStringLiteral("• • •")};
    return frames[step % 3];
}

bool sameLook(const TranscriptParagraph &a, const TranscriptParagraph &b)
{
    // Identities of untimed paragraphs are made afresh on every read; what
    // matters for drawing is what the paragraph shows.
    return a.kind == b.kind && a.text == b.text && a.timestampLabel == b.timestampLabel &&
           a.speakerLabel == b.speakerLabel && a.speaker == b.speaker;
}

QLabel *centredLabel(const QString &text, const QString &name, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setObjectName(name);
    label->setAccessibleName(name);
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
    return label;
}

} // namespace

TranscriptTab::TranscriptTab(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("noteDetailTranscriptTab"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 8, 0, 0);
    layout->setSpacing(6);

    auto *tools = new QHBoxLayout;
    tools->addStretch(1);
    edit_ = new QPushButton(icons::edit(palette().color(QPalette::ButtonText)),
                            QStringLiteral("Edit Transcript"));
    edit_->setObjectName(QStringLiteral("noteDetailEditTranscriptButton"));
    edit_->setAccessibleName(QStringLiteral("noteDetailEditTranscriptButton"));
    edit_->setFlat(true);
    connect(edit_, &QPushButton::clicked, this, &TranscriptTab::editRequested);
    identify_ = new QPushButton(QStringLiteral("Identify Speakers"));
    identify_->setObjectName(QStringLiteral("noteDetailIdentifySpeakersButton"));
    identify_->setAccessibleName(QStringLiteral("noteDetailIdentifySpeakersButton"));
    identify_->setFlat(true);
    connect(identify_, &QPushButton::clicked, this, &TranscriptTab::identifySpeakersRequested);
    tools->addWidget(identify_);
    tools->addWidget(edit_);
    layout->addLayout(tools);

    speakerProgress_ = new QWidget;
    speakerProgress_->setObjectName(QStringLiteral("speakerIdentificationProgress"));
    auto *progressRow = new QHBoxLayout(speakerProgress_);
    progressRow->setContentsMargins(4, 0, 4, 0);
    speakerProgressText_ = new QLabel;
    speakerProgressText_->setObjectName(QStringLiteral("speakerIdentificationText"));
    speakerProgressBar_ = new QProgressBar;
    speakerProgressBar_->setRange(0, 1000);
    speakerProgressBar_->setTextVisible(false);
    speakerProgressBar_->setMaximumHeight(8);
    auto *cancel = new QPushButton(QStringLiteral("Cancel"));
    cancel->setObjectName(QStringLiteral("speakerIdentificationCancelButton"));
    connect(cancel, &QPushButton::clicked, this, &TranscriptTab::identifySpeakersCancelled);
    progressRow->addWidget(speakerProgressText_);
    progressRow->addWidget(speakerProgressBar_, 1);
    progressRow->addWidget(cancel);
    speakerProgress_->hide();
    layout->addWidget(speakerProgress_);

    pages_ = new QStackedWidget;
    layout->addWidget(pages_, 1);

    text_ = new QTextBrowser;
    text_->setObjectName(QStringLiteral("noteDetailTranscript"));
    text_->setAccessibleName(QStringLiteral("noteDetailTranscript"));
    text_->setFrameShape(QFrame::NoFrame);
    text_->setOpenLinks(false);
    text_->document()->setDocumentMargin(4);
    text_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard |
                                   Qt::LinksAccessibleByMouse);
    connect(text_, &QTextBrowser::anchorClicked, this, [this](const QUrl &link) {
        if (link.scheme() != QLatin1String("speaker"))
            return;
        bool number = false;
        const qint64 speaker = link.path().toLongLong(&number);
        if (!number)
            return;
        for (const TranscriptParagraph &p : std::as_const(shown_))
            if (p.speaker == speaker) {
                emit renameSpeakerRequested(speaker, p.speakerLabel);
                return;
            }
    });
    pages_->insertWidget(paragraphsPage, text_);

    auto *empty = new QWidget;
    empty->setObjectName(QStringLiteral("noteDetailTranscriptEmpty"));
    auto *emptyLayout = new QVBoxLayout(empty);
    emptyLayout->addStretch(1);
    auto *symbol = new QLabel;
    symbol->setPixmap(icons::microphoneSlash(muted(palette(), 0.45), 44));
    symbol->setAlignment(Qt::AlignCenter);
    emptyLayout->addWidget(symbol);
    auto *emptyTitle =
        centredLabel(transcriptEmptyTitle(), QStringLiteral("noteDetailTranscriptEmptyTitle"), empty);
    QFont titleFont = emptyTitle->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.15);
    titleFont.setWeight(QFont::DemiBold);
    emptyTitle->setFont(titleFont);
    emptyLayout->addWidget(emptyTitle);
    auto *emptyMessage =
        centredLabel(transcriptEmptyMessage(), QStringLiteral("noteDetailTranscriptEmptyMessage"), empty);
    QPalette mutedPalette = emptyMessage->palette();
    mutedPalette.setColor(QPalette::WindowText, muted(palette(), 0.6));
    emptyMessage->setPalette(mutedPalette);
    emptyLayout->addWidget(emptyMessage);
    emptyLayout->addStretch(2);
    pages_->insertWidget(emptyPage, empty);

    auto *loading = new QWidget;
    loading->setObjectName(QStringLiteral("noteDetailTranscriptLoading"));
    auto *loadingLayout = new QVBoxLayout(loading);
    loadingLayout->addStretch(1);
    loadingMessage_ =
        centredLabel(transcriptLoadingMessage(), QStringLiteral("transcriptLoadingMessage"), loading);
    loadingDetail_ =
        centredLabel(transcriptLoadingDetail(), QStringLiteral("transcriptLoadingDetail"), loading);
    loadingDetail_->setPalette(mutedPalette);
    loadingLayout->addWidget(loadingMessage_);
    loadingLayout->addWidget(loadingDetail_);
    loadingLayout->addStretch(2);
    pages_->insertWidget(loadingPage, loading);

    QScrollBar *bar = text_->verticalScrollBar();
    connect(bar, &QScrollBar::sliderPressed, this, [this] {
        follow_.beginUserScroll();
        emit followingChanged(false);
    });
    connect(bar, &QScrollBar::sliderReleased, this, &TranscriptTab::userScrollEnded);
    // Wheel, keys and clicks on the bar arrive as actions; the position
    // changes right after the signal.
    connect(bar, &QScrollBar::actionTriggered, this, [this, bar](int) {
        if (!bar->isSliderDown() && !programmaticScroll_)
            QTimer::singleShot(0, this, &TranscriptTab::userScrollEnded);
    });
    connect(bar, &QScrollBar::valueChanged, this, [this] { follow_.viewMoved(atBottom()); });
    connect(bar, &QScrollBar::rangeChanged, this, [this] {
        if (content_.view.isRecordingActive && follow_.shouldScrollToBottom())
            scrollToBottom();
    });

    ellipsisTimer_.setInterval(450);
    connect(&ellipsisTimer_, &QTimer::timeout, this, &TranscriptTab::animateEllipsis);
    pages_->setCurrentIndex(emptyPage);
}

void TranscriptTab::setContent(const TranscriptTabContent &content)
{
    const bool wasLive = content_.view.isRecordingActive;
    // Rewriting the document moves the view; a reader keeps their place.
    const int position = text_->verticalScrollBar()->value();
    content_ = content;
    switch (content.state) {
    case TranscriptTabContent::State::loading:
        render({});
        pages_->setCurrentIndex(loadingPage);
        break;
    case TranscriptTabContent::State::empty:
        render({});
        pages_->setCurrentIndex(emptyPage);
        break;
    case TranscriptTabContent::State::paragraphs:
        render(transcriptParagraphs(content.view));
        pages_->setCurrentIndex(paragraphsPage);
        break;
    }
    if (content.view.isRecordingActive && !wasLive)
        resumeFollowing();
    if (follow_.shouldScrollToBottom() && content.view.isRecordingActive) {
        scrollToBottom();
    } else {
        programmaticScroll_ = true;
        text_->verticalScrollBar()->setValue(position);
        programmaticScroll_ = false;
    }
}

void TranscriptTab::showFromTop()
{
    follow_ = {};
    programmaticScroll_ = true;
    text_->verticalScrollBar()->setValue(0);
    programmaticScroll_ = false;
}

void TranscriptTab::render(const QList<TranscriptParagraph> &paragraphs)
{
    qsizetype same = 0;
    while (same < shown_.size() && same < paragraphs.size() && sameLook(shown_[same], paragraphs[same]))
        ++same;
    if (same == shown_.size() && same == paragraphs.size())
        return;

    QTextDocument *document = text_->document();
    QTextCursor cursor(document);
    cursor.beginEditBlock();
    if (same == 0) {
        document->clear();
    } else if (same < shown_.size()) {
        // Remove from the end of the last unchanged paragraph to the end.
        const QTextBlock keep = document->findBlockByNumber(int(same - 1));
        cursor.setPosition(keep.position() + keep.length() - 1);
        cursor.movePosition(QTextCursor::End, QTextCursor::KeepAnchor);
        cursor.removeSelectedText();
    }
    cursor.movePosition(QTextCursor::End);
    cursor.endEditBlock();
    shown_ = paragraphs.mid(0, same);
    for (qsizetype i = same; i < paragraphs.size(); ++i) {
        appendParagraph(paragraphs[i], i == 0);
        shown_.append(paragraphs[i]);
    }
    const bool dots = !shown_.isEmpty() && shown_.last().kind == TranscriptParagraph::Kind::ellipsis;
    if (dots && !ellipsisTimer_.isActive())
        ellipsisTimer_.start();
    else if (!dots)
        ellipsisTimer_.stop();
}

void TranscriptTab::appendParagraph(const TranscriptParagraph &paragraph, bool first)
{
    QTextCursor cursor(text_->document());
    cursor.movePosition(QTextCursor::End);
    QTextBlockFormat block;
    block.setTopMargin(first ? 0 : 12);
    block.setLineHeight(125, QTextBlockFormat::ProportionalHeight);
    if (first)
        cursor.setBlockFormat(block);
    else
        cursor.insertBlock(block);

    QTextCharFormat body;
    body.setFont(font());
    body.setForeground(palette().color(QPalette::Text));
    if (!paragraph.speakerLabel.isEmpty()) {
        // The name is a link: a click on it renames the speaker.
        QTextCharFormat name = body;
        name.setFontWeight(QFont::DemiBold);
        name.setForeground(palette().color(QPalette::Highlight));
        name.setAnchor(true);
        name.setAnchorHref(QStringLiteral("speaker:%1").arg(*paragraph.speaker));
        name.setToolTip(QStringLiteral("Click to name this speaker"));
        cursor.insertText(paragraph.speakerLabel, name);
        cursor.insertText(
            paragraph.timestampLabel.isEmpty() ? QString(QChar::LineSeparator) : QStringLiteral("  "), body);
    }
    if (!paragraph.timestampLabel.isEmpty()) {
        QTextCharFormat label;
        QFont caption = font();
        caption.setPointSizeF(caption.pointSizeF() * 0.82);
        label.setFont(caption);
        label.setForeground(muted(palette(), 0.55));
        cursor.insertText(paragraph.timestampLabel, label);
        cursor.insertText(QString(QChar::LineSeparator), label);
    }
    switch (paragraph.kind) {
    case TranscriptParagraph::Kind::utterance:
        cursor.insertText(paragraph.text, body);
        break;
    case TranscriptParagraph::Kind::interim: {
        QTextCharFormat interim = body;
        interim.setForeground(muted(palette(), 0.55));
        interim.setFontItalic(true);
        cursor.insertText(paragraph.text, interim);
        break;
    }
    case TranscriptParagraph::Kind::ellipsis: {
        QTextCharFormat dots = body;
        dots.setForeground(palette().color(QPalette::Highlight));
        cursor.insertText(ellipsisFrame(ellipsisStep_), dots);
        break;
    }
    }
}

void TranscriptTab::animateEllipsis()
{
    if (shown_.isEmpty() || shown_.last().kind != TranscriptParagraph::Kind::ellipsis)
        return;
    ++ellipsisStep_;
    const QTextBlock last = text_->document()->lastBlock();
    QTextCursor cursor(last);
    const QTextCharFormat format =
        last.begin() != last.end() ? last.begin().fragment().charFormat() : QTextCharFormat();
    cursor.movePosition(QTextCursor::EndOfBlock, QTextCursor::KeepAnchor);
    cursor.insertText(ellipsisFrame(ellipsisStep_), format);
}

QString TranscriptTab::plainText() const
{
    QStringList lines;
    for (const auto &p : shown_) {
        if (p.kind == TranscriptParagraph::Kind::ellipsis)
            continue;
        QString heading = p.speakerLabel;
        if (!heading.isEmpty() && !p.timestampLabel.isEmpty())
            heading += QStringLiteral("  ");
        heading += p.timestampLabel;
        if (!heading.isEmpty())
            lines << heading;
        lines << p.text;
    }
    return lines.join(QLatin1Char('\n'));
}

void TranscriptTab::setIdentifySpeakersEnabled(bool enabled, const QString &reason)
{
    identify_->setEnabled(enabled);
    identify_->setToolTip(reason);
}

void TranscriptTab::showSpeakerProgress(std::optional<double> fraction, const QString &text)
{
    speakerProgress_->setVisible(fraction.has_value());
    identify_->setVisible(!fraction);
    if (!fraction)
        return;
    speakerProgressText_->setText(text);
    speakerProgressBar_->setValue(int(std::clamp(*fraction, 0.0, 1.0) * 1000));
}

bool TranscriptTab::atBottom() const
{
    const QScrollBar *bar = text_->verticalScrollBar();
    return bar->value() >= bar->maximum() - bottomSlack;
}

void TranscriptTab::scrollToBottom()
{
    programmaticScroll_ = true;
    QScrollBar *bar = text_->verticalScrollBar();
    bar->setValue(bar->maximum());
    programmaticScroll_ = false;
}

void TranscriptTab::userScrollEnded()
{
    const bool wasFollowing = follow_.shouldScrollToBottom();
    follow_.endUserScroll(atBottom());
    if (follow_.shouldScrollToBottom() != wasFollowing || !follow_.shouldScrollToBottom())
        emit followingChanged(follow_.shouldScrollToBottom());
}

void TranscriptTab::resumeFollowing()
{
    follow_.resume();
    scrollToBottom();
    emit followingChanged(true);
}

} // namespace kestil
