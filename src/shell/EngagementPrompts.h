#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <functional>

namespace kestil {

class KestilEngagement;

// Asks KestilEngagement at the right moment whether a support prompt is due,
// and has it shown. Whenever the completed count, the running work, the
// idleness of the interface or the application's activity changes, the wait
// starts again: 11 seconds when the support card is due, none at all when it
// is not. After the wait, the prompt comes only if Kestil is still in front,
// idle and free of other windows over it. When Kestil stops being idle, an
// open card closes.
class EngagementPrompts : public QObject {
    Q_OBJECT

public:
    struct Inputs {
        // No sheet (Settings, welcome), the welcome flow finished, nothing busy,
        // no recording starting, running or finishing.
        std::function<bool()> isIdle;
        // Kestil is the application in front.
        std::function<bool()> isActive;
        // The main window is the active one and no dialog covers it.
        std::function<bool()> interfaceFree;
        std::function<void()> showSupportCard;
        std::function<void()> closeSupportCard;
    };

    static constexpr std::chrono::milliseconds supportCardDelay{11000};
    static constexpr std::chrono::milliseconds nativeReviewDelay{2000};

    EngagementPrompts(KestilEngagement &engagement, Inputs inputs, QObject *parent = nullptr);

    // Scales the waits (tests).
    void setDelays(std::chrono::milliseconds supportCard, std::chrono::milliseconds nativeReview);
    bool waiting() const { return timer_.isActive(); }

public slots:
    // Something the prompt depends on may have changed.
    void reconsider();

private:
    void fire();

    KestilEngagement &engagement_;
    Inputs inputs_;
    QTimer timer_;
    QString key_;
    std::chrono::milliseconds supportCardDelay_ = supportCardDelay;
    std::chrono::milliseconds nativeReviewDelay_ = nativeReviewDelay;
};

} // namespace kestil
