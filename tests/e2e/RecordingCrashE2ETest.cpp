// A recording cut off by SIGKILL, and the next launch: the real kestil
// program, a private PulseAudio server playing espeak-ng speech into the
// virtual microphone, PocketSphinx for the live transcript.
#include "DesktopSession.h"
#include "RecordingE2ESupport.h"

#include "core/SharedPersistenceController.h"
#include "support/PulseAudioServer.h"
#include "support/SoundFiles.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;
using namespace kestil::testing;

namespace {

TEST(RecordingCrashE2ETest, AKilledRecordingIsRecoveredWithItsCommittedTranscriptAndPlayableAudio)
{
    ASSERT_TRUE(test::PulseAudioServer::available()) << "pulseaudio, pactl and paplay are needed";
    test::PulseAudioServer pulse;
    const QString problem = pulse.start();
    ASSERT_TRUE(problem.isEmpty()) << problem.toStdString();
    DesktopSession desktop;
    ASSERT_TRUE(desktop.started()) << "Xvfb did not start";
    QTemporaryDir work;
    const QString speech = work.filePath(QStringLiteral("speech.wav"));
    ASSERT_TRUE(speak(firstPhrase, speech));
    const QString data = work.filePath(QStringLiteral("data"));

    QString window = desktop.launchKestil(data);
    ASSERT_FALSE(window.isEmpty()) << "no Kestil window appeared";
    ASSERT_TRUE(desktop.pressKeys(window, QStringLiteral("ctrl+n")));
    ASSERT_TRUE(eventually([&] { return segmentFolders(data).size() == 1; }, 60000))
        << "no recording began after Ctrl+N\n"
        << desktop.kestilOutput().toStdString();
    QString error;
    ASSERT_TRUE(pulse.play(speech, QLatin1String(test::PulseAudioServer::micFeed), &error))
        << error.toStdString();

    // The last committed snapshot, as the store file holds it.
    QString committed;
    ASSERT_TRUE(eventually(
        [&] {
            const auto notes = readStoredNotes(data);
            committed = notes.size() == 1 ? notes[0].transcription : QString();
            return wordsHeard(firstPhrase, committed) >= 0.5;
        },
        30000))
        << "the spoken words never reached the store: \"" << committed.toStdString() << "\"";
    QThread::msleep(500);
    committed = readStoredNotes(data).value(0).transcription;
    desktop.killKestil();
    const QString segment = segmentFolders(data).value(0);
    ASSERT_FALSE(manifestComplete(segment)) << "the session was cut off before it could finish";
    EXPECT_FALSE(QFile::exists(segment + QStringLiteral("/audio.caf")));

    window = desktop.launchKestil(data);
    ASSERT_FALSE(window.isEmpty()) << "kestil did not start again after the crash\n"
                                   << desktop.kestilOutput().toStdString();
    const QString shot = desktop.screenshot(QStringLiteral("recording-4-recovered"));
    EXPECT_GT(desktop.contrast(shot), 0.05);
    EXPECT_TRUE(desktop.kestilOutput().contains(
        QStringLiteral("Recovered 1 interrupted transcription session(s). Select a note to continue.")))
        << desktop.kestilOutput().toStdString();
    ASSERT_TRUE(desktop.pressKeys(window, QStringLiteral("ctrl+q")));
    ASSERT_TRUE(desktop.waitForKestilExit(30000));

    SharedPersistenceController store(data);
    ASSERT_TRUE(store.ready());
    const auto notes = store.fetchNotes();
    ASSERT_EQ(notes.size(), 1);
    EXPECT_EQ(notes[0]->transcription().value_or(QString()), committed)
        << "the note holds the transcript of its last committed snapshot";
    EXPECT_TRUE(manifestComplete(segment));
    const auto sound = test::readSoundFile(segment + QStringLiteral("/audio.caf"), &error);
    ASSERT_TRUE(sound) << error.toStdString();
    EXPECT_GT(sound->frames(), sound->sampleRate * 2) << "the spoken seconds are in the rebuilt file";
}

} // namespace
