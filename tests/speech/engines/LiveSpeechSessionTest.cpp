#include "speech/LiveSpeechSession.h"

#include "ScriptedSpeechEngine.h"
#include "SpeechTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <atomic>
#include <cmath>
#include <mutex>
#include <thread>

using namespace kestil;
using test::EngineProbe;
using test::ScriptedSpeechEngine;

namespace {

const QString fellBehind = QStringLiteral(
    "Live transcription fell behind the microphone. Transcription must stop to avoid silently losing words.");
const QString incomplete = QStringLiteral("Live audio contains an incomplete PCM sample.");

struct Observed {
    std::mutex mutex;
    QStringList failures;
    std::vector<LocalTranscript> transcripts;

    LiveSpeechSession::FailureCallback failure()
    {
        return [this](const Error &e) {
            std::lock_guard lock(mutex);
            failures << e.localizedDescription();
        };
    }
    int failureCount()
    {
        std::lock_guard lock(mutex);
        return int(failures.size());
    }
    LiveSpeechSession::ResultCallback result()
    {
        return [this](const LocalTranscript &t) {
            std::lock_guard lock(mutex);
            transcripts.push_back(t);
        };
    }
};

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
    std::unique_ptr<LiveSpeechSession> start()
    {
        return std::make_unique<LiveSpeechSession>(std::make_unique<ScriptedSpeechEngine>(probe),
                                                   seen.failure(), seen.result());
    }

    std::shared_ptr<EngineProbe> probe = std::make_shared<EngineProbe>();
    Observed seen;
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
    ASSERT_FALSE(seen.transcripts.empty());
    // However the buffers were batched, a part second was shown as volatile
    // text before it was finished.
    EXPECT_TRUE(std::any_of(seen.transcripts.begin(), seen.transcripts.end(), [](const LocalTranscript &t) {
        return t.tentative == QStringLiteral("partial");
    }));
    EXPECT_EQ(seen.transcripts.back(), final);
    EXPECT_TRUE(seen.failures.isEmpty());
}

TEST(LiveSpeechSession, EmptyAndPartialSampleBlocksFailTheSessionOnce)
{
    for (const qsizetype bytes : {qsizetype(0), qsizetype(6)}) {
        Observed observed;
        auto fed = std::make_shared<EngineProbe>();
        LiveSpeechSession session(std::make_unique<ScriptedSpeechEngine>(fed), observed.failure(),
                                  observed.result());
        session.append(bytesOf(test::silence(0.1)), 16000);
        const QByteArray odd(bytes, '\0');
        session.append(odd.constData(), odd.size(), 16000);
        session.append(bytesOf(test::silence(0.1)), 16000); // dropped: the session has failed
        EXPECT_EQ(finishError(session), incomplete) << bytes;
        EXPECT_EQ(observed.failures, QStringList{incomplete});
        EXPECT_EQ(fed->received().size(), 1600u) << "audio before the failure is still transcribed";
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
    EXPECT_TRUE(seen.failures.isEmpty()) << "128 waiting buffers are within the limit";

    session->append(buffer, 16000);
    session->append(buffer, 16000);
    EXPECT_EQ(seen.failures, QStringList{fellBehind});

    probe->feedGate->open();
    EXPECT_EQ(finishError(*session), fellBehind);
    EXPECT_EQ(seen.failures.size(), 1);
    EXPECT_EQ(probe->received().size(), 129u * 4096u)
        << "what was queued before the overflow is still analysed";
}

TEST_F(LiveSpeech, AnEngineFailureReachesTheCallerAndFinishWithoutWaitingForever)
{
    probe->feedError = QStringLiteral("Whisper could not transcribe the audio (error -6).");
    auto session = start();
    session->append(bytesOf(test::silence(0.1)), 16000);
    for (int i = 0; i < 500 && seen.failureCount() == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(seen.failureCount(), 1);
    // Appends after the engine stopped meet an ended stream and change nothing.
    for (int i = 0; i < 300; ++i)
        session->append(bytesOf(test::silence(0.01)), 16000);
    EXPECT_EQ(finishError(*session), probe->feedError);
    EXPECT_EQ(seen.failures.size(), 1);
}

TEST_F(LiveSpeech, ConvertsOtherRatesWithoutLosingAudioWhereTheRateChanges)
{
    auto session = start();
    // 1 s at 48 kHz in capture buffers, then 1 s at 44.1 kHz.
    test::appendInBuffers(*session, test::noiseBurst(1.0, 0.1, 1, 48000), 48000);
    test::appendInBuffers(*session, test::noiseBurst(1.0, 0.1, 2, 44100), 44100);
    session->finish();
    // Nothing is lost at the change of rate or at the end: the old
    // converter's tail goes in before the new one starts.
    EXPECT_NEAR(double(probe->received().size()), 32000.0, 4.0);
    EXPECT_TRUE(seen.failures.isEmpty());
}

TEST_F(LiveSpeech, KeepsItsConverterWhileTheRateStaysTheSameAndPassesTheEngineRateUnchanged)
{
    // A tone cut into capture buffers must come out as one clean tone: a
    // converter made anew for each buffer would break it at every seam.
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
    EXPECT_LT(best, 0.06);

    auto probeAtRate = std::make_shared<EngineProbe>();
    LiveSpeechSession atRate(std::make_unique<ScriptedSpeechEngine>(probeAtRate), seen.failure(),
                             seen.result());
    const std::vector<float> audio = test::noiseBurst(0.5);
    atRate.append(bytesOf(audio), 16000);
    atRate.finish();
    EXPECT_EQ(probeAtRate->received(), audio);
}

TEST_F(LiveSpeech, ARateThatIsNoRateIsAnInvalidBuffer)
{
    auto session = start();
    session->append(bytesOf(test::silence(0.1)), 0.0);
    EXPECT_EQ(finishError(*session), QStringLiteral("Invalid live audio buffer."));
}

TEST_F(LiveSpeech, CancelOrDestructionAbandonsAStalledEngineAndNeverFails)
{
    probe->feedGate = std::make_shared<test::Latch>();
    auto session = start();
    session->append(bytesOf(test::silence(0.1)), 16000);
    ASSERT_TRUE(probe->waitForFeeds(1));
    session->cancel();
    EXPECT_EQ(probe->aborts, 1);
    EXPECT_EQ(probe->finishes, 0);
    EXPECT_TRUE(seen.failures.isEmpty());
    session->cancel();

    // Destroying a running session cancels it: its stalled engine is told to
    // stop, or the destruction would wait for it for ever.
    auto stalled = std::make_shared<EngineProbe>();
    stalled->feedGate = std::make_shared<test::Latch>();
    auto running = std::make_unique<LiveSpeechSession>(std::make_unique<ScriptedSpeechEngine>(stalled),
                                                       seen.failure(), seen.result());
    running->append(bytesOf(test::silence(0.1)), 16000);
    ASSERT_TRUE(stalled->waitForFeeds(1));
    running.reset();
    EXPECT_EQ(stalled->aborts, 1);
    EXPECT_EQ(stalled->finishes, 0);
    EXPECT_TRUE(seen.failures.isEmpty());
}
