// What telling speakers apart costs and how well it does: an hour of a
// two-person and of a four-person conversation through SherpaSpeakerDiarizer,
// with Kestil's settings and with sherpa-onnx's own defaults, in one run.
//
//   diarisation_bench [--seconds N] [--models DIR] [--settings both|kestil|runtime]
//                     [--people 2|4|both] [--threshold D] [--window-shift R]
//                     [--min-speech S] [--min-pause S] [--threads N]
//
// The conversations (--seconds long, default 3600) are built with known turns
// from the LibriVox reader of Debian's pocketsphinx-testdata and espeak-ng
// voices the speaker embedding tells apart: the reader and "en-us+klatt" for
// two people; with "en-us" and "en-us+f5" for four. The models are
// diarisation/segmentation-3.0.onnx and diarisation/campplus.onnx under
// --models (default $KESTIL_TEST_MODELS_DIR, else ~/.cache/kestil/models);
// --settings and --people pick runs (default all four); the other options
// replace Kestil's settings to try others. Both settings run on --threads
// (default two; the runtime's own default is one). Prints per run the real-
// time factor (wall time over audio time), the helper's processor time over
// audio time (all threads together, which other work on the machine does not
// inflate), the helper's and this process's peak memory (getrusage), the
// speakers found and the diarisation error rate
// (missed speech, false alarm and confusion over the true speech, 0.25 s
// collar, best mapping of found to true speakers).

#include "PeakMemory.h"
#include "speech/SherpaSpeakerDiarizer.h"
#include "support/DiarisationError.h"
#include "support/SpeakerMix.h"

#include "base/Error.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QStringList>

#include <cstdio>
#include <set>
#include <vector>

using namespace kestil;

namespace {

void printSettings(const char *name, const SherpaSpeakerDiarizer::Options &o)
{
    std::printf(
        "%-8s threads %d, clustering threshold %.2f, window shift %.2f (%.1f s), minimum speech %.2f s, "
        "minimum pause %.2f s\n",
        name, o.threads, o.clusteringThreshold, o.windowShift, o.windowShift * 10.0, o.minimumSpeech,
        o.minimumPause);
}

bool run(const char *name, const test::SpeakerMix &mix, int count,
         const SherpaSpeakerDiarizer::Options &options)
{
    SherpaSpeakerDiarizer diarizer(options);
    QElapsedTimer clock;
    clock.start();
    std::vector<SpeakerTurn> found;
    try {
        found = diarizer.diarize(mix.samples, 16000.0);
    } catch (const Error &e) {
        std::printf("%-8s failed: %s\n", name, qPrintable(e.localizedDescription()));
        return false;
    }
    const double seconds = double(clock.elapsed()) / 1000.0;
    std::set<int> speakers;
    for (const SpeakerTurn &t : found)
        speakers.insert(t.speaker);
    const test::DiarisationError error = test::diarisationError(mix.turns, found);
    const SherpaSpeakerDiarizer::HelperUsage &helper = diarizer.lastHelperUsage();
    std::printf("%-8s %d people: %.1f s, RTF %.4f (processor time %.4f of the audio's), helper peak %.0f MB, "
                "bench peak %.0f MB, %zu speakers found in %zu turns, DER %.2f%% (missed %.2f%%, false alarm "
                "%.2f%%, confusion %.2f%%)\n",
                name, count, seconds, seconds / mix.seconds(), helper.processorSeconds / mix.seconds(),
                helper.peakMegabytes, peakMegabytes(), speakers.size(), found.size(), 100.0 * error.rate(),
                100.0 * error.missed / error.speech, 100.0 * error.falseAlarm / error.speech,
                100.0 * error.confusion / error.speech);
    std::fflush(stdout);
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QString models = qEnvironmentVariable("KESTIL_TEST_MODELS_DIR");
    if (models.isEmpty())
        models = QDir::homePath() + QStringLiteral("/.cache/kestil/models");
    double seconds = 3600;
    QString settings = QStringLiteral("both");
    QString people = QStringLiteral("both");
    SherpaSpeakerDiarizer::Options tuned;
    const QStringList args = application.arguments();
    for (int i = 1; i + 1 < args.size(); i += 2) {
        const QString &name = args[i];
        const double value = args[i + 1].toDouble();
        if (name == QLatin1String("--seconds"))
            seconds = value;
        else if (name == QLatin1String("--models"))
            models = args[i + 1];
        else if (name == QLatin1String("--settings"))
            settings = args[i + 1];
        else if (name == QLatin1String("--people"))
            people = args[i + 1];
        else if (name == QLatin1String("--threshold"))
            tuned.clusteringThreshold = value;
        else if (name == QLatin1String("--window-shift"))
            tuned.windowShift = value;
        else if (name == QLatin1String("--min-speech"))
            tuned.minimumSpeech = value;
        else if (name == QLatin1String("--min-pause"))
            tuned.minimumPause = value;
        else if (name == QLatin1String("--threads"))
            tuned.threads = int(value);
        else {
            std::fprintf(stderr, "unknown option %s\n", qPrintable(name));
            return 2;
        }
    }
    tuned.segmentationModel = models + QStringLiteral("/diarisation/segmentation-3.0.onnx");
    tuned.embeddingModel = models + QStringLiteral("/diarisation/campplus.onnx");
    tuned.workerPath = QStringLiteral(KESTIL_DIARISATION_WORKER);
    SherpaSpeakerDiarizer::Options defaults =
        SherpaSpeakerDiarizer::runtimeDefaults(tuned.segmentationModel, tuned.embeddingModel);
    defaults.workerPath = tuned.workerPath;
    defaults.threads = tuned.threads;

    const std::vector<test::Voice> voices{
        test::libriVoxReader(), test::espeakVoice(QStringLiteral("en-us+klatt")),
        test::espeakVoice(QStringLiteral("en-us")), test::espeakVoice(QStringLiteral("en-us+f5"))};
    for (const test::Voice &voice : voices) {
        if (voice.phrases.empty()) {
            std::fprintf(stderr, "No phrases of %s: install pocketsphinx-testdata and espeak-ng.\n",
                         qPrintable(voice.name));
            return 1;
        }
    }
    std::printf("diarisation of %.0f s of conversation\n", seconds);
    printSettings("Kestil", tuned);
    printSettings("runtime", defaults);
    std::fflush(stdout);

    bool ok = true;
    for (const int count : {2, 4}) {
        if (people != QLatin1String("both") && people.toInt() != count)
            continue;
        const test::SpeakerMix mix =
            test::conversation(std::span(voices).first(std::size_t(count)), seconds, 7);
        if (settings != QLatin1String("runtime"))
            ok = run("Kestil", mix, count, tuned) && ok;
        if (settings != QLatin1String("kestil"))
            ok = run("runtime", mix, count, defaults) && ok;
    }
    return ok ? 0 : 1;
}
