// The real program opens on the stored library: its window shows the newest
// note, and a click on each row of the list shows that one.
#include "DesktopSession.h"
#include "RecordingE2ESupport.h"

#include "core/SharedPersistenceController.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;
using namespace kestil::testing;

namespace {

TEST(LaunchE2ETest, LibraryWindowShowsTheStoredNotes)
{
    DesktopSession desktop;
    ASSERT_TRUE(desktop.started()) << "Xvfb did not start";
    QTemporaryDir data;
    const QStringList titles{u"Quarterly planning"_s, u"Design review with Ana"_s,
                             u"Customer call: onboarding"_s};
    {
        // Hours apart on one day three days ago: one day heading above the
        // rows whatever the time of day the test runs at.
        const QDateTime noon(QDate::currentDate().addDays(-3), QTime(12, 0));
        SharedPersistenceController store(data.path());
        for (int i = 0; i < titles.size(); ++i) {
            auto note = store.createNote(titles[i], u"We agreed to ship the beta next week."_s,
                                         QUuid::createUuid(), u"transcription"_s);
            note->setValue(u"timestamp"_s, noon.addSecs(-3600 * i).toUTC());
            store.save();
        }
    }
    const QString window = desktop.launchKestil(data.path());
    ASSERT_FALSE(window.isEmpty()) << "no Kestil window appeared";
    QString name;
    const auto shows = [&](int row) {
        return eventually(
            [&] {
                name = desktop.xdotool({u"getwindowname"_s, window});
                return name == titles.at(row) + u" — Kestil"_s;
            },
            5000, 100);
    };
    EXPECT_TRUE(shows(0)) << "the newest note is shown first, not " << name.toStdString();
    // Rows are 57 pixels apart below the day heading.
    for (int row = 1; row < titles.size(); ++row) {
        desktop.xdotool({u"mousemove"_s, u"--window"_s, window, u"300"_s, QString::number(140 + 57 * row),
                         u"click"_s, u"1"_s});
        EXPECT_TRUE(shows(row)) << name.toStdString();
    }
    desktop.screenshot(u"launch-library"_s);
    EXPECT_TRUE(desktop.kestilRunning());
}

} // namespace
