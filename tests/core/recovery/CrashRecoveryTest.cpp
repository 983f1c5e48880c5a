// Processes killed with SIGKILL at random moments: while recording, and while
// the launch repairs folders (building playable files among other steps).
// After each kill the next launch must leave playable audio that holds every
// sample the killed process had handed to the writer.
#include "RecoveryTestSupport.h"
#include "capture/AudioFileSource.h"
#include "capture/MonoMix.h"
#include "support/SoundFiles.h"

#include <sndfile.h>

#include <csignal>
#include <cstdint>
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
using namespace Qt::StringLiterals;

namespace {

// The seed of a run: KESTIL_CRASH_SEED repeats one; otherwise a new one,
// printed so that a failure can be replayed.
std::mt19937_64 crashRandom()
{
    const QByteArray given = qgetenv("KESTIL_CRASH_SEED");
    const std::uint64_t seed = given.isEmpty() ? std::random_device{}() : given.toULongLong();
    ::testing::Test::RecordProperty("seed", std::to_string(seed));
    std::cout << "crash seed " << seed << " (set KESTIL_CRASH_SEED to repeat)" << std::endl;
    return std::mt19937_64(seed);
}

// Starts the child with the given arguments; descriptors without
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

// True when the child has exited; it is reaped then.
bool exited(pid_t pid)
{
    int status = 0;
    return ::waitpid(pid, &status, WNOHANG) == pid;
}

// Kills the child unless it has exited already; true when it was killed.
bool killNow(pid_t pid)
{
    if (exited(pid))
        return false;
    ::kill(pid, SIGKILL);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return true;
}

// A few random microseconds, so that a kill lands anywhere in the step that
// follows the moment chosen.
void jitter(std::mt19937_64 &random)
{
    std::this_thread::sleep_for(
        std::chrono::microseconds(std::uniform_int_distribution<int>(0, 3000)(random)));
}

// Playable, complete, linked, and nothing left of the builds the kills cut short.
void expectRepaired(const Library &library, const QUuid &id, const QString &segment)
{
    expectPlayable(segment, LocalRecordingManifest::read(segment).sampleRate);
    EXPECT_TRUE(isComplete(segment));
    EXPECT_EQ(QDir(segment).entryList({u"recovered-*"_s}, QDir::Files), QStringList());
    EXPECT_EQ(library.sourceURL(id), u"Recordings/"_s + RecordingFolder::uuidText(id));
}

class CrashRecoveryTest : public ::testing::Test {
protected:
    QTemporaryDir work;
    std::mt19937_64 random = crashRandom();
};

} // namespace

TEST_F(CrashRecoveryTest, KilledWhileRecordingLosesNothingItHadHandedToTheWriter)
{
    // Twelve seconds of stereo 16-bit sound, the kind of file the source reads.
    const QString input = work.filePath(u"input.wav"_s);
    {
        std::mt19937 noise(7);
        std::uniform_real_distribution<float> hiss(-0.1f, 0.1f);
        const auto left = sine(300, 48000, 48000 * 12, 0.4f), right = sine(523, 48000, 48000 * 12, 0.3f);
        std::vector<float> stereo;
        for (size_t i = 0; i < left.size(); ++i)
            stereo.insert(stereo.end(), {left[i] + hiss(noise), right[i]});
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

    const int trials = 12;
    int midRecording = 0;
    for (int trial = 0; trial < trials; ++trial) {
        SCOPED_TRACE(::testing::Message() << "trial " << trial);
        Library library(work.filePath(u"root-%1"_s.arg(trial)));
        const QUuid id = library.createNote();
        const QString segment = library.segment(id);
        int report[2];
        ASSERT_EQ(::pipe(report), 0);
        const pid_t child = spawnChild({u"record"_s, segment, id.toString(QUuid::WithoutBraces), input,
                                        QString::number(report[1]), u"500"_s});
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
            EXPECT_EQ(handed, 0u) << "killed before the writer existed: nothing was handed over yet";
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
        const QString message = library.launch()->message();
        if (finished) {
            EXPECT_EQ(message, QString());
            continue;
        }
        ++midRecording;
        EXPECT_EQ(message, recoveredText(1));
        expectRepaired(library, id, segment);
    }
    std::cout << trials << " kills, " << midRecording << " while recording" << std::endl;
    EXPECT_GE(midRecording, trials / 2) << "the kills should mostly land while recording";
}

TEST_F(CrashRecoveryTest, KilledDuringTheLaunchRepairTheNextLaunchFinishesIt)
{
    const int trials = 4;
    int cut = 0, midBuild = 0;
    for (int trial = 0; trial < trials; ++trial) {
        SCOPED_TRACE(::testing::Message() << "trial " << trial);
        Library library(work.filePath(u"root-%1"_s.arg(trial)));
        // Four notes with two interrupted sessions each; a playable file from
        // an earlier, shorter build is replaced.
        std::vector<std::pair<QUuid, QString>> segments;
        for (int n = 0; n < 4; ++n) {
            const QUuid id = library.createNote();
            const auto samples = ramp(48000 * 60, float(n) / 10);
            segments.emplace_back(id, interruptedSegment(library.segment(id), id, 48000, samples));
            if (n % 2 == 1) {
                ASSERT_TRUE(writeSoundFile(RecordingFolder::finalAudioPath(segments.back().second),
                                           SF_FORMAT_CAF | SF_FORMAT_FLOAT, 48000, 1,
                                           std::span<const float>(samples).first(48000)));
            }
            segments.emplace_back(id, interruptedSegment(library.segment(id), id, 16000, ramp(16000 * 30)));
        }
        const pid_t child = spawnChild({u"launch"_s, library.root()});
        ASSERT_GT(child, 0);
        // Die once a random number of sessions are complete.
        const int target = std::uniform_int_distribution<int>(0, int(segments.size()) - 1)(random);
        const auto complete = [&] {
            int marked = 0;
            for (const auto &entry : segments)
                marked += isComplete(entry.second) ? 1 : 0;
            return marked;
        };
        bool done = false;
        while (complete() < target && !(done = exited(child)))
            std::this_thread::sleep_for(200us);
        jitter(random);
        const bool killed = !done && killNow(child);
        bool building = false;
        for (const auto &entry : segments)
            building = building || !QDir(entry.second).entryList({u"recovered-*"_s}, QDir::Files).isEmpty();
        cut += killed && complete() < int(segments.size()) ? 1 : 0;
        midBuild += building ? 1 : 0;

        const QString message = library.launch()->message();
        EXPECT_TRUE(message.isEmpty() || message.startsWith(u"Recovered "_s)) << message;
        for (const auto &[id, segment] : segments)
            expectRepaired(library, id, segment);
    }
    std::cout << trials << " kills: " << cut << " cut the repair short, " << midBuild << " inside a build"
              << std::endl;
    EXPECT_GE(cut, 1);
}
