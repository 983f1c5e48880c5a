#include "shell/SupportSettings.h"

#include "prefs/KestilEngagement.h"
#include "shell/SupportActionsView.h"
#include "shell/SupportPage.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace kestil {

SupportSettings::SupportSettings(KestilEngagement &engagement, SupportTargets targets, QWidget *parent)
    : QGroupBox(QStringLiteral("Support Kestil"), parent), engagement_(engagement),
      targets_(std::move(targets))
{
    setObjectName(QStringLiteral("settingsSupportSection"));
    setAccessibleName(objectName());
    auto *layout = new QVBoxLayout(this);
    auto *intro = new QLabel(QStringLiteral("All features stay free. Support is always optional."));
    intro->setWordWrap(true);
    layout->addWidget(intro);
    actions_ = new SupportActionsView(engagement_, targets_, QStringLiteral("settingsSupport"));
    layout->addWidget(actions_);
    auto *row = new QHBoxLayout;
    auto *open = new QPushButton(QStringLiteral("Open Support Page…"));
    open->setObjectName(QStringLiteral("settingsSupportShowPage"));
    open->setAccessibleName(open->objectName());
    connect(open, &QPushButton::clicked, this, &SupportSettings::showPage);
    row->addWidget(open);
    row->addStretch(1);
    layout->addLayout(row);
}

SupportPage *SupportSettings::page() const
{
    return page_;
}

void SupportSettings::showPage()
{
    if (page_) {
        page_->raise();
        page_->activateWindow();
        return;
    }
    // Seen on request: the automatic card waits for its next round.
    engagement_.recordSupportPresented();
    page_ = new SupportPage(engagement_, targets_, false, window());
    page_->setAttribute(Qt::WA_DeleteOnClose);
    page_->setWindowModality(Qt::WindowModal);
    page_->open();
}

} // namespace kestil
