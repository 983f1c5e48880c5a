#pragma once

#include "prefs/KestilEngagement.h"
#include "shell/SupportTargets.h"

#include <QDialog>

namespace kestil {

class SupportActionsView;

// The support page. Shown by itself (isAutomatic) after enough summaries, as
// the card "kestilStyledSupportPrompt" with "Not Now" ("kestilSupportClose");
// or opened from Settings, with "Back to Settings" ("kestilSupportDismiss").
// Either way it holds the four actions of SupportActionsView.
class SupportPage : public QDialog {
    Q_OBJECT

public:
    SupportPage(KestilEngagement &engagement, SupportTargets targets, bool isAutomatic,
                QWidget *parent = nullptr);

    bool isAutomatic() const { return isAutomatic_; }
    SupportActionsView *actions() const { return actions_; }

private:
    bool isAutomatic_;
    SupportActionsView *actions_ = nullptr;
};

} // namespace kestil
