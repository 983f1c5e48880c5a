#include "speech/PocketSphinxEngine.h"
#include "speech/WhisperEngine.h"

#include "SpeechTestSupport.h"

#include <gtest/gtest.h>

using namespace kestil;

// whisper.cpp, as built for Kestil, loads a model and decodes with it.
TEST(SpeechSmoke, WhisperLoadsTheGeneratedModelAndDecodes)
{
    WhisperEngine::Options options;
    options.threads = 1;
    WhisperEngine engine(test::tinyEnglishModel(), options);
    engine.decode(test::noiseBurst(1.0));
    EXPECT_GT(engine.decodeSeconds(), 0.0);
}

// PocketSphinx with Debian's English model recognises a recording of
// pocketsphinx-testdata word for word.
TEST(SpeechSmoke, PocketSphinxRecognisesGoForward)
{
    PocketSphinxEngine engine(QStringLiteral(KESTIL_POCKETSPHINX_MODEL_DIR));
    ASSERT_EQ(engine.sampleRate(), 16000.0);
    const std::vector<float> audio =
        test::readRaw16(test::pocketSphinxTestData() + QStringLiteral("/goforward.raw"));
    LocalTranscript transcript;
    for (const auto &r : engine.feed(audio))
        applySpeechResult(transcript, r);
    for (const auto &r : engine.finish())
        applySpeechResult(transcript, r);
    EXPECT_EQ(transcript.finalizedText(), QStringLiteral("go forward ten meters"));
    ASSERT_EQ(transcript.utterances.size(), 1);
    EXPECT_NEAR(transcript.utterances[0].start, 0.46, 0.15);
    EXPECT_NEAR(transcript.utterances[0].end, 2.12, 0.15);
}
