#pragma once

#include "shell/SupportPage.h"
#include "shell/SupportTargets.h"

#include <QGroupBox>
#include <QPointer>

namespace kestil {

class KestilEngagement;
class SupportActionsView;

// The support rows of Settings: the four actions with their check marks and
// "Reset saved clicks", and the support page on request.
class SupportSettings : public QGroupBox {
    Q_OBJECT

public:
    SupportSettings(KestilEngagement &engagement, SupportTargets targets, QWidget *parent = nullptr);

    SupportActionsView *actions() const { return actions_; }
    SupportPage *page() const;
    void showPage();

private:
    KestilEngagement &engagement_;
    SupportTargets targets_;
    SupportActionsView *actions_ = nullptr;
    QPointer<SupportPage> page_;
};

} // namespace kestil
