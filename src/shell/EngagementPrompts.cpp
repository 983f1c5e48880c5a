#include "shell/EngagementPrompts.h"

#include "prefs/KestilEngagement.h"

namespace kestil {

EngagementPrompts::EngagementPrompts(KestilEngagement &engagement, Inputs inputs, QObject *parent)
    : QObject(parent), engagement_(engagement), inputs_(std::move(inputs))
{
    timer_.setSingleShot(true);
    connect(&timer_, &QTimer::timeout, this, &EngagementPrompts::fire);
    connect(&engagement_, &KestilEngagement::countersChanged, this, &EngagementPrompts::reconsider);
    connect(&engagement_, &KestilEngagement::processingCountChanged, this, &EngagementPrompts::reconsider);
}

void EngagementPrompts::setDelays(std::chrono::milliseconds supportCard,
                                  std::chrono::milliseconds nativeReview)
{
    supportCardDelay_ = supportCard;
    nativeReviewDelay_ = nativeReview;
}

void EngagementPrompts::reconsider()
{
    const bool idle = inputs_.isIdle && inputs_.isIdle();
    const bool active = inputs_.isActive && inputs_.isActive();
    const QString key = QString::number(engagement_.completedActions()) + QLatin1Char('-') +
                        QString::number(engagement_.processingCount()) + QLatin1Char('-') +
                        QString::number(int(idle)) + QLatin1Char('-') + QString::number(int(active));
    if (!idle && inputs_.closeSupportCard)
        inputs_.closeSupportCard();
    if (key == key_)
        return;
    key_ = key;
    timer_.stop();
    if (!active)
        return;
    if (engagement_.usesCustomReminders()) {
        if (!engagement_.shouldShowAutomaticSupport())
            return;
        timer_.start(supportCardDelay_);
    } else {
        timer_.start(nativeReviewDelay_);
    }
}

void EngagementPrompts::fire()
{
    if (!(inputs_.isActive && inputs_.isActive()) || !(inputs_.interfaceFree && inputs_.interfaceFree()))
        return;
    const bool idle = inputs_.isIdle && inputs_.isIdle();
    // This desktop has no review prompt of its own: only the card is shown.
    if (engagement_.nextPrompt(idle) == KestilEngagement::Prompt::supportCard && inputs_.showSupportCard)
        inputs_.showSupportCard();
}

} // namespace kestil
