#include "speech/VoiceActivity.h"

#include "SpeechTestSupport.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

int speechFrames(VoiceActivity &vad, const std::vector<float> &signal)
{
    int count = 0;
    const auto n = std::size_t(vad.frameLength());
    for (std::size_t at = 0; at + n <= signal.size(); at += n)
        count += vad.isSpeech(std::span<const float>(signal).subspan(at, n)) ? 1 : 0;
    return count;
}

} // namespace

TEST(VoiceActivity, SilenceAndVeryQuietSoundAreNeverSpeechAndATalkerIs)
{
    // The level is the root mean square in decibels.
    EXPECT_NEAR(VoiceActivity::levelDb(std::vector<float>(1000, 0.5f)), -6.02, 0.01);
    EXPECT_EQ(VoiceActivity::levelDb({}), -120.0);
    VoiceActivity vad(16000);
    EXPECT_EQ(speechFrames(vad, test::silence(2.0)), 0);
    // About -66 dBFS: below the absolute floor however quiet the room.
    EXPECT_EQ(speechFrames(vad, test::noiseBurst(2.0, 0.0005)), 0);

    // A talker after a quiet room is.
    VoiceActivity talker(16000);
    speechFrames(talker, test::noiseBurst(1.0, 0.001, 1));
    EXPECT_GE(speechFrames(talker, test::noiseBurst(1.0, 0.1, 2)), 45) << "of 50 frames";
}

TEST(VoiceActivity, SteadyNoiseIsLearntAsBackground)
{
    VoiceActivity vad(16000);
    // A fan at about -30 dBFS: speech at first, then background.
    auto fan = test::steadyNoise(30.0, 0.03, 3);
    const std::vector<float> lastSecond(fan.end() - 16000, fan.end());
    speechFrames(vad, std::vector<float>(fan.begin(), fan.end() - 16000));
    EXPECT_LE(speechFrames(vad, lastSecond), 2);
    // A voice well above the fan still counts.
    EXPECT_GE(speechFrames(vad, test::noiseBurst(1.0, 0.3, 4)), 30)
        << "of 50 frames; the quietest syllables drown";
}

TEST(VoiceActivity, NoiseThatStartsAfterDigitalSilenceIsLearntWithinSeconds)
{
    VoiceActivity vad(16000);
    speechFrames(vad, test::silence(5.0));
    // Hiss at about -45 dBFS starts: speech at first, for the energy alone
    // cannot tell, but background within three seconds.
    const int early = speechFrames(vad, test::steadyNoise(1.0, 0.0056, 5));
    speechFrames(vad, test::steadyNoise(2.0, 0.0056, 6));
    EXPECT_GT(early, 0);
    EXPECT_EQ(speechFrames(vad, test::steadyNoise(2.0, 0.0056, 7)), 0);
}
