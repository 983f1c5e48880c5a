#pragma once

#include <QList>
#include <QObject>
#include <QString>

#include <optional>

namespace kestil {

class PreferenceStore;

// The engagement state of the process: the counters behind the support
// prompts, and processingCount, the model work now running (summary jobs,
// Ask AI answers). Support prompts and update checks wait while it is not 0.
//
// The counters live in the preferences (kestilCompletedLocalSummaries and the
// kestilSupport* keys). Until a store is attached, the object counts model
// work only, and the counters read as nothing done, nothing clicked. Main
// thread.
class KestilEngagement : public QObject {
    Q_OBJECT
    Q_PROPERTY(int processingCount READ processingCount NOTIFY processingCountChanged)

public:
    // The support actions, in the order the support page shows them.
    enum class Action { review, tip, share, feedback };
    // What nextPrompt() answers.
    enum class Prompt { none, nativeReview, supportCard };

    // The first prompt comes at this many completed summaries, and the
    // support card recurs after at least as many more.
    static constexpr qint64 promptThreshold = 5;
    static constexpr qint64 completedCap = 1000000000;

    explicit KestilEngagement(QObject *parent = nullptr);
    explicit KestilEngagement(PreferenceStore &defaults, bool usesCustomReminders = true,
                              QObject *parent = nullptr);

    // The process's one, made on first use.
    static KestilEngagement &shared();

    // Reads the counters from `defaults` and keeps them there from now on.
    // A click stored without the stopped flag writes the flag back.
    void attach(PreferenceStore &defaults, bool usesCustomReminders = true);

    // "review", "tip", "share", "feedback".
    static QString rawValue(Action action);
    static std::optional<Action> action(const QString &rawValue);
    static const QList<Action> &actions();

    int processingCount() const { return processingCount_; }
    // Work begins: the count rises by 1.
    void beginProcessing();
    // Work ends: the count falls by 1, never below 0.
    void endProcessing();

    qint64 completedActions() const { return completedActions_; }
    // In the order of actions().
    QList<Action> clickedActions() const { return clickedActions_; }
    bool automaticRemindersStopped() const { return automaticRemindersStopped_; }
    bool usesCustomReminders() const { return usesCustomReminders_; }

    // A saved summary counts once; an empty one (white space only) not at all.
    void recordCompletedSummary(const QString &text);
    // One click ends the automatic prompts for good.
    void recordClick(Action action);
    bool hasClicked(Action action) const;
    // Forgets the clicks but not that automatic reminders stopped; returns
    // the sentence to show.
    QString resetClicks();
    bool shouldShowAutomaticSupport() const;
    // The prompt due now, if any; at most one for each completed count within
    // a process. A prompt it gives is recorded as presented.
    Prompt nextPrompt(bool isIdle);
    // The support page was opened by hand: the card waits for the next round.
    void recordSupportPresented();

signals:
    void processingCountChanged(int count);
    // completedActions, clickedActions or automaticRemindersStopped changed.
    void countersChanged();

private:
    QList<Action> storedClicks() const;
    void setClicked(const QList<Action> &clicked);
    void stopAutomaticReminders();

    PreferenceStore *defaults_ = nullptr;
    bool usesCustomReminders_ = true;
    int processingCount_ = 0;
    qint64 completedActions_ = 0;
    QList<Action> clickedActions_;
    bool automaticRemindersStopped_ = false;
    qint64 lastPromptActionCount_ = -1;
};

} // namespace kestil
