// What the two imports of speech cost with the real Whisper base model: the
// conversion of a CTranslate2 model folder into whisper.cpp's format, and an
// hour of speech turned into a note by Import Audio File… (decoded, stored
// durably as a recording, transcribed by whisper's offline full-context
// reading).
//
//   speech_import_bench [--folder CT2-FOLDER] [--model GGML] [--seconds N]
//
// --folder is a CTranslate2 Whisper folder (model.bin, config.json and a
// vocabulary), as scripts/test-models.sh joins from the two PyPI wheels; its
// conversion is timed first and the result is the model of the import. Without
// it the import uses --model, default ggml-base.bin in $KESTIL_TEST_MODELS_DIR
// (else ~/.cache/kestil/models). The speech is the LibriVox recordings of
// Debian's pocketsphinx-testdata with pauses of 0.3 to 1.5 s between them,
// repeated to --seconds (default 3600), written as a 16 kHz FLAC file. Prints
// the real-time factor of copying and of transcribing, the words written and
// the peak memory of the process.

#include "PeakMemory.h"
#include "core/AudioFileImport.h"
#include "core/LocalAppModel.h"
#include "prefs/PreferenceStore.h"
#include "speech/AudioFileReader.h"
#include "speech/WhisperModelConversion.h"
#include "speech/WhisperModelInstall.h"

#include "base/Error.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <sndfile.h>

#include <cstdio>
#include <random>
#include <vector>

using namespace kestil;

namespace {

// Writes `seconds` of read speech as 16-bit FLAC at 16 kHz.
bool writeSpeech(const QString &path, double seconds)
{
    const QDir dir(QStringLiteral("/usr/share/pocketsphinx/test/data/librivox"));
    std::vector<std::vector<float>> clips;
    for (const QString &name : dir.entryList({QStringLiteral("*.wav")}, QDir::Files, QDir::Name)) {
        AudioFileReader reader(dir.filePath(name));
        std::vector<float> clip;
        for (std::vector<float> block = reader.read(65536); !block.empty(); block = reader.read(65536))
            clip.insert(clip.end(), block.begin(), block.end());
        clips.push_back(std::move(clip));
    }
    if (clips.empty()) {
        std::fprintf(stderr, "No recordings in %s: install pocketsphinx-testdata.\n", qPrintable(dir.path()));
        return false;
    }
    SF_INFO info{};
    info.samplerate = 16000;
    info.channels = 1;
    info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
    SNDFILE *file = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    if (!file)
        return false;
    std::mt19937 random(42);
    std::uniform_real_distribution<double> pause(0.3, 1.5);
    std::normal_distribution<float> hiss(0.0f, 0.0003f);
    const auto total = sf_count_t(seconds * 16000);
    sf_count_t written = 0;
    for (std::size_t i = 0; written < total; ++i) {
        std::vector<float> piece = clips[i % clips.size()];
        piece.resize(piece.size() + std::size_t(pause(random) * 16000));
        for (std::size_t j = clips[i % clips.size()].size(); j < piece.size(); ++j)
            piece[j] = hiss(random);
        written += sf_write_float(file, piece.data(),
                                  std::min<sf_count_t>(sf_count_t(piece.size()), total - written));
    }
    sf_close(file);
    return written == total;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QString folder;
    QString model = qEnvironmentVariable("KESTIL_TEST_MODELS_DIR");
    if (model.isEmpty())
        model = QDir::homePath() + QStringLiteral("/.cache/kestil/models");
    model += QStringLiteral("/ggml-base.bin");
    double seconds = 3600;
    const QStringList args = application.arguments();
    for (int i = 1; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--folder"))
            folder = args[i + 1];
        else if (args[i] == QLatin1String("--model"))
            model = args[i + 1];
        else if (args[i] == QLatin1String("--seconds"))
            seconds = args[i + 1].toDouble();
    }

    QTemporaryDir work;
    const QString root = work.filePath(QStringLiteral("Kestil"));
    const QString speechModels = root + QStringLiteral("/Models/speech");
    QDir().mkpath(speechModels);
    const QString installed = speechModels + QStringLiteral("/ggml-base.bin");
    try {
        if (!folder.isEmpty()) {
            QElapsedTimer clock;
            clock.start();
            convertCTranslate2Whisper(folder, installed);
            const double taken = double(clock.elapsed()) / 1000.0;
            std::printf("conversion of %s: %.1f s, %.0f MB written, peak memory so far %.0f MB\n",
                        qPrintable(folder), taken, double(QFileInfo(installed).size()) / 1e6,
                        peakMegabytes());
        } else if (!QFile::link(model, installed)) {
            std::fprintf(stderr, "No model at %s.\n", qPrintable(model));
            return 1;
        }
        // The import takes an installed model only: one with its check recorded.
        QFile source(installed);
        source.open(QIODevice::ReadOnly);
        QCryptographicHash sha(QCryptographicHash::Sha256);
        sha.addData(&source);
        writeWhisperModelRecord(installed, sha.result().toHex());
    } catch (const Error &e) {
        std::fprintf(stderr, "%s\n", qPrintable(e.localizedDescription()));
        return 1;
    }

    const QString audio = work.filePath(QStringLiteral("meeting.flac"));
    if (!writeSpeech(audio, seconds))
        return 1;
    std::printf("%.0f s of speech in %.0f MB of FLAC; peak memory before the import %.0f MB\n", seconds,
                double(QFileInfo(audio).size()) / 1e6, peakMegabytes());
    std::fflush(stdout);

    qputenv("KESTIL_DATA_DIR", root.toUtf8());
    PreferenceStore preferences(work.filePath(QStringLiteral("config")));
    LaunchEnvironment environment;
    environment.root = root;
    LocalAppModel app(environment);
    AudioFileImport import(app, preferences);

    QElapsedTimer clock;
    double copied = 0;
    AudioFileImport::Stage stage = AudioFileImport::Stage::idle;
    QObject::connect(&import, &AudioFileImport::progressChanged, &application, [&] {
        if (import.stage() == AudioFileImport::Stage::transcribing &&
            stage == AudioFileImport::Stage::copying)
            copied = double(clock.elapsed()) / 1000.0;
        stage = import.stage();
    });
    bool transcribed = false;
    QObject::connect(&import, &AudioFileImport::finished, &application,
                     [&](bool done, const QString &message) {
                         transcribed = done;
                         if (!done)
                             std::printf("import ended: %s\n", qPrintable(message));
                         application.quit();
                     });
    clock.start();
    if (!import.start(audio)) {
        std::printf("import refused: %s\n", qPrintable(import.lastMessage()));
        return 1;
    }
    application.exec();
    const double total = double(clock.elapsed()) / 1000.0;
    const qsizetype words = import.note() ? import.note()
                                                ->transcription()
                                                .value_or(QString())
                                                .split(QLatin1Char(' '), Qt::SkipEmptyParts)
                                                .size()
                                          : 0;
    std::printf(
        "import of %.0f s: copy %.1f s (RTF %.4f), transcription %.1f s (RTF %.3f), whole %.1f s (RTF "
        "%.3f), %lld words (%.0f a minute), %s, peak memory %.0f MB\n",
        seconds, copied, copied / seconds, total - copied, (total - copied) / seconds, total, total / seconds,
        qint64(words), double(words) / (seconds / 60.0), transcribed ? "transcribed" : "NOT transcribed",
        peakMegabytes());
    return transcribed ? 0 : 1;
}
