#pragma once

#include <QObject>

class QAction;
class QMenu;
class QSystemTrayIcon;

namespace kestil {

// Kestil's entry in the desktop's tray: a start and stop action, "Open
// Kestil" and "Quit Kestil", and a tool tip that says whether a recording
// runs. A click on the icon itself starts or stops too. Where the desktop has
// no tray, nothing shows and the window and its shortcuts do the same work.
class StatusItem : public QObject {
    Q_OBJECT
public:
    explicit StatusItem(QObject *parent = nullptr);
    ~StatusItem() override;

    // Title, tool tip and icon for the recorder's state.
    void refresh(bool recording);

    QString toggleTitle() const;
    QString toolTip() const;
    QMenu *menu() const { return menu_; }
    QSystemTrayIcon *trayIcon() const { return tray_; }

signals:
    void toggleRequested();
    void openRequested();
    void quitRequested();

private:
    QSystemTrayIcon *tray_ = nullptr;
    QMenu *menu_ = nullptr;
    QAction *toggle_ = nullptr;
    bool recording_ = false;
};

} // namespace kestil
