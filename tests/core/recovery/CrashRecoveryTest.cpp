// Processes killed with SIGKILL at random moments: while recording, and while
// the launch repairs folders (building playable files among other steps).
// After each kill the next launch must leave playable audio that holds every
// sample the killed process had handed to the writer. Each test runs in a
// process of its own, so a forked child has no other threads to inherit.
#include "RecoveryTestSupport.h"

#include <sndfile.h>

#include <csignal>
#include <cstdint>
#include <iostream>
#include <random>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

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

// A child process that does `work` and ends without running the test's exit.
template <typename Work> pid_t forkChild(Work &&work)
{
    const pid_t pid = ::fork();
    if (pid == 0) {
        try {
            work();
        } catch (...) {
            ::_exit(1);
        }
        ::_exit(0);
    }
    return pid;
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

    // A few random microseconds, so that a kill lands anywhere in the step
    // that follows the moment chosen.
    void jitter()
    {
        std::this_thread::sleep_for(
            std::chrono::microseconds(std::uniform_int_distribution(0, 3000)(random)));
    }
};

} // namespace

TEST_F(CrashRecoveryTest, KilledWhileRecordingLosesNothingItHadHandedToTheWriter)
{
    // Twelve seconds at 48 kHz in the capture's buffers of 4096 frames, each
    // of its own.
    std::vector<std::vector<float>> buffers;
    for (int i = 0; i < 141; ++i)
        buffers.push_back(ramp(4096, float(i) / 1000));
    const int trials = 12;
    int midRecording = 0;
    for (int trial = 0; trial < trials; ++trial) {
        SCOPED_TRACE(::testing::Message() << "trial " << trial);
        Library library(work.filePath(u"root-%1"_s.arg(trial)));
        const QUuid id = library.createNote();
        const QString segment = library.segment(id);
        // After each append has returned, the child reports how many it made.
        int report[2];
        ASSERT_EQ(::pipe(report), 0);
        const pid_t child = forkChild([&] {
            ::close(report[0]);
            DurableAudioWriter writer(segment, id, 48000);
            for (std::uint32_t appended = 1; appended <= buffers.size(); ++appended) {
                writer.append(buffers[appended - 1]);
                if (::write(report[1], &appended, sizeof appended) != sizeof appended)
                    ::_exit(3);
                std::this_thread::sleep_for(500us);
            }
            writer.complete();
        });
        ASSERT_GT(child, 0);
        ::close(report[1]);
        // Die after a random buffer (0: before or just after the first).
        const auto target =
            std::uniform_int_distribution<std::uint32_t>(0, std::uint32_t(buffers.size()) - 1)(random);
        std::uint32_t handed = 0, value = 0;
        while (handed < target && ::read(report[0], &value, sizeof value) == sizeof value)
            handed = value;
        jitter();
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
        ASSERT_LE(raw.size(), buffers.size() * 4096);
        for (std::uint32_t buffer = 0; buffer < handed; ++buffer) {
            ASSERT_LE((buffer + 1) * 4096, raw.size())
                << "buffer " << buffer << " of " << handed << " is missing";
            ASSERT_TRUE(
                std::equal(buffers[buffer].begin(), buffers[buffer].end(), raw.begin() + buffer * 4096))
                << "buffer " << buffer << " differs";
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
        const pid_t child = forkChild([&] { library.launch(); });
        ASSERT_GT(child, 0);
        // Die once a random number of sessions are complete.
        const int target = std::uniform_int_distribution<int>(0, int(segments.size()) - 1)(random);
        const auto complete = [&] {
            return std::count_if(segments.begin(), segments.end(),
                                 [](const auto &s) { return isComplete(s.second); });
        };
        bool done = false;
        while (complete() < target && !(done = exited(child)))
            std::this_thread::sleep_for(200us);
        jitter();
        const bool killed = !done && killNow(child);
        cut += killed && complete() < qsizetype(segments.size()) ? 1 : 0;
        midBuild += std::any_of(segments.begin(), segments.end(), [](const auto &s) {
            return !QDir(s.second).entryList({u"recovered-*"_s}, QDir::Files).isEmpty();
        });

        const QString message = library.launch()->message();
        EXPECT_TRUE(message.isEmpty() || message.startsWith(u"Recovered "_s)) << message;
        for (const auto &[id, segment] : segments)
            expectRepaired(library, id, segment);
    }
    std::cout << trials << " kills: " << cut << " cut the repair short, " << midBuild << " inside a build"
              << std::endl;
    EXPECT_GE(cut, 1);
}
