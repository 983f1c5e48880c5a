#include "shell/SupportPage.h"

#include "shell/SupportActionsView.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace kestil {

namespace {

QLabel *heading(const QString &text)
{
    auto *label = new QLabel(text);
    QFont font = label->font();
    font.setWeight(QFont::DemiBold);
    font.setPointSizeF(font.pointSizeF() * 0.85);
    font.setLetterSpacing(QFont::PercentageSpacing, 108);
    label->setFont(font);
    label->setStyleSheet(QStringLiteral("color: palette(highlight);"));
    return label;
}

QLabel *line(const QString &text, double scale = 1.0, bool bold = false)
{
    auto *label = new QLabel(text);
    label->setWordWrap(true);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * scale);
    if (bold)
        font.setWeight(QFont::Bold);
    label->setFont(font);
    return label;
}

} // namespace

SupportPage::SupportPage(KestilEngagement &engagement, SupportTargets targets, bool isAutomatic,
                         QWidget *parent)
    : QDialog(parent), isAutomatic_(isAutomatic)
{
    setObjectName(isAutomatic ? QStringLiteral("kestilStyledSupportPrompt")
                              : QStringLiteral("kestilSupportPage"));
    setAccessibleName(objectName());
    setWindowTitle(QStringLiteral("Support Kestil"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 24, 28, 20);
    layout->setSpacing(10);

    layout->addWidget(heading(QStringLiteral("RATINGS & SUPPORT")));
    if (isAutomatic) {
        layout->addWidget(line(QStringLiteral("Free software.\nSupported by people."), 1.5, true));
        layout->addWidget(heading(QStringLiteral("YOUR SUMMARY, SAVED")));
    }
    layout->addWidget(line(QStringLiteral("All features stay free.\nSupport is always optional."), 1.1));
    layout->addWidget(line(QStringLiteral(
        "Thank you for using Kestil. If it saves you time in meetings and notes, a review helps others find "
        "it, and a tip or a word of feedback helps it grow. Every feature works whatever you choose here.")));
    layout->addSpacing(6);

    actions_ = new SupportActionsView(engagement, std::move(targets), QStringLiteral("kestilSupport"));
    layout->addWidget(actions_);

    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    auto *close =
        new QPushButton(isAutomatic ? QStringLiteral("Not Now") : QStringLiteral("Back to Settings"));
    close->setObjectName(isAutomatic ? QStringLiteral("kestilSupportClose")
                                     : QStringLiteral("kestilSupportDismiss"));
    close->setAccessibleName(close->objectName());
    close->setDefault(true);
    connect(close, &QPushButton::clicked, this, &QDialog::accept);
    buttons->addWidget(close);
    layout->addLayout(buttons);
    resize(560, sizeHint().height());
}

} // namespace kestil
