#include "prefs/KestilEngagement.h"

#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

#include <algorithm>

namespace kestil {

KestilEngagement::KestilEngagement(QObject *parent) : QObject(parent) {}

KestilEngagement::KestilEngagement(PreferenceStore &defaults, bool usesCustomReminders, QObject *parent)
    : QObject(parent)
{
    attach(defaults, usesCustomReminders);
}

KestilEngagement &KestilEngagement::shared()
{
    static KestilEngagement engagement;
    return engagement;
}

void KestilEngagement::attach(PreferenceStore &defaults, bool usesCustomReminders)
{
    defaults_ = &defaults;
    usesCustomReminders_ = usesCustomReminders;
    completedActions_ = settings::completedLocalSummaries(defaults);
    clickedActions_ = storedClicks();
    automaticRemindersStopped_ =
        settings::supportAutomaticRemindersStopped(defaults) || !clickedActions_.isEmpty();
    if (automaticRemindersStopped_)
        settings::setSupportAutomaticRemindersStopped(defaults, true);
    lastPromptActionCount_ = -1;
    emit countersChanged();
}

const QList<KestilEngagement::Action> &KestilEngagement::actions()
{
    static const QList<Action> all{Action::review, Action::tip, Action::share, Action::feedback};
    return all;
}

QString KestilEngagement::rawValue(Action action)
{
    switch (action) {
    case Action::review:
        return QStringLiteral("review");
    case Action::tip:
        return QStringLiteral("tip");
    case Action::share:
        return QStringLiteral("share");
    case Action::feedback:
        return QStringLiteral("feedback");
    }
    return {};
}

std::optional<KestilEngagement::Action> KestilEngagement::action(const QString &raw)
{
    for (Action candidate : actions()) {
        if (rawValue(candidate) == raw)
            return candidate;
    }
    return std::nullopt;
}

void KestilEngagement::beginProcessing()
{
    ++processingCount_;
    emit processingCountChanged(processingCount_);
}

void KestilEngagement::endProcessing()
{
    if (processingCount_ == 0)
        return;
    --processingCount_;
    emit processingCountChanged(processingCount_);
}

QList<KestilEngagement::Action> KestilEngagement::storedClicks() const
{
    // Unknown values (from a newer version, or edited by hand) are passed
    // over; the known ones after them still count.
    QList<Action> clicked;
    if (!defaults_)
        return clicked;
    for (const QString &raw : settings::supportClickedActions(*defaults_)) {
        const std::optional<Action> known = action(raw);
        if (known && !clicked.contains(*known))
            clicked.append(*known);
    }
    std::sort(clicked.begin(), clicked.end());
    return clicked;
}

void KestilEngagement::recordCompletedSummary(const QString &text)
{
    if (!defaults_ || text.trimmed().isEmpty())
        return;
    // The larger of the stored and the held count: a second process counting
    // at the same time loses nothing.
    const qint64 base =
        std::min(std::max(settings::completedLocalSummaries(*defaults_), completedActions_), completedCap);
    completedActions_ = base + 1;
    settings::setCompletedLocalSummaries(*defaults_, completedActions_);
    emit countersChanged();
}

void KestilEngagement::setClicked(const QList<Action> &clicked)
{
    clickedActions_ = clicked;
    emit countersChanged();
}

void KestilEngagement::stopAutomaticReminders()
{
    automaticRemindersStopped_ = true;
    settings::setSupportAutomaticRemindersStopped(*defaults_, true);
    emit countersChanged();
}

void KestilEngagement::recordClick(Action clickedAction)
{
    if (!defaults_)
        return;
    QList<Action> clicked = storedClicks();
    if (!clicked.contains(clickedAction))
        clicked.append(clickedAction);
    QStringList raw;
    for (Action each : clicked)
        raw.append(rawValue(each));
    raw.sort();
    settings::setSupportClickedActions(*defaults_, raw);
    std::sort(clicked.begin(), clicked.end());
    setClicked(clicked);
    stopAutomaticReminders();
}

bool KestilEngagement::hasClicked(Action clickedAction) const
{
    return defaults_ && settings::supportClickedActions(*defaults_).contains(rawValue(clickedAction));
}

QString KestilEngagement::resetClicks()
{
    if (defaults_) {
        settings::removeSupportClickedActions(*defaults_);
        // The card must not come back at once for the count already reached.
        if (usesCustomReminders_)
            settings::setSupportPresentedSummaryCount(*defaults_, completedActions_);
    }
    setClicked({});
    return automaticRemindersStopped_ ? QStringLiteral("Saved clicks reset. Automatic reminders stay off.")
                                      : QStringLiteral("Saved clicks reset.");
}

bool KestilEngagement::shouldShowAutomaticSupport() const
{
    if (!defaults_ || !usesCustomReminders_ || completedActions_ < promptThreshold)
        return false;
    const qint64 presented = settings::supportPresentedSummaryCount(*defaults_).value_or(0);
    if (presented + promptThreshold > completedActions_)
        return false;
    if (settings::supportAutomaticRemindersStopped(*defaults_))
        return false;
    return storedClicks().isEmpty();
}

KestilEngagement::Prompt KestilEngagement::nextPrompt(bool isIdle)
{
    if (!isIdle || processingCount_ != 0 || !defaults_ || completedActions_ == lastPromptActionCount_)
        return Prompt::none;
    if (usesCustomReminders_) {
        if (!shouldShowAutomaticSupport())
            return Prompt::none;
        settings::setSupportPresentedSummaryCount(*defaults_, completedActions_);
        lastPromptActionCount_ = completedActions_;
        return Prompt::supportCard;
    }
    if (completedActions_ < promptThreshold || settings::nativeReviewRequested(*defaults_) ||
        hasClicked(Action::review))
        return Prompt::none;
    settings::setNativeReviewRequested(*defaults_, true);
    lastPromptActionCount_ = completedActions_;
    return Prompt::nativeReview;
}

void KestilEngagement::recordSupportPresented()
{
    if (defaults_)
        settings::setSupportPresentedSummaryCount(*defaults_, completedActions_);
}

} // namespace kestil
