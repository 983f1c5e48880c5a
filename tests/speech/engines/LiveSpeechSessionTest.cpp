#include "speech/LiveSpeechSession.h"
#include "speech/BoundedAudioQueue.h"
#include "speech/StreamResampler.h"

#include "ScriptedSpeechEngine.h"
#include "SpeechTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <thread>

using namespace kestil;
using test::EngineProbe;
using test::ScriptedSpeechEngine;

namespace {

const QString fellBehind = QStringLiteral(
    "Live transcription fell behind the microphone. Transcription must stop to avoid silently losing words.");

QByteArray bytesOf(const std::vector<float> &samples)
{
    return QByteArray(reinterpret_cast<const char *>(samples.data()),
                      qsizetype(samples.size() * sizeof(float)));
}

QString finishError(LiveSpeechSession &session)
{
    try {
        session.finish();
    } catch (const Error &e) {
        return e.localizedDescription();
    }
    return {};
}

// A session over a scripted engine, and what it reported.
class LiveSpeech : public ::testing::Test {
protected:
    std::unique_ptr<LiveSpeechSession> start(std::shared_ptr<EngineProbe> engine = {})
    {
        return std::make_unique<LiveSpeechSession>(
            std::make_unique<ScriptedSpeechEngine>(engine ? engine : probe),
            [this](const Error &e) {
                std::lock_guard lock(mutex);
                failures << e.localizedDescription();
            },
            [this](const LocalTranscript &t) {
                std::lock_guard lock(mutex);
                transcripts.push_back(t);
            });
    }
    QStringList failed()
    {
        std::lock_guard lock(mutex);
        return failures;
    }

    std::shared_ptr<EngineProbe> probe = std::make_shared<EngineProbe>();
    std::mutex mutex;
    QStringList failures;
    std::vector<LocalTranscript> transcripts;
};

} // namespace

TEST_F(LiveSpeech, ResultsBuildTheTranscriptAndFinishReturnsItAfterTheEngineFinished)
{
    auto session = start();
    for (int i = 0; i < 5; ++i)
        session->append(bytesOf(test::silence(0.25)), 16000);
    const LocalTranscript final = session->finish();

    EXPECT_EQ(probe->finishes, 1);
    EXPECT_EQ(probe->received().size(), 20000u)
        << "every queued buffer reaches the engine before it finishes";
    EXPECT_EQ(final.finalizedText(), QStringLiteral("word1 tail"));
    EXPECT_TRUE(final.tentative.isEmpty());
    ASSERT_FALSE(transcripts.empty());
    // However the buffers were batched, a part second was shown as volatile
    // text before it was finished.
    EXPECT_TRUE(std::any_of(transcripts.begin(), transcripts.end(), [](const LocalTranscript &t) {
        return t.tentative == QStringLiteral("partial");
    }));
    EXPECT_EQ(transcripts.back(), final);
    EXPECT_TRUE(failures.isEmpty());
}

TEST_F(LiveSpeech, AnInvalidBufferFailsTheSessionOnceAndTheAudioBeforeItIsStillTranscribed)
{
    const QString incomplete = QStringLiteral("Live audio contains an incomplete PCM sample.");
    const struct {
        qsizetype bytes;
        double rate;
        QString message;
    } cases[] = {
        {0, 16000, incomplete}, {6, 16000, incomplete}, {8, 0, QStringLiteral("Invalid live audio buffer.")}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.bytes << " bytes at " << c.rate << " Hz");
        failures.clear();
        auto engine = std::make_shared<EngineProbe>();
        auto session = start(engine);
        session->append(bytesOf(test::silence(0.1)), 16000);
        const QByteArray odd(c.bytes, '\0');
        session->append(odd.constData(), odd.size(), c.rate);
        session->append(bytesOf(test::silence(0.1)), 16000); // dropped: the session has failed
        EXPECT_EQ(finishError(*session), c.message);
        EXPECT_EQ(failures, QStringList{c.message});
        EXPECT_EQ(engine->received().size(), 1600u);
    }
}

TEST_F(LiveSpeech, TheBufferAfterAFullQueueFailsOnceAndFinishSaysWhy)
{
    probe->feedGate = std::make_shared<test::Latch>();
    auto session = start();
    const QByteArray buffer = bytesOf(test::silence(4096.0 / 16000.0));

    // The engine takes the first buffer and stalls on it; 128 more wait.
    session->append(buffer, 16000);
    ASSERT_TRUE(probe->waitForFeeds(1));
    for (std::size_t i = 0; i < LiveSpeechSession::inputLimit; ++i)
        session->append(buffer, 16000);
    EXPECT_TRUE(failed().isEmpty()) << "128 waiting buffers are within the limit";
    session->append(buffer, 16000);
    session->append(buffer, 16000);
    EXPECT_EQ(failed(), QStringList{fellBehind});

    probe->feedGate->open();
    EXPECT_EQ(finishError(*session), fellBehind);
    EXPECT_EQ(failed().size(), 1);
    EXPECT_EQ(probe->received().size(), 129u * 4096u)
        << "what was queued before the overflow is still analysed";
}

TEST_F(LiveSpeech, AnEngineFailureReachesTheCallerAndFinishWithoutWaitingForever)
{
    probe->feedError = QStringLiteral("Whisper could not transcribe the audio (error -6).");
    auto session = start();
    session->append(bytesOf(test::silence(0.1)), 16000);
    for (int i = 0; i < 500 && failed().isEmpty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(failed().size(), 1);
    // Appends after the engine stopped meet an ended stream and change nothing.
    for (int i = 0; i < 300; ++i)
        session->append(bytesOf(test::silence(0.01)), 16000);
    EXPECT_EQ(finishError(*session), probe->feedError);
    EXPECT_EQ(failed().size(), 1);
}

TEST_F(LiveSpeech, ConvertsOtherRatesInOneConverterPerRateWithoutLosingAudio)
{
    // A tone cut into capture buffers must come out as one clean tone: a
    // converter made anew for each buffer, or one that lost its state between
    // calls, would break it at every seam.
    auto session = start();
    test::appendInBuffers(*session, test::sine(440, 48000, 96000), 48000);
    session->finish();
    const std::vector<float> out = probe->received();
    ASSERT_NEAR(double(out.size()), 32000.0, 2.0);
    double best = 1e9;
    for (int delay = -64; delay <= 64; ++delay) {
        double worst = 0;
        for (std::size_t i = 400; i + 400 < out.size(); ++i)
            worst = std::max(worst, std::abs(double(out[i]) - 0.5 * std::sin(2.0 * M_PI * 440.0 *
                                                                             (double(i) + delay) / 16000.0)));
        best = std::min(best, worst);
    }
    // The 1-sample alignment leaves at most the error of half a sample of
    // phase at 440 Hz on 16 kHz (about 0.04); a seam would be far larger.
    EXPECT_LT(best, 0.06);

    // 1 s at 48 kHz, then 1 s at 44.1 kHz: nothing is lost at the change of
    // rate or at the end, for the old converter's tail goes in before the new
    // one starts.
    auto changing = std::make_shared<EngineProbe>();
    session = start(changing);
    test::appendInBuffers(*session, test::noiseBurst(1.0, 0.1, 1, 48000), 48000);
    test::appendInBuffers(*session, test::noiseBurst(1.0, 0.1, 2, 44100), 44100);
    session->finish();
    EXPECT_NEAR(double(changing->received().size()), 32000.0, 4.0);

    // The engine's own rate passes unchanged.
    auto atRate = std::make_shared<EngineProbe>();
    session = start(atRate);
    const std::vector<float> audio = test::noiseBurst(0.5);
    session->append(bytesOf(audio), 16000);
    session->finish();
    EXPECT_EQ(atRate->received(), audio);
    EXPECT_TRUE(failed().isEmpty());
}

TEST_F(LiveSpeech, CancelOrDestructionAbandonsAStalledEngineAndNeverFails)
{
    // Destroying a running session cancels it: its stalled engine is told to
    // stop, or the destruction would wait for it for ever.
    for (const bool destroy : {false, true}) {
        auto stalled = std::make_shared<EngineProbe>();
        stalled->feedGate = std::make_shared<test::Latch>();
        auto session = start(stalled);
        session->append(bytesOf(test::silence(0.1)), 16000);
        ASSERT_TRUE(stalled->waitForFeeds(1));
        if (destroy) {
            session.reset();
        } else {
            session->cancel();
            session->cancel();
        }
        EXPECT_EQ(stalled->aborts, 1) << destroy;
        EXPECT_EQ(stalled->finishes, 0) << destroy;
    }
    EXPECT_TRUE(failed().isEmpty());
}

// The session's input: a bounded queue, and a converter for other rates.
TEST(LiveSpeechInput, TheQueueRefusesBeyondItsLimitUntilTakenAndHandsOutWhatWaitsOnceFinished)
{
    using Result = BoundedAudioQueue::YieldResult;
    BoundedAudioQueue queue(2);
    EXPECT_EQ(queue.yield({0.0f}), Result::enqueued);
    EXPECT_EQ(queue.yield({1.0f}), Result::enqueued);
    EXPECT_EQ(queue.yield({9.0f}), Result::dropped);
    EXPECT_EQ(queue.takeAll(), (std::vector<std::vector<float>>{{0.0f}, {1.0f}}));
    EXPECT_EQ(queue.yield({4.0f}), Result::enqueued) << "room again once taken";
    queue.finish();
    EXPECT_EQ(queue.yield({2.0f}), Result::terminated);
    EXPECT_EQ(queue.takeAll(), std::vector<std::vector<float>>{{4.0f}});
    EXPECT_TRUE(queue.takeAll().empty());

    for (const double rate : {0.0, double(NAN), -48000.0})
        EXPECT_THROW(StreamResampler(rate, 16000), SystemError) << rate;
}
