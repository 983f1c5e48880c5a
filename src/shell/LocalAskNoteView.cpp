#include "shell/LocalAskNoteView.h"

#include "core/AskNoteConversation.h"

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollBar>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QTextBrowser>
#include <QUrl>
#include <QVBoxLayout>

namespace kestil {

namespace {

QPushButton *namedButton(const QString &text, const QString &name, const QString &accessibleName = {})
{
    auto *button = new QPushButton(text);
    // Return belongs to the question field. A dialog's button that takes the
    // focus would otherwise become its default and be pressed by that same
    // Return, stopping the answer just asked for or closing the window.
    button->setAutoDefault(false);
    button->setObjectName(name);
    button->setAccessibleName(accessibleName.isEmpty() ? name : accessibleName);
    return button;
}

QLabel *wrappedLabel(const QString &text, const QString &name)
{
    auto *label = new QLabel(text);
    label->setObjectName(name);
    label->setAccessibleName(name);
    label->setWordWrap(true);
    return label;
}

QWidget *emptyState(QLabel *longNoteHint, const std::function<void(const QString &)> &ask)
{
    auto *page = new QWidget;
    auto *layout = new QVBoxLayout(page);
    layout->addStretch(1);
    auto *heading = wrappedLabel(QStringLiteral("Ask about your note"), QStringLiteral("askAIEmptyHeading"));
    QFont headingFont = heading->font();
    headingFont.setWeight(QFont::DemiBold);
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.2);
    heading->setFont(headingFont);
    heading->setAlignment(Qt::AlignCenter);
    layout->addWidget(heading);
    auto *text = wrappedLabel(
        QStringLiteral("Questions and answers are processed on this device using the on-device language "
                       "model. No note content is sent to an AI service. Conversation history is saved "
                       "with your notes and stays on this computer."),
        QStringLiteral("askAIEmptyText"));
    text->setAlignment(Qt::AlignCenter);
    layout->addWidget(text);
    const QStringList suggestions{QStringLiteral("Summarize the key points"),
                                  QStringLiteral("What are the main topics?"),
                                  QStringLiteral("List any action items")};
    for (int i = 0; i < suggestions.size(); ++i) {
        auto *row = new QHBoxLayout;
        row->addStretch(1);
        auto *button = namedButton(suggestions.at(i), QStringLiteral("askAISuggestion-%1").arg(i + 1),
                                   suggestions.at(i));
        QObject::connect(button, &QPushButton::clicked, page,
                         [ask, question = suggestions.at(i)] { ask(question); });
        row->addWidget(button);
        row->addStretch(1);
        layout->addLayout(row);
    }
    longNoteHint->setAlignment(Qt::AlignCenter);
    layout->addWidget(longNoteHint);
    layout->addStretch(2);
    return page;
}

} // namespace

LocalAskNoteView::LocalAskNoteView(NotePtr note, SharedPersistenceController &store, LanguageModel &model,
                                   const QLocale &locale, QWidget *parent)
    : QDialog(parent),
      conversation_(std::make_unique<AskNoteConversation>(store, model, std::move(note), locale))
{
    setObjectName(QStringLiteral("askAIView"));
    const QString title = conversation_->note() ? conversation_->note()->displayTitle() : QString();
    setWindowTitle(QStringLiteral("Ask AI: ") + title);
    resize(620, 600);

    auto *layout = new QVBoxLayout(this);

    longNoteHint_ =
        wrappedLabel(QStringLiteral("For long notes, Ask AI selects relevant excerpts. Be specific "
                                    "about the topic you want to find."),
                     QStringLiteral("askAILongNoteHint"));
    pages_ = new QStackedWidget;
    pages_->addWidget(emptyState(longNoteHint_, [this](const QString &question) { ask(question); }));
    transcript_ = new QTextBrowser;
    transcript_->setObjectName(QStringLiteral("askAIConversation"));
    transcript_->setAccessibleName(QStringLiteral("askAIConversation"));
    transcript_->setOpenExternalLinks(false);
    pages_->addWidget(transcript_);
    layout->addWidget(pages_, 1);

    status_ = wrappedLabel(QString(), QStringLiteral("askAIStatus"));
    layout->addWidget(status_);

    errorStrip_ = new QWidget;
    errorStrip_->setObjectName(QStringLiteral("askAIErrorStrip"));
    auto *errorLayout = new QHBoxLayout(errorStrip_);
    errorLayout->setContentsMargins(0, 0, 0, 0);
    error_ = wrappedLabel(QString(), QStringLiteral("askAIError"));
    QPalette errorPalette = error_->palette();
    errorPalette.setColor(QPalette::WindowText, QColor(0xc6, 0x28, 0x28));
    error_->setPalette(errorPalette);
    errorLayout->addWidget(error_, 1);
    auto *dismiss = namedButton(QStringLiteral("Dismiss"), QStringLiteral("askAIDismissErrorButton"));
    errorLayout->addWidget(dismiss);
    layout->addWidget(errorStrip_);

    notice_ = wrappedLabel(QString(), QStringLiteral("askAINotice"));
    notice_->hide();
    layout->addWidget(notice_);

    auto *askRow = new QHBoxLayout;
    question_ = new QLineEdit;
    question_->setObjectName(QStringLiteral("askAIQuestionField"));
    question_->setAccessibleName(QStringLiteral("askAIQuestionField"));
    question_->setPlaceholderText(QStringLiteral("Ask about this note…"));
    askRow->addWidget(question_, 1);
    send_ = namedButton(QStringLiteral("Send"), QStringLiteral("askAISendButton"),
                        QStringLiteral("Send Question"));
    askRow->addWidget(send_);
    stop_ = namedButton(QStringLiteral("Stop Answer"), QStringLiteral("askAIStopButton"));
    askRow->addWidget(stop_);
    layout->addLayout(askRow);

    auto *actions = new QHBoxLayout;
    copy_ = namedButton(QStringLiteral("Copy Conversation"), QStringLiteral("askAICopyConversationButton"));
    share_ =
        namedButton(QStringLiteral("Share Conversation"), QStringLiteral("askAIShareConversationButton"));
    clear_ = namedButton(QStringLiteral("Clear Chat History"), QStringLiteral("askAIClearButton"));
    auto *done = namedButton(QStringLiteral("Done"), QStringLiteral("askAIDoneButton"));
    actions->addWidget(copy_);
    actions->addWidget(share_);
    actions->addWidget(clear_);
    actions->addStretch(1);
    actions->addWidget(done);
    layout->addLayout(actions);

    connect(question_, &QLineEdit::textChanged, conversation_.get(), &AskNoteConversation::setInput);
    connect(question_, &QLineEdit::returnPressed, this, [this] { conversation_->send(); });
    connect(send_, &QPushButton::clicked, this, [this] { conversation_->send(); });
    connect(stop_, &QPushButton::clicked, conversation_.get(), &AskNoteConversation::stop);
    connect(dismiss, &QPushButton::clicked, conversation_.get(), &AskNoteConversation::dismissError);
    connect(copy_, &QPushButton::clicked, this, &LocalAskNoteView::copyConversation);
    connect(share_, &QPushButton::clicked, this, &LocalAskNoteView::shareConversation);
    connect(clear_, &QPushButton::clicked, this, &LocalAskNoteView::confirmClear);
    connect(done, &QPushButton::clicked, this, &QDialog::accept);
    connect(conversation_.get(), &AskNoteConversation::changed, this, &LocalAskNoteView::refresh);
    connect(conversation_.get(), &AskNoteConversation::questionTaken, this, [this] { question_->clear(); });

    conversation_->load();
    refresh();
}

LocalAskNoteView::~LocalAskNoteView() = default;

void LocalAskNoteView::hideEvent(QHideEvent *event)
{
    // A window that goes away takes its running answer with it.
    conversation_->stop();
    QDialog::hideEvent(event);
}

void LocalAskNoteView::ask(const QString &question)
{
    question_->setText(question);
    conversation_->send();
}

QString LocalAskNoteView::conversationText() const
{
    return transcript_->toPlainText();
}

void LocalAskNoteView::refresh()
{
    const AskNoteConversation &c = *conversation_;
    const bool running = c.isRunning();
    const bool empty = c.messages().isEmpty() && !running;
    pages_->setCurrentIndex(empty ? 0 : 1);
    longNoteHint_->setVisible(c.sourceIsLong());

    if (!empty) {
        QStringList blocks;
        for (const LocalChatMessage &message : c.messages()) {
            const QString speaker = message.role == QLatin1String("user") ? QStringLiteral("**You**")
                                                                          : QStringLiteral("**Kestil**");
            blocks.append(speaker + QStringLiteral("\n\n") + message.content.trimmed());
        }
        if (running) {
            blocks.append(QStringLiteral("**Kestil**\n\n") +
                          (!c.preview().trimmed().isEmpty() ? c.preview().trimmed()
                           : c.waitingForModel()
                               ? QStringLiteral("*Waiting for the on-device model to finish "
                                                "another request…*")
                               : QStringLiteral("*Thinking on this device…*")));
        }
        const QString markdown = blocks.join(QStringLiteral("\n\n"));
        if (transcript_->toMarkdown().trimmed() != markdown.trimmed()) {
            QScrollBar *bar = transcript_->verticalScrollBar();
            const bool atBottom = bar->value() >= bar->maximum() - 4;
            transcript_->setMarkdown(markdown);
            if (atBottom)
                bar->setValue(bar->maximum());
        }
    }

    const std::optional<QString> status = c.status();
    status_->setText(status.value_or(QString()));
    status_->setVisible(status.has_value());
    error_->setText(c.error().value_or(QString()));
    errorStrip_->setVisible(c.error().has_value());

    if (question_->text() != c.input())
        question_->setText(c.input());
    send_->setEnabled(c.canSend());
    stop_->setVisible(running);
    const bool actions = c.conversationActionsEnabled();
    copy_->setEnabled(actions);
    share_->setEnabled(actions);
    clear_->setEnabled(actions);
}

void LocalAskNoteView::copyConversation()
{
    QClipboard *clipboard = QApplication::clipboard();
    clipboard->clear();
    clipboard->setText(conversation_->conversationMarkdown());
    notice_->setText(QStringLiteral("The conversation was copied."));
    notice_->show();
}

void LocalAskNoteView::shareConversation()
{
    // Sharing hands the conversation, as a Markdown file, to the desktop's
    // handler for such files; where there is none it is copied instead.
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::TempLocation);
    QString name = conversation_->note() ? conversation_->note()->displayTitle() : QStringLiteral("Untitled");
    name.replace(QRegularExpression(QStringLiteral("[/\\\\:*?\"<>|\\x00-\\x1f]")), QStringLiteral("-"));
    const QString path = QDir(folder).filePath(QStringLiteral("Ask AI - %1.md").arg(name.left(80)));
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
        file.write(conversation_->conversationMarkdown().toUtf8()) >= 0 && file.flush()) {
        file.close();
        if (QDesktopServices::openUrl(QUrl::fromLocalFile(path))) {
            notice_->setText(QStringLiteral("The conversation was opened as a Markdown file."));
            notice_->show();
            return;
        }
    }
    copyConversation();
    notice_->setText(QStringLiteral("No program could open the conversation, so it was copied instead."));
}

void LocalAskNoteView::confirmClear()
{
    QMessageBox box(
        QMessageBox::Warning, QStringLiteral("Clear Chat History?"),
        QStringLiteral("Clear the conversation for this note? Its transcript and summary stay saved."),
        QMessageBox::NoButton, this);
    box.setObjectName(QStringLiteral("askAIClearConfirmation"));
    box.addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    QPushButton *clearButton = box.addButton(QStringLiteral("Clear"), QMessageBox::DestructiveRole);
    clearButton->setObjectName(QStringLiteral("askAIClearConfirmButton"));
    box.exec();
    if (box.clickedButton() == clearButton)
        conversation_->clear();
}

} // namespace kestil
