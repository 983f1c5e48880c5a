#include "DesktopSession.h"

#include "core/SharedPersistenceController.h"

#include <QCryptographicHash>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::testing;

namespace {

QByteArray digest(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return QCryptographicHash::hash(f.readAll(), QCryptographicHash::Sha256);
}

TEST(LaunchE2ETest, LibraryWindowShowsTheStoredNotes)
{
    DesktopSession desktop;
    ASSERT_TRUE(desktop.started()) << "Xvfb did not start";
    QTemporaryDir data;
    const QStringList titles{QStringLiteral("Quarterly planning"), QStringLiteral("Design review with Ana"),
                             QStringLiteral("Customer call: onboarding")};
    {
        SharedPersistenceController store(data.path());
        int i = 0;
        for (const auto &t : titles) {
            auto note = store.createNote(t, QStringLiteral("We agreed to ship the beta next week."),
                                         QUuid::createUuid(), QStringLiteral("transcription"));
            note->setValue(QStringLiteral("timestamp"), QDateTime::currentDateTimeUtc().addSecs(-3600 * ++i));
            store.save();
        }
    }
    const QString window = desktop.launchKestil(data.path());
    ASSERT_FALSE(window.isEmpty()) << "no Kestil window appeared";
    const auto windowName = [&] {
        return desktop.run(QStringLiteral("xdotool"), {QStringLiteral("getwindowname"), window}).trimmed();
    };
    // The newest note is shown first; a click on each row of the list (rows
    // 57 pixels apart below the day heading) shows that note.
    EXPECT_EQ(windowName(), titles.at(0) + QStringLiteral(" — Kestil"));
    for (int row = 1; row < titles.size(); ++row) {
        desktop.run(QStringLiteral("xdotool"),
                    {QStringLiteral("mousemove"), QStringLiteral("--window"), window, QStringLiteral("300"),
                     QString::number(140 + 57 * row), QStringLiteral("click"), QStringLiteral("1")});
        QString name;
        for (int i = 0; i < 50 && (name = windowName()) != titles.at(row) + QStringLiteral(" — Kestil"); ++i)
            QThread::msleep(100);
        EXPECT_EQ(name, titles.at(row) + QStringLiteral(" — Kestil"));
    }
    desktop.screenshot(QStringLiteral("launch-library"));
    EXPECT_TRUE(desktop.kestilRunning());
    desktop.stopKestil();
}

TEST(LaunchE2ETest, CorruptStoreShowsTheMessageAndIsLeftUntouched)
{
    DesktopSession desktop;
    ASSERT_TRUE(desktop.started());
    QTemporaryDir data;
    const QString path = data.path() + QStringLiteral("/KestilNotes.sqlite");
    {
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        QByteArray bytes(64 * 1024, '\0');
        for (int i = 0; i < bytes.size(); ++i)
            bytes[i] = char((i * 7919) % 256);
        f.write(bytes);
    }
    const QByteArray before = digest(path);
    const QString window = desktop.launchKestil(data.path());
    ASSERT_FALSE(window.isEmpty());
    const QString shot = desktop.screenshot(QStringLiteral("launch-corrupt-store"));
    EXPECT_GT(desktop.contrast(shot), 0.01);
    EXPECT_TRUE(desktop.kestilRunning()) << "a corrupt store must not crash Kestil";
    desktop.stopKestil();
    EXPECT_EQ(digest(path), before) << "the store file must be byte-for-byte unchanged";
    EXPECT_FALSE(QFile::exists(path + QStringLiteral("-wal")));
}

} // namespace
