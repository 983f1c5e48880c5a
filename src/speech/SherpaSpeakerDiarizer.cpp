#include "SherpaSpeakerDiarizer.h"

#include "StreamResampler.h"
#include "base/CancellationError.h"
#include "base/Error.h"

#include <QByteArray>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QStringList>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <limits>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace kestil {

namespace {

constexpr double modelRate = 16000.0;

const QString unchanged = QStringLiteral(" Your recording and its transcript are unchanged.");

QString systemMessage(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// One run of the helper program: its process and the three ends Kestil
// holds. Whatever way the run ends, the process is gone afterwards.
class WorkerProcess {
public:
    WorkerProcess(const QString &program, const QStringList &arguments)
    {
        int audio[2] = {-1, -1};
        int answer[2] = {-1, -1};
        int diagnostics[2] = {-1, -1};
        // A socket rather than a pipe for the audio: send() can refuse with
        // EPIPE instead of raising SIGPIPE when the helper has gone.
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, audio) != 0 || pipe2(answer, O_CLOEXEC) != 0 ||
            pipe2(diagnostics, O_CLOEXEC) != 0) {
            const int error = errno;
            for (int fd : {audio[0], audio[1], answer[0], answer[1], diagnostics[0], diagnostics[1]})
                if (fd >= 0)
                    ::close(fd);
            throw SystemError(QStringLiteral("Kestil could not start its speaker detection (%1).")
                                  .arg(systemMessage(error)) +
                              unchanged);
        }

        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, audio[1], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, answer[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, diagnostics[1], STDERR_FILENO);
        const QByteArray path = QFile::encodeName(program);
        QList<QByteArray> words{path};
        for (const QString &argument : arguments)
            words.append(argument.toUtf8());
        std::vector<char *> argv;
        for (QByteArray &word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        const int spawned = posix_spawn(&pid_, path.constData(), &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        for (int fd : {audio[1], answer[1], diagnostics[1]})
            ::close(fd);
        audio_ = audio[0];
        answer_ = answer[0];
        diagnostics_ = diagnostics[0];
        if (spawned != 0) {
            pid_ = -1;
            for (int *fd : {&audio_, &answer_, &diagnostics_})
                closeEnd(*fd);
            throw SystemError(QStringLiteral("Kestil could not start its speaker detection helper %1 (%2).")
                                  .arg(program, systemMessage(spawned)) +
                              unchanged);
        }
        for (int fd : {audio_, answer_, diagnostics_})
            ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    }

    ~WorkerProcess()
    {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            waitForExit();
        }
        for (int *fd : {&audio_, &answer_, &diagnostics_})
            closeEnd(*fd);
    }

    WorkerProcess(const WorkerProcess &) = delete;
    WorkerProcess &operator=(const WorkerProcess &) = delete;

    int &audio() { return audio_; }
    int &answer() { return answer_; }
    int &diagnostics() { return diagnostics_; }

    static void closeEnd(int &fd)
    {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }

    // The wait status of the ended process.
    int waitForExit()
    {
        int status = 0;
        rusage usage{};
        while (::wait4(pid_, &status, 0, &usage) < 0 && errno == EINTR) {
        }
        pid_ = -1;
        usage_ = usage;
        return status;
    }

    // What the ended process used: its peak memory and processor time.
    const rusage &usage() const { return usage_; }

private:
    pid_t pid_ = -1;
    rusage usage_{};
    int audio_ = -1;
    int answer_ = -1;
    int diagnostics_ = -1;
};

// What the helper last said it was doing.
enum class Stage { starting, loadingEmbedding, loadingSegmentation, working, done };

QString exitDescription(int status)
{
    if (WIFSIGNALED(status))
        return QStringLiteral("its helper was ended by signal %1, %2")
            .arg(WTERMSIG(status))
            .arg(QString::fromLocal8Bit(strsignal(WTERMSIG(status))));
    return QStringLiteral("its helper ended with code %1").arg(WEXITSTATUS(status));
}

QString unusableModel(const QString &path)
{
    return QStringLiteral(
               "The speaker model %1 could not be loaded: the file is damaged or is not a model of "
               "that kind.")
               .arg(QDir::toNativeSeparators(path)) +
           unchanged;
}

std::vector<float> resampledForModels(std::span<const float> samples, double sampleRate,
                                      const SpeakerDiarizer::CancelCheck &cancelled)
{
    StreamResampler resampler(sampleRate, modelRate);
    std::vector<float> out;
    out.reserve(resampler.outputCapacity(samples.size()));
    constexpr std::size_t block = 1 << 16;
    for (std::size_t at = 0; at < samples.size(); at += block) {
        if (cancelled && cancelled())
            throw CancellationError();
        resampler.process(samples.subspan(at, std::min(block, samples.size() - at)), out);
    }
    resampler.flush(out);
    return out;
}

} // namespace

QString diarisationWorkerPath()
{
    const QFileInfo program(QStringLiteral("/proc/self/exe"));
    return QDir::cleanPath(QFileInfo(program.canonicalFilePath()).absolutePath() +
                           QStringLiteral("/../libexec/kestil/kestil-diarisation-worker"));
}

SherpaSpeakerDiarizer::Options SherpaSpeakerDiarizer::runtimeDefaults(QString segmentationModel,
                                                                      QString embeddingModel)
{
    Options options;
    options.segmentationModel = std::move(segmentationModel);
    options.embeddingModel = std::move(embeddingModel);
    options.threads = 1;
    options.clusteringThreshold = 0.5;
    options.windowShift = 0.1;
    options.minimumSpeech = 0.3;
    options.minimumPause = 0.5;
    return options;
}

SherpaSpeakerDiarizer::SherpaSpeakerDiarizer(Options options) : options_(std::move(options)) {}

std::vector<SpeakerTurn> SherpaSpeakerDiarizer::diarize(std::span<const float> samples, double sampleRate,
                                                        const Progress &progress,
                                                        const CancelCheck &cancelled)
{
    for (const QString &model : {options_.segmentationModel, options_.embeddingModel}) {
        if (model.isEmpty() || !QFileInfo(model).isFile())
            throw LocalError(
                QStringLiteral("The speaker model %1 is missing, so the speakers could not be told "
                               "apart.")
                    .arg(model.isEmpty() ? QStringLiteral("file") : QDir::toNativeSeparators(model)) +
                unchanged);
    }
    if (!QFileInfo(options_.workerPath).isExecutable())
        throw SystemError(QStringLiteral("Kestil's speaker detection helper is missing from %1.")
                              .arg(QDir::toNativeSeparators(options_.workerPath)) +
                          unchanged);
    if (!(sampleRate > 0))
        throw LocalError(
            QStringLiteral("The audio has no usable sample rate, so its speakers could not be told "
                           "apart.") +
            unchanged);

    std::vector<float> converted;
    if (sampleRate != modelRate) {
        converted = resampledForModels(samples, sampleRate, cancelled);
        samples = converted;
    }
    if (samples.empty())
        return {};
    if (samples.size() > std::size_t(std::numeric_limits<std::int32_t>::max()))
        throw LocalError(QStringLiteral("Recordings longer than 37 hours are too long to tell their speakers "
                                        "apart.") +
                         unchanged);

    const QStringList arguments{
        QStringLiteral("--segmentation"), options_.segmentationModel,
        QStringLiteral("--embedding"),    options_.embeddingModel,
        QStringLiteral("--samples"),      QString::number(samples.size()),
        QStringLiteral("--threads"),      QString::number(std::max(1, options_.threads)),
        QStringLiteral("--speakers"),     QString::number(std::max(0, options_.speakers)),
        QStringLiteral("--threshold"),    QString::number(options_.clusteringThreshold, 'g', 9),
        QStringLiteral("--window-shift"), QString::number(options_.windowShift, 'g', 9),
        QStringLiteral("--min-speech"),   QString::number(options_.minimumSpeech, 'g', 9),
        QStringLiteral("--min-pause"),    QString::number(options_.minimumPause, 'g', 9)};
    WorkerProcess worker(options_.workerPath, arguments);

    const auto *audio = reinterpret_cast<const char *>(samples.data());
    const std::size_t audioBytes = samples.size_bytes();
    std::size_t sent = 0;
    QByteArray answer;
    QByteArray diagnostics;
    Stage stage = Stage::starting;
    std::vector<SpeakerTurn> turns;
    bool garbled = false;

    const auto hear = [&](const QByteArray &line) {
        const QList<QByteArray> words = line.split(' ');
        if (line == "load embedding") {
            stage = Stage::loadingEmbedding;
        } else if (line == "load segmentation") {
            stage = Stage::loadingSegmentation;
        } else if (line == "ready") {
            stage = Stage::working;
            if (progress)
                progress(0.0);
        } else if (words.size() == 3 && words[0] == "progress") {
            const double done = words[1].toDouble();
            const double total = words[2].toDouble();
            if (progress && total > 0)
                progress(std::clamp(done / total, 0.0, 1.0));
        } else if (words.size() == 4 && words[0] == "turn") {
            bool ok[3] = {false, false, false};
            const SpeakerTurn turn{words[1].toDouble(&ok[0]), words[2].toDouble(&ok[1]),
                                   words[3].toInt(&ok[2])};
            garbled = garbled || !(ok[0] && ok[1] && ok[2]);
            turns.push_back(turn);
        } else if (line == "done") {
            stage = Stage::done;
        } else {
            garbled = true;
        }
    };

    while (worker.answer() >= 0 || worker.diagnostics() >= 0) {
        if (cancelled && cancelled())
            throw CancellationError();
        pollfd ends[3];
        nfds_t count = 0;
        if (worker.audio() >= 0)
            ends[count++] = pollfd{worker.audio(), POLLOUT, 0};
        if (worker.answer() >= 0)
            ends[count++] = pollfd{worker.answer(), POLLIN, 0};
        if (worker.diagnostics() >= 0)
            ends[count++] = pollfd{worker.diagnostics(), POLLIN, 0};
        // A tenth of a second at most between two looks at `cancelled`.
        if (::poll(ends, count, 100) < 0) {
            if (errno == EINTR)
                continue;
            throw SystemError(QStringLiteral("Speaker detection failed (%1).").arg(systemMessage(errno)) +
                              unchanged);
        }
        for (nfds_t i = 0; i < count; ++i) {
            if (ends[i].revents == 0)
                continue;
            if (ends[i].fd == worker.audio()) {
                const std::size_t chunk = std::min<std::size_t>(audioBytes - sent, 1 << 20);
                const ssize_t n = ::send(worker.audio(), audio + sent, chunk, MSG_NOSIGNAL | MSG_DONTWAIT);
                if (n > 0)
                    sent += std::size_t(n);
                // A helper that stopped reading has ended or is about to;
                // how it ended tells what went wrong.
                if ((n < 0 && errno != EAGAIN && errno != EINTR) || sent == audioBytes)
                    WorkerProcess::closeEnd(worker.audio());
                continue;
            }
            char buffer[65536];
            int &end = ends[i].fd == worker.answer() ? worker.answer() : worker.diagnostics();
            const ssize_t n = ::read(end, buffer, sizeof buffer);
            if (n < 0 && (errno == EAGAIN || errno == EINTR))
                continue;
            if (n <= 0) {
                WorkerProcess::closeEnd(end);
                continue;
            }
            if (&end == &worker.diagnostics()) {
                // Only the runtime's last words matter, and only for a failure.
                diagnostics.append(buffer, n);
                if (diagnostics.size() > 8192)
                    diagnostics.remove(0, diagnostics.size() - 8192);
                continue;
            }
            answer.append(buffer, n);
            for (qsizetype newline = answer.indexOf('\n'); newline >= 0; newline = answer.indexOf('\n')) {
                hear(answer.left(newline));
                answer.remove(0, newline + 1);
            }
        }
    }
    WorkerProcess::closeEnd(worker.audio());
    const int status = worker.waitForExit();
    const rusage &usage = worker.usage();
    lastRun_.peakMegabytes = double(usage.ru_maxrss) / 1024.0;
    lastRun_.processorSeconds = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                                double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    const bool exitedCleanly = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (stage != Stage::done || !exitedCleanly || garbled)
        qWarning().noquote() << "kestil-diarisation-worker:" << QString::fromUtf8(diagnostics).trimmed();

    switch (stage) {
    case Stage::loadingEmbedding:
        throw LocalError(unusableModel(options_.embeddingModel));
    case Stage::loadingSegmentation:
        throw LocalError(unusableModel(options_.segmentationModel));
    case Stage::starting:
        throw SystemError(
            QStringLiteral("Kestil could not start its speaker detection: %1.").arg(exitDescription(status)) +
            unchanged);
    case Stage::working:
        throw SystemError(
            QStringLiteral("Speaker detection stopped before it finished: %1.").arg(exitDescription(status)) +
            unchanged);
    case Stage::done:
        break;
    }
    if (!exitedCleanly || garbled)
        throw SystemError(QStringLiteral("Speaker detection gave an answer Kestil could not read.") +
                          unchanged);
    if (progress)
        progress(1.0);
    return orderedSpeakerTurns(std::move(turns));
}

} // namespace kestil
