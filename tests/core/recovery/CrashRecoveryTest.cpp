// Processes killed with SIGKILL at random moments, while recording, while
// building a playable file and while the launch repairs folders. After each
// kill the next launch must leave playable audio that holds every sample the
// killed process had handed to the writer.
#include "RecoveryTestSupport.h"
#include "capture/AudioFileSource.h"
#include "capture/MonoMix.h"
#include "support/SoundFiles.h"

#include <sndfile.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <iostream>
#include <random>
#include <thread>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

using namespace kestil;
using namespace kestil::test;
using namespace std::chrono_literals;

namespace {

// The seed of a run: KESTIL_CRASH_SEED repeats one; otherwise a new one,
// printed so that a failure can be replayed.
std::uint64_t crashSeed()
{
    const QByteArray given = qgetenv("KESTIL_CRASH_SEED");
    const std::uint64_t seed = given.isEmpty() ? std::random_device{}() : given.toULongLong();
    ::testing::Test::RecordProperty("seed", std::to_string(seed));
    std::cout << "crash seed " << seed << " (set KESTIL_CRASH_SEED to repeat)" << std::endl;
    return seed;
}

// Starts the child with the given arguments. Descriptors without
// close-on-exec, such as a pipe's, stay open in it.
pid_t spawnChild(const QStringList &arguments)
{
    std::vector<QByteArray> storage{QByteArrayLiteral(KESTIL_RECOVERY_CHILD)};
    for (const auto &argument : arguments)
        storage.push_back(argument.toUtf8());
    std::vector<char *> argv;
    for (auto &s : storage)
        argv.push_back(s.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // What the launch prints is read from the folders instead.
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    const int result = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return result == 0 ? pid : -1;
}

void killNow(pid_t pid)
{
    ::kill(pid, SIGKILL);
    int status = 0;
    ::waitpid(pid, &status, 0);
}

bool exited(pid_t pid)
{
    int status = 0;
    return ::waitpid(pid, &status, WNOHANG) == pid;
}

int runChild(const QStringList &arguments)
{
    const pid_t pid = spawnChild(arguments);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A few random microseconds, so that a kill lands anywhere in the step that
// follows the moment chosen.
void jitter(std::mt19937_64 &random)
{
    std::this_thread::sleep_for(
        std::chrono::microseconds(std::uniform_int_distribution<int>(0, 3000)(random)));
}

// Kills the child once `reached` says its work has come far enough. False
// when the child finished first.
bool killWhen(pid_t pid, const std::function<bool()> &reached, std::mt19937_64 &random)
{
    while (!reached()) {
        if (exited(pid))
            return false;
        std::this_thread::sleep_for(200us);
    }
    jitter(random);
    if (exited(pid))
        return false;
    killNow(pid);
    return true;
}

qint64 temporaryBuildBytes(const QString &segment)
{
    qint64 bytes = -1;
    for (const auto &entry : QDir(segment).entryInfoList({QStringLiteral("recovered-*.caf")}, QDir::Files))
        bytes = std::max(bytes, entry.size());
    return bytes;
}

// Playable, complete, and nothing left of the builds the kills cut short.
void expectPlayableEqualsRaw(const QString &segment, double rate)
{
    expectPlayable(segment, rate);
    EXPECT_TRUE(isComplete(segment));
    EXPECT_EQ(QDir(segment).entryList({QStringLiteral("recovered-*")}, QDir::Files), QStringList());
}

class CrashRecoveryTest : public ::testing::Test {
protected:
    QTemporaryDir work;
};

} // namespace

TEST_F(CrashRecoveryTest, KilledWhileRecordingLosesNothingItHadHandedToTheWriter)
{
    // Twelve seconds of stereo 16-bit sound, the kind of file the source reads.
    const QString input = work.filePath(QStringLiteral("input.wav"));
    {
        std::mt19937 noise(7);
        std::uniform_real_distribution<float> hiss(-0.1f, 0.1f);
        const auto left = sine(300, 48000, 48000 * 12, 0.4f), right = sine(523, 48000, 48000 * 12, 0.3f);
        std::vector<float> stereo;
        for (size_t i = 0; i < left.size(); ++i) {
            stereo.push_back(left[i] + hiss(noise));
            stereo.push_back(right[i]);
        }
        ASSERT_TRUE(writeSoundFile(input, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereo));
    }
    // What each buffer becomes on its way to the writer.
    std::vector<std::vector<float>> expected;
    {
        AudioFileSource source(input, AudioFileSource::Pace::asFastAsConsumed);
        source.prepare();
        const auto format = *source.format();
        CaptureQueue queue;
        source.run(queue, [&](AudioBufferList buffers) {
            expected.push_back(mixToMono(buffers, format.sampleFormat));
        });
        ASSERT_TRUE(source.waitUntilFinished(60s));
        source.invalidate();
    }
    ASSERT_EQ(expected.size(), size_t((48000 * 12 + 4095) / 4096));

    std::mt19937_64 random(crashSeed());
    const int trials = 24;
    int midRecording = 0, beforeAudio = 0, afterEnd = 0;
    for (int trial = 0; trial < trials; ++trial) {
        SCOPED_TRACE(::testing::Message() << "trial " << trial);
        Library library(work.filePath(QStringLiteral("root-%1").arg(trial)));
        const QUuid id = library.createNote();
        const QString segment = library.segment(id);

        int report[2];
        ASSERT_EQ(::pipe(report), 0);
        const pid_t child = spawnChild({QStringLiteral("record"), segment, id.toString(QUuid::WithoutBraces),
                                        input, QString::number(report[1]), QStringLiteral("500")});
        ASSERT_GT(child, 0);
        ::close(report[1]);
        // Die after a random buffer (0: before or just after the first).
        const auto target =
            std::uniform_int_distribution<std::uint32_t>(0, std::uint32_t(expected.size()) - 1)(random);
        std::uint32_t handed = 0, value = 0;
        while (handed < target && ::read(report[0], &value, sizeof value) == sizeof value)
            handed = value;
        jitter(random);
        killNow(child);
        while (::read(report[0], &value, sizeof value) == sizeof value)
            handed = value;
        ::close(report[0]);

        if (!QFile::exists(RecordingFolder::rawAudioPath(segment))) {
            // Killed before the writer existed: nothing was handed over yet.
            EXPECT_EQ(handed, 0u);
            ++beforeAudio;
            continue;
        }
        const bool finished = isComplete(segment);
        const auto raw = readRawAudio(RecordingFolder::rawAudioPath(segment));
        ASSERT_LE(size_t(handed), expected.size());
        size_t offset = 0;
        for (std::uint32_t buffer = 0; buffer < handed; ++buffer) {
            const auto &samples = expected[buffer];
            ASSERT_LE(offset + samples.size(), raw.size())
                << "buffer " << buffer << " of " << handed << " is missing";
            ASSERT_TRUE(std::equal(samples.begin(), samples.end(), raw.begin() + qsizetype(offset)))
                << "buffer " << buffer << " differs";
            offset += samples.size();
        }

        const auto app = library.launch();
        if (finished) {
            ++afterEnd;
            EXPECT_EQ(app->message(), QString());
            continue;
        }
        ++midRecording;
        EXPECT_EQ(app->message(), recoveredText(1));
        expectPlayableEqualsRaw(segment, 48000);
        EXPECT_EQ(library.sourceURL(id), QStringLiteral("Recordings/") + RecordingFolder::uuidText(id));
    }
    std::cout << trials << " kills: " << midRecording << " while recording, " << beforeAudio
              << " before the first sample, " << afterEnd << " after the end" << std::endl;
    EXPECT_GE(midRecording, trials / 2) << "the kills should mostly land while recording";
}

TEST_F(CrashRecoveryTest, KilledWhileBuildingThePlayableFileTheNextLaunchFinishesIt)
{
    std::mt19937_64 random(crashSeed());
    // About six minutes of audio: a build takes long enough to be cut.
    const auto samples = ramp(48000 * 60 * 6);
    int cut = 0;
    for (int trial = 0; trial < 6; ++trial) {
        SCOPED_TRACE(::testing::Message() << "trial " << trial);
        Library library(work.filePath(QStringLiteral("root-%1").arg(trial)));
        const QUuid id = library.createNote();
        const QString segment = interruptedSegment(library.segment(id), id, 48000, samples);
        // A playable file from an earlier, shorter build is replaced.
        if (trial % 2 == 1) {
            ASSERT_TRUE(writeSoundFile(RecordingFolder::finalAudioPath(segment),
                                       SF_FORMAT_CAF | SF_FORMAT_FLOAT, 48000, 1,
                                       std::span<const float>(samples).first(48000)));
        }
        const pid_t child = spawnChild({QStringLiteral("rebuild"), segment});
        ASSERT_GT(child, 0);
        // Die once the build has written a random share of its file.
        const qint64 target = std::uniform_int_distribution<qint64>(0, qint64(samples.size()) * 4)(random);
        if (killWhen(
                child, [&] { return temporaryBuildBytes(segment) >= target; }, random))
            ++cut;
        EXPECT_EQ(library.launch()->message(), recoveredText(1));
        expectPlayableEqualsRaw(segment, 48000);
        EXPECT_EQ(DurableAudioWriter::frameCount(segment), qint64(samples.size()));
    }
    std::cout << "6 kills: " << cut << " cut a build short" << std::endl;
    EXPECT_GE(cut, 3);
}

TEST_F(CrashRecoveryTest, KilledDuringTheLaunchRepairTheNextLaunchFinishesIt)
{
    std::mt19937_64 random(crashSeed());
    int cut = 0;
    for (int trial = 0; trial < 6; ++trial) {
        SCOPED_TRACE(::testing::Message() << "trial " << trial);
        Library library(work.filePath(QStringLiteral("root-%1").arg(trial)));
        // Six notes with two interrupted sessions each.
        std::vector<std::pair<QUuid, QString>> segments;
        for (int n = 0; n < 6; ++n) {
            const QUuid id = library.createNote();
            segments.emplace_back(
                id, interruptedSegment(library.segment(id), id, 48000, ramp(48000 * 60, float(n) / 10)));
            segments.emplace_back(id, interruptedSegment(library.segment(id), id, 16000, ramp(16000 * 30)));
        }
        const pid_t child = spawnChild({QStringLiteral("launch"), library.root()});
        ASSERT_GT(child, 0);
        // Die once a random number of sessions have their playable file.
        const int target = std::uniform_int_distribution<int>(0, int(segments.size()) - 1)(random);
        const bool killed = killWhen(
            child,
            [&] {
                int built = 0;
                for (const auto &entry : segments)
                    built += QFile::exists(RecordingFolder::finalAudioPath(entry.second)) ? 1 : 0;
                return built >= target;
            },
            random);
        int marked = 0;
        for (const auto &entry : segments)
            marked += isComplete(entry.second) ? 1 : 0;
        if (killed && marked < int(segments.size()))
            ++cut;

        const QString message = library.launch()->message();
        EXPECT_TRUE(message.isEmpty() || message.startsWith(QStringLiteral("Recovered "))) << message;
        for (const auto &[id, segment] : segments) {
            expectPlayableEqualsRaw(segment, LocalRecordingManifest::read(segment).sampleRate);
            EXPECT_EQ(library.sourceURL(id), QStringLiteral("Recordings/") + RecordingFolder::uuidText(id));
        }
        EXPECT_EQ(runChild({QStringLiteral("launch"), library.root()}), 0);
    }
    std::cout << "6 kills: " << cut << " cut the repair short" << std::endl;
    EXPECT_GE(cut, 3);
}
