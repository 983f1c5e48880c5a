#pragma once

#include "prefs/PreferenceStore.h"
#include "speech/LiveSpeechSession.h"
#include "speech/StreamResampler.h"
#include "support/SoundFiles.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <mutex>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

namespace kestil::test {

// Where scripts/test-models.sh leaves the models it makes or converts.
inline QString modelsDirectory()
{
    const QString dir = qEnvironmentVariable("KESTIL_TEST_MODELS_DIR");
    return dir.isEmpty() ? QDir::homePath() + QStringLiteral("/.cache/kestil/models") : dir;
}

// One of those models; the test fails, with the command that makes it, when
// it is missing.
inline QString generatedModel(const QString &name)
{
    const QString path = modelsDirectory() + QLatin1Char('/') + name;
    if (!QFile::exists(path))
        ADD_FAILURE() << "Missing test model " << path.toStdString() << ": run scripts/test-models.sh";
    return path;
}

// Whisper models of scripts/models/tiny_whisper.py: the right shape, random weights.
inline const auto tinyEnglishModel = [] {
    return generatedModel(QStringLiteral("whisper-test-tiny.en.bin"));
};
inline const auto tinyMultilingualModel = [] {
    return generatedModel(QStringLiteral("whisper-test-tiny.bin"));
};

inline const QString pocketSphinxTestData = QStringLiteral("/usr/share/pocketsphinx/test/data");

// Installs OpenAI's Whisper "base", as scripts/test-models.sh imports it, into
// a data folder's Models/speech/ as an import leaves it: the file and its record.
inline void installRealWhisperModel(const QString &dataRoot)
{
    const QString models = dataRoot + QStringLiteral("/Models/speech");
    ASSERT_TRUE(QDir().mkpath(models));
    const QString model = generatedModel(QStringLiteral("ggml-base.bin"));
    ASSERT_TRUE(QFile::link(model, models + QStringLiteral("/ggml-base.bin")));
    ASSERT_TRUE(
        QFile::copy(model + QStringLiteral(".verified"), models + QStringLiteral("/ggml-base.bin.verified")));
}

// The rows of tests/data/speech/clips.tsv: a clip's source and what is said in it.
struct TableClip {
    QString source;
    QString reference;
};

inline QList<TableClip> clipTable()
{
    QFile file(QStringLiteral(KESTIL_TEST_DATA_DIR "/speech/clips.tsv"));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly | QIODevice::Text));
    QList<TableClip> clips;
    for (const QString &line : QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'))) {
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        const QStringList fields = line.split(QLatin1Char('\t'));
        EXPECT_EQ(fields.size(), 2) << line.toStdString();
        clips.append(TableClip{fields.value(0), fields.value(1)});
    }
    return clips;
}

inline std::vector<float> resample(const std::vector<float> &samples, double from, double to)
{
    if (from == to)
        return samples;
    StreamResampler resampler(from, to);
    std::vector<float> out;
    resampler.process(samples, out);
    resampler.flush(out);
    return out;
}

// Noise at one steady level, like a fan or an idle stream's hiss; with
// `syllables`, shaped like speech for the energy measure: a rhythm of about
// 4 Hz keeps the level moving like a voice.
inline std::vector<float> steadyNoise(double seconds, double level, unsigned seed = 9, double rate = 16000,
                                      bool syllables = false)
{
    std::mt19937 random(seed);
    std::normal_distribution<float> noise(0.0f, float(level));
    std::vector<float> out(std::size_t(seconds * rate));
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = noise(random) *
                 (syllables ? float(0.6 + 0.4 * std::sin(2.0 * M_PI * 4.0 * double(i) / rate)) : 1.0f);
    return out;
}

// Bursts at a talking level.
inline std::vector<float> noiseBurst(double seconds, double level = 0.1, unsigned seed = 7,
                                     double rate = 16000)
{
    return steadyNoise(seconds, level, seed, rate, true);
}

inline std::vector<float> silence(double seconds, double rate = 16000)
{
    return std::vector<float>(std::size_t(seconds * rate), 0.0f);
}

inline std::vector<float> joined(std::initializer_list<std::vector<float>> parts)
{
    std::vector<float> out;
    for (const auto &part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

// Appends the samples to a live session in capture buffers of 4096 frames,
// at `speed` times real time, or at once without it.
template <typename Session>
void appendInBuffers(Session &session, const std::vector<float> &samples, double rate, double speed = 0)
{
    const auto started = std::chrono::steady_clock::now();
    for (std::size_t at = 0; at < samples.size(); at += 4096) {
        const std::size_t n = std::min<std::size_t>(4096, samples.size() - at);
        session.append(samples.data() + at, qsizetype(n * sizeof(float)), rate);
        if (speed > 0)
            std::this_thread::sleep_until(
                started + std::chrono::microseconds(qint64(double(at + n) / rate / speed * 1e6)));
    }
}

// Plays audio into an English live session as the recorder does: 48 kHz
// capture buffers at `speed` times real time. Every transcript the session
// reports is kept in `seen`; the session must not fail.
inline LocalTranscript playLive(PreferenceStore &preferences, const std::vector<float> &audio, double rate,
                                double speed, std::vector<LocalTranscript> *seen = nullptr)
{
    std::mutex mutex;
    QStringList failures;
    auto session = LiveSpeechSession::start(
        QStringLiteral("en-US"),
        [&](const Error &e) {
            std::lock_guard lock(mutex);
            failures << e.localizedDescription();
        },
        [&](const LocalTranscript &t) {
            std::lock_guard lock(mutex);
            if (seen)
                seen->push_back(t);
        },
        preferences);
    appendInBuffers(*session, resample(audio, rate, 48000), 48000, speed);
    const LocalTranscript final = session->finish();
    std::lock_guard lock(mutex);
    EXPECT_TRUE(failures.isEmpty()) << failures.join(' ').toStdString();
    return final;
}

inline QStringList words(const QString &text)
{
    QString clean = text.toLower();
    clean.replace(QRegularExpression(QStringLiteral("[^a-z0-9' ]")), QStringLiteral(" "));
    return clean.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

// Word error rate: word-level edit distance over the reference's length.
inline double wordErrorRate(const QString &reference, const QString &hypothesis)
{
    const QStringList ref = words(reference), hyp = words(hypothesis);
    // One row of the distance table at a time: row[j] for the first j words of hyp.
    std::vector<int> row(std::size_t(hyp.size() + 1));
    std::iota(row.begin(), row.end(), 0);
    for (qsizetype i = 1; i <= ref.size(); ++i) {
        int diagonal = row[0];
        row[0] = int(i);
        for (std::size_t j = 1; j < row.size(); ++j) {
            const int substitution = diagonal + (ref[i - 1] == hyp[qsizetype(j) - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, substitution});
        }
    }
    return ref.isEmpty() ? (hyp.isEmpty() ? 0.0 : 1.0) : double(row.back()) / double(ref.size());
}

// The first `count` LibriVox clips one after the other, as someone reading
// with pauses: `lead` seconds of quiet room noise first and `pause` seconds of
// it after each clip, at 16 kHz. Each clip's start and end are in seconds.
struct ReadingTrack {
    std::vector<float> samples;
    std::vector<double> starts;
    std::vector<double> ends;
    QString reference;
};

inline ReadingTrack libriVoxReading(double lead, double pause, int count = 5)
{
    ReadingTrack track;
    track.samples = steadyNoise(lead, 0.0005, 21);
    unsigned seed = 22;
    for (const TableClip &clip : clipTable()) {
        if (!clip.source.startsWith(QStringLiteral("testdata:librivox/")) ||
            int(track.starts.size()) == count)
            continue;
        const auto audio = readSoundFile(pocketSphinxTestData + QLatin1Char('/') + clip.source.mid(9));
        EXPECT_TRUE(audio.has_value()) << clip.source.toStdString();
        track.starts.push_back(double(track.samples.size()) / 16000.0);
        track.samples = joined({track.samples, resample(audio->mono(), audio->sampleRate, 16000)});
        track.ends.push_back(double(track.samples.size()) / 16000.0);
        track.samples = joined({track.samples, steadyNoise(pause, 0.0005, seed++)});
        track.reference += (track.reference.isEmpty() ? QString() : QStringLiteral(" ")) + clip.reference;
    }
    return track;
}

// Runs of `n` words that the text holds more often than the reference does
// (text that overlapping windows read twice), joined by " | ".
inline QString repeatedPhrases(const QString &reference, const QString &text, int n = 4)
{
    const auto counts = [n](const QStringList &w) {
        QHash<QString, int> count;
        for (qsizetype i = 0; i + n <= w.size(); ++i)
            ++count[w.mid(i, n).join(QLatin1Char(' '))];
        return count;
    };
    const QHash<QString, int> allowed = counts(words(reference)), seen = counts(words(text));
    QStringList repeated;
    for (auto it = seen.begin(); it != seen.end(); ++it)
        if (it.value() > 1 && it.value() > allowed.value(it.key()))
            repeated << it.key();
    return repeated.join(QStringLiteral(" | "));
}

// Utterance times are those of the audio: in order without overlaps, each
// starting within a clip (`slack` seconds before its first sound at most) and
// each clip's start covered by one.
template <typename Utterances>
void expectTimesOfTheReading(const Utterances &utterances, const ReadingTrack &track, double slack = 0.35)
{
    ASSERT_FALSE(utterances.isEmpty());
    for (qsizetype i = 1; i < utterances.size(); ++i)
        EXPECT_LE(utterances[i - 1].end, utterances[i].start + 1e-9) << "utterance " << i << " overlaps";
    for (const auto &u : utterances) {
        bool within = false;
        for (std::size_t c = 0; c < track.starts.size(); ++c)
            within = within || (u.start >= track.starts[c] - slack && u.start <= track.ends[c]);
        EXPECT_TRUE(within) << "an utterance starts at " << u.start << " s, outside every clip";
    }
    for (double start : track.starts) {
        const bool covered = std::any_of(utterances.begin(), utterances.end(), [&](const auto &u) {
            return u.start <= start + slack && u.end >= start;
        });
        EXPECT_TRUE(covered) << "no utterance covers the clip that starts at " << start << " s";
    }
}

} // namespace kestil::test
