// Live transcription at real-time pace: how much of the machine each engine
// takes and how far its text trails the audio.
//
//   live_speech [seconds] [--threads N] [model ...]
//
// Feeds `seconds` (default 600) of speech through a LiveSpeechSession the way
// the recorder does (48 kHz mono float, 4096-frame buffers, one every 85 ms)
// for each whisper model size, and prints the engine's real-time factor, the
// lag between the audio fed and the volatile text that covers it (median and
// 95th percentile), the same for final text, and whether the 128-buffer input
// ever overflowed. Then PocketSphinx's real-time factor over the same audio,
// decoded as fast as it goes.
//
// The whisper models are the random-weight ones of the exact published shapes
// that scripts/models/tiny_whisper.py writes with --bench into
// $KESTIL_TEST_MODELS_DIR (default ~/.cache/kestil/models); `model` names
// tiny.en, base.en or small.en (all three when none is given), or is the
// path of a real model file, such as the Whisper base model that
// scripts/test-models.sh imports as ggml-base.bin. Random weights decode
// until the token limit of each window, more than real speech needs, so
// their figures err on the slow side. --threads sets whisper's decoder
// threads (default: as the program chooses). The speech is the LibriVox recordings
// of Debian's pocketsphinx-testdata, with pauses of 0.3 to 1.5 s between
// them, repeated.

#include "speech/AudioFileReader.h"
#include "speech/LiveSpeechSession.h"
#include "speech/PocketSphinxEngine.h"
#include "speech/StreamResampler.h"
#include "speech/WhisperContext.h"
#include "speech/WhisperEngine.h"

#include <QDir>
#include <QFileInfo>
#include <QString>
#include <QStringList>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

using namespace kestil;
using Clock = std::chrono::steady_clock;

namespace {

constexpr double captureRate = 48000.0;
constexpr std::size_t bufferFrames = 4096;

std::vector<float> speech(double seconds)
{
    const QDir dir(QStringLiteral("/usr/share/pocketsphinx/test/data/librivox"));
    std::vector<std::vector<float>> clips;
    for (const QString &name : dir.entryList({QStringLiteral("*.wav")}, QDir::Files, QDir::Name)) {
        AudioFileReader reader(dir.filePath(name));
        std::vector<float> clip;
        for (;;) {
            const std::vector<float> block = reader.read(65536);
            if (block.empty())
                break;
            clip.insert(clip.end(), block.begin(), block.end());
        }
        StreamResampler up(reader.sampleRate(), captureRate);
        std::vector<float> converted;
        up.process(clip, converted);
        up.flush(converted);
        clips.push_back(std::move(converted));
    }
    if (clips.empty()) {
        std::fprintf(stderr, "No recordings in %s: install pocketsphinx-testdata.\n", qPrintable(dir.path()));
        std::exit(1);
    }
    std::mt19937 random(42);
    std::uniform_real_distribution<double> pause(0.3, 1.5);
    std::normal_distribution<float> hiss(0.0f, 0.0003f);
    std::vector<float> out;
    const auto total = std::size_t(seconds * captureRate);
    for (std::size_t i = 0; out.size() < total; ++i) {
        const auto &clip = clips[i % clips.size()];
        out.insert(out.end(), clip.begin(), clip.end());
        const auto gap = std::size_t(pause(random) * captureRate);
        for (std::size_t j = 0; j < gap; ++j)
            out.push_back(hiss(random));
    }
    out.resize(total);
    return out;
}

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const auto at = std::size_t(std::clamp(p * double(values.size() - 1), 0.0, double(values.size() - 1)));
    return values[at];
}

void runWhisper(const QString &name, const QString &path, int threads, const std::vector<float> &audio)
{
    if (!QFile::exists(path)) {
        std::printf("%-9s  missing %s: run /usr/bin/python3 scripts/models/tiny_whisper.py <models> <prefix> "
                    "--bench\n",
                    qPrintable(name), qPrintable(path));
        return;
    }
    WhisperEngine::Options options;
    options.threads = threads;
    auto engine = std::make_unique<WhisperEngine>(path, options);
    WhisperEngine *whisper = engine.get();

    const std::size_t buffers = audio.size() / bufferFrames;
    std::vector<Clock::time_point> fedAt(buffers);
    std::mutex mutex;
    std::vector<double> volatileLag;
    std::vector<double> finalLag;
    double lastFinalEnd = -1;
    std::atomic<bool> overflowed{false};
    std::size_t buffersFed = 0;

    // The time at which the audio up to `seconds` had been handed over.
    auto handedOverAt = [&](double seconds) {
        const auto index = std::min(buffers - 1, std::size_t(seconds * captureRate / double(bufferFrames)));
        return fedAt[index];
    };
    LiveSpeechSession session(
        std::move(engine),
        [&](const Error &) {
            // Called under the session's lock, on the capture thread.
            overflowed.store(true);
        },
        [&](const LocalTranscript &t) {
            const auto now = Clock::now();
            std::lock_guard lock(mutex);
            if (t.tentativeEnd && !t.tentative.isEmpty()) {
                const double end = *t.tentativeEnd;
                if (std::size_t(end * captureRate / double(bufferFrames)) < buffersFed)
                    volatileLag.push_back(std::chrono::duration<double>(now - handedOverAt(end)).count());
            }
            if (!t.utterances.isEmpty() && t.utterances.back().end != lastFinalEnd) {
                const double end = t.utterances.back().end;
                lastFinalEnd = end;
                if (std::size_t(end * captureRate / double(bufferFrames)) < buffersFed)
                    finalLag.push_back(std::chrono::duration<double>(now - handedOverAt(end)).count());
            }
        });

    const auto start = Clock::now();
    const auto period = std::chrono::duration<double>(double(bufferFrames) / captureRate);
    for (std::size_t i = 0; i < buffers; ++i) {
        std::this_thread::sleep_until(start +
                                      std::chrono::duration_cast<Clock::duration>(period * double(i)));
        {
            std::lock_guard lock(mutex);
            fedAt[i] = Clock::now();
            buffersFed = i + 1;
        }
        session.append(audio.data() + i * bufferFrames, qsizetype(bufferFrames * sizeof(float)), captureRate);
    }
    const double seconds = double(buffers * bufferFrames) / captureRate;
    try {
        session.finish();
    } catch (const Error &e) {
        std::printf("%-9s  session ended with: %s\n", qPrintable(name), qPrintable(e.localizedDescription()));
    }
    std::lock_guard lock(mutex);
    std::printf("%-9s  %6.0f s  RTF %5.3f (processor %5.3f)  volatile lag median %5.2f s  p95 %5.2f s (%zu)  "
                "final lag median %5.2f s  p95 %5.2f s (%zu)  overflow %s\n",
                qPrintable(name), seconds, whisper->decodeSeconds() / seconds,
                whisper->decodeProcessorSeconds() / seconds, percentile(volatileLag, 0.5),
                percentile(volatileLag, 0.95), volatileLag.size(), percentile(finalLag, 0.5),
                percentile(finalLag, 0.95), finalLag.size(), overflowed.load() ? "yes" : "no");
    std::fflush(stdout);
}

void runPocketSphinx(const std::vector<float> &audio)
{
    StreamResampler down(captureRate, 16000);
    std::vector<float> speech16;
    down.process(audio, speech16);
    down.flush(speech16);
    PocketSphinxEngine engine(QStringLiteral("/usr/share/pocketsphinx/model/en-us"));
    for (std::size_t at = 0; at < speech16.size(); at += 1365)
        engine.feed(
            std::span<const float>(speech16).subspan(at, std::min<std::size_t>(1365, speech16.size() - at)));
    engine.finish();
    const double seconds = double(speech16.size()) / 16000.0;
    std::printf("%-9s  %6.0f s  RTF %5.3f  (decoded as fast as it goes)\n", "sphinx", seconds,
                engine.decodeSeconds() / seconds);
}

} // namespace

int main(int argc, char **argv)
{
    double seconds = 600;
    int threads = 0;
    QStringList sizes;
    for (int i = 1; i < argc; ++i) {
        const QString arg = QString::fromLocal8Bit(argv[i]);
        if (arg == QLatin1String("--threads") && i + 1 < argc) {
            threads = std::max(1, std::atoi(argv[++i]));
            continue;
        }
        bool number = false;
        const double value = arg.toDouble(&number);
        if (number && value > 0)
            seconds = value;
        else
            sizes << arg;
    }
    if (sizes.isEmpty())
        sizes = {QStringLiteral("tiny.en"), QStringLiteral("base.en"), QStringLiteral("small.en")};
    QString models = qEnvironmentVariable("KESTIL_TEST_MODELS_DIR");
    if (models.isEmpty())
        models = QDir::homePath() + QStringLiteral("/.cache/kestil/models");

    const std::vector<float> audio = speech(seconds);
    double load[3] = {0, 0, 0};
    getloadavg(load, 3);
    std::printf("live speech at real-time pace, %u hardware threads, whisper on %u, load average %.2f\n",
                std::thread::hardware_concurrency(),
                unsigned(WhisperContext::threads(threads)), load[0]);
    for (const QString &size : sizes) {
        if (size.contains(QLatin1Char('/')))
            runWhisper(QFileInfo(size).completeBaseName(), size, threads, audio);
        else
            runWhisper(size, models + QStringLiteral("/whisper-bench-") + size + QStringLiteral(".bin"), threads,
                       audio);
    }
    runPocketSphinx(audio);
    getloadavg(load, 3);
    std::printf("load average at the end %.2f (RTF is clock time: other programs on the cores raise it)\n",
                load[0]);
    return 0;
}
