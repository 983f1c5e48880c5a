#include "shell/SupportActionsView.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QGridLayout>
#include <QGuiApplication>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace kestil {

namespace {

QString suffix(KestilEngagement::Action action)
{
    QString raw = KestilEngagement::rawValue(action);
    raw[0] = raw[0].toUpper();
    return raw;
}

QString subtitle(KestilEngagement::Action action)
{
    switch (action) {
    case KestilEngagement::Action::review:
        return QStringLiteral("Rate Kestil in your software centre.");
    case KestilEngagement::Action::tip:
        return QStringLiteral("Support its development with a tip.");
    case KestilEngagement::Action::share:
        return QStringLiteral("Copy Kestil's link to pass it on.");
    case KestilEngagement::Action::feedback:
        break;
    }
    return QStringLiteral("Tell us what works and what doesn't.");
}

} // namespace

SupportActionsView::SupportActionsView(KestilEngagement &engagement, SupportTargets targets, QString prefix,
                                       QWidget *parent)
    : QWidget(parent), engagement_(engagement), targets_(std::move(targets)), prefix_(std::move(prefix)),
      opener_([](const QUrl &url) { QDesktopServices::openUrl(url); })
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto *rows = new QGridLayout;
    rows->setColumnStretch(1, 1);
    int row = 0;
    for (KestilEngagement::Action action : KestilEngagement::actions()) {
        auto *button = new QPushButton(title(action));
        button->setObjectName(prefix_ + suffix(action));
        button->setAccessibleName(button->objectName());
        button->setMinimumWidth(150);
        connect(button, &QPushButton::clicked, this, [this, action] { take(action); });
        rows->addWidget(button, row, 0);
        auto *line = new QLabel(subtitle(action));
        line->setWordWrap(true);
        rows->addWidget(line, row, 1);
        auto *check = new QLabel(QStringLiteral("✓"));
        check->setObjectName(prefix_ + suffix(action) + QStringLiteral("Check"));
        check->setToolTip(QStringLiteral("Previously clicked"));
        check->setAccessibleName(QStringLiteral("Previously clicked"));
        check->setStyleSheet(QStringLiteral("color: palette(highlight); font-weight: bold;"));
        rows->addWidget(check, row, 2);
        checks_.insert(int(action), check);
        ++row;
    }
    layout->addLayout(rows);

    explanation_ = new QLabel;
    explanation_->setObjectName(prefix_ + QStringLiteral("Explanation"));
    explanation_->setWordWrap(true);
    layout->addWidget(explanation_);

    auto *reset = new QPushButton(QStringLiteral("Reset saved clicks"));
    reset->setObjectName(prefix_ + QStringLiteral("Reset"));
    reset->setAccessibleName(reset->objectName());
    connect(reset, &QPushButton::clicked, this, [this] { message_->setText(engagement_.resetClicks()); });
    auto *resetRow = new QHBoxLayout;
    resetRow->addWidget(reset);
    message_ = new QLabel;
    message_->setObjectName(prefix_ + QStringLiteral("Message"));
    message_->setWordWrap(true);
    resetRow->addWidget(message_, 1);
    layout->addLayout(resetRow);

    connect(&engagement_, &KestilEngagement::countersChanged, this, &SupportActionsView::refresh);
    refresh();
}

QString SupportActionsView::title(KestilEngagement::Action action)
{
    switch (action) {
    case KestilEngagement::Action::review:
        return QStringLiteral("Write a Review");
    case KestilEngagement::Action::tip:
        return QStringLiteral("Leave a Tip");
    case KestilEngagement::Action::share:
        return QStringLiteral("Share Kestil");
    case KestilEngagement::Action::feedback:
        break;
    }
    return QStringLiteral("Send Feedback");
}

void SupportActionsView::take(KestilEngagement::Action action)
{
    // Recorded first: the target may take the user elsewhere for a while.
    engagement_.recordClick(action);
    switch (action) {
    case KestilEngagement::Action::review:
        opener_(targets_.review);
        break;
    case KestilEngagement::Action::tip:
        opener_(targets_.tip);
        break;
    case KestilEngagement::Action::share:
        QGuiApplication::clipboard()->setText(targets_.share.toString());
        message_->setText(QStringLiteral("Kestil's link is copied. Paste it wherever you want to share it."));
        break;
    case KestilEngagement::Action::feedback:
        opener_(targets_.feedback);
        break;
    }
    emit actionTaken(action);
}

void SupportActionsView::refresh()
{
    for (KestilEngagement::Action action : KestilEngagement::actions())
        checks_.value(int(action))->setVisible(engagement_.hasClicked(action));
    explanation_->setText(
        (engagement_.automaticRemindersStopped()
             ? QStringLiteral("Automatic reminders are off. ")
             : QStringLiteral("Any one action turns off automatic reminders. ")) +
        QStringLiteral("Checkmarks remember clicks, not completed reviews, tips or shares."));
}

} // namespace kestil
