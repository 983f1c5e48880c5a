#include "prefs/KestilEngagement.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

#include <QTemporaryDir>

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;
using Prompt = KestilEngagement::Prompt;
using Action = KestilEngagement::Action;

namespace {

class KestilEngagementTest : public ::testing::Test {
protected:
    // Each summary is followed by the prompt question, as the application
    // asks it after every change; the answers are collected.
    QList<Prompt> summarize(KestilEngagement &engagement, int count)
    {
        QList<Prompt> prompts;
        for (int i = 0; i < count; ++i) {
            engagement.recordCompletedSummary("A summary.");
            prompts.append(engagement.nextPrompt(true));
        }
        return prompts;
    }

    QTemporaryDir dir;
    PreferenceStore store{dir.path()};
};

TEST_F(KestilEngagementTest, TheCardComesAtFiveAndEveryFiveMoreUntilAClick)
{
    const struct {
        const char *name;
        int summaries;
        std::optional<Action> clickAtFirstCard;
        bool resetAfterClick;
        QList<int> expectedCards; // at which summaries, 1-based
    } cases[] = {
        {"closed without a click", 16, std::nullopt, false, {5, 10, 15}},
        {"clicked tip", 16, Action::tip, false, {5}},
        {"clicked, then reset", 16, Action::review, true, {5}},
        {"four only", 4, std::nullopt, false, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        QTemporaryDir fresh;
        PreferenceStore defaults(fresh.path());
        KestilEngagement engagement(defaults);
        QList<int> cards;
        for (int i = 1; i <= c.summaries; ++i) {
            if (summarize(engagement, 1).constFirst() != Prompt::supportCard)
                continue;
            cards.append(i);
            if (c.clickAtFirstCard && cards.size() == 1) {
                engagement.recordClick(*c.clickAtFirstCard);
                if (c.resetAfterClick)
                    engagement.resetClicks();
            }
        }
        EXPECT_EQ(cards, c.expectedCards);
    }
}

TEST_F(KestilEngagementTest, NoPromptWhileBusyOrNotIdleAndAtMostOnePerCount)
{
    KestilEngagement engagement(store);
    summarize(engagement, 4);
    engagement.recordCompletedSummary("The fifth.");
    const QStringList keysBefore = store.keys();

    EXPECT_EQ(engagement.nextPrompt(false), Prompt::none);
    EXPECT_EQ(store.keys(), keysBefore);
    engagement.beginProcessing();
    EXPECT_EQ(engagement.nextPrompt(true), Prompt::none);
    engagement.endProcessing();
    engagement.endProcessing(); // never below 0
    EXPECT_EQ(engagement.processingCount(), 0);

    EXPECT_EQ(engagement.nextPrompt(true), Prompt::supportCard);
    EXPECT_EQ(settings::supportPresentedSummaryCount(store), 5);
    EXPECT_EQ(engagement.nextPrompt(true), Prompt::none);
}

TEST_F(KestilEngagementTest, StartUpReadsTheStoredCountersAsTheyMayHaveBeenLeft)
{
    store.set(settings::keys::kestilCompletedLocalSummaries, qint64(-3));
    store.set(settings::keys::kestilSupportClickedActions, QStringList{"rate", "share", ""});
    KestilEngagement engagement(store);
    EXPECT_EQ(engagement.completedActions(), 0);
    EXPECT_EQ(engagement.clickedActions(), QList<Action>{Action::share});
    // A click without the stopped flag: the flag is written back.
    EXPECT_TRUE(engagement.automaticRemindersStopped());
    EXPECT_TRUE(settings::supportAutomaticRemindersStopped(store));
}

TEST_F(KestilEngagementTest, OnlyNonEmptySummariesCountAndAnotherProcessLosesNothing)
{
    KestilEngagement engagement(store);
    engagement.recordCompletedSummary(" \n\t ");
    EXPECT_EQ(engagement.completedActions(), 0);
    EXPECT_FALSE(store.contains(settings::keys::kestilCompletedLocalSummaries));

    // Another process counted to 7 meanwhile.
    settings::setCompletedLocalSummaries(store, 7);
    engagement.recordCompletedSummary("Saved.");
    EXPECT_EQ(engagement.completedActions(), 8);
    EXPECT_EQ(settings::completedLocalSummaries(store), 8);

    settings::setCompletedLocalSummaries(store, KestilEngagement::completedCap + 50);
    engagement.recordCompletedSummary("Saved.");
    EXPECT_EQ(engagement.completedActions(), KestilEngagement::completedCap + 1);
}

TEST_F(KestilEngagementTest, ClicksAreStoredSortedAndResetKeepsRemindersOff)
{
    KestilEngagement engagement(store);
    summarize(engagement, 3);
    EXPECT_EQ(engagement.resetClicks(), "Saved clicks reset.");
    engagement.recordClick(Action::tip);
    engagement.recordClick(Action::feedback);
    engagement.recordClick(Action::tip);
    EXPECT_EQ(settings::supportClickedActions(store), (QStringList{"feedback", "tip"}));
    EXPECT_TRUE(engagement.hasClicked(Action::tip));
    EXPECT_FALSE(engagement.hasClicked(Action::review));

    EXPECT_EQ(engagement.resetClicks(), "Saved clicks reset. Automatic reminders stay off.");
    EXPECT_FALSE(store.contains(settings::keys::kestilSupportClickedActions));
    EXPECT_TRUE(engagement.clickedActions().isEmpty());
    EXPECT_TRUE(engagement.automaticRemindersStopped());
    EXPECT_EQ(settings::supportPresentedSummaryCount(store), 3);
}

TEST_F(KestilEngagementTest, ThePageOpenedByHandPutsTheCardOffByFiveSummaries)
{
    KestilEngagement engagement(store);
    summarize(engagement, 3);
    engagement.recordSupportPresented();
    EXPECT_EQ(summarize(engagement, 5).indexOf(Prompt::supportCard), 4); // at 8, not at 5
}

TEST_F(KestilEngagementTest, WithoutCustomRemindersTheSystemReviewIsAskedForOnceAtFive)
{
    KestilEngagement engagement(store, false);
    const QList<Prompt> prompts = summarize(engagement, 7);
    EXPECT_EQ(prompts, (QList<Prompt>{Prompt::none, Prompt::none, Prompt::none, Prompt::none,
                                      Prompt::nativeReview, Prompt::none, Prompt::none}));
    EXPECT_TRUE(settings::nativeReviewRequested(store));
}

TEST_F(KestilEngagementTest, WithoutAStoreItCountsWorkAndNothingElse)
{
    KestilEngagement engagement;
    engagement.beginProcessing();
    engagement.recordCompletedSummary("Saved.");
    engagement.recordClick(Action::review);
    EXPECT_EQ(engagement.processingCount(), 1);
    EXPECT_EQ(engagement.completedActions(), 0);
    EXPECT_FALSE(engagement.hasClicked(Action::review));
    EXPECT_EQ(engagement.nextPrompt(true), Prompt::none);
}

} // namespace
