// A Kestil process for the crash tests to kill: it records a sound file into
// a segment, or launches the application model with its recovery pass,
// exactly as the program does.
//
//   recovery_child record <segment> <note UUID> <sound file> <report fd> <pause µs>
//   recovery_child launch <data root>
//
// While recording it writes, after each append has returned, the number of
// buffers appended so far (a 32-bit integer) to the report descriptor.
#include "base/Error.h"
#include "capture/AudioFileSource.h"
#include "capture/CapturedBuffer.h"
#include "capture/DurableAudioWriter.h"
#include "core/InterruptedSessionRecovery.h"
#include "core/LocalAppModel.h"

#include <QCoreApplication>

#include <cstdint>
#include <cstdio>
#include <thread>

#include <unistd.h>

using namespace kestil;

namespace {

int record(const QString &segment, const QUuid &noteID, const QString &file, int reportFd, int pauseMicros)
{
    AudioFileSource source(file, AudioFileSource::Pace::asFastAsConsumed);
    source.prepare();
    if (!source.format()) {
        std::fprintf(stderr, "%s\n", qPrintable(source.errorMessage()));
        return 2;
    }
    const AudioFormat format = *source.format();
    DurableAudioWriter writer(segment, noteID, format.sampleRate);
    CaptureQueue queue;
    std::vector<float> scratch;
    std::uint32_t appended = 0;
    source.run(queue, [&](AudioBufferList buffers) {
        captureBuffer(buffers, format.sampleFormat, writer, scratch);
        ++appended;
        if (::write(reportFd, &appended, sizeof appended) != sizeof appended)
            std::_Exit(3);
        if (pauseMicros > 0)
            std::this_thread::sleep_for(std::chrono::microseconds(pauseMicros));
    });
    source.waitUntilFinished();
    source.invalidate();
    queue.sync();
    writer.complete();
    return 0;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList args = application.arguments();
    try {
        if (args.size() == 7 && args[1] == QLatin1String("record"))
            return record(args[2], QUuid::fromString(args[3]), args[4], args[5].toInt(), args[6].toInt());
        if (args.size() == 3 && args[1] == QLatin1String("launch")) {
            LaunchEnvironment environment;
            environment.root = args[2];
            environment.languageModelAvailability = [] { return LanguageModelAvailability::available; };
            environment.recoverInterruptedSessions = recoverInterruptedSessions;
            LocalAppModel model(environment);
            std::printf("%s\n", qPrintable(model.message()));
            return 0;
        }
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s\n", qPrintable(describe(error)));
        return 1;
    }
    std::fprintf(stderr, "usage: see the comment at the top of RecoveryChild.cpp\n");
    return 64;
}
