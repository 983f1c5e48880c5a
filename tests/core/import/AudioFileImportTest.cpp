// Audio files becoming notes, on a real store and real folders, transcribed
// by PocketSphinx (the engine every machine has; Whisper's whole-file reading
// is measured in the speech tests and the benchmark).
#include "core/AudioFileImport.h"
#include "core/CoreTestSupport.h"
#include "support/CoreApplicationEnvironment.h"
#include "support/QtPrinters.h"

#include "capture/DurableAudioWriter.h"
#include "capture/LocalRecordingManifest.h"
#include "capture/RecordingFolder.h"
#include "core/NoteTranscript.h"
#include "prefs/PreferenceStore.h"
#include "support/SoundFiles.h"
#include "support/TmpfsMount.h"

#include <QEventLoop>
#include <QTimer>

#include <sndfile.h>

#include <unistd.h>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

struct Outcome {
    bool began = false, transcribed = false;
    QString message;
};

// Three seconds of read speech at 16 kHz.
const test::SoundFile &speech()
{
    static const test::SoundFile clip = *test::readSoundFile(
        u"/usr/share/pocketsphinx/test/data/librivox/sense_and_sensibility_01_austen_64kb-0880.wav"_s);
    return clip;
}

// The speech at `rate` (nearest sample), in `channels` channels of which the
// first two carry it.
std::vector<float> speechAt(int rate, int channels)
{
    const std::vector<float> &in = speech().samples;
    std::vector<float> out;
    for (std::size_t i = 0; i < in.size() * std::size_t(rate) / 16000; ++i) {
        for (int c = 0; c < channels; ++c)
            out.push_back(c < 2 ? in[std::min(in.size() - 1, i * 16000 / rate)] : 0.0f);
    }
    return out;
}

// A library on a root (a temporary folder unless given) whose data folder
// holds no whisper model, so that PocketSphinx transcribes.
class AudioFileImportTest : public ::testing::Test {
protected:
    void SetUp() override { open(dir_.path() + u"/Kestil"_s); }
    void TearDown() override { qunsetenv("KESTIL_DATA_DIR"); }

    void open(const QString &root)
    {
        import_.reset();
        root_ = root;
        QDir().mkpath(root_);
        qputenv("KESTIL_DATA_DIR", root_.toUtf8());
        preferences_ = std::make_unique<PreferenceStore>(dir_.path() + u"/config"_s);
        app_ = test::launchApp(root_);
        import_ = std::make_unique<AudioFileImport>(*app_, *preferences_);
    }

    // Runs an import to its end; `during` is called on each change of stage.
    Outcome run(const QString &path, std::function<void(AudioFileImport &)> during = {})
    {
        Outcome outcome;
        QEventLoop loop;
        QObject::connect(import_.get(), &AudioFileImport::finished, &loop,
                         [&](bool transcribed, const QString &m) {
                             outcome.transcribed = transcribed;
                             outcome.message = m;
                             loop.quit();
                         });
        QObject::connect(import_.get(), &AudioFileImport::progressChanged, &loop, [&] {
            if (during)
                during(*import_);
        });
        QTimer::singleShot(120000, &loop, &QEventLoop::quit);
        outcome.began = import_->start(path);
        if (outcome.began)
            loop.exec();
        return outcome;
    }

    QList<NotePtr> notes() { return app_->store()->fetchNotes(); }

    // The one recording folder an import gives its note.
    QString segmentOf(const NotePtr &note)
    {
        const QDir folder(RecordingFolder::noteFolder(root_, *note->id()));
        const QStringList segments = folder.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        EXPECT_EQ(segments.size(), 1);
        return folder.filePath(segments.value(0));
    }

    QString file(const QString &name) const { return dir_.filePath(name); }

    QTemporaryDir dir_;
    QString root_;
    std::unique_ptr<PreferenceStore> preferences_;
    std::unique_ptr<LocalAppModel> app_;
    std::unique_ptr<AudioFileImport> import_;
};

} // namespace

TEST_F(AudioFileImportTest, AFileBecomesANoteWithItsAudioStoredAsARecordingAndItsTranscript)
{
    // FLAC at 44.1 kHz in stereo: decoded, mixed to mono, stored at its own rate.
    const std::vector<float> stereo = speechAt(44100, 2);
    const QString flac = file(u"Young man.flac"_s);
    ASSERT_TRUE(test::writeSoundFile(flac, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 44100, 2, stereo));
    std::vector<AudioFileImport::Stage> stages;
    const Outcome outcome = run(flac, [&](AudioFileImport &i) {
        if (i.stage() != AudioFileImport::Stage::idle)
            stages.push_back(i.stage());
    });
    ASSERT_TRUE(outcome.began);
    EXPECT_TRUE(outcome.transcribed) << outcome.message.toStdString();
    EXPECT_EQ(outcome.message, u"“Young man.flac” is imported and transcribed."_s);
    ASSERT_FALSE(stages.empty());
    EXPECT_EQ(stages.front(), AudioFileImport::Stage::copying);
    EXPECT_EQ(stages.back(), AudioFileImport::Stage::transcribing);

    ASSERT_EQ(notes().size(), 1);
    const NotePtr note = notes().first();
    EXPECT_EQ(note->title(), u"Young man"_s);
    EXPECT_EQ(note->sourceURL(), u"Recordings/"_s + RecordingFolder::uuidText(*note->id()));
    EXPECT_TRUE(note->transcription().value_or(QString()).contains(u"young man"_s))
        << note->transcription().value_or(QString()).toStdString();
    const qint64 frames = qint64(stereo.size() / 2);
    const QList<TranscriptUtterance> utterances = transcriptUtterances(*note);
    ASSERT_FALSE(utterances.isEmpty());
    EXPECT_LE(utterances.last().end.value_or(99), double(frames) / 44100 + 0.01);

    const QString segment = segmentOf(note);
    const auto manifest = LocalRecordingManifest::read(segment);
    EXPECT_TRUE(manifest.complete);
    EXPECT_EQ(manifest.sampleRate, 44100.0);
    EXPECT_EQ(DurableAudioWriter::frameCount(segment), frames);
    EXPECT_TRUE(DurableAudioWriter::hasValidFinalAudio(segment, manifest));
    const std::vector<float> raw = test::readRawAudio(RecordingFolder::rawAudioPath(segment));
    ASSERT_GT(raw.size(), 1000u);
    EXPECT_NEAR(raw[1000], stereo[2000], 1.0 / 32768 + 1e-6) << "the samples themselves, mixed to mono";
}

TEST_F(AudioFileImportTest, EightChannelsAt192kHzAreMixedAndStoredAt48kHz)
{
    const QString wav = file(u"studio.wav"_s);
    ASSERT_TRUE(test::writeSoundFile(wav, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 192000, 8, speechAt(192000, 8)));
    // The copy is what this is about: the transcription is cancelled as it begins.
    const Outcome outcome = run(wav, [](AudioFileImport &i) {
        if (i.stage() == AudioFileImport::Stage::transcribing)
            i.cancel();
    });
    ASSERT_TRUE(outcome.began) << outcome.message.toStdString();
    const NotePtr note = notes().value(0);
    ASSERT_TRUE(note);
    const QString segment = segmentOf(note);
    EXPECT_EQ(LocalRecordingManifest::read(segment).sampleRate, 48000.0);
    EXPECT_NEAR(double(DurableAudioWriter::frameCount(segment)) / 48000.0,
                double(speech().frames()) / 16000.0, 0.01);
}

TEST_F(AudioFileImportTest, FilesThatAreNoUsableAudioAreRefusedBeforeAnythingIsWrittenAndACutOneSaysSo)
{
    test::writeFile(file(u"notes.wav"_s), "This is a shopping list, not a recording.\n");
    test::writeFile(file(u"empty.flac"_s), {});
    // A name that is not UTF-8 arrives with a replacement character.
    const QByteArray latin1 = QFile::encodeName(dir_.path()) + "/caf\xe9.wav";
    SF_INFO info{0, 16000, 1, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 0, 0};
    SNDFILE *f = sf_open(latin1.constData(), SFM_WRITE, &info);
    ASSERT_NE(f, nullptr);
    sf_close(f);
    const QString nothing = u" Nothing was imported."_s;
    const struct {
        QString path;
        QString message;
    } cases[] = {
        {file(u"notes.wav"_s),
         u"“notes.wav” is not an audio file Kestil can read. Choose a WAV, FLAC, Ogg, Opus or MP3 "
         "file."_s +
             nothing},
        {file(u"empty.flac"_s), u"“empty.flac” is empty: it holds no audio."_s + nothing},
        {QFile::decodeName(latin1),
         u"The name of “caf\uFFFD.wav” is not valid UTF-8, so Kestil cannot open it. Rename the file "
         "and import it again."_s +
             nothing},
        {file(u"missing.mp3"_s), u"“missing.mp3” could not be found."_s + nothing},
    };
    for (const auto &c : cases) {
        const Outcome outcome = run(c.path);
        EXPECT_FALSE(outcome.began);
        EXPECT_EQ(outcome.message, c.message);
    }
    ::unlink(latin1.constData());
    EXPECT_TRUE(notes().isEmpty());
    EXPECT_TRUE(QDir(root_ + u"/Recordings"_s).isEmpty());

    // A FLAC cut in half keeps what could be decoded.
    const QString flac = file(u"cut.flac"_s);
    ASSERT_TRUE(test::writeSoundFile(flac, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 16000, 1, speech().samples));
    const QByteArray whole = test::fileBytes(flac);
    test::writeFile(flac, whole.left(whole.size() / 2));
    const Outcome cut = run(flac);
    ASSERT_TRUE(cut.began);
    EXPECT_TRUE(cut.message.contains(u"The file ends early: the first 0:0"_s)) << cut.message.toStdString();
    EXPECT_EQ(notes().size(), 1);
}

TEST_F(AudioFileImportTest, AFileLargerThanTheFreeSpaceIsRefusedUpFront)
{
    test::TmpfsMount disk(8 << 20);
    KESTIL_REQUIRE_MOUNT(disk);
    open(disk.path() + u"/Kestil"_s);
    // Two minutes at 48 kHz: 46 MB as a recording, far more than the disk.
    const QString wav = file(u"long.wav"_s);
    ASSERT_TRUE(test::writeSoundFile(wav, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 1,
                                     test::sine(220, 48000, 48000 * 120, 0.2f)));
    const Outcome outcome = run(wav);
    EXPECT_FALSE(outcome.began);
    EXPECT_TRUE(outcome.message.startsWith(u"“long.wav” needs about "_s));
    EXPECT_TRUE(outcome.message.endsWith(u"Free some space and import it again. Nothing was imported."_s));
    EXPECT_TRUE(notes().isEmpty());
}

TEST_F(AudioFileImportTest, CancellingWhileCopyingLeavesNothingAndWhileTranscribingKeepsTheNote)
{
    // A minute and a half of speech: long enough to cancel midway.
    std::vector<float> audio;
    while (audio.size() < std::size_t(16000 * 90))
        audio.insert(audio.end(), speech().samples.begin(), speech().samples.end());
    const QString wav = file(u"lecture.wav"_s);
    ASSERT_TRUE(test::writeSoundFile(wav, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 16000, 1, audio));

    // As soon as the note exists, before a sample is copied.
    const auto cancelAtOnce = QObject::connect(import_.get(), &AudioFileImport::noteCreated, import_.get(),
                                               &AudioFileImport::cancel);
    const Outcome copying = run(wav);
    QObject::disconnect(cancelAtOnce);
    EXPECT_EQ(copying.message, u"The import of “lecture.wav” was cancelled. Nothing was imported."_s);
    EXPECT_TRUE(notes().isEmpty());

    const Outcome transcribing = run(wav, [](AudioFileImport &i) {
        if (i.stage() == AudioFileImport::Stage::transcribing && i.progress() > 0.2)
            i.cancel();
    });
    EXPECT_EQ(transcribing.message, u"The transcription of “lecture.wav” was cancelled. The note "
                                    "keeps all its audio and the text transcribed so far."_s);
    ASSERT_EQ(notes().size(), 1);
    const NotePtr note = notes().first();
    EXPECT_FALSE(note->transcription().value_or(QString()).isEmpty()) << "text saved as it came";
    EXPECT_NEAR(DurableAudioWriter::recordedDuration(RecordingFolder::noteFolder(root_, *note->id())),
                double(audio.size()) / 16000, 0.01);
}
