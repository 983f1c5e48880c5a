// Summary notifications over a private D-Bus (tests/support/FakeDesktopServices);
// the sleep locks are the privacy end-to-end test's.
#include "ShellTestSupport.h"
#include "generation/ScriptedLanguageModel.h"

#include "shell/DesktopIntegration.h"
#include "shell/DesktopNotifications.h"
#include "shell/SleepInhibitor.h"
#include "support/PrivateBus.h"

#include <QDBusConnection>
#include <QJsonArray>

#include <gtest/gtest.h>

using namespace kestil;
using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

const QString transcript = u"Maria opened the weekly sync by reviewing the budget for the spring "
                           "campaign, and the team agreed to move the launch to April."_s;
const QString summary = u"## Decisions\n- Launch moves to **April**."_s;

class DesktopIntegrationTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(test::PrivateBus::available()) << "dbus-daemon (package dbus) is needed";
        ASSERT_EQ(bus.start(), QString());
        connection = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(bus.address(), u"kestil-test-%1"_s.arg(++connections)));
        ASSERT_TRUE(connection->isConnected());
    }
    void TearDown() override
    {
        if (rig.delegate)
            rig.delegate->setDesktopIntegration(nullptr);
        desktop.reset();
        services.stop();
        if (connection)
            QDBusConnection::disconnectFromBus(connection->name());
    }
    void launch(test::FakeDesktopServices::Options options)
    {
        ASSERT_EQ(services.start(bus.address(), options), QString());
        rig.launch();
        ASSERT_TRUE(rig.exposed);
        rig.list().setLanguageModel(&model);
        DesktopIntegration::Environment environment{SleepInhibitor::Buses{*connection, *connection},
                                                    *connection, SupportTargets{}, [] { return false; }};
        desktop = std::make_unique<DesktopIntegration>(*rig.delegate, *rig.window, environment);
        rig.delegate->setDesktopIntegration(desktop.get());
    }
    NotePtr note(const QString &title) { return rig.addNote(title, transcript); }
    void summarize(const NotePtr &target)
    {
        model.replies = {summary, QJsonObject{{u"tags"_s, QJsonArray{u"Budget"_s}}}};
        ASSERT_TRUE(test::waitFor(rig.list().generateSummary(target, u"Auto"_s)));
        ASSERT_EQ(target->summary(), summary);
    }

    static inline int connections = 0;
    test::PrivateBus bus;
    std::unique_ptr<QDBusConnection> connection;
    test::FakeDesktopServices services;
    ScriptedLanguageModel model;
    test::ShellRig rig;
    std::unique_ptr<DesktopIntegration> desktop;
};

TEST_F(DesktopIntegrationTest, AFinishedSummaryNotifiesOnceAndItsClickOpensTheNoteIfItIsStillThere)
{
    launch({true, true, false});
    const NotePtr budget = note(u"Budget review"_s);
    const NotePtr other = note(u"Standup"_s);
    summarize(budget);
    const QJsonObject posted = services.waitFor(u"Notify"_s);
    ASSERT_FALSE(posted.isEmpty());
    EXPECT_EQ(posted.value(u"summary"_s).toString(), u"Summary ready"_s);
    EXPECT_EQ(posted.value(u"body"_s).toString(), u"Your summary is saved. Open Kestil to read it."_s);
    EXPECT_EQ(posted.value(u"hints"_s).toObject().value(u"desktop-entry"_s).toString(),
              u"app.kestil.Kestil"_s);

    rig.list().selectNote(other, false);
    rig.list().setSelectedDetailTab(NotesListViewModel::transcriptTab);
    services.invoke(uint(posted.value(u"id"_s).toInt()), u"default"_s);
    ASSERT_TRUE(
        test::waitUntil([&] { return rig.list().selectedNoteIDs() == QList{budget->objectId()}; }, 5s));
    EXPECT_EQ(rig.list().selectedDetailTab(), NotesListViewModel::summaryTab);

    // A click for a note deleted since opens nothing.
    summarize(other);
    const QJsonObject second = services.waitFor(u"Notify"_s, 2);
    ASSERT_TRUE(test::waitFor(rig.list().deleteNote(other)));
    services.invoke(uint(second.value(u"id"_s).toInt()), u"default"_s);
    test::settle(500ms);
    EXPECT_EQ(rig.list().selectedNoteIDs(), QList{budget->objectId()});
    EXPECT_FALSE(desktop->notifications().noteToOpen().has_value());
}

} // namespace
