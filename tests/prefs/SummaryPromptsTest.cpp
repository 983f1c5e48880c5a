// What follows a finished summary: the support prompts' counters, and the
// summary notification's flow with the desktop's notification service
// replaced by a scripted one.
#include "prefs/KestilEngagement.h"
#include "prefs/KestilSummaryNotifications.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

#include "base/Error.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTemporaryDir>

#include "support/CoreApplicationEnvironment.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;
using Prompt = KestilEngagement::Prompt;
using Action = KestilEngagement::Action;
using Status = NotificationAuthorization;

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
};

// The support card comes at five summaries and every five more, until a
// click; opening the support page by hand puts it off by five.
TEST_F(KestilEngagementTest, TheCardComesAtFiveAndEveryFiveMoreUntilAClick)
{
    const struct {
        const char *name;
        int pageOpenedAt;
        std::optional<Action> clickAtFirstCard;
        bool resetAfterClick;
        QList<int> expectedCards; // at which of 16 summaries, 1-based
    } cases[] = {
        {"closed without a click", 0, std::nullopt, false, {5, 10, 15}},
        {"clicked tip", 0, Action::tip, false, {5}},
        {"clicked, then reset", 0, Action::review, true, {5}},
        {"page opened by hand", 3, Action::share, false, {8}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        QTemporaryDir fresh;
        PreferenceStore defaults(fresh.path());
        KestilEngagement engagement(defaults);
        QList<int> cards;
        for (int i = 1; i <= 16; ++i) {
            if (summarize(engagement, 1).constFirst() == Prompt::supportCard)
                cards.append(i);
            if (i == c.pageOpenedAt)
                engagement.recordSupportPresented();
            if (c.clickAtFirstCard && cards.size() == 1 && cards.last() == i) {
                engagement.recordClick(*c.clickAtFirstCard);
                if (c.resetAfterClick)
                    engagement.resetClicks();
            }
        }
        EXPECT_EQ(cards, c.expectedCards);
    }
}

template <typename T> bool settled(const QFuture<T> &future)
{
    QDeadlineTimer deadline(5000);
    while (!future.isFinished() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    return future.isFinished();
}

template <typename T> QFuture<T> failed(const char *message)
{
    return QtFuture::makeExceptionalFuture<T>(
        std::make_exception_ptr(SystemError(QString::fromUtf8(message))));
}

// The desktop as the tests describe it: what the service answers, whether
// posting works, whether Kestil's window is active; every call is counted.
struct FakeCenter {
    Status status = Status::authorized;
    // What the status becomes once the desktop has been asked.
    Status statusAfterRequest = Status::authorized;
    bool requestThrows = false;
    bool enqueueFails = false;
    bool active = false;
    int requests = 0;
    QList<SummaryNotificationRequest> posted;

    KestilSummaryNotifications::Center center()
    {
        KestilSummaryNotifications::Center c;
        c.authorization = [this] { return QtFuture::makeReadyFuture(status); };
        c.requestAuthorization = [this] {
            ++requests;
            status = statusAfterRequest;
            return requestThrows ? failed<bool>("no prompt") : QtFuture::makeReadyFuture(true);
        };
        c.enqueue = [this](const SummaryNotificationRequest &request) {
            if (enqueueFails)
                return failed<void>("no service");
            posted.append(request);
            return QtFuture::makeReadyFuture();
        };
        c.isActive = [this] { return active; };
        return c;
    }
};

class KestilSummaryNotificationsTest : public ::testing::Test {
protected:
    KestilSummaryNotifications &make()
    {
        notifications = std::make_unique<KestilSummaryNotifications>(store, center.center());
        return *notifications;
    }

    void finishPermissionFlow()
    {
        while (notifications->permissionFlowRunning())
            QCoreApplication::processEvents();
    }

    QTemporaryDir dir;
    PreferenceStore store{dir.path()};
    FakeCenter center;
    std::unique_ptr<KestilSummaryNotifications> notifications;
    const QUuid note = QUuid::createUuid();
};

TEST_F(KestilSummaryNotificationsTest, PostsOnlyWhenAllowedWantedAndNotInFront)
{
    const struct {
        const char *name;
        QVariant preference; // invalid: the key is missing
        Status status;
        bool active, enqueueFails, posted;
    } cases[] = {
        {"wanted by default", QVariant(), Status::authorized, false, false, true},
        {"provisional is allowed", QVariant(), Status::provisional, false, false, true},
        {"switched off", false, Status::authorized, false, false, false},
        {"no service is no error", QVariant(), Status::denied, false, false, false},
        {"never asked in the background", QVariant(), Status::notDetermined, false, false, false},
        {"window in front", QVariant(), Status::authorized, true, false, false},
        {"posting fails", QVariant(), Status::authorized, false, true, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        store.remove(settings::keys::kestilSummaryNotificationsEnabled);
        if (c.preference.isValid())
            store.set(settings::keys::kestilSummaryNotificationsEnabled, c.preference);
        center = FakeCenter{c.status, Status::authorized, false, c.enqueueFails, c.active};
        const QUuid request = QUuid::createUuid();
        ASSERT_TRUE(settled(make().deliver(note, request)));
        EXPECT_EQ(center.posted.size(), c.posted ? 1 : 0);
        EXPECT_EQ(notifications->deliveryError(),
                  c.enqueueFails ? std::optional<QString>("The summary was saved, but its notification could "
                                                          "not be shown.")
                                 : std::nullopt);
        EXPECT_FALSE(notifications->isPending(request));
        // Delivery asks nobody: a prompt belongs to the start of a summary.
        EXPECT_EQ(center.requests, 0);
    }
}

// The request holds no note text, only the note to open.
TEST_F(KestilSummaryNotificationsTest, ARequestIsPostedOnceWithTheNoteToOpen)
{
    KestilSummaryNotifications &n = make();
    const QUuid request = QUuid::fromString("1b4e28ba-2fa1-11d2-883f-0016d3cca427");
    const QFuture<void> first = n.deliver(note, request);
    EXPECT_TRUE(n.isPending(request));
    const QFuture<void> second = n.deliver(note, request); // while the first is on its way
    ASSERT_TRUE(settled(first) && settled(second));
    ASSERT_TRUE(settled(n.deliver(note, request))); // and after it
    ASSERT_EQ(center.posted.size(), 1);
    const SummaryNotificationRequest &posted = center.posted.constFirst();
    EXPECT_EQ(posted.identifier, "kestil.summary.1B4E28BA-2FA1-11D2-883F-0016D3CCA427");
    EXPECT_EQ(posted.userInfo, (QVariantMap{{"noteID", note.toString(QUuid::WithoutBraces).toUpper()}}));
    // No note id, nothing to open: nothing is posted.
    const qsizetype before = center.posted.size();
    ASSERT_TRUE(settled(n.deliver(std::nullopt, QUuid::createUuid())));
    EXPECT_EQ(center.posted.size(), before);
}

TEST_F(KestilSummaryNotificationsTest, TheDesktopIsAskedOnlyWhileKestilIsInFrontAndAFailureSaysSo)
{
    center.status = Status::notDetermined;
    KestilSummaryNotifications &n = make();
    n.prepareForSummary(); // in the background: no question
    ASSERT_TRUE(settled(n.refreshAuthorization()));
    finishPermissionFlow();
    EXPECT_EQ(center.requests, 0);
    center.active = true;
    center.requestThrows = true;
    center.statusAfterRequest = Status::notDetermined;
    n.startPermissionFlow();
    finishPermissionFlow();
    EXPECT_EQ(center.requests, 1);
    EXPECT_EQ(n.deliveryError(), "Notifications could not be enabled. Your summaries still work normally.");
    center.requestThrows = false;
    center.statusAfterRequest = Status::authorized;
    n.startPermissionFlow();
    finishPermissionFlow();
    EXPECT_EQ(n.authorizationStatus(), Status::authorized);
}

} // namespace
