// The real program opens on the stored library: its window shows the newest
// note, and a click on each row of the list shows that one.
#include "DesktopSession.h"
#include "RecordingE2ESupport.h"

#include "core/SharedPersistenceController.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::testing;

namespace {

TEST(LaunchE2ETest, LibraryWindowShowsTheStoredNotes)
{
    DesktopSession desktop;
    ASSERT_TRUE(desktop.started()) << "Xvfb did not start";
    QTemporaryDir data;
    const QStringList titles{QStringLiteral("Quarterly planning"), QStringLiteral("Design review with Ana"),
                             QStringLiteral("Customer call: onboarding")};
    {
        SharedPersistenceController store(data.path());
        for (int i = 0; i < titles.size(); ++i) {
            auto note = store.createNote(titles[i], QStringLiteral("We agreed to ship the beta next week."),
                                         QUuid::createUuid(), QStringLiteral("transcription"));
            note->setValue(QStringLiteral("timestamp"),
                           QDateTime::currentDateTimeUtc().addSecs(-3600 * (i + 1)));
            store.save();
        }
    }
    const QString window = desktop.launchKestil(data.path());
    ASSERT_FALSE(window.isEmpty()) << "no Kestil window appeared";
    QString name;
    const auto shows = [&](int row) {
        return eventually(
            [&] {
                name = desktop.xdotool({QStringLiteral("getwindowname"), window});
                return name == titles.at(row) + QStringLiteral(" — Kestil");
            },
            5000, 100);
    };
    EXPECT_TRUE(shows(0)) << "the newest note is shown first, not " << name.toStdString();
    // Rows are 57 pixels apart below the day heading.
    for (int row = 1; row < titles.size(); ++row) {
        desktop.xdotool({QStringLiteral("mousemove"), QStringLiteral("--window"), window,
                         QStringLiteral("300"), QString::number(140 + 57 * row), QStringLiteral("click"),
                         QStringLiteral("1")});
        EXPECT_TRUE(shows(row)) << name.toStdString();
    }
    desktop.screenshot(QStringLiteral("launch-library"));
    EXPECT_TRUE(desktop.kestilRunning());
}

} // namespace
