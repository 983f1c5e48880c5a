#include "prefs/KestilSummaryNotifications.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

#include "base/Error.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QPromise>
#include <QTemporaryDir>

#include "support/CoreApplicationEnvironment.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;
using Status = NotificationAuthorization;

namespace {

template <typename T> bool settled(const QFuture<T> &future)
{
    QDeadlineTimer deadline(5000);
    while (!future.isFinished() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    return future.isFinished();
}

template <typename T> QFuture<T> ready(T value)
{
    QPromise<T> promise;
    promise.start();
    promise.addResult(value);
    promise.finish();
    return promise.future();
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
    // While set, the request for permission waits on it.
    std::shared_ptr<QPromise<bool>> heldRequest;
    int requests = 0;
    QList<SummaryNotificationRequest> posted;

    KestilSummaryNotifications::Center center()
    {
        KestilSummaryNotifications::Center c;
        c.authorization = [this] { return ready(status); };
        c.requestAuthorization = [this] {
            ++requests;
            status = statusAfterRequest;
            if (heldRequest)
                return heldRequest->future();
            QPromise<bool> promise;
            promise.start();
            if (requestThrows)
                promise.setException(std::make_exception_ptr(SystemError(QStringLiteral("no prompt"))));
            else
                promise.addResult(true);
            promise.finish();
            return promise.future();
        };
        c.enqueue = [this](const SummaryNotificationRequest &request) {
            QPromise<void> promise;
            promise.start();
            if (enqueueFails)
                promise.setException(std::make_exception_ptr(SystemError(QStringLiteral("no service"))));
            else
                posted.append(request);
            promise.finish();
            return promise.future();
        };
        c.isActive = [this] { return active; };
        return c;
    }
};

class KestilSummaryNotificationsTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dir.isValid()); }

    KestilSummaryNotifications &make()
    {
        notifications = std::make_unique<KestilSummaryNotifications>(store, center.center());
        return *notifications;
    }

    QTemporaryDir dir;
    PreferenceStore store{dir.path()};
    FakeCenter center;
    std::unique_ptr<KestilSummaryNotifications> notifications;
    const QUuid note = QUuid::createUuid();
};

struct DeliveryCase {
    const char *name;
    QVariant preference; // invalid: the key is missing
    Status status;
    bool active;
    bool enqueueFails;
    bool posted;
    std::optional<QString> error;
};

void PrintTo(const DeliveryCase &c, std::ostream *out)
{
    *out << c.name;
}

class Delivery : public KestilSummaryNotificationsTest, public ::testing::WithParamInterface<DeliveryCase> {};

TEST_P(Delivery, PostsOnlyWhenAllowedWantedAndNotInFront)
{
    const DeliveryCase &c = GetParam();
    if (c.preference.isValid())
        store.set(settings::keys::kestilSummaryNotificationsEnabled, c.preference);
    center.status = c.status;
    center.active = c.active;
    center.enqueueFails = c.enqueueFails;
    const QUuid request = QUuid::createUuid();
    ASSERT_TRUE(settled(make().deliver(note, request)));
    EXPECT_EQ(center.posted.size(), c.posted ? 1 : 0);
    EXPECT_EQ(notifications->deliveryError(), c.error);
    EXPECT_FALSE(notifications->isPending(request));
    EXPECT_EQ(notifications->deliveredCount(), c.posted ? 1 : 0);
    // Delivery asks nobody: a prompt belongs to the start of a summary.
    EXPECT_EQ(center.requests, 0);
}

const QString postingFailed =
    QStringLiteral("The summary was saved, but its notification could not be shown.");

INSTANTIATE_TEST_SUITE_P(
    Notifications, Delivery,
    ::testing::Values(
        DeliveryCase{"wantedByDefault", QVariant(), Status::authorized, false, false, true, std::nullopt},
        DeliveryCase{"textPreferenceCountsAsOn", QVariant(QStringLiteral("false")), Status::provisional,
                     false, false, true, std::nullopt},
        DeliveryCase{"switchedOff", QVariant(false), Status::authorized, false, false, false, std::nullopt},
        DeliveryCase{"noServiceIsNoError", QVariant(), Status::denied, false, false, false, std::nullopt},
        DeliveryCase{"neverAskedInTheBackground", QVariant(), Status::notDetermined, false, false, false,
                     std::nullopt},
        DeliveryCase{"windowInFront", QVariant(), Status::authorized, true, false, false, std::nullopt},
        DeliveryCase{"postingFails", QVariant(), Status::authorized, false, true, false, postingFailed}),
    [](const auto &param) { return std::string(param.param.name); });

TEST_F(KestilSummaryNotificationsTest, ARequestIsPostedOnceAndTheRecordStaysBounded)
{
    KestilSummaryNotifications &n = make();
    const QUuid request = QUuid::createUuid();
    const QFuture<void> first = n.deliver(note, request);
    EXPECT_TRUE(n.isPending(request));
    const QFuture<void> second = n.deliver(note, request); // while the first is on its way
    ASSERT_TRUE(settled(first) && settled(second));
    ASSERT_TRUE(settled(n.deliver(note, request))); // and after it
    EXPECT_EQ(center.posted.size(), 1);

    for (int i = 1; i < KestilSummaryNotifications::deliveredLimit; ++i)
        ASSERT_TRUE(settled(n.deliver(note, QUuid::createUuid())));
    EXPECT_EQ(n.deliveredCount(), KestilSummaryNotifications::deliveredLimit);
    ASSERT_TRUE(settled(n.deliver(note, QUuid::createUuid())));
    EXPECT_EQ(n.deliveredCount(), 1);

    // No note id, nothing to open: nothing is posted.
    const qsizetype before = center.posted.size();
    ASSERT_TRUE(settled(n.deliver(std::nullopt, QUuid::createUuid())));
    EXPECT_EQ(center.posted.size(), before);
}

TEST_F(KestilSummaryNotificationsTest, TheRequestHoldsNoNoteTextOnlyTheNoteToOpen)
{
    const QUuid request = QUuid::fromString(QStringLiteral("1b4e28ba-2fa1-11d2-883f-0016d3cca427"));
    ASSERT_TRUE(settled(make().deliver(note, request)));
    ASSERT_EQ(center.posted.size(), 1);
    const SummaryNotificationRequest &posted = center.posted.constFirst();
    EXPECT_EQ(posted.title, QStringLiteral("Summary ready"));
    EXPECT_EQ(posted.body, QStringLiteral("Your summary is saved. Open Kestil to read it."));
    EXPECT_EQ(posted.identifier, QStringLiteral("kestil.summary.1B4E28BA-2FA1-11D2-883F-0016D3CCA427"));
    EXPECT_EQ(posted.userInfo,
              (QVariantMap{{QStringLiteral("noteID"), note.toString(QUuid::WithoutBraces).toUpper()}}));
}

TEST_F(KestilSummaryNotificationsTest, TheDesktopIsAskedOnlyWhileKestilIsInFrontAndAFailureSaysSo)
{
    center.status = Status::notDetermined;
    KestilSummaryNotifications &n = make();
    n.prepareForSummary(); // in the background: no question
    ASSERT_TRUE(settled(n.refreshAuthorization()));
    while (n.permissionFlowRunning())
        QCoreApplication::processEvents();
    EXPECT_EQ(center.requests, 0);

    center.active = true;
    center.requestThrows = true;
    center.statusAfterRequest = Status::notDetermined;
    n.startPermissionFlow();
    while (n.permissionFlowRunning())
        QCoreApplication::processEvents();
    EXPECT_EQ(center.requests, 1);
    EXPECT_EQ(n.deliveryError(),
              QStringLiteral("Notifications could not be enabled. Your summaries still work normally."));

    center.requestThrows = false;
    center.statusAfterRequest = Status::authorized;
    n.startPermissionFlow();
    while (n.permissionFlowRunning())
        QCoreApplication::processEvents();
    EXPECT_EQ(n.authorizationStatus(), Status::authorized);
}

TEST_F(KestilSummaryNotificationsTest, ASummaryEndingDuringTheQuestionUsesItsAnswer)
{
    center.status = Status::notDetermined;
    center.active = true;
    center.heldRequest = std::make_shared<QPromise<bool>>();
    center.heldRequest->start();
    KestilSummaryNotifications &n = make();
    n.prepareForSummary();
    while (center.requests == 0)
        QCoreApplication::processEvents();
    center.active = false; // the user went elsewhere while the summary ran
    const QFuture<void> delivered = n.deliver(note, QUuid::createUuid());
    QCoreApplication::processEvents();
    EXPECT_TRUE(center.posted.isEmpty());
    center.heldRequest->addResult(true);
    center.heldRequest->finish();
    ASSERT_TRUE(settled(delivered));
    EXPECT_EQ(center.posted.size(), 1);
}

struct ClickCase {
    const char *name;
    QString action;
    QVariantMap userInfo;
    bool opens;
};

void PrintTo(const ClickCase &c, std::ostream *out)
{
    *out << c.name;
}

class Clicks : public KestilSummaryNotificationsTest, public ::testing::WithParamInterface<ClickCase> {};

TEST_P(Clicks, OnlyTheDefaultActionWithAValidNoteOpensIt)
{
    const ClickCase &c = GetParam();
    KestilSummaryNotifications &n = make();
    EXPECT_EQ(n.didReceive(c.action, c.userInfo), c.opens);
    EXPECT_EQ(n.noteToOpen().has_value(), c.opens);
    if (c.opens) {
        EXPECT_EQ(*n.noteToOpen(), QUuid(c.userInfo.value(QStringLiteral("noteID")).toString()));
    }
}

const QString someNote = QStringLiteral("6F9619FF-8B86-D011-B42D-00C04FC964FF");

INSTANTIATE_TEST_SUITE_P(
    Notifications, Clicks,
    ::testing::Values(
        ClickCase{"defaultAction", QStringLiteral("default"), {{QStringLiteral("noteID"), someNote}}, true},
        ClickCase{"otherAction", QStringLiteral("dismiss"), {{QStringLiteral("noteID"), someNote}}, false},
        ClickCase{"noNote", QStringLiteral("default"), {}, false},
        ClickCase{"notText", QStringLiteral("default"), {{QStringLiteral("noteID"), 42}}, false},
        ClickCase{
            "notAUuid", QStringLiteral("default"), {{QStringLiteral("noteID"), QStringLiteral("x")}}, false}),
    [](const auto &param) { return std::string(param.param.name); });

} // namespace
