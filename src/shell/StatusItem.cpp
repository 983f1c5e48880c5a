#include "shell/StatusItem.h"

#include "shell/Icons.h"

#include <QMenu>
#include <QSystemTrayIcon>

namespace kestil {

StatusItem::StatusItem(QObject *parent) : QObject(parent)
{
    menu_ = new QMenu;
    menu_->setObjectName(QStringLiteral("statusItemMenu"));
    toggle_ = menu_->addAction(QStringLiteral("Start Transcription"));
    toggle_->setObjectName(QStringLiteral("statusItemToggle"));
    menu_->addSeparator();
    QAction *open = menu_->addAction(QStringLiteral("Open Kestil"));
    open->setObjectName(QStringLiteral("statusItemOpen"));
    menu_->addSeparator();
    QAction *quit = menu_->addAction(QStringLiteral("Quit Kestil"));
    quit->setObjectName(QStringLiteral("statusItemQuit"));
    connect(toggle_, &QAction::triggered, this, &StatusItem::toggleRequested);
    connect(open, &QAction::triggered, this, &StatusItem::openRequested);
    connect(quit, &QAction::triggered, this, &StatusItem::quitRequested);

    tray_ = new QSystemTrayIcon(this);
    tray_->setContextMenu(menu_);
    // A plain click (or a middle click) on the icon starts or stops; the
    // context menu has the rest.
    connect(tray_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::MiddleClick)
            emit toggleRequested();
    });
    refresh(false);
    tray_->show();
}

StatusItem::~StatusItem()
{
    delete menu_;
}

void StatusItem::refresh(bool recording)
{
    recording_ = recording;
    toggle_->setText(toggleTitle());
    tray_->setToolTip(toolTip());
    tray_->setIcon(icons::tray(recording));
}

QString StatusItem::toggleTitle() const
{
    return recording_ ? QStringLiteral("Stop Transcription") : QStringLiteral("Start Transcription");
}

QString StatusItem::toolTip() const
{
    return recording_ ? QStringLiteral("Kestil — Transcribing (open menu to stop)")
                      : QStringLiteral("Kestil — Start Transcription");
}

} // namespace kestil
