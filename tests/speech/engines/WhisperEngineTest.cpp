#include "speech/WhisperEngine.h"

#include "SpeechTestSupport.h"

#include "base/Error.h"
#include "speech/SpeechResult.h"

#include <gtest/gtest.h>

// The generated model has random weights: its words are nonsense and are
// never checked. What is checked is how the engine settles, times and gates
// what whisper.cpp returns.

using namespace kestil;
using test::joined;
using test::noiseBurst;
using test::silence;

namespace {

WhisperEngine::Options options(const char *language = "en")
{
    return {.language = QString::fromLatin1(language), .threads = 1};
}

struct FedResults {
    std::vector<SpeechResult> results;
    std::vector<double> fedWhenReported;
    std::vector<SpeechResult> finals;
};

// Feeds the engine in 0.25 s buffers, as a live session would.
FedResults feedInSteps(WhisperEngine &engine, const std::vector<float> &audio, bool finish = true)
{
    FedResults run;
    double fed = 0;
    const auto take = [&](const std::vector<SpeechResult> &results) {
        for (const auto &r : results) {
            run.results.push_back(r);
            run.fedWhenReported.push_back(fed);
            if (r.isFinal)
                run.finals.push_back(r);
        }
    };
    for (std::size_t at = 0; at < audio.size(); at += 4000) {
        const std::size_t n = std::min<std::size_t>(4000, audio.size() - at);
        fed += double(n) / 16000.0;
        take(engine.feed(std::span<const float>(audio).subspan(at, n)));
    }
    if (finish)
        take(engine.finish());
    return run;
}

FedResults transcribed(const std::vector<float> &audio)
{
    WhisperEngine engine(test::tinyEnglishModel(), options());
    return feedInSteps(engine, audio);
}

} // namespace

TEST(WhisperEngine, LoadsAGeneratedModelAndRefusesOnesItCannotUse)
{
    EXPECT_NO_THROW(WhisperEngine(test::tinyEnglishModel(), options()));
    EXPECT_NO_THROW(WhisperEngine(test::tinyMultilingualModel(), options("de")));
    try {
        WhisperEngine(test::tinyEnglishModel(), options("de"));
        FAIL() << "an English-only model took German";
    } catch (const LocalError &e) {
        EXPECT_TRUE(e.message().contains(QStringLiteral("understands English only")));
    }
    EXPECT_THROW(WhisperEngine(test::tinyMultilingualModel(), options("tlh")), LocalError);
    // A damaged file is refused before whisper.cpp sees it, as WhisperModelFile's tests show.
}

TEST(WhisperEngine, SpeechIsVolatileFirstThenFinalTimedWithinTheAudioFed)
{
    WhisperEngine engine(test::tinyEnglishModel(), options());
    const FedResults run = feedInSteps(engine, joined({silence(0.5), noiseBurst(3.0, 0.1, 1), silence(2.5),
                                                       noiseBurst(2.5, 0.1, 2), silence(2.0)}));
    ASSERT_FALSE(run.results.empty());
    EXPECT_FALSE(run.results.front().isFinal) << "text shows while the speech still runs";
    EXPECT_FALSE(run.results.front().text.isEmpty());

    ASSERT_EQ(run.finals.size(), 2u) << "two stretches of speech, 2.5 s apart";
    EXPECT_NEAR(run.finals[0].start, 0.5, 0.05);
    EXPECT_NEAR(run.finals[0].end, 3.5, 0.1);
    EXPECT_NEAR(run.finals[1].start, 6.0, 0.05);
    EXPECT_NEAR(run.finals[1].end, 8.5, 0.1);
    for (std::size_t i = 0; i < run.results.size(); ++i) {
        const SpeechResult &r = run.results[i];
        EXPECT_LE(r.start, r.end);
        EXPECT_GE(r.start, 0.0);
        EXPECT_LE(r.end, run.fedWhenReported[i] + 1e-9) << "a result never runs ahead of the audio fed";
    }
    EXPECT_GT(engine.decodeSeconds(), 0.0);
}

TEST(WhisperEngine, SpeechAfterAShortPauseRevisesTheLastFinalUnlessItOrThePauseIsLong)
{
    // A pause of 1 s settles, and is short enough to revise under the last
    // final's start; a final longer than a revisable fragment, or a pause of
    // 2 s, starts a new final.
    const struct {
        const char *what;
        std::vector<float> audio;
        bool revises;
    } cases[] = {
        {"2 s, 1 s pause",
         joined({silence(0.3), noiseBurst(2.0, 0.1, 3), silence(1.0), noiseBurst(2.0, 0.1, 4), silence(2.0)}),
         true},
        {"5 s, 1 s pause", joined({noiseBurst(5.0, 0.1, 13), silence(1.0), noiseBurst(2.0, 0.1, 14)}), false},
        {"2 s, 2 s pause", joined({noiseBurst(2.0, 0.1, 13), silence(2.0), noiseBurst(2.0, 0.1, 14)}), false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const FedResults run = transcribed(c.audio);
        ASSERT_EQ(run.finals.size(), 2u);
        EXPECT_EQ(run.finals[1].start == run.finals[0].start, c.revises);
        EXPECT_LE(run.finals[0].start, run.finals[1].start);
        if (c.revises) {
            EXPECT_GT(run.finals[1].end, run.finals[0].end + 2.5);
        }
        LocalTranscript transcript;
        for (const auto &r : run.results)
            applySpeechResult(transcript, r);
        ASSERT_EQ(transcript.utterances.size(), c.revises ? 1 : 2);
        EXPECT_EQ(transcript.utterances.last().text, run.finals[1].text);
    }
}

TEST(WhisperEngine, SilenceHissAndSteadyNoiseNeverReachWhisper)
{
    // An idle system-audio stream: digital silence, then hiss at about -58
    // dBFS; and a fan at about -40 dBFS, there from the first buffer on.
    for (const std::vector<float> &audio :
         {joined({silence(10.0), test::steadyNoise(20.0, 0.00125)}), test::steadyNoise(20.0, 0.01, 12)}) {
        WhisperEngine engine(test::tinyEnglishModel(), options());
        EXPECT_TRUE(feedInSteps(engine, audio).results.empty());
        EXPECT_EQ(engine.decodeSeconds(), 0.0) << "no decode means no phantom sentences";
    }
}

TEST(WhisperEngine, AWindowAtItsLimitSettlesWithoutWaitingForAPause)
{
    WhisperEngine::Options limited = options();
    limited.maxWindowSeconds = 4.0;
    WhisperEngine engine(test::tinyEnglishModel(), limited);
    const auto settled = feedInSteps(engine, noiseBurst(10.0, 0.1, 8), false).finals;
    ASSERT_GE(settled.size(), 2u) << "10 s of unbroken speech in a 4 s window";
    for (std::size_t i = 1; i < settled.size(); ++i) {
        EXPECT_GT(settled[i].start, settled[i - 1].start) << "a cut at the limit is never revised";
        EXPECT_LE(settled[i].end - settled[i].start, 4.0 + 1e-9);
    }
}

TEST(WhisperEngine, FinishTurnsTheUnsettledTailFinal)
{
    WhisperEngine engine(test::tinyEnglishModel(), options());
    EXPECT_TRUE(feedInSteps(engine, joined({silence(0.4), noiseBurst(2.5, 0.1, 9)}), false).finals.empty())
        << "no pause yet";
    const std::vector<SpeechResult> last = engine.finish();
    ASSERT_EQ(last.size(), 1u);
    EXPECT_TRUE(last[0].isFinal);
    EXPECT_NEAR(last[0].start, 0.4, 0.05);
    EXPECT_LE(last[0].end, 2.9 + 1e-9);
    EXPECT_TRUE(engine.finish().empty()) << "a finished engine takes nothing more";
    EXPECT_TRUE(engine.feed(noiseBurst(1.0)).empty());
}
