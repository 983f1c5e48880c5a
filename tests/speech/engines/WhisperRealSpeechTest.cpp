#include "speech/LiveSpeechSession.h"
#include "speech/LocalSpeech.h"

#include "SpeechTestSupport.h"

#include "prefs/PreferenceStore.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sndfile.h>

#include <iostream>

// Whisper "base" with its real weights, as Kestil's own import converted it:
// what the user hears from the preferred engine.

using namespace kestil;

namespace {

class WhisperRealSpeech : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(data_.isValid());
        qputenv("KESTIL_DATA_DIR", data_.path().toUtf8());
        preferences_ = std::make_unique<PreferenceStore>(data_.filePath(QStringLiteral("config")));
        test::installRealWhisperModel(data_.path());
    }
    void TearDown() override { qunsetenv("KESTIL_DATA_DIR"); }

    LocalTranscript transcribeFile(const std::vector<float> &audio)
    {
        const QString path = data_.filePath(QStringLiteral("reading.wav"));
        EXPECT_TRUE(test::writeSoundFile(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 16000, 1, audio));
        return LocalSpeech::transcribe(path, QStringLiteral("en-US"), *preferences_);
    }

    QTemporaryDir data_;
    std::unique_ptr<PreferenceStore> preferences_;
};

} // namespace

TEST_F(WhisperRealSpeech, AReadingWithPausesIsTranscribedLiveWithoutRepeatsAndTimedByTheAudio)
{
    const LocalSpeech::Readiness ready = LocalSpeech::readiness(QStringLiteral("en-US"), *preferences_);
    ASSERT_TRUE(ready.configuration.has_value());
    ASSERT_EQ(ready.configuration->engine, LocalSpeech::Engine::speech)
        << "the multilingual model serves English when no English-only one is installed";

    // Played at twice real time: the finals are cut at the same pauses at any
    // pace, and the volatile decodes pace themselves by the audio fed.
    const test::ReadingTrack reading = test::libriVoxReading(1.0, 1.2);
    std::vector<LocalTranscript> seen;
    const LocalTranscript live = test::playLive(*preferences_, reading.samples, 16000, 2.0, &seen);
    const LocalTranscript offline = transcribeFile(reading.samples);

    const double liveWer = test::wordErrorRate(reading.reference, live.finalizedText());
    const double offlineWer = test::wordErrorRate(reading.reference, offline.finalizedText());
    std::cout << "WER live " << liveWer << "  offline " << offlineWer << " over "
              << test::words(reading.reference).size()
              << " words\n  live:    " << live.finalizedText().toStdString()
              << "\n  offline: " << offline.finalizedText().toStdString() << "\n";
    EXPECT_LT(liveWer, 0.08);
    EXPECT_LT(offlineWer, 0.08);

    // What a recording saves and shows after each result: never a phrase
    // read twice by overlapping windows.
    ASSERT_FALSE(seen.empty());
    for (const LocalTranscript &snapshot : seen) {
        EXPECT_EQ(test::repeatedPhrases(reading.reference, snapshot.finalizedText()), QString())
            << "saved: " << snapshot.finalizedText().toStdString();
        EXPECT_EQ(test::repeatedPhrases(reading.reference, snapshot.fullText()), QString())
            << "shown: " << snapshot.fullText().toStdString();
    }
    test::expectTimesOfTheReading(live.utterances, reading);
    test::expectTimesOfTheReading(offline.utterances, reading);
}

TEST_F(WhisperRealSpeech, SilenceAndQuietRoomNoiseInAFileGiveNoWords)
{
    // A quiet room: hiss at about -54 dBFS with a faint mains hum, there from
    // the first sample on. Live sessions gate such audio before whisper (as
    // WhisperEngine's tests show); a file is read by another engine.
    std::vector<float> room = test::steadyNoise(30.0, 0.002, 31);
    for (std::size_t i = 0; i < room.size(); ++i)
        room[i] += 0.001f * float(std::sin(2.0 * M_PI * 50.0 * double(i) / 16000.0));
    for (const auto &[name, audio] :
         {std::pair{"silence", test::silence(20.0)}, std::pair{"room noise", room}})
        EXPECT_TRUE(transcribeFile(audio).fullText().isEmpty()) << name;
}
