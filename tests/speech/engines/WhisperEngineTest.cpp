#include "speech/WhisperEngine.h"

#include "SpeechTestSupport.h"

#include "base/Error.h"
#include "speech/SpeechResult.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// The generated model has random weights: its words are nonsense and are
// never checked. What is checked is how the engine settles, times and gates
// what whisper.cpp returns.

using namespace kestil;

namespace {

WhisperEngine::Options english()
{
    WhisperEngine::Options options;
    options.language = QStringLiteral("en");
    options.threads = 1;
    return options;
}

struct FedResults {
    std::vector<SpeechResult> results;
    std::vector<double> fedWhenReported;
};

// Feeds the engine in 0.25 s buffers, as a live session would.
FedResults feedInSteps(WhisperEngine &engine, const std::vector<float> &audio, bool finish = true)
{
    FedResults run;
    double fed = 0;
    for (std::size_t at = 0; at < audio.size(); at += 4000) {
        const std::size_t n = std::min<std::size_t>(4000, audio.size() - at);
        fed += double(n) / 16000.0;
        for (auto &r : engine.feed(std::span<const float>(audio).subspan(at, n))) {
            run.results.push_back(r);
            run.fedWhenReported.push_back(fed);
        }
    }
    if (finish) {
        for (auto &r : engine.finish()) {
            run.results.push_back(r);
            run.fedWhenReported.push_back(fed);
        }
    }
    return run;
}

std::vector<SpeechResult> finals(const FedResults &run)
{
    std::vector<SpeechResult> out;
    for (const auto &r : run.results) {
        if (r.isFinal)
            out.push_back(r);
    }
    return out;
}

} // namespace

TEST(WhisperEngine, LoadsAGeneratedModelAndRefusesOnesItCannotUse)
{
    EXPECT_NO_THROW(WhisperEngine(test::tinyEnglishModel(), english()));
    WhisperEngine::Options german = english();
    german.language = QStringLiteral("de");
    EXPECT_NO_THROW(WhisperEngine(test::tinyMultilingualModel(), german));
    try {
        WhisperEngine(test::tinyEnglishModel(), german);
        FAIL() << "an English-only model took German";
    } catch (const LocalError &e) {
        EXPECT_TRUE(e.message().contains(QStringLiteral("understands English only")));
    }
    WhisperEngine::Options klingon = english();
    klingon.language = QStringLiteral("tlh");
    EXPECT_THROW(WhisperEngine(test::tinyMultilingualModel(), klingon), LocalError);

    QTemporaryDir dir;
    QFile source(test::tinyEnglishModel());
    ASSERT_TRUE(source.open(QIODevice::ReadOnly));
    const QString truncated = dir.filePath(QStringLiteral("ggml-base.en.bin"));
    QFile out(truncated);
    ASSERT_TRUE(out.open(QIODevice::WriteOnly));
    out.write(source.read(source.size() / 2));
    out.close();
    EXPECT_THROW(WhisperEngine(truncated, english()), LocalError);
    EXPECT_THROW(WhisperEngine(dir.filePath(QStringLiteral("missing.bin")), english()), LocalError);
}

TEST(WhisperEngine, SpeechIsVolatileFirstThenFinalTimedWithinTheAudioFed)
{
    WhisperEngine engine(test::tinyEnglishModel(), english());
    std::vector<float> audio = test::silence(0.5);
    test::appendTo(audio, test::noiseBurst(3.0, 0.1, 1));
    test::appendTo(audio, test::silence(2.5));
    test::appendTo(audio, test::noiseBurst(2.5, 0.1, 2));
    test::appendTo(audio, test::silence(2.0));
    const FedResults run = feedInSteps(engine, audio);

    ASSERT_FALSE(run.results.empty());
    EXPECT_FALSE(run.results.front().isFinal) << "text shows while the speech still runs";
    EXPECT_FALSE(run.results.front().text.isEmpty());

    const auto settled = finals(run);
    ASSERT_EQ(settled.size(), 2u) << "two stretches of speech, 2.5 s apart";
    EXPECT_NEAR(settled[0].start, 0.5, 0.05);
    EXPECT_NEAR(settled[0].end, 3.5, 0.1);
    EXPECT_NEAR(settled[1].start, 6.0, 0.05);
    EXPECT_NEAR(settled[1].end, 8.5, 0.1);
    for (std::size_t i = 0; i < run.results.size(); ++i) {
        const SpeechResult &r = run.results[i];
        EXPECT_LE(r.start, r.end);
        EXPECT_GE(r.start, 0.0);
        EXPECT_LE(r.end, run.fedWhenReported[i] + 1e-9) << "a result never runs ahead of the audio fed";
    }
    EXPECT_GT(engine.decodeSeconds(), 0.0);
}

TEST(WhisperEngine, SpeechAfterAShortPauseRevisesTheLastFinalUnderItsStart)
{
    WhisperEngine engine(test::tinyEnglishModel(), english());
    std::vector<float> audio = test::silence(0.3);
    test::appendTo(audio, test::noiseBurst(2.0, 0.1, 3));
    test::appendTo(audio, test::silence(1.0)); // a pause that settles, short enough to revise
    test::appendTo(audio, test::noiseBurst(2.0, 0.1, 4));
    test::appendTo(audio, test::silence(2.0));
    const FedResults run = feedInSteps(engine, audio);

    const auto settled = finals(run);
    ASSERT_EQ(settled.size(), 2u);
    EXPECT_EQ(settled[1].start, settled[0].start) << "the revision repeats the start it corrects";
    EXPECT_GT(settled[1].end, settled[0].end + 2.5);

    LocalTranscript transcript;
    for (const auto &r : run.results)
        applySpeechResult(transcript, r);
    ASSERT_EQ(transcript.utterances.size(), 1);
    EXPECT_EQ(transcript.utterances[0].text, settled[1].text);
}

TEST(WhisperEngine, ALongFinalOrALongPauseStartsANewFinalInsteadOfRevising)
{
    // A final longer than a revisable fragment, then a short pause; a short
    // final, then a pause too long to revise under.
    const std::pair<double, double> cases[] = {{5.0, 1.0}, {2.0, 2.0}};
    for (const auto &[speech, pause] : cases) {
        WhisperEngine engine(test::tinyEnglishModel(), english());
        std::vector<float> audio = test::noiseBurst(speech, 0.1, 13);
        test::appendTo(audio, test::silence(pause));
        test::appendTo(audio, test::noiseBurst(2.0, 0.1, 14));
        const auto settled = finals(feedInSteps(engine, audio));
        ASSERT_EQ(settled.size(), 2u) << speech << " s then " << pause << " s";
        EXPECT_LT(settled[0].start, settled[1].start) << speech << " s then " << pause << " s";
    }
}

TEST(WhisperEngine, SilenceHissAndSteadyNoiseNeverReachWhisper)
{
    // An idle system-audio stream: digital silence, then hiss at about -58
    // dBFS; and a fan at about -40 dBFS, there from the first buffer on.
    std::vector<float> idle = test::silence(10.0);
    test::appendTo(idle, test::steadyNoise(20.0, 0.00125));
    for (const std::vector<float> &audio : {idle, test::steadyNoise(20.0, 0.01, 12)}) {
        WhisperEngine engine(test::tinyEnglishModel(), english());
        EXPECT_TRUE(feedInSteps(engine, audio).results.empty());
        EXPECT_EQ(engine.decodeSeconds(), 0.0) << "no decode means no phantom sentences";
    }
}

TEST(WhisperEngine, AWindowAtItsLimitSettlesWithoutWaitingForAPause)
{
    WhisperEngine::Options options = english();
    options.maxWindowSeconds = 4.0;
    WhisperEngine engine(test::tinyEnglishModel(), options);
    const FedResults run = feedInSteps(engine, test::noiseBurst(10.0, 0.1, 8), false);
    const auto settled = finals(run);
    ASSERT_GE(settled.size(), 2u) << "10 s of unbroken speech in a 4 s window";
    for (std::size_t i = 1; i < settled.size(); ++i) {
        EXPECT_GT(settled[i].start, settled[i - 1].start) << "a cut at the limit is never revised";
        EXPECT_LE(settled[i].end - settled[i].start, 4.0 + 1e-9);
    }
}

TEST(WhisperEngine, FinishTurnsTheUnsettledTailFinal)
{
    WhisperEngine engine(test::tinyEnglishModel(), english());
    std::vector<float> audio = test::silence(0.4);
    test::appendTo(audio, test::noiseBurst(2.5, 0.1, 9));
    const FedResults fed = feedInSteps(engine, audio, false);
    EXPECT_TRUE(finals(fed).empty()) << "no pause yet";
    const std::vector<SpeechResult> last = engine.finish();
    ASSERT_EQ(last.size(), 1u);
    EXPECT_TRUE(last[0].isFinal);
    EXPECT_NEAR(last[0].start, 0.4, 0.05);
    EXPECT_LE(last[0].end, 2.9 + 1e-9);
    EXPECT_TRUE(engine.finish().empty()) << "a finished engine takes nothing more";
    EXPECT_TRUE(engine.feed(test::noiseBurst(1.0)).empty());
}
