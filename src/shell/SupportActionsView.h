#pragma once

#include "prefs/KestilEngagement.h"
#include "shell/SupportTargets.h"

#include <QHash>
#include <QWidget>

#include <functional>

class QLabel;
class QPushButton;

namespace kestil {

// The four support actions as rows (review, tip, share, feedback), each with
// a check mark once clicked, the sentence about automatic reminders, and
// "Reset saved clicks". A click is recorded before its target opens. Shown on
// the support page and in Settings; `prefix` starts every object name
// ("kestilSupport" gives kestilSupportReview ... kestilSupportReset).
class SupportActionsView : public QWidget {
    Q_OBJECT

public:
    SupportActionsView(KestilEngagement &engagement, SupportTargets targets, QString prefix,
                       QWidget *parent = nullptr);

    // What opening a target does: QDesktopServices::openUrl unless replaced.
    void setOpener(std::function<void(const QUrl &)> opener) { opener_ = std::move(opener); }

    static QString title(KestilEngagement::Action action);

signals:
    void actionTaken(kestil::KestilEngagement::Action action);

private:
    void take(KestilEngagement::Action action);
    void refresh();

    KestilEngagement &engagement_;
    SupportTargets targets_;
    QString prefix_;
    std::function<void(const QUrl &)> opener_;
    QHash<int, QLabel *> checks_;
    QLabel *explanation_ = nullptr;
    QLabel *message_ = nullptr;
};

} // namespace kestil
