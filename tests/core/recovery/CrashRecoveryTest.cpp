// A recording process killed with SIGKILL at random moments: the next launch
// must leave playable audio that holds every sample the killed process had
// handed to the writer. (A repair cut short is the launch's own test, from
// the leftovers such a kill leaves.) The test runs in a process of its own,
// so a forked child has no other threads to inherit.
#include "RecoveryTestSupport.h"

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

} // namespace

TEST(CrashRecoveryTest, KilledWhileRecordingLosesNothingItHadHandedToTheWriter)
{
    // Twelve seconds at 48 kHz in the capture's buffers of 4096 frames, each
    // of its own.
    std::vector<std::vector<float>> buffers;
    for (int i = 0; i < 141; ++i)
        buffers.push_back(ramp(4096, float(i) / 1000));
    QTemporaryDir work;
    std::mt19937_64 random = crashRandom();
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
        const pid_t child = ::fork();
        if (child == 0) { // ends without running the test's exit
            ::close(report[0]);
            DurableAudioWriter writer(segment, id, 48000);
            for (std::uint32_t appended = 1; appended <= buffers.size(); ++appended) {
                writer.append(buffers[appended - 1]);
                if (::write(report[1], &appended, sizeof appended) != sizeof appended)
                    ::_exit(3);
                std::this_thread::sleep_for(500us);
            }
            writer.complete();
            ::_exit(0);
        }
        ASSERT_GT(child, 0);
        ::close(report[1]);
        // Die after a random buffer (0: before or just after the first).
        const auto target =
            std::uniform_int_distribution<std::uint32_t>(0, std::uint32_t(buffers.size()) - 1)(random);
        std::uint32_t handed = 0, value = 0;
        while (handed < target && ::read(report[0], &value, sizeof value) == sizeof value)
            handed = value;
        // A few random microseconds, so that the kill lands anywhere in the
        // step that follows.
        std::this_thread::sleep_for(
            std::chrono::microseconds(std::uniform_int_distribution(0, 3000)(random)));
        int status = 0;
        if (::waitpid(child, &status, WNOHANG) != child) {
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
        }
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
        expectPlayable(segment, 48000);
        EXPECT_TRUE(isComplete(segment));
        EXPECT_EQ(QDir(segment).entryList({u"recovered-*"_s}, QDir::Files), QStringList());
        EXPECT_EQ(library.sourceURL(id), u"Recordings/"_s + RecordingFolder::uuidText(id));
    }
    std::cout << trials << " kills, " << midRecording << " while recording" << std::endl;
    EXPECT_GE(midRecording, trials / 2) << "the kills should mostly land while recording";
}
