#include "speech/LiveSpeechSession.h"

#include "SpeechTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <mutex>
#include <thread>

using namespace kestil;
using test::ScriptedEngine;

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

} // namespace

TEST(LiveSpeechSession, ResultsBuildTheTranscriptAndFinishReturnsItAfterTheEngineFinished)
{
    Observed seen;
    auto engine = std::make_unique<ScriptedEngine>(16000, [](std::span<const float>, double fed) {
        return std::vector<SpeechResult>{SpeechResult{QStringLiteral("partial"), 0.0, fed, false}};
    });
    ScriptedEngine *raw = engine.get();
    raw->setFinishResults({SpeechResult{QStringLiteral("all of it"), 0.0, 1.0, true}});
    LiveSpeechSession session(std::move(engine), seen.failure(), seen.result());

    for (int i = 0; i < 4; ++i)
        session.append(bytesOf(test::silence(0.25)), 16000);
    const LocalTranscript final = session.finish();

    EXPECT_TRUE(raw->finished());
    EXPECT_EQ(raw->received().size(), 16000u) << "every queued buffer reaches the engine before it finishes";
    EXPECT_EQ(final.finalizedText(), QStringLiteral("all of it"));
    EXPECT_TRUE(final.tentative.isEmpty());
    ASSERT_FALSE(seen.transcripts.empty());
    EXPECT_EQ(seen.transcripts.front().tentative, QStringLiteral("partial"));
    EXPECT_EQ(seen.transcripts.back(), final);
    EXPECT_TRUE(seen.failures.isEmpty());
}

TEST(LiveSpeechSession, EmptyAndPartialSampleBlocksFailTheSessionOnce)
{
    for (const qsizetype bytes : {qsizetype(0), qsizetype(6)}) {
        Observed seen;
        auto engine = std::make_unique<ScriptedEngine>();
        ScriptedEngine *raw = engine.get();
        LiveSpeechSession session(std::move(engine), seen.failure(), seen.result());
        session.append(bytesOf(test::silence(0.1)), 16000);
        const QByteArray odd(bytes, '\0');
        session.append(odd.constData(), odd.size(), 16000);
        session.append(bytesOf(test::silence(0.1)), 16000); // dropped: the session has failed
        EXPECT_EQ(finishError(session), incomplete) << bytes;
        EXPECT_EQ(seen.failures, QStringList{incomplete});
        EXPECT_EQ(raw->received().size(), 1600u) << "audio before the failure is still transcribed";
    }
}

TEST(LiveSpeechSession, TheBufferAfterAFullQueueFailsOnceAndFinishSaysWhy)
{
    Observed seen;
    auto engine = std::make_unique<ScriptedEngine>();
    ScriptedEngine *raw = engine.get();
    raw->hold();
    LiveSpeechSession session(std::move(engine), seen.failure(), seen.result());
    const QByteArray buffer = bytesOf(test::silence(4096.0 / 16000.0));

    // The engine takes the first buffer and stalls on it; 128 more wait.
    session.append(buffer, 16000);
    ASSERT_TRUE(raw->waitForFeeds(1));
    for (std::size_t i = 0; i < LiveSpeechSession::inputLimit; ++i)
        session.append(buffer, 16000);
    EXPECT_TRUE(seen.failures.isEmpty()) << "128 waiting buffers are within the limit";

    session.append(buffer, 16000);
    session.append(buffer, 16000);
    EXPECT_EQ(seen.failures, QStringList{fellBehind});

    raw->release();
    EXPECT_EQ(finishError(session), fellBehind);
    EXPECT_EQ(seen.failures.size(), 1);
    EXPECT_EQ(raw->received().size(), 129u * 4096u)
        << "what was queued before the overflow is still analysed";
}

TEST(LiveSpeechSession, AnEngineFailureReachesTheCallerAndFinishWithoutWaitingForever)
{
    Observed seen;
    auto engine = std::make_unique<ScriptedEngine>();
    ScriptedEngine *raw = engine.get();
    raw->failWith(SystemError(QStringLiteral("Whisper could not transcribe the audio (error -6).")));
    LiveSpeechSession session(std::move(engine), seen.failure(), seen.result());
    session.append(bytesOf(test::silence(0.1)), 16000);
    for (int i = 0; i < 500 && seen.failureCount() == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(seen.failureCount(), 1);
    // Appends after the engine stopped meet an ended stream and change nothing.
    for (int i = 0; i < 300; ++i)
        session.append(bytesOf(test::silence(0.01)), 16000);
    EXPECT_EQ(finishError(session), QStringLiteral("Whisper could not transcribe the audio (error -6)."));
    EXPECT_EQ(seen.failures.size(), 1);
}

TEST(LiveSpeechSession, ConvertsOtherRatesWithoutLosingAudioWhereTheRateChanges)
{
    Observed seen;
    auto engine = std::make_unique<ScriptedEngine>();
    ScriptedEngine *raw = engine.get();
    LiveSpeechSession session(std::move(engine), seen.failure(), seen.result());
    // 1 s at 48 kHz in capture buffers, then 1 s at 44.1 kHz.
    const std::vector<float> at48 = test::noiseBurst(1.0, 0.1, 1, 48000);
    for (std::size_t at = 0; at < at48.size(); at += 4096) {
        const std::size_t n = std::min<std::size_t>(4096, at48.size() - at);
        session.append(at48.data() + at, qsizetype(n * sizeof(float)), 48000);
    }
    const std::vector<float> at44 = test::noiseBurst(1.0, 0.1, 2, 44100);
    for (std::size_t at = 0; at < at44.size(); at += 4096) {
        const std::size_t n = std::min<std::size_t>(4096, at44.size() - at);
        session.append(at44.data() + at, qsizetype(n * sizeof(float)), 44100);
    }
    session.finish();
    // Nothing is lost at the change of rate or at the end: the old
    // converter's tail goes in before the new one starts.
    EXPECT_NEAR(double(raw->received().size()), 32000.0, 4.0);
    EXPECT_TRUE(seen.failures.isEmpty());
}

TEST(LiveSpeechSession, KeepsItsConverterWhileTheRateStaysTheSame)
{
    // A tone cut into capture buffers must come out as one clean tone: a
    // converter made anew for each buffer would break it at every seam.
    Observed seen;
    auto engine = std::make_unique<ScriptedEngine>();
    ScriptedEngine *raw = engine.get();
    LiveSpeechSession session(std::move(engine), seen.failure(), seen.result());
    std::vector<float> tone(96000);
    for (std::size_t i = 0; i < tone.size(); ++i)
        tone[i] = float(0.5 * std::sin(2.0 * M_PI * 440.0 * double(i) / 48000.0));
    for (std::size_t at = 0; at < tone.size(); at += 4096) {
        const std::size_t n = std::min<std::size_t>(4096, tone.size() - at);
        session.append(tone.data() + at, qsizetype(n * sizeof(float)), 48000);
    }
    session.finish();
    const std::vector<float> out = raw->received();
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
}

TEST(LiveSpeechSession, AudioAtTheEngineRateGoesInUnchanged)
{
    Observed seen;
    auto engine = std::make_unique<ScriptedEngine>();
    ScriptedEngine *raw = engine.get();
    LiveSpeechSession session(std::move(engine), seen.failure(), seen.result());
    const std::vector<float> audio = test::noiseBurst(0.5);
    session.append(bytesOf(audio), 16000);
    session.finish();
    EXPECT_EQ(raw->received(), audio);
}

TEST(LiveSpeechSession, ARateThatIsNoRateIsAnInvalidBuffer)
{
    Observed seen;
    LiveSpeechSession session(std::make_unique<ScriptedEngine>(), seen.failure(), seen.result());
    session.append(bytesOf(test::silence(0.1)), 0.0);
    EXPECT_EQ(finishError(session), QStringLiteral("Invalid live audio buffer."));
}

TEST(LiveSpeechSession, CancelAbandonsAStalledEngineAndNeverFails)
{
    Observed seen;
    auto engine = std::make_unique<ScriptedEngine>();
    ScriptedEngine *raw = engine.get();
    raw->hold();
    LiveSpeechSession session(std::move(engine), seen.failure(), seen.result());
    session.append(bytesOf(test::silence(0.1)), 16000);
    ASSERT_TRUE(raw->waitForFeeds(1));
    session.cancel();
    EXPECT_FALSE(raw->finished());
    EXPECT_TRUE(seen.failures.isEmpty());
    session.cancel();
}

TEST(LiveSpeechSession, DestroyingARunningSessionCancelsIt)
{
    Observed seen;
    auto engine = std::make_unique<ScriptedEngine>();
    engine->hold();
    auto session = std::make_unique<LiveSpeechSession>(std::move(engine), seen.failure(), seen.result());
    session->append(bytesOf(test::silence(0.1)), 16000);
    session.reset();
    SUCCEED();
}
