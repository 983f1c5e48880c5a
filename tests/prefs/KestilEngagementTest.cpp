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
    void SetUp() override { ASSERT_TRUE(dir.isValid()); }

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

// At which summaries (1-based) the support card appears, over a run of
// summaries, with what happens to the card in between.
struct CardCase {
    const char *name;
    int summaries;
    std::optional<Action> clickAtFirstCard;
    bool resetAfterClick;
    QList<int> expectedCards;
};

void PrintTo(const CardCase &c, std::ostream *out)
{
    *out << c.name;
}

class SupportCardRounds : public KestilEngagementTest, public ::testing::WithParamInterface<CardCase> {};

TEST_P(SupportCardRounds, TheCardComesAtFiveAndEveryFiveMoreUntilAClick)
{
    const CardCase &c = GetParam();
    KestilEngagement engagement(store);
    QList<int> cards;
    for (int i = 1; i <= c.summaries; ++i) {
        const QList<Prompt> prompt = summarize(engagement, 1);
        if (prompt.constFirst() != Prompt::supportCard)
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

INSTANTIATE_TEST_SUITE_P(
    Engagement, SupportCardRounds,
    ::testing::Values(CardCase{"closedWithoutClick", 16, std::nullopt, false, {5, 10, 15}},
                      CardCase{"clickedTip", 16, Action::tip, false, {5}},
                      CardCase{"clickedThenReset", 16, Action::review, true, {5}},
                      CardCase{"fourOnly", 4, std::nullopt, false, {}}),
    [](const auto &param) { return std::string(param.param.name); });

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
    EXPECT_EQ(store.object(settings::keys::kestilSupportAutomaticRemindersStopped), QVariant(true));
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
    const QList<Prompt> prompts = summarize(engagement, 5);
    EXPECT_EQ(prompts.indexOf(Prompt::supportCard), 4); // at 8, not at 5
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
