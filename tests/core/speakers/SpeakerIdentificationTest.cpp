// Who said what: a real store and real recording folders, with a scripted
// diarizer (the real one is measured in the speech tests).
#include "core/SpeakerIdentification.h"
#include "core/CoreTestSupport.h"
#include "support/CoreApplicationEnvironment.h"
#include "support/QtPrinters.h"

#include "base/CancellationError.h"
#include "capture/DurableAudioWriter.h"
#include "capture/RecordingFolder.h"
#include "core/NoteAudio.h"
#include "core/NoteTranscript.h"
#include "speech/SpeakerNames.h"

#include <QEventLoop>
#include <QTimer>

#include <atomic>
#include <thread>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

// What the diarizer answers, when the test lets it, and how much audio it heard.
struct Script {
    std::vector<SpeakerTurn> turns;
    std::atomic<bool> go = true;
    double heardSeconds = 0;
};

class ScriptedDiarizer : public SpeakerDiarizer {
public:
    explicit ScriptedDiarizer(std::shared_ptr<Script> script) : script_(std::move(script)) {}

    std::vector<SpeakerTurn> diarize(std::span<const float> samples, double rate, const Progress &progress,
                                     const CancelCheck &cancelled) override
    {
        script_->heardSeconds = double(samples.size()) / rate;
        while (!script_->go)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        if (cancelled && cancelled())
            throw CancellationError();
        if (progress)
            progress(1.0);
        return script_->turns;
    }

private:
    std::shared_ptr<Script> script_;
};

class SpeakerIdentificationTest : public ::testing::Test {
public:
    void SetUp() override
    {
        root_ = dir_.filePath(u"Kestil"_s);
        app_ = test::launchApp(root_);
        identification_ = std::make_unique<SpeakerIdentification>(
            *app_, [script = script_] { return std::make_unique<ScriptedDiarizer>(script); });
    }

    // A note of `seconds` of audio in two segments (48 kHz, then 44.1 kHz)
    // with a sentence every five seconds.
    NotePtr recordedNote(double seconds)
    {
        const QUuid id = QUuid::createUuid();
        NotePtr note = app_->store()->createNote(u"Meeting"_s, {}, id, u"local"_s);
        for (const double rate : {48000.0, 44100.0}) {
            DurableAudioWriter writer(RecordingFolder::newSegmentFolder(root_, id), id, rate);
            writer.append(std::vector<float>(std::size_t(rate * seconds / 2), 0.1f));
            writer.complete();
        }
        QList<TranscriptUtterance> utterances;
        QStringList text;
        for (int i = 0; i * 5 < seconds; ++i) {
            utterances << TranscriptUtterance{newTranscriptUtteranceId(), u"Sentence number %1."_s.arg(i),
                                              i * 5.0, i * 5.0 + 4};
            text << utterances.last().text;
        }
        note->setValue(u"transcription"_s, text.join(QLatin1Char(' ')));
        setTranscriptUtterances(*note, utterances);
        note->setValue(u"speakerNamesJSON"_s, u"{\"0\":\"Old name\"}"_s);
        app_->store()->save();
        return note;
    }

    std::pair<bool, QString> run(const NotePtr &note, const std::function<void()> &during = {})
    {
        std::pair<bool, QString> outcome{false, u"(no end)"_s};
        QEventLoop loop;
        QObject::connect(identification_.get(), &SpeakerIdentification::finished, &loop,
                         [&](bool identified, const QString &message) {
                             outcome = {identified, message};
                             loop.quit();
                         });
        QTimer::singleShot(20000, &loop, &QEventLoop::quit);
        if (!identification_->start(note))
            return outcome;
        if (during)
            during();
        script_->go = true;
        loop.exec();
        return outcome;
    }

    QTemporaryDir dir_;
    QString root_;
    std::shared_ptr<Script> script_ = std::make_shared<Script>();
    std::unique_ptr<LocalAppModel> app_;
    std::unique_ptr<SpeakerIdentification> identification_;
};

TEST_F(SpeakerIdentificationTest, EachSentenceGetsTheVoiceOfItsTimeAndTheResultIsSaved)
{
    const NotePtr note = recordedNote(20);
    script_->turns = {{0, 9.5, 0}, {9.5, 20, 1}};
    const auto [identified, message] = run(note);
    EXPECT_TRUE(identified) << message.toStdString();
    EXPECT_EQ(message, u"2 speakers were told apart in this note. Click a speaker's name in the "
                       "transcript to rename them."_s);
    // Both segments were heard, one after the other, at the models' rate.
    EXPECT_NEAR(script_->heardSeconds, 20.0, 0.01);
    SharedPersistenceController stored(root_);
    const NotePtr reread = stored.noteWithId(*note->id());
    EXPECT_EQ(transcriptForReading(*reread),
              u"Speaker 1: Sentence number 0. Sentence number 1.\n\nSpeaker 2: Sentence number 2. "
              "Sentence number 3."_s);
    EXPECT_FALSE(reread->speakerNamesJSON()) << "names given to the earlier numbering are gone";
}

TEST_F(SpeakerIdentificationTest, AnythingThatChangesTheNoteMeanwhileLeavesItAsItWas)
{
    const QString unchanged = u" The transcript is unchanged."_s;
    const struct {
        const char *what;
        std::function<void(const NotePtr &)> meanwhile;
        QString message;
    } rows[] = {
        {"edited", [](const NotePtr &note) { setTranscriptFromPlainText(*note, u"Typed over."_s); },
         u"The transcript changed while its speakers were identified, so the result no longer fits "
         "it. The transcript is unchanged. Choose Identify Speakers again."_s},
        {"deleted", [&](const NotePtr &note) { app_->store()->deleteNote(note); },
         u"The note was deleted while its speakers were identified."_s},
        {"cancelled", [&](const NotePtr &) { identification_->cancel(); },
         u"Identifying speakers was cancelled."_s + unchanged},
        {"silent", [&](const NotePtr &) { script_->turns.clear(); },
         u"No voices were found in this note's audio."_s + unchanged},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        const NotePtr note = recordedNote(10);
        script_->turns = {{0, 5, 0}, {5, 10, 1}};
        script_->go = false;
        const auto [identified, message] = run(note, [&] { row.meanwhile(note); });
        EXPECT_FALSE(identified);
        EXPECT_EQ(message, row.message);
        if (note->isDeleted())
            continue;
        EXPECT_FALSE(showsSpeakers(transcriptUtterances(*note)));
        EXPECT_EQ(note->speakerNamesJSON(), u"{\"0\":\"Old name\"}"_s);
    }
}

TEST_F(SpeakerIdentificationTest, ANoteWithoutTimedTextOrModelsCannotBegin)
{
    const NotePtr typed =
        app_->store()->createNote(u"Typed"_s, u"Just words."_s, QUuid::createUuid(), u"local"_s);
    EXPECT_FALSE(identification_->start(typed));
    EXPECT_EQ(identification_->lastMessage(),
              u"This note has no timed transcript to give to speakers: only recorded or imported "
              "audio has one. The transcript is unchanged."_s);
    SpeakerIdentification missing(
        *app_, []() -> std::unique_ptr<SpeakerDiarizer> { throw LocalError(u"The models are missing."_s); });
    EXPECT_FALSE(missing.start(recordedNote(10)));
    EXPECT_EQ(missing.lastMessage(), u"The models are missing."_s);
}

TEST_F(SpeakerIdentificationTest, ASegmentLongerThanOneReadAndTornGivesAllItsWholeSamples)
{
    const QUuid id = QUuid::createUuid();
    {
        DurableAudioWriter writer(RecordingFolder::newSegmentFolder(root_, id), id, 16000);
        writer.append(std::vector<float>((1 << 16) + 1, 0.25f));
        writer.append("\x01\x02", 2); // half a sample, as a crash leaves it
    }
    const std::vector<float> audio = readNoteAudio(root_, id, 16000);
    ASSERT_EQ(audio.size(), (1u << 16) + 1);
    EXPECT_EQ(audio.back(), 0.25f);
}

} // namespace
