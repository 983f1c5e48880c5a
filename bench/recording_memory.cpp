// Memory over a long recording: an hour of speech through the whole
// recording chain (the file source paced at ten times real time, the durable
// writer, live transcription with PocketSphinx, and the notes list model that
// saves every committed snapshot to a real store), printing the resident
// memory at every minute of audio. It must stay flat: nothing may grow with
// the length of the recording except the transcript's own text.
//
//   recording_memory [minutes] [speed] [folder] [recorder]
// Defaults: 60 minutes, 10 times real time, the system's temporary folder.
// With "recorder" last, the recording session runs alone, without the list
// model and the store, to tell their share of the memory from its own.
// The folder needs room for the source file and the recording (about 500 MB
// for an hour).
#include "capture/AudioFileSource.h"
#include "capture/ProcessTapRecorder.h"
#include "core/LocalAppModel.h"
#include "core/NotesListRoles.h"
#include "core/NotesListViewModel.h"
#include "core/WhenFinished.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <sndfile.h>

#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

using namespace kestil;

namespace {

// Sentences of an ordinary meeting, spoken by espeak-ng's Klatt voice.
const char *const sentences[] = {
    "we should schedule another meeting next week to discuss the budget",
    "please send the quarterly report to the finance team before friday",
    "let us review the action items from last time",
    "thank you all for joining the call this morning",
    "the new design is almost ready and we will share it on monday",
    "can everyone look at the numbers and tell me what you think",
    "i think we need two more people on the project to finish in time",
    "the customer asked for a demonstration at the end of the month",
};

// Resident memory of this process in kilobytes, from /proc/self/status.
long residentKilobytes()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    return -1;
}

// The samples espeak-ng speaks for a sentence, at its own rate.
std::vector<short> speak(const QString &text, const QString &folder, int &rate)
{
    const QString wav = folder + QStringLiteral("/sentence.wav");
    QProcess espeak;
    espeak.start(QStringLiteral("espeak-ng"),
                 {QStringLiteral("-v"), QStringLiteral("en-us+klatt4"), QStringLiteral("-s"),
                  QStringLiteral("150"), QStringLiteral("-w"), wav, text});
    espeak.waitForFinished(60000);
    SF_INFO info{};
    SNDFILE *file = sf_open(QFile::encodeName(wav).constData(), SFM_READ, &info);
    std::vector<short> samples;
    if (!file)
        return samples;
    rate = info.samplerate;
    samples.resize(size_t(info.frames * info.channels));
    sf_readf_short(file, samples.data(), info.frames);
    sf_close(file);
    return samples;
}

// A 16-bit WAV of `minutes` of speech: the sentences with a second of quiet
// room noise after each, over and over.
bool writeMeeting(const QString &path, double minutes, const QString &scratch)
{
    int rate = 22050;
    std::vector<short> block;
    for (const char *sentence : sentences) {
        const auto spoken = speak(QString::fromLatin1(sentence), scratch, rate);
        if (spoken.empty())
            return false;
        block.insert(block.end(), spoken.begin(), spoken.end());
        for (int i = 0; i < rate; ++i)
            block.push_back(short((i * 7919) % 61 - 30));
    }
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE *file = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    if (!file)
        return false;
    const qint64 total = qint64(minutes * 60 * rate);
    for (qint64 written = 0; written < total;) {
        const qint64 n = std::min<qint64>(qint64(block.size()), total - written);
        sf_writef_short(file, block.data(), n);
        written += n;
    }
    sf_close(file);
    return true;
}

// The file source with a pace of its own: each buffer is handed over when it
// would have been heard at `speed` times real time.
class PacedFileSource : public AudioSource {
public:
    PacedFileSource(const QString &path, double speed)
        : file_(path, AudioFileSource::Pace::asFastAsConsumed), speed_(speed)
    {
    }

    void prepare() override { file_.prepare(); }
    std::optional<AudioFormat> format() const override { return file_.format(); }
    QString errorMessage() const override { return file_.errorMessage(); }
    void run(CaptureQueue &queue, InputBlock block, InvalidationHandler invalidated,
             FailureHandler failure) override
    {
        const auto start = std::chrono::steady_clock::now();
        const double rate = file_.format()->sampleRate;
        const qint64 sampleBytes = file_.format()->sampleFormat == AudioSampleFormat::int16 ? 2 : 4;
        auto frames = std::make_shared<qint64>(0);
        file_.run(
            queue,
            [=, this](AudioBufferList buffers) {
                *frames += buffers.empty() ? 0 : buffers[0].byteSize / (sampleBytes * buffers[0].channels);
                std::this_thread::sleep_until(
                    start + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                std::chrono::duration<double>(double(*frames) / rate / speed_)));
                block(buffers);
            },
            std::move(invalidated), std::move(failure));
    }
    void invalidate() override { file_.invalidate(); }

    AudioFileSource &file() { return file_; }

private:
    AudioFileSource file_;
    double speed_;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const double minutes = arguments.size() > 1 ? arguments[1].toDouble() : 60;
    const double speed = arguments.size() > 2 ? arguments[2].toDouble() : 10;
    const bool recorderAlone = arguments.size() > 4 && arguments[4] == QStringLiteral("recorder");
    QTemporaryDir work(arguments.size() > 3 ? arguments[3] + QStringLiteral("/kestil-bench-XXXXXX")
                                            : QDir::tempPath() + QStringLiteral("/kestil-bench-XXXXXX"));
    if (!work.isValid() || minutes <= 0 || speed <= 0) {
        std::fprintf(stderr, "usage: recording_memory [minutes] [speed] [folder] [recorder]\n");
        return 2;
    }
    // A data folder and preferences of the benchmark's own: no whisper model
    // is installed there, so English runs on PocketSphinx.
    qputenv("KESTIL_DATA_DIR", work.filePath(QStringLiteral("data")).toUtf8());
    qputenv("KESTIL_CONFIG_DIR", work.filePath(QStringLiteral("config")).toUtf8());

    const QString meeting = work.filePath(QStringLiteral("meeting.wav"));
    std::printf("writing %.0f minutes of speech...\n", minutes);
    std::fflush(stdout);
    if (!writeMeeting(meeting, minutes, work.path())) {
        std::fprintf(stderr, "espeak-ng or libsndfile failed\n");
        return 1;
    }

    PreferenceStore preferences(work.filePath(QStringLiteral("config")));
    settings::setRecordSystemAudio(preferences, false);
    LaunchEnvironment launch;
    launch.root = work.filePath(QStringLiteral("data"));
    launch.languageModelAvailability = [] { return LanguageModelAvailability::available; };
    LocalAppModel appModel(launch);
    if (!appModel.storeReady()) {
        std::fprintf(stderr, "store: %s\n", qPrintable(appModel.message()));
        return 1;
    }

    PacedFileSource *source = nullptr;
    ProcessTapRecorder::Environment environment = ProcessTapRecorder::Environment::system();
    environment.microphoneAccess = [] { return true; };
    environment.makeSource = [&](bool) -> std::unique_ptr<AudioSource> {
        auto made = std::make_unique<PacedFileSource>(meeting, speed);
        source = made.get();
        return made;
    };
    ProcessTapRecorder recorder(environment);
    NotesListRoles roles;
    NotesListViewModel list(appModel, recorder, roles, preferences);

    int snapshots = 0;
    QObject::connect(&recorder, &ProcessTapRecorder::transcriptValueChanged, [&] { ++snapshots; });
    const long before = residentKilobytes();
    std::printf("resident before recording: %.1f MiB\n", before / 1024.0);
    std::printf("%8s %12s %12s %12s %10s\n", "minute", "RSS MiB", "text chars", "utterances", "updates");
    std::fflush(stdout);

    QElapsedTimer wall;
    wall.start();
    std::vector<long> samples;
    int reported = 0;
    bool stopping = false;
    QTimer progress;
    progress.setInterval(100);
    QObject::connect(&progress, &QTimer::timeout, [&] {
        // The source is gone once the stop has begun.
        if (stopping || !source || !source->file().format())
            return;
        const double heard = double(source->file().consumedFrames()) / source->file().format()->sampleRate;
        while (reported + 1 <= int(heard / 60.0 + 1e-9) && reported < int(minutes)) {
            ++reported;
            const long rss = residentKilobytes();
            samples.push_back(rss);
            const NotePtr note = list.newNoteBeingRecorded();
            const qlonglong characters = note ? qlonglong(note->transcription().value_or(QString()).size())
                                              : qlonglong(recorder.transcriptValue().finalizedText().size());
            std::printf("%8d %12.1f %12lld %12lld %10d\n", reported, rss / 1024.0, characters,
                        qlonglong(recorder.transcriptValue().utterances.size()), snapshots);
            std::fflush(stdout);
        }
        if (!stopping && heard >= minutes * 60 - 0.01) {
            stopping = true;
            if (recorderAlone)
                whenFinished(recorder.stop(), &app, [&](const QFuture<QString> &) { app.quit(); });
            else
                whenFinished(list.stopTranscription(), &app, [&](const QFuture<void> &) { app.quit(); });
        }
    });

    const QFuture<void> started =
        recorderAlone ? recorder.start(launch.root.value_or(QString()), QUuid::createUuid(), false)
                      : list.startNewTranscription();
    whenFinished(started, &app, [&](const QFuture<void> &) {
        if (!recorder.recording()) {
            std::fprintf(stderr, "recording did not start: %s\n", qPrintable(list.syncErrorMessage()));
            app.exit(1);
            return;
        }
        if (!recorder.errorMessage().isEmpty())
            std::fprintf(stderr, "warning: %s\n", qPrintable(recorder.errorMessage()));
        progress.start();
    });
    const int code = app.exec();
    if (code != 0)
        return code;

    const double seconds = wall.elapsed() / 1000.0;
    std::printf("\nrecorded %.0f minutes in %.0f s of wall time (%.1f times real time)\n", minutes, seconds,
                minutes * 60 / seconds);
    std::printf("final text: %lld characters, %lld utterances, %d transcript updates\n",
                qlonglong(recorder.transcription().size()),
                qlonglong(recorder.transcriptValue().utterances.size()), snapshots);
    if (!recorder.errorMessage().isEmpty())
        std::printf("recorder says: %s\n", qPrintable(recorder.errorMessage()));
    if (samples.size() >= 10) {
        const long early = samples[4];
        const long late = samples.back();
        std::printf("resident at minute 5: %.1f MiB, at minute %zu: %.1f MiB; growth %.1f KiB a minute\n",
                    early / 1024.0, samples.size(), late / 1024.0,
                    double(late - early) / double(samples.size() - 5));
    }
    std::printf("resident after stop: %.1f MiB\n", residentKilobytes() / 1024.0);
    return 0;
}
