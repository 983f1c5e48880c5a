// Two voices taking turns, recorded by the real kestil with Whisper and the
// speaker models: the copied transcript names two speakers.
#include "DesktopSession.h"
#include "RecordingE2ESupport.h"

#include "speech/DiarisationModels.h"
#include "speech/engines/SpeechTestSupport.h"
#include "support/PulseAudioServer.h"

#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;
using namespace kestil::testing;

namespace {

TEST(SpeakersE2ETest, ARecordingOfTwoVoicesNamesTwoSpeakersInTheTranscript)
{
    const QString models = test::modelsDirectory() + u"/diarisation"_s;
    for (const DiarisationModel &model : diarisationModels())
        ASSERT_TRUE(QFile::exists(diarisationModelPath(models, model)))
            << "run scripts/test-models.sh: " << model.fileName.toStdString() << " is missing";
    ASSERT_FALSE(QStandardPaths::findExecutable(u"xclip"_s).isEmpty()) << "xclip is needed";
    ASSERT_TRUE(test::PulseAudioServer::available()) << "pulseaudio, pactl and paplay are needed";
    test::PulseAudioServer pulse;
    const QString problem = pulse.start();
    ASSERT_TRUE(problem.isEmpty()) << problem.toStdString();
    DesktopSession desktop;
    ASSERT_TRUE(desktop.started()) << "Xvfb did not start";

    QTemporaryDir work;
    const QString data = work.filePath(u"data"_s);
    test::installRealWhisperModel(data);
    const QString installed = data + u"/Models/diarisation"_s;
    ASSERT_TRUE(QDir().mkpath(installed));
    for (const DiarisationModel &model : diarisationModels())
        ASSERT_TRUE(QFile::copy(diarisationModelPath(models, model), diarisationModelPath(installed, model)));

    const std::pair<const char *, QString> turns[] = {
        {"en-us", firstPhrase},
        {"en-us+f5", secondPhrase},
        {"en-us", thirdPhrase},
        {"en-us+f5", u"thank you all for coming and see you next week at the same time"_s},
    };
    QStringList files;
    for (const auto &[voice, text] : turns) {
        files << work.filePath(u"turn-%1.wav"_s.arg(files.size()));
        QString error;
        ASSERT_TRUE(test::synthesizeSpeech(text, files.last(), &error, QLatin1String(voice)))
            << error.toStdString();
    }

    const QString window = desktop.launchKestil(data);
    ASSERT_FALSE(window.isEmpty()) << "no Kestil window appeared";
    ASSERT_TRUE(desktop.pressKeys(window, u"ctrl+n"_s));
    ASSERT_TRUE(eventually([&] { return segmentFolders(data).size() == 1; }, 60000));
    for (const QString &file : files) {
        QString error;
        ASSERT_TRUE(pulse.play(file, QLatin1String(test::PulseAudioServer::micFeed), &error))
            << error.toStdString();
        QThread::msleep(700);
    }
    QThread::msleep(1500);
    ASSERT_TRUE(desktop.pressKeys(window, u"ctrl+shift+s"_s));

    // Identification runs on its own after Stop.
    const QString utterances = u"SELECT transcriptUtterancesJSON FROM note"_s;
    const bool identified =
        eventually([&] { return storedValue(data, utterances).contains(u"\"speaker\":1"_s); }, 120000, 500);
    desktop.screenshot(u"speakers-1-transcript"_s);
    ASSERT_TRUE(identified) << storedValue(data, utterances).toStdString() << "\nkestil's output:\n"
                            << desktop.kestilOutput().toStdString();

    ASSERT_TRUE(desktop.pressKeys(window, u"ctrl+shift+c"_s));
    QString copied;
    EXPECT_TRUE(eventually(
        [&] {
            copied = desktop.run(u"xclip"_s, {u"-o"_s, u"-selection"_s, u"clipboard"_s});
            return copied.contains(u"Speaker 2: "_s);
        },
        5000));
    EXPECT_TRUE(copied.startsWith(u"Speaker 1: "_s)) << copied.toStdString();
    EXPECT_TRUE(copied.contains(u"\n\nSpeaker 2: "_s)) << copied.toStdString();
    EXPECT_FALSE(copied.contains(u"Speaker 3"_s)) << copied.toStdString();

    ASSERT_TRUE(desktop.pressKeys(window, u"ctrl+q"_s));
    EXPECT_TRUE(desktop.waitForKestilExit(30000));
}

} // namespace
